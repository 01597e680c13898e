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

void ReportedWindows::take(const WindowReport& report) {
    bool another = !report_ || report_->window != report.window || report_->desktopID != report.desktopID ||
                   report_->windowClass != report.windowClass || report_->pid != report.pid;
    report_ = report;
    if (another) announceFrontChange();
}

void ReportedWindows::forget() {
    report_.reset();
    announceFrontChange();
}

} // namespace ombrelo::platform
