#include "storage/Activity.h"

#include "support/L10n.h"

namespace ombrelo {

std::string Activity::label() const {
    if (kind == Kind::privateTime) return std::string(L10n::text("Privé", "Private"));
    if (kind == Kind::idle) return std::string(L10n::text("Inactif", "Idle"));
    return domain ? *domain : appName;
}

bool Activity::sameDetails(const Activity& other) const {
    return bundleID == other.bundleID && appName == other.appName && title == other.title &&
           domain == other.domain && kind == other.kind && path == other.path && url == other.url;
}

std::string_view rawValue(Activity::Kind kind) {
    switch (kind) {
    case Activity::Kind::app: return "app";
    case Activity::Kind::idle: return "idle";
    case Activity::Kind::manual: return "manual";
    case Activity::Kind::privateTime: return "private";
    }
    return "app";
}

Activity::Kind kindFromRaw(std::string_view raw) {
    if (raw == "idle") return Activity::Kind::idle;
    if (raw == "manual") return Activity::Kind::manual;
    if (raw == "private") return Activity::Kind::privateTime;
    return Activity::Kind::app;
}

} // namespace ombrelo
