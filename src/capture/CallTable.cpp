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
    // Linux: .desktop ids of the distribution packages, Flatpak and Snap, lower-cased.
    {"zoom", "Zoom"},
    {"us.zoom.zoom", "Zoom"},
    {"zoom-client_zoom-client", "Zoom"},
    {"teams", "Teams"},
    {"teams-insiders", "Teams"},
    {"teams-for-linux", "Teams"},
    {"com.github.ismaelmartinez.teams_for_linux", "Teams"},
    {"teams-for-linux_teams-for-linux", "Teams"},
    {"webex", "Webex"},
    {"slack", "Slack"},
    {"com.slack.slack", "Slack"},
    {"slack_slack", "Slack"},
    {"discord", "Discord"},
    {"com.discordapp.discord", "Discord"},
    {"discord_discord", "Discord"},
    {"skypeforlinux", "Skype"},
    {"com.skype.client", "Skype"},
    {"skype_skypeforlinux", "Skype"},
};

} // namespace

std::optional<std::string> callAppName(std::string_view appID) {
    auto found = std::find_if(std::begin(callApps), std::end(callApps),
                              [&](const CallApp& app) { return app.id == appID; });
    if (found == std::end(callApps)) return std::nullopt;
    return std::string(found->name.empty() ? L10n::text("Appel", "Call") : found->name);
}

} // namespace ombrelo
