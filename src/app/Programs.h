// Other programs run to their end: desktop tools the commands call on the
// user's behalf (gnome-shell --version, gnome-extensions enable).
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ombrelo {

// What the program wrote on its standard output, when it was found and ended
// with status 0. Its standard error is dropped.
std::optional<std::string> programOutput(const std::vector<std::string>& argv);

} // namespace ombrelo
