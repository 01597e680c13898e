// FocusController: focus sessions, distraction reminders and breaks.
//
// A session runs for a planned number of minutes or until stopped. While it
// runs, the current activity is watched: more than 30 seconds in a distracting
// category brings one reminder per episode. Independently of sessions, a
// continuous stretch of work ("breakEveryMinutes", an hour by default, 0: never)
// brings a five-minute break, which counts as taken when the user stayed away
// from the keyboard and pointer for at least 80 % of it.
//
// Sessions and breaks are rows, so a session outlives a restart of the tracker
// (start() takes it up again) and a command acting without a running tracker
// leaves state the tracker finds. The controller owns no timer: the tracker's
// event loop calls tick() every tickSeconds, on the capture's own thread; the
// commands use a controller without surroundings, which only writes rows.
//
// Main loop thread only, like the database it writes.
#pragma once

#include "focus/FocusRecords.h"
#include "storage/OtherWrites.h"
#include "support/Clock.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace spdlog {
class logger;
}

namespace ombrelo {

class Database;
class Preferences;

// The current activity, as far as focus cares.
struct WatchedActivity {
    std::string label;  // what the reminder names
    // The tracker records this as absence (idle time): such a sample neither
    // breaks nor extends the work stretch, whose own test is the input idle time.
    bool away = false;
};

// What the controller watches and whom it tells: the running tracker's desktop.
class FocusSurroundings {
public:
    virtual ~FocusSurroundings() = default;
    virtual double secondsSinceLastInput() = 0;
    // Absent when nothing is being recorded (paused, locked, nothing in front).
    virtual std::optional<WatchedActivity> currentActivity() = 0;
    // Whether it classifies, as recorded time does, into a category marked as
    // a distraction; asked only while a session runs, as it costs a
    // classification.
    virtual bool currentIsDistraction() = 0;
    virtual std::optional<std::string> projectName(std::int64_t id) = 0;
    // Skipped silently where nobody can show it.
    virtual void notify(const std::string& title, const std::string& body) = 0;
    // The break's own notice, offering to end the session or skip the break;
    // closed when the break ends.
    virtual void showBreak() = 0;
    virtual void closeBreak() = 0;
};

class FocusController {
public:
    static constexpr double tickSeconds = 5.0;
    static constexpr double defaultBreakEvery = 3600;
    static constexpr double distractionGrace = 30;
    static constexpr double stretchBrokenAfterIdle = 300;
    static constexpr double takenIdleShare = 0.8;
    static constexpr double stretchGap = 120;

    // `surroundings` may be null (a command's controller): nothing is watched or
    // shown. Everything must outlive the controller.
    FocusController(Database& db, Preferences& preferences, Clock& clock, FocusSurroundings* surroundings = nullptr);
    ~FocusController();

    // Takes up the session and the break left running in the database. A break
    // whose planned end passed meanwhile ends there (nobody saw whether it was
    // taken); a session past its plan ends at the next tick.
    void start();
    // Every tickSeconds. Never throws: a failed write is logged and tried again
    // at the next tick.
    void tick();

    // The statements below throw DatabaseError, the state left as it was.
    // `minutes` absent or ≤ 0: open-ended. A running session is stopped first.
    void startFocus(std::optional<std::int64_t> minutes, std::optional<std::int64_t> projectID, Instant at);
    void stop(Instant at);
    void beginBreak(Instant at, bool showPanel);
    void endBreak(Instant at, bool skipped);

    const std::optional<FocusSession>& session() const { return session_; }
    const std::optional<BreakRecord>& activeBreak() const { return activeBreak_; }
    Instant now() const { return now_; }
    // Of the running session, from now(); absent without a planned end.
    std::optional<double> remaining() const;
    double elapsed() const;
    // Seconds of work before a break is proposed; 0: never.
    double breakEvery() const;

    FocusStats stats(Instant from, Instant to);

private:
    void checkDistraction(Instant now);
    void trackWork(Instant now, double idle);
    void resetDistraction();
    // Another connection wrote (a command acting while the socket was not
    // there yet, a period forgotten): the running session and break are read
    // again.
    void takeInOtherWrites();
    void recover();

    FocusRecords records_;
    Preferences& preferences_;
    Clock& clock_;
    FocusSurroundings* surroundings_;
    std::shared_ptr<spdlog::logger> log_;

    std::optional<FocusSession> session_;
    std::optional<BreakRecord> activeBreak_;
    Instant now_ = 0;
    std::optional<Instant> workSince_;
    std::optional<Instant> distractionSince_;
    bool notifiedThisEpisode_ = false;
    OtherWrites otherWrites_;
};

} // namespace ombrelo
