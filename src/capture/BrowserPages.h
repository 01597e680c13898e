// BrowserPages: what the browser extension last said of each browser's page
// in front, for the capture loop to read as that browser's page context. The
// reports come from `ombrelo browser-host`, which the browser starts, so a
// report names the browser by its process: the host's parent, the process
// whose windows the desktop shows.
//
// A report made more than maxAge seconds before it arrived is dropped: a page
// the user has already left must not be recorded now. A browser whose windows
// all lost the focus has no page until it reports one again.
//
// Main loop thread.
#pragma once

#include "capture/Desktop.h"
#include "support/Clock.h"

#include <map>
#include <optional>
#include <string>

namespace ombrelo {

struct BrowserReport {
    int pid = 0;       // the browser's process
    Instant at = 0;    // when the browser made the report
    bool focused = true;  // false: no window of this browser has the focus any more
    bool incognito = false;
    std::optional<std::string> url;
    std::optional<std::string> title;
    std::optional<std::string> domain;
};

class BrowserPages {
public:
    static constexpr double maxAge = 5;

    // Keeps `report` as its browser's page; false when it is dropped (stale, or
    // from a process that cannot be a browser's).
    bool take(const BrowserReport& report, Instant now);

    // The browser closed, or its extension stopped: its last page is no longer
    // in front of anything.
    void forget(int pid) { reports_.erase(pid); }

    // The page in front of the browser whose windows belong to `pid`. Without
    // a process, the page of the one browser that reports, if only one does.
    std::optional<PageContext> page(std::optional<int> pid) const;
    // Whether that browser reports its pages: then its tab titles replace the
    // window's.
    bool reports(std::optional<int> pid) const;
    // When the last report was taken; nothing when none ever was.
    std::optional<Instant> lastReport() const { return lastReport_; }

private:
    const BrowserReport* find(std::optional<int> pid) const;

    std::map<int, BrowserReport> reports_;  // by browser process
    std::optional<Instant> lastReport_;
};

} // namespace ombrelo
