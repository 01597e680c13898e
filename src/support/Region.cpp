#include "support/Region.h"

#include <algorithm>
#include <cctype>

namespace ombrelo {

std::string regionOf(std::string_view localeName) {
    localeName = localeName.substr(0, localeName.find_first_of(".@"));
    auto underscore = localeName.find('_');
    if (underscore == std::string_view::npos) return {};
    std::string region(localeName.substr(underscore + 1));
    bool plausible = region.size() >= 2 && region.size() <= 3 &&
                     std::all_of(region.begin(), region.end(), [](char c) { return std::isalnum((unsigned char)c); });
    return plausible ? region : std::string();
}

} // namespace ombrelo
