#include "capture/ActivityTracker.h"

#include "capture/CallTable.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "support/Log.h"
#include "support/Settings.h"

#include <algorithm>
#include <spdlog/logger.h>

namespace ombrelo {

namespace {

// Input this recent means the user is back at the machine.
constexpr double returnThreshold = 5.0;
// Shorter activities are switching noise, deleted at close.
constexpr double shortestKept = 1.0;
// Shorter calls are dropped silently.
constexpr double shortestCall = 60.0;
constexpr int recentCount = 40;

std::optional<std::string> nonEmpty(std::optional<std::string> text) {
    if (text && text->empty()) return std::nullopt;
    return text;
}

bool isSameApp(const FrontApp& app, const Activity& activity) {
    return activity.bundleID.value_or("") == app.id && activity.appName == app.name;
}

} // namespace

ActivityTracker::ActivityTracker(ActivityStore* store, Desktop& desktop, Clock& clock, Preferences& preferences)
    : store_(store), desktop_(desktop), clock_(clock), preferences_(preferences), log_(Log::get("capture")) {
    readSettings();
}

ActivityTracker::~ActivityTracker() {
    if (started_) desktop_.subscribe(nullptr);
}

// ---- Start and the sample ----------------------------------------------------

void ActivityTracker::start() {
    if (store_) store_->refresh();
    started_ = true;
    desktop_.subscribe(this);  // a suspended desktop tells us at once
    // Pause and working hours are not tested here: the first sample closes the
    // activity again when tracking is not allowed.
    if (!suspended_) beginFrontmost(clock_.now());
    refresh();
    log_->info("Suivi démarré");
}

void ActivityTracker::tick() {
    if (suspended_) return;
    Instant now = clock_.now();
    std::set<std::string> holders = desktop_.displayAwakeHolders();
    watchCalls(holders, now);

    bool hadPause = pausedUntil_.has_value();
    readSettings();
    if (hadPause && !isPaused()) resumeTracking();

    outsideWorkHours_ = !workHours_.contain(now);
    if (!isPaused() && !outsideWorkHours_) {
        sample(now, holders);
    } else if (current_) {
        close(now);
        refresh();
    }
}

void ActivityTracker::sample(Instant now, const std::set<std::string>& holders) {
    if (!current_) beginFrontmost(now);
    if (!current_ || suspended_) return;  // nothing in front, or the login window

    double idle = desktop_.secondsSinceLastInput();
    bool wasIdle = current_->kind == Activity::Kind::idle;
    // A film or a call holds the display awake: sitting still is not absence.
    if (!wasIdle && !holders.empty()) idle = 0;

    if (wasIdle) {
        if (idle < returnThreshold) {
            Instant back = now - idle;
            std::optional<FrontApp> front = desktop_.frontmostApp();
            if (front) {
                begin(*front, back);  // reports the return from idle
            } else {
                Activity ended = *current_;
                ended.end = std::max(back, ended.start);
                close(back);
                if (onReturnFromIdle) onReturnFromIdle(ended);
            }
        }
    } else {
        // The absence began at the last input, but never before this activity.
        if (idle >= idleThreshold_) beginIdle(std::max(now - idle, current_->start));
    }
    if (!current_) return;

    splitAtMidnight(now);
    checkpoint(now);
    checkTitle(now);
}

void ActivityTracker::splitAtMidnight(Instant now) {
    // The day's bounds are kept: finding them goes through mktime, which looks
    // at the zone file again each time.
    if (now < today_ || now >= tomorrow_) {
        today_ = local::startOfDay(now);
        tomorrow_ = local::addDays(today_, 1);
    }
    // No row spans two days: cut at each midnight between the start and now.
    while (current_ && current_->start < today_) {
        Instant midnight = local::addDays(local::startOfDay(current_->start), 1);
        Activity copy = *current_;
        copy.id = 0;
        copy.device.reset();
        copy.start = midnight;
        close(midnight);
        open(copy, midnight);
    }
}

// ---- Opening and closing activities ------------------------------------------

void ActivityTracker::begin(const FrontApp& app, Instant at) {
    if (isLoginWindow(app.id)) {
        suspend(reason::loginWindow);
        return;
    }
    switchTo(describe(app), at);
}

void ActivityTracker::beginFrontmost(Instant at) {
    if (std::optional<FrontApp> front = desktop_.frontmostApp()) begin(*front, at);
}

void ActivityTracker::switchTo(Activity next, Instant at) {
    if (current_ && current_->sameDetails(next)) return;
    std::optional<Activity> left = current_;
    close(at);
    next.start = at;
    open(std::move(next), at);
    // Coming back by bringing an application to the front ends an absence as
    // surely as input noticed by the sample does.
    if (left && left->kind == Activity::Kind::idle && current_ && current_->kind != Activity::Kind::idle &&
        onReturnFromIdle) {
        left->end = std::max(at, left->start);
        onReturnFromIdle(*left);
    }
}

void ActivityTracker::open(Activity activity, Instant until) {
    activity.end = std::max(until, activity.start);
    activity.id = 0;
    if (store_) {
        try {
            activity.id = store_->insert(activity);
        } catch (const std::exception& error) {
            writeFailed("Écriture impossible", error);
        }
    }
    current_ = activity;
    if (activity.id != 0 && onRecorded) onRecorded(activity);
    refresh();
}

void ActivityTracker::close(Instant at) {
    if (!current_) return;
    Activity ending = *current_;
    current_.reset();
    ending.end = std::max(at, ending.start);
    if (!store_ || ending.id == 0) return;
    try {
        if (ending.duration() < shortestKept) store_->remove(ending.id);
        else store_->updateEnd(ending.id, ending.end);
    } catch (const std::exception& error) {
        writeFailed("Clôture impossible", error);
    }
}

void ActivityTracker::checkpoint(Instant now) {
    if (!current_) return;
    current_->end = std::max(now, current_->start);
    if (store_ && current_->id != 0 && !unobserved_) {
        try {
            store_->updateEnd(current_->id, current_->end);
        } catch (const std::exception& error) {
            writeFailed("Écriture impossible", error);
        }
    }
    refresh();
}

void ActivityTracker::checkTitle(Instant now) {
    if (!current_ || current_->kind == Activity::Kind::idle) return;
    std::optional<FrontApp> front = desktop_.frontmostApp();
    if (!front || !isSameApp(*front, *current_)) return;
    // A private activity stays one row while the rules still exclude it: its
    // details are cleared on both sides. The document path alone does not
    // split: it is not reliably reported.
    Activity fresh = describe(*front);
    if (fresh.title != current_->title || fresh.domain != current_->domain || fresh.url != current_->url ||
        fresh.kind != current_->kind)
        switchTo(std::move(fresh), now);
}

void ActivityTracker::splitNow() {
    if (!current_) return;
    Instant now = clock_.now();
    Activity copy = *current_;
    copy.id = 0;
    copy.device.reset();
    copy.start = now;
    close(now);
    open(copy, now);
}

void ActivityTracker::beginIdle(Instant at) {
    close(at);
    Activity idle;
    idle.start = at;
    idle.appName = "Inactif";
    idle.kind = Activity::Kind::idle;
    open(idle, clock_.now());
}

void ActivityTracker::restart(const Activity& details) {
    Activity next = details;
    next.id = 0;
    next.device.reset();
    if (next.kind == Activity::Kind::app) conceal(next);
    switchTo(std::move(next), clock_.now());
}

Activity ActivityTracker::describe(const FrontApp& app) {
    Activity activity;
    if (!app.id.empty()) activity.bundleID = app.id;
    activity.appName = app.name.empty() ? "Application" : app.name;
    bool pages = desktop_.hasPageContext(app);
    if (!(pages && desktop_.contextReplacesTitle(app))) activity.title = nonEmpty(desktop_.windowTitle(app));
    activity.path = nonEmpty(desktop_.documentPath(app));
    if (pages) {
        if (std::optional<PageContext> page = desktop_.currentPage(app)) {
            activity.domain = nonEmpty(page->domain);
            activity.url = nonEmpty(page->url);
        }
    }
    conceal(activity);
    return activity;
}

void ActivityTracker::conceal(Activity& activity) {
    if (!desktop_.isPrivate(activity.bundleID, activity.domain, activity.title)) return;
    activity.kind = Activity::Kind::privateTime;
    activity.title.reset();
    activity.domain.reset();
    activity.path.reset();
    activity.url.reset();
}

void ActivityTracker::refresh() {
    if (!store_ || unobserved_) return;
    try {
        Instant now = clock_.now(), today = local::startOfDay(now);
        recent_ = store_->recent(recentCount);
        todayActive_ = store_->activeSeconds(today, now);
        todayApps_ = store_->appTotals(today, now);
    } catch (const std::exception& error) {
        log_->warn("Lecture impossible : {}", error.what());
    }
}

void ActivityTracker::writeFailed(std::string_view what, const std::exception& error) {
    ++failedWrites_;
    lastWriteError_ = error.what();
    log_->error("{} : {}", what, error.what());
}

// ---- Desktop notifications -----------------------------------------------------

bool ActivityTracker::trackingAllowed(Instant now) const { return !isPaused() && workHours_.contain(now); }

void ActivityTracker::appDidActivate(const FrontApp& app) {
    readSettings();
    Instant now = clock_.now();
    if (suspended_ || !trackingAllowed(now)) return;
    begin(app, now);
}

void ActivityTracker::suspend(const std::string& why) {
    log_->info("Suspendu ({})", why);
    suspended_ = true;
    close(clock_.now());
    refresh();
}

void ActivityTracker::resume(const std::string& why) {
    log_->info("Reprise ({})", why);
    suspended_ = false;
    readSettings();
    Instant now = clock_.now();
    if (trackingAllowed(now)) beginFrontmost(now);
}

// ---- Pause and working hours -------------------------------------------------------

bool ActivityTracker::isPaused() const { return pausedUntil_ && *pausedUntil_ > clock_.now(); }

void ActivityTracker::readSettings() {
    // Only a change of the file counts, so a pause whose write failed stays in force.
    std::uint64_t generation = preferences_.generation();
    if (generation == settingsSeen_) return;
    settingsSeen_ = generation;
    pausedUntil_ = preferences_.number(settings::pausedUntil);
    workHours_ = WorkHours::read(preferences_);
    idleThreshold_ = preferences_.get(settings::idleSeconds);
    if (idleThreshold_ <= 0) idleThreshold_ = settings::idleSeconds.fallback;
}

void ActivityTracker::pause(Instant until) {
    pausedUntil_ = until;
    try {
        preferences_.set(settings::pausedUntil, until);
    } catch (const std::exception& error) {
        log_->error("Réglage « {} » non enregistré : {}", settings::pausedUntil, error.what());
    }
    log_->info("Suivi en pause jusqu'à {}", local::formatDateTime(until));
    close(clock_.now());
    refresh();
}

void ActivityTracker::resumeTracking() {
    pausedUntil_.reset();
    try {
        preferences_.remove(settings::pausedUntil);
    } catch (const std::exception& error) {
        log_->error("Réglage « {} » non enregistré : {}", settings::pausedUntil, error.what());
    }
    Instant now = clock_.now();
    readSettings();
    if (!suspended_ && workHours_.contain(now)) beginFrontmost(now);
    refresh();
}

bool ActivityTracker::isWithinWorkHours(Instant date, const Preferences& preferences) {
    return WorkHours::read(preferences).contain(date);
}

ActivityTracker::WorkHours ActivityTracker::WorkHours::read(const Preferences& preferences) {
    WorkHours hours;
    hours.enabled = preferences.get(settings::workHoursEnabled);
    if (!hours.enabled) return hours;
    hours.start = preferences.get(settings::workHoursStart);
    hours.end = preferences.get(settings::workHoursEnd);
    hours.days = preferences.get(settings::workDays);
    return hours;
}

bool ActivityTracker::WorkHours::contain(Instant date) const {
    if (!enabled) return true;
    local::DateParts when = local::parts(date);
    if (std::find(days.begin(), days.end(), when.weekday) == days.end()) return false;
    return start <= when.hour && when.hour < end;
}

bool ActivityTracker::isLoginWindow(std::string_view appID) {
    // On Linux the greeter runs outside the user's session, which logind reports
    // as locked or inactive instead.
    return appID == "com.apple.loginwindow";
}

// ---- Calls -----------------------------------------------------------------------------

void ActivityTracker::watchCalls(const std::set<std::string>& holders, Instant now) {
    for (const std::string& id : holders)
        if (callAppName(id) && !callsInProgress_.contains(id)) callsInProgress_.emplace(id, now);
    for (auto call = callsInProgress_.begin(); call != callsInProgress_.end();) {
        if (holders.contains(call->first)) {
            ++call;
            continue;
        }
        Instant start = call->second;
        std::string name = callAppName(call->first).value_or("");
        call = callsInProgress_.erase(call);
        if (now - start >= shortestCall && onCallEnded) onCallEnded(name, start, now);
    }
}

} // namespace ombrelo
