// ActivityTracker: the capture loop. It turns what the desktop shows into
// activity rows and keeps exactly one activity open at a time, the current one,
// whose row is extended at every sample. Idle time becomes an "Inactif" row cut
// back to the last input; sleep, a locked screen and the login window leave a
// gap between rows; outside working hours and during the user's pause nothing is
// recorded; time the privacy rules exclude is recorded as private, without its
// title, site, path or address.
//
// Rows never span two days: whatever writes an end past midnight (a sample, an
// event, a close) first cuts the row there and goes on in a copy.
//
// The process may be frozen without warning (suspend without a delay lock, a
// stopped process): when the uptime clock shows that no sample ran for several
// intervals, the current activity ends at the last moment the tracker saw, before
// anything else happens, whatever order the desktop's signals arrive in.
//
// It owns no timer: whoever drives it (the tracker's event loop, replay, tests)
// calls tick() every sampleInterval() seconds and quit() at the end. It listens
// to the desktop from start() until it is destroyed.
//
// A write that fails (the database busy, say) is logged and kept: the next
// sample tries it again, so an activity whose insert failed still gets its row.
// The current row is only extended while it still ends where the tracker left
// it: changed by another program (manual time put over it), the activity goes
// on in a new row rather than stretching over the other program's time.
// Without a writer nothing is written but the published state still follows
// the user.
//
// Owned by the application shell; main loop thread only, like the store, the
// desktop and the preferences it is given.
#pragma once

#include "capture/ActivityWriter.h"
#include "capture/Desktop.h"
#include "storage/Activity.h"
#include "support/Clock.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace spdlog {
class logger;
}

namespace ombrelo {

class ActivityStore;
class Preferences;

class ActivityTracker final : public DesktopObserver {
public:
    // Seconds between two samples, unless set otherwise.
    static constexpr double defaultSampleInterval = 5.0;
    // This many intervals without a sample mean the process did not run.
    static constexpr double missedSamplesForGap = 3.0;
    // The deadline of a pause "until resumed" (4001-01-01 UTC, like a distant
    // future), so that "pausedUntil" always holds a date.
    static constexpr Instant indefinitely = 64092211200.0;

    // Live tracking: rows go to `store`, which also feeds the published views.
    // `store` may be null (the database could not be opened): nothing is written.
    // The references must outlive the tracker.
    ActivityTracker(ActivityStore* store, Desktop& desktop, Clock& clock, Preferences& preferences);
    // A session nobody watches while it runs (replay): rows go to `writer`, and
    // the published views stay empty.
    ActivityTracker(ActivityWriter& writer, Desktop& desktop, Clock& clock, Preferences& preferences);
    ~ActivityTracker() override;
    ActivityTracker(const ActivityTracker&) = delete;
    ActivityTracker& operator=(const ActivityTracker&) = delete;

    // Called with each activity as it begins (before its row is written, which
    // may be later when the database refuses it for the moment).
    std::function<void(const Activity&)> onOpened;
    // Called with each activity once it has a row.
    std::function<void(const Activity&)> onRecorded;
    // Called with the idle activity that just ended when the user comes back.
    std::function<void(const Activity&)> onReturnFromIdle;
    // Called when a call or meeting of at least a minute ends: name, start, end.
    std::function<void(const std::string&, Instant, Instant)> onCallEnded;

    // Subscribes to the desktop, begins with the application in front (unless
    // the desktop is suspended) and refreshes the published state.
    void start();
    // One sample; to be called every sampleInterval() seconds.
    void tick();
    double sampleInterval() const { return sampleInterval_; }
    void setSampleInterval(double seconds) { sampleInterval_ = seconds; }
    // The first instant from which a sample may do more than extend the current
    // activity, as long as nothing happens on the desktop (midnight, the idle
    // threshold, the end of a pause, an hour of the working hours). A simulated
    // session samples the stretch before it in one step.
    Instant nextChange();

    // Re-reads the settings now (another process changed them): a pause, or its
    // end, takes effect at once.
    void takeInSettings();

    // Starts a new activity for `app` at `at`, unless its details equal the
    // current one's. The login window suspends capture instead.
    void begin(const FrontApp& app, Instant at);
    // Inserts `activity` with its end set to `until` and makes it current.
    void open(Activity activity, Instant until);
    // Ends the current activity at `at` (never before its start); one shorter
    // than a second is deleted. Nothing is current afterwards.
    void close(Instant at);
    // Tracking stops (the program quits): the current activity ends now, or at
    // the last sample when the process did not run since.
    void quit();
    // Writes `now` as the current activity's end.
    void checkpoint(Instant now);
    // Starts a new activity when the front window's title or page changed.
    void checkTitle(Instant now);
    // Cuts the current activity in two at now (the user's cut, or a change of
    // the project in progress: the part after is recorded anew).
    void splitNow();
    // Closes the current activity at `at` and opens an idle one from `at`.
    void beginIdle(Instant at);
    // Replaces the current activity from now with the same one carrying new
    // details (after the privacy test); nothing happens when they are the same.
    void restart(const Activity& details);
    // Reloads the published views from the store.
    void refresh();

    // The user's pause until `until` (indefinitely: until resumed); kept in the
    // "pausedUntil" setting. Closes the current activity at once.
    void pause(Instant until);
    // Ends the pause and begins again with the application in front.
    void resumeTracking();

    // Follows the display-awake holders to detect calls (see CallTable.h).
    void watchCalls(const std::set<std::string>& holders, Instant now);

    void appDidActivate(const FrontApp& app) override;
    void nothingInFront() override;
    void suspend(const std::string& why) override;
    void resume(const std::string& why) override;

    // True when a pause is set and its deadline is still ahead.
    bool isPaused() const;
    // True when working hours are off, or `date` falls on a working day within
    // [workHoursStart, workHoursEnd) hours (minutes ignored), in local time.
    static bool isWithinWorkHours(Instant date, const Preferences& preferences);
    static bool isLoginWindow(std::string_view appID);

    // The user's working hours, as the settings give them.
    struct WorkHours {
        bool enabled = false;
        std::int64_t start = 8, end = 19;          // hours, end exclusive
        std::vector<std::int64_t> days;            // 1 = Sunday … 7 = Saturday
        static WorkHours read(const Preferences& preferences);
        bool contain(Instant date) const;
    };

    // Published state.
    const std::optional<Activity>& current() const { return current_; }
    const std::vector<Activity>& recent() const { return recent_; }
    double todayActive() const { return todayActive_; }
    const std::vector<AppTotal>& todayApps() const { return todayApps_; }
    bool suspended() const { return suspended_; }
    std::optional<Instant> pausedUntil() const { return pausedUntil_; }
    bool outsideWorkHours() const { return outsideWorkHours_; }
    const std::map<std::string, Instant>& callsInProgress() const { return callsInProgress_; }

    // Writes that failed and wait for the next sample (the current activity's
    // missing insert included).
    std::size_t unsavedWrites() const { return pending_.size() + (writer_ && current_ && current_->id == 0 ? 1 : 0); }

private:
    // The moment the tracker last ran, on both clocks.
    struct Sighting {
        Instant at;
        double uptime;
    };

    // What every entry point does first: notices time the process did not run
    // (ending the current activity at the last sighting), retries failed
    // writes, and returns now.
    Instant arrive();
    bool trackingAllowed(Instant now) const;
    // The front application's activity as the desktop describes it, private
    // details removed when the privacy rules exclude it.
    Activity describe(const FrontApp& app);
    // Clears the details of time the privacy rules exclude, or of a private
    // browser window, and makes it private time.
    void conceal(Activity& activity, bool privateWindow = false);
    // Makes `next` current from `at` (never before the current one's start),
    // unless it has the current one's details.
    void switchTo(Activity next, Instant at);
    void beginFrontmost(Instant at);
    void sample(Instant now, const std::set<std::string>& holders);
    // Follows the front window: nothing in front closes the current activity,
    // another application or a new title or page opens a new one.
    void followFront(Instant now);
    // Starts a new activity when `front` (the current activity's application)
    // shows another title, page or privacy.
    void followDetails(const FrontApp& front, Instant now);
    // Cuts the current activity at each midnight before `t`.
    void splitAtMidnights(Instant t);
    // Moves the current activity's end to `t` (split at midnights first) and
    // writes it, inserting the row if its insert had failed.
    void extendTo(Instant t);
    // Gives the current activity its row when it has none (a failure is
    // logged; the next sample tries again).
    void persistCurrent();
    void doPause(Instant until, Instant now);
    void doResume(Instant now);
    // Re-reads the settings when their file changed (another process may have
    // set or cleared the pause, or changed the working hours).
    void readSettings();
    // Keeps a write that failed for the next sample: an insert (id 0), an end,
    // or a removal (an activity shorter than a second).
    void keepForLater(const Activity& ending, const std::exception& error);
    // What ending `ending` takes: its insert when it never got a row (unless it
    // is shorter than a second), its removal when shorter than a second, else
    // its end, only over the end last `written` when that is known (another
    // program may have changed the row since). Throws what the writer throws.
    void writeEnding(Activity& ending, std::optional<Instant> written);
    // The current row was changed by another program: the activity goes on in
    // a new row from the end last written.
    void goOnAfterOutsideChange();
    void retryPendingWrites();
    void recorded(const Activity& activity);

    std::unique_ptr<StoreWriter> storeWriter_;
    ActivityWriter* writer_;
    ActivityStore* views_;  // null: nothing published
    Desktop& desktop_;
    Clock& clock_;
    Preferences& preferences_;
    std::shared_ptr<spdlog::logger> log_;

    std::optional<Activity> current_;
    Instant currentDayEnd_ = 0;  // the midnight that ends the current activity's day
    Instant writtenEnd_ = 0;     // the current row's end as last written
    std::vector<Activity> recent_;
    double todayActive_ = 0;
    std::vector<AppTotal> todayApps_;
    bool suspended_ = false;
    std::optional<Instant> pausedUntil_;
    bool outsideWorkHours_ = false;
    std::map<std::string, Instant> callsInProgress_;
    std::vector<Activity> pending_;  // closed activities whose last write failed
    std::optional<Sighting> lastSeen_;
    double sampleInterval_ = defaultSampleInterval;

    std::uint64_t settingsSeen_ = 0;  // Preferences::generation() at the last read
    WorkHours workHours_;
    double idleThreshold_ = 300;
    bool started_ = false;
};

} // namespace ombrelo
