// ActivityTracker: the capture loop. It turns what the desktop shows into
// activity rows and keeps exactly one activity open at a time, the current one,
// whose row is extended at every sample. Idle time becomes an "Inactif" row cut
// back to the last input; sleep, a locked screen and the login window leave a
// gap between rows; outside working hours and during the user's pause nothing is
// recorded; time the privacy rules exclude is recorded as private, without its
// title, site, path or address.
//
// It owns no timer: whoever drives it (the tracker's event loop, replay, tests)
// calls tick() every sampleInterval seconds and close(now) at quit. It listens
// to the desktop from start() until it is destroyed.
//
// Write failures are logged and the loop goes on; without a store nothing is
// written but the published state still follows the user.
//
// Owned by the application shell; main loop thread only, like the store, the
// desktop and the preferences it is given.
#pragma once

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
    // Seconds between two samples.
    static constexpr double sampleInterval = 5.0;
    // The deadline of a pause "until resumed" (4001-01-01 UTC, like a distant
    // future), so that "pausedUntil" always holds a date.
    static constexpr Instant indefinitely = 64092211200.0;

    // `store` may be null (the database could not be opened): nothing is written.
    // The references must outlive the tracker.
    ActivityTracker(ActivityStore* store, Desktop& desktop, Clock& clock, Preferences& preferences);
    ~ActivityTracker() override;
    ActivityTracker(const ActivityTracker&) = delete;
    ActivityTracker& operator=(const ActivityTracker&) = delete;

    // Called with each activity once it has a row.
    std::function<void(const Activity&)> onRecorded;
    // Called with the idle activity that just ended when the user comes back.
    std::function<void(const Activity&)> onReturnFromIdle;
    // Called when a call or meeting of at least a minute ends: name, start, end.
    std::function<void(const std::string&, Instant, Instant)> onCallEnded;

    // Subscribes to the desktop, begins with the application in front (unless
    // the desktop is suspended) and refreshes the published state.
    void start();
    // One sample; to be called every sampleInterval seconds.
    void tick();

    // Starts a new activity for `app` at `at`, unless its details equal the
    // current one's. The login window suspends capture instead.
    void begin(const FrontApp& app, Instant at);
    // Inserts `activity` with its end set to `until` and makes it current.
    void open(Activity activity, Instant until);
    // Ends the current activity at `at` (never before its start); one shorter
    // than a second is deleted. Nothing is current afterwards.
    void close(Instant at);
    // Writes `now` as the current activity's end.
    void checkpoint(Instant now);
    // Starts a new activity when the front window's title or page changed.
    void checkTitle(Instant now);
    // Cuts the current activity in two at now (the user's cut).
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

    // For a session replayed inside one transaction, which nobody reads before
    // it ends: checkpoints keep the end in memory only (close writes it, so the
    // rows come out the same) and refresh() reads nothing.
    void setUnobserved(bool unobserved) { unobserved_ = unobserved; }
    // Writes that failed since construction, and the last failure's message;
    // replay refuses to keep a session with holes.
    int failedWrites() const { return failedWrites_; }
    const std::string& lastWriteError() const { return lastWriteError_; }

private:
    bool trackingAllowed(Instant now) const;
    // The front application's activity as the desktop describes it, private
    // details removed when the privacy rules exclude it.
    Activity describe(const FrontApp& app);
    void conceal(Activity& activity);
    // Makes `next` current from `at`, unless it has the current one's details.
    void switchTo(Activity next, Instant at);
    void beginFrontmost(Instant at);
    void sample(Instant now, const std::set<std::string>& holders);
    void splitAtMidnight(Instant now);
    // Re-reads the settings when their file changed (another process may have
    // set or cleared the pause, or changed the working hours).
    void readSettings();
    void writeFailed(std::string_view what, const std::exception& error);

    ActivityStore* store_;
    Desktop& desktop_;
    Clock& clock_;
    Preferences& preferences_;
    std::shared_ptr<spdlog::logger> log_;

    std::optional<Activity> current_;
    std::vector<Activity> recent_;
    double todayActive_ = 0;
    std::vector<AppTotal> todayApps_;
    bool suspended_ = false;
    std::optional<Instant> pausedUntil_;
    bool outsideWorkHours_ = false;
    std::map<std::string, Instant> callsInProgress_;

    std::uint64_t settingsSeen_ = 0;  // Preferences::generation() at the last read
    WorkHours workHours_;
    Instant today_ = 0, tomorrow_ = 0;  // the current local day, [today_, tomorrow_)
    double idleThreshold_ = 300;
    bool started_ = false;
    bool unobserved_ = false;
    int failedWrites_ = 0;
    std::string lastWriteError_;
};

} // namespace ombrelo
