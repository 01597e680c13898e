#include "platform/linux/ReportedWindows.h"

namespace ombrelo::platform {

std::optional<FrontWindow> ReportedWindows::front() {
    if (!report_ || report_->empty()) return std::nullopt;
    WindowOwner owner;
    if (!report_->windowClass.empty()) owner.windowClass = WindowClass{report_->windowClass, report_->windowClass};
    if (!report_->desktopID.empty()) owner.gtkApplicationID = report_->desktopID;
    if (report_->pid > 0) owner.pid = report_->pid;
    std::optional<std::string> title;
    if (!report_->title.empty()) title = report_->title;
    return FrontWindow{owner, title};
}

namespace {

bool sameWindow(const std::optional<WindowReport>& a, const std::optional<WindowReport>& b) {
    if (!a || !b) return !a && !b;
    return a->window == b->window && a->desktopID == b->desktopID && a->windowClass == b->windowClass &&
           a->pid == b->pid;
}

} // namespace

void ReportedWindows::take(const WindowReport& report) { report_ = report; }

void ReportedWindows::forget() { report_.reset(); }

void ReportedWindows::announceNow() {
    announced_ = report_;
    announceFrontChange();
}

void ReportedWindows::settle() {
    if (sameWindow(report_, announced_)) return;
    announced_ = report_;
    announceFrontChange();
}

} // namespace ombrelo::platform
