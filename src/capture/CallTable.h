// CallTable: the applications whose hold on the display means a call or a
// meeting is under way, with the name a finished call is reported under. A plain
// table so that more identifiers (Linux .desktop ids) can be added beside the
// existing ones. Immutable; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

// The display name of the call application `appID` (exact match), or absent
// when `appID` is not a call application. An entry without a name reports the
// localised "Appel".
std::optional<std::string> callAppName(std::string_view appID);

} // namespace ombrelo
