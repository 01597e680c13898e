// Region: the country part of a POSIX locale name. Both the currency and the
// public holidays fall back on it when no setting chooses.
#pragma once

#include <string>
#include <string_view>

namespace ombrelo {

// "de_CH.UTF-8@euro" → "CH"; "" when the name carries no region.
std::string regionOf(std::string_view localeName);

} // namespace ombrelo
