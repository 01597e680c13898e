#include "capture/ActivityTracker.h"

#include "capture/CallTable.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "support/Log.h"
#include "support/Settings.h"

#include <algorithm>
#include <limits>
#include <utility>
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
    : storeWriter_(store ? std::make_unique<StoreWriter>(*store) : nullptr),
      writer_(storeWriter_.get()),
      views_(store),
      desktop_(desktop),
      clock_(clock),
      preferences_(preferences),
      log_(Log::get("capture")) {
    readSettings();
}

ActivityTracker::ActivityTracker(ActivityWriter& writer, Desktop& desktop, Clock& clock, Preferences& preferences)
    : writer_(&writer), views_(nullptr), desktop_(desktop), clock_(clock), preferences_(preferences),
      log_(Log::get("capture")) {
    readSettings();
}

ActivityTracker::~ActivityTracker() {
    if (started_) desktop_.subscribe(nullptr);
}

// ---- Start and the sample ----------------------------------------------------

void ActivityTracker::start() {
    if (views_) views_->refresh();
    started_ = true;
    Instant now = arrive();
    desktop_.subscribe(this);  // a suspended desktop tells us at once
    // Pause and working hours are not tested here: the first sample closes the
    // activity again when tracking is not allowed.
    if (!suspended_) beginFrontmost(now);
    refresh();
    log_->info("Suivi démarré");
}

Instant ActivityTracker::arrive() {
    Instant now = clock_.now();
    double uptime = clock_.uptime();
    if (lastSeen_ && uptime - lastSeen_->uptime > missedSamplesForGap * sampleInterval_) {
        // Asleep or stopped: what happened meanwhile is unknown, so the time
        // is not the current activity's.
        log_->info("Aucun échantillon depuis {} s (veille ou processus arrêté) : activité close à {}",
                   static_cast<long>(uptime - lastSeen_->uptime), local::formatDateTime(lastSeen_->at));
        close(lastSeen_->at);
        refresh();
    }
    lastSeen_ = Sighting{now, uptime};
    retryPendingWrites();
    return now;
}

void ActivityTracker::tick() {
    Instant now = arrive();
    if (suspended_) return;
    std::set<std::string> holders = desktop_.displayAwakeHolders();
    watchCalls(holders, now);

    bool hadPause = pausedUntil_.has_value();
    readSettings();
    if (hadPause && !isPaused()) doResume(now);

    outsideWorkHours_ = !workHours_.contain(now);
    if (!isPaused() && !outsideWorkHours_) {
        sample(now, holders);
    } else if (current_) {
        close(now);
        refresh();
    }
    // A slow answer from the desktop within this sample is not a gap; but a
    // process frozen within it (asleep, stopped) must not hide the gap from
    // the next entry, or the frozen time would join the current activity.
    double uptime = clock_.uptime();
    if (uptime - lastSeen_->uptime <= missedSamplesForGap * sampleInterval_) lastSeen_ = Sighting{clock_.now(), uptime};
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

    checkpoint(now);
    if (current_ && current_->kind != Activity::Kind::idle) followFront(now);
}

Instant ActivityTracker::nextChange() {
    constexpr Instant never = std::numeric_limits<Instant>::infinity();
    Instant now = clock_.now();
    if (suspended_) return never;
    Instant next = never;
    if (isPaused()) next = std::min(next, *pausedUntil_);
    if (workHours_.enabled) {
        local::DateParts hour = local::parts(now);
        next = std::min(next, local::make(hour.year, hour.month, hour.day, hour.hour + 1));
    }
    if (!current_) return next;
    next = std::min(next, currentDayEnd_);
    if (current_->kind != Activity::Kind::idle && desktop_.displayAwakeHolders().empty())
        next = std::min(next, now + idleThreshold_ - desktop_.secondsSinceLastInput());
    return next;
}

// ---- Opening and closing activities ------------------------------------------

namespace {

// The same activity going on from `from`, as a new row.
Activity continuation(const Activity& activity, Instant from) {
    Activity copy = activity;
    copy.id = 0;
    copy.device.reset();
    copy.start = from;
    return copy;
}

} // namespace

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
    // Rows of one machine never overlap, whatever instant the caller names.
    if (current_) at = std::max(at, current_->start);
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
    activity.id = 0;
    Instant end = std::max(until, activity.start);
    currentDayEnd_ = local::addDays(local::startOfDay(activity.start), 1);
    activity.end = std::min(end, currentDayEnd_);
    current_ = std::move(activity);
    if (onOpened) onOpened(*current_);
    persistCurrent();
    if (end > currentDayEnd_) extendTo(end);
    refresh();
}

void ActivityTracker::persistCurrent() {
    if (!writer_ || current_->id != 0) return;
    try {
        current_->id = writer_->insert(*current_);
    } catch (const std::exception& error) {
        log_->error("Écriture impossible : {} (nouvel essai au prochain échantillon)", error.what());
        return;
    }
    writtenEnd_ = current_->end;
    recorded(*current_);
}

void ActivityTracker::recorded(const Activity& activity) {
    if (onRecorded) onRecorded(activity);
}

void ActivityTracker::splitAtMidnights(Instant t) {
    while (current_ && currentDayEnd_ < t) {
        Instant midnight = currentDayEnd_;
        Activity copy = continuation(*current_, midnight);
        close(midnight);
        open(std::move(copy), midnight);
    }
}

void ActivityTracker::extendTo(Instant t) {
    splitAtMidnights(t);
    if (!current_) return;
    Instant end = std::max(t, current_->start);
    current_->end = end;
    if (!writer_) return;
    if (current_->id == 0) {
        persistCurrent();  // the row carries the new end from the start
        return;
    }
    try {
        if (writer_->updateEndIf(current_->id, writtenEnd_, end)) writtenEnd_ = end;
        else goOnAfterOutsideChange();
    } catch (const std::exception& error) {
        log_->error("Écriture impossible : {}", error.what());  // the next sample writes a later end
    }
}

void ActivityTracker::goOnAfterOutsideChange() {
    // The row as it stood is the other program's now: what follows its last
    // written end is a row of its own, so nothing is counted twice.
    log_->info("Activité {} modifiée par un autre programme : suite dans une nouvelle ligne", current_->id);
    Instant end = current_->end;
    current_ = continuation(*current_, std::min(writtenEnd_, end));
    current_->end = end;
    if (onOpened) onOpened(*current_);
    persistCurrent();
}

void ActivityTracker::close(Instant at) {
    if (!current_) return;
    splitAtMidnights(at);
    current_->end = std::max(at, current_->start);
    Activity ending = std::move(*current_);
    current_.reset();
    if (!writer_) return;
    try {
        writeEnding(ending, writtenEnd_);
    } catch (const std::exception& error) {
        keepForLater(ending, error);
    }
}

void ActivityTracker::writeEnding(Activity& ending, std::optional<Instant> written) {
    if (ending.id == 0) {
        if (ending.duration() < shortestKept) return;
        ending.id = writer_->insert(ending);
        recorded(ending);
    } else if (ending.duration() < shortestKept) {
        writer_->remove(ending.id);
    } else if (!written) {
        writer_->updateEnd(ending.id, ending.end);
    } else if (!writer_->updateEndIf(ending.id, *written, ending.end)) {
        // Changed by another program: what follows its last written end is
        // a row of its own.
        Instant end = ending.end;
        ending = continuation(ending, std::min(*written, end));
        ending.end = end;
        writeEnding(ending, std::nullopt);
    }
}

void ActivityTracker::quit() {
    close(arrive());
    refresh();
}

void ActivityTracker::keepForLater(const Activity& ending, const std::exception& error) {
    log_->error("Écriture impossible : {} (nouvel essai au prochain échantillon)", error.what());
    pending_.push_back(ending);
}

void ActivityTracker::retryPendingWrites() {
    if (pending_.empty() || !writer_) return;
    std::vector<Activity> waiting = std::exchange(pending_, {});
    for (auto ending = waiting.begin(); ending != waiting.end(); ++ending) {
        try {
            writeEnding(*ending, std::nullopt);
        } catch (const std::exception&) {
            // Still failing: keep this one and the rest, in order, for later.
            pending_.assign(ending, waiting.end());
            return;
        }
    }
    log_->info("Écritures en attente faites");
}

void ActivityTracker::checkpoint(Instant now) {
    if (!current_) return;
    extendTo(now);
    refresh();
}

void ActivityTracker::checkTitle(Instant now) {
    if (!current_ || current_->kind == Activity::Kind::idle) return;
    std::optional<FrontApp> front = desktop_.frontmostApp();
    if (front && isSameApp(*front, *current_)) followDetails(*front, now);
}

void ActivityTracker::followDetails(const FrontApp& front, Instant now) {
    // A private activity stays one row while the rules still exclude it: its
    // details are cleared on both sides. The document path alone does not
    // split: it is not reliably reported.
    Activity fresh = describe(front);
    if (fresh.title != current_->title || fresh.domain != current_->domain || fresh.url != current_->url ||
        fresh.kind != current_->kind)
        switchTo(std::move(fresh), now);
}

void ActivityTracker::followFront(Instant now) {
    std::optional<FrontApp> front = desktop_.frontmostApp();
    if (!front) {
        close(now);
        refresh();
    } else if (!isSameApp(*front, *current_)) {
        begin(*front, now);  // an activation the desktop did not announce
    } else {
        followDetails(*front, now);
    }
}

void ActivityTracker::splitNow() {
    Instant now = arrive();
    if (!current_) return;
    Activity copy = continuation(*current_, std::max(now, current_->start));
    close(copy.start);
    open(std::move(copy), now);
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
    Instant now = arrive();
    Activity next = continuation(details, now);
    if (next.kind == Activity::Kind::app) conceal(next);
    switchTo(std::move(next), now);
}

Activity ActivityTracker::describe(const FrontApp& app) {
    Activity activity;
    if (!app.id.empty()) activity.bundleID = app.id;
    activity.appName = app.name.empty() ? "Application" : app.name;
    bool pages = desktop_.hasPageContext(app);
    bool titleFromPage = pages && desktop_.contextReplacesTitle(app);
    if (!titleFromPage) activity.title = nonEmpty(desktop_.windowTitle(app));
    activity.path = nonEmpty(desktop_.documentPath(app));
    bool privateWindow = false;
    if (pages) {
        if (std::optional<PageContext> page = desktop_.currentPage(app)) {
            activity.domain = nonEmpty(page->domain);
            activity.url = nonEmpty(page->url);
            if (titleFromPage) activity.title = nonEmpty(page->title);
            privateWindow = page->privateWindow;
        }
    }
    conceal(activity, privateWindow);
    return activity;
}

void ActivityTracker::conceal(Activity& activity, bool privateWindow) {
    if (!privateWindow && !desktop_.isPrivate(activity.bundleID, activity.domain, activity.title)) return;
    activity.kind = Activity::Kind::privateTime;
    activity.title.reset();
    activity.domain.reset();
    activity.path.reset();
    activity.url.reset();
}

void ActivityTracker::refresh() {
    if (!views_) return;
    try {
        Instant now = clock_.now(), today = local::startOfDay(now);
        recent_ = views_->recent(recentCount);
        todayActive_ = views_->activeSeconds(today, now);
        todayApps_ = views_->appTotals(today, now);
    } catch (const std::exception& error) {
        log_->warn("Lecture impossible : {}", error.what());
    }
}

// ---- Desktop notifications -----------------------------------------------------

bool ActivityTracker::trackingAllowed(Instant now) const { return !isPaused() && workHours_.contain(now); }

void ActivityTracker::appDidActivate(const FrontApp& app) {
    Instant now = arrive();
    readSettings();
    if (suspended_ || !trackingAllowed(now)) return;
    begin(app, now);
}

void ActivityTracker::nothingInFront() {
    Instant now = arrive();
    // An absence goes on: only input ends it, which the sample notices.
    if (!current_ || current_->kind == Activity::Kind::idle) return;
    close(now);
    refresh();
}

void ActivityTracker::suspend(const std::string& why) {
    Instant now = arrive();
    log_->info("Suspendu ({})", why);
    suspended_ = true;
    close(now);
    refresh();
}

void ActivityTracker::resume(const std::string& why) {
    Instant now = arrive();
    log_->info("Reprise ({})", why);
    suspended_ = false;
    readSettings();
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

void ActivityTracker::takeInSettings() {
    Instant now = arrive();
    bool wasPaused = isPaused();
    readSettings();
    if (!wasPaused && isPaused()) {
        log_->info("Suivi en pause jusqu'à {}", local::formatDateTime(*pausedUntil_));
        close(now);
        refresh();
    } else if (wasPaused && !isPaused()) {
        doResume(now);
    }
}

void ActivityTracker::pause(Instant until) { doPause(until, arrive()); }

void ActivityTracker::doPause(Instant until, Instant now) {
    pausedUntil_ = until;
    try {
        preferences_.set(settings::pausedUntil, until);
    } catch (const std::exception& error) {
        log_->error("Réglage « {} » non enregistré : {}", settings::pausedUntil, error.what());
    }
    log_->info("Suivi en pause jusqu'à {}", local::formatDateTime(until));
    close(now);
    refresh();
}

void ActivityTracker::resumeTracking() { doResume(arrive()); }

void ActivityTracker::doResume(Instant now) {
    pausedUntil_.reset();
    try {
        preferences_.remove(settings::pausedUntil);
    } catch (const std::exception& error) {
        log_->error("Réglage « {} » non enregistré : {}", settings::pausedUntil, error.what());
    }
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
