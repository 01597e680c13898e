// Random (version 4) UUIDs in their lower-case textual form, 36 characters.
#pragma once

#include <string>

namespace ombrelo {

std::string randomUUID();

} // namespace ombrelo
