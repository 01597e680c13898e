#include "capture/BrowserPages.h"

#include <cmath>

namespace ombrelo {

bool BrowserPages::take(const BrowserReport& report, Instant now) {
    // A clock set back or a report from the future are as unreliable as a late one.
    if (report.pid <= 1 || !(std::fabs(now - report.at) <= maxAge)) return false;
    reports_[report.pid] = report;
    lastReport_ = now;
    return true;
}

const BrowserReport* BrowserPages::find(std::optional<int> pid) const {
    if (pid) {
        auto found = reports_.find(*pid);
        return found == reports_.end() ? nullptr : &found->second;
    }
    return reports_.size() == 1 ? &reports_.begin()->second : nullptr;
}

std::optional<PageContext> BrowserPages::page(std::optional<int> pid) const {
    const BrowserReport* report = find(pid);
    if (!report || !report->focused) return std::nullopt;
    if (report->incognito) return PageContext{.privateWindow = true};
    return PageContext{report->domain, report->url, report->title, false};
}

bool BrowserPages::reports(std::optional<int> pid) const { return find(pid) != nullptr; }

} // namespace ombrelo
