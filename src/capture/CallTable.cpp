#include "capture/CallTable.h"

#include "support/L10n.h"

#include <algorithm>
#include <iterator>

namespace ombrelo {

namespace {

struct CallApp {
    std::string_view id;
    std::string_view name;
};

constexpr CallApp callApps[] = {
    {"us.zoom.xos", "Zoom"},
    {"com.microsoft.teams2", "Teams"},
    {"com.microsoft.teams", "Teams"},
    {"com.apple.FaceTime", "FaceTime"},
    {"com.cisco.webexmeetingsapp", "Webex"},
    {"Cisco-Systems.Spark", "Webex"},
    {"com.tinyspeck.slackmacgap", "Slack"},
    {"com.hnc.Discord", "Discord"},
    {"com.skype.skype", "Skype"},
};

} // namespace

std::optional<std::string> callAppName(std::string_view appID) {
    auto found = std::find_if(std::begin(callApps), std::end(callApps),
                              [&](const CallApp& app) { return app.id == appID; });
    if (found == std::end(callApps)) return std::nullopt;
    return std::string(found->name.empty() ? L10n::text("Appel", "Call") : found->name);
}

} // namespace ombrelo
