#include "capture/ScriptedDesktop.h"

#include "capture/PrivacyRules.h"

#include <algorithm>

namespace ombrelo {

void ScriptedDesktop::bringToFront(const ScriptedWindow& window) {
    std::string key = keyOf(window.app);
    windows_[key] = window;
    front_ = key;
    awaySince_.reset();
    if (observer_) observer_->appDidActivate(window.app);
}

void ScriptedDesktop::clearFront() {
    front_.reset();
    if (observer_) observer_->nothingInFront();
}

void ScriptedDesktop::setTitle(std::optional<std::string> title) {
    if (ScriptedWindow* window = frontWindow()) window->title = std::move(title);
}

void ScriptedDesktop::setPage(PageContext page) {
    if (ScriptedWindow* window = frontWindow()) window->page = std::move(page);
}

void ScriptedDesktop::inputStopped(Instant at) { awaySince_ = at; }

void ScriptedDesktop::inputResumed() { awaySince_.reset(); }

void ScriptedDesktop::setDisplayAwake(std::set<std::string> holders) { holders_ = std::move(holders); }

void ScriptedDesktop::notifySuspend(const std::string& why) {
    suspendedBy_ = why;
    if (observer_) observer_->suspend(why);
}

void ScriptedDesktop::notifyResume(const std::string& why) {
    suspendedBy_.reset();
    if (observer_) observer_->resume(why);
}

std::optional<FrontApp> ScriptedDesktop::frontmostApp() {
    if (ScriptedWindow* window = frontWindow()) return window->app;
    return std::nullopt;
}

std::optional<std::string> ScriptedDesktop::windowTitle(const FrontApp& app) {
    const ScriptedWindow* window = windowOf(app);
    return window ? window->title : std::nullopt;
}

std::optional<std::string> ScriptedDesktop::documentPath(const FrontApp& app) {
    const ScriptedWindow* window = windowOf(app);
    return window ? window->path : std::nullopt;
}

double ScriptedDesktop::secondsSinceLastInput() {
    return awaySince_ ? std::max(0.0, clock_.now() - *awaySince_) : 0.0;
}

bool ScriptedDesktop::hasPageContext(const FrontApp& app) {
    const ScriptedWindow* window = windowOf(app);
    return window && window->page.has_value();
}

std::optional<PageContext> ScriptedDesktop::currentPage(const FrontApp& app) {
    const ScriptedWindow* window = windowOf(app);
    return window ? window->page : std::nullopt;
}

bool ScriptedDesktop::isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                                const std::optional<std::string>& title) {
    return privacy_.isPrivate(appID, domain, title);
}

void ScriptedDesktop::subscribe(DesktopObserver* observer) {
    observer_ = observer;
    if (observer_ && suspendedBy_) observer_->suspend(*suspendedBy_);
}

const ScriptedWindow* ScriptedDesktop::windowOf(const FrontApp& app) const {
    auto found = windows_.find(keyOf(app));
    return found == windows_.end() ? nullptr : &found->second;
}

ScriptedWindow* ScriptedDesktop::frontWindow() {
    if (!front_) return nullptr;
    auto found = windows_.find(*front_);
    return found == windows_.end() ? nullptr : &found->second;
}

} // namespace ombrelo
