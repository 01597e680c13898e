// Replay: a recorded desktop session fed through the real ActivityTracker, on a
// scripted desktop and a simulated clock, writing the database exactly as live
// tracking would have.
//
// The file is JSON Lines, one event per line: "t" (local "YYYY-MM-DDTHH:MM:SS"
// or seconds since 1970) and one of "front" (null: nothing in front), "title",
// "site", "away", "back", "sleep", "wake", "lock", "unlock", "awake", "pause",
// "resume", "quit". Blank lines are skipped. The tracker starts at the first
// event's time, after the events of that instant; the sample then runs every 5
// seconds counted from the first event, after the events of its own instant.
// Samples that could only extend the current activity are skipped (a gap of
// years costs a few samples a day), which changes no row. The session ends at
// "quit" or, without one, at the last event; the current activity is closed
// there.
//
// The whole file is parsed and checked before the database is touched. The
// session is simulated in memory and written at the end in one short
// transaction: a bad line or a failed write keeps nothing, and the user's
// tracker is never kept waiting for the database. The tracker reads a private
// copy of the user's settings (without their pause), so a replayed pause never
// pauses the user's real tracker.
//
// Main loop thread (it uses the caller's database connection).
#pragma once

#include "capture/ActivityBuffer.h"
#include "capture/Desktop.h"
#include "support/Clock.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace ombrelo {

class ActivityStore;
class ActivityTracker;
class Preferences;

// A line of a session file that cannot be replayed; line 0 is the file as a whole.
class ReplayError : public std::runtime_error {
public:
    enum class Problem {
        unreadable,     // the file cannot be read
        empty,          // no event at all
        notJSON,        // the line is not JSON (detail: the character where it fails)
        notObject,      // the line is JSON but not an object
        missingTime,    // no "t"
        badTime,        // "t" neither a local date and time nor a number of seconds
        outOfOrder,     // "t" earlier than the line before (detail: that line's time)
        noEvent,        // no event key besides "t"
        severalEvents,  // more than one event key (detail: the keys)
        unknownKey,     // a key that means nothing (detail: the key)
        badValue,       // an event with a value of the wrong shape (detail: the key)
        afterQuit,      // an event after "quit"
    };

    // The message is made in the current interface language.
    ReplayError(int line, Problem problem, std::string detail = {});

    const int line;
    const Problem problem;
    const std::string detail;
};

// One event of a session, at its instant.
struct ReplayEvent {
    struct Front {
        FrontApp app;
        std::optional<std::string> title, path, domain, url;
    };
    struct NothingInFront {};
    struct Title {
        std::optional<std::string> title;
    };
    struct Site {
        PageContext page;
    };
    struct Away {};
    struct Back {};
    struct Sleep {};
    struct Wake {};
    struct Lock {};
    struct Unlock {};
    struct Awake {
        std::set<std::string> holders;
    };
    struct Pause {
        std::optional<double> minutes;  // absent: until resumed
    };
    struct Resume {};
    struct Quit {};

    using Kind = std::variant<Front, NothingInFront, Title, Site, Away, Back, Sleep, Wake, Lock, Unlock, Awake, Pause, Resume, Quit>;

    Instant t = 0;
    int line = 0;
    Kind kind;
};

namespace Replay {

// Runs once the tracker exists and before it starts, to install callbacks
// (for instance applying the active project through onRecorded). It is given the
// session's private settings and simulated clock, for whatever must see the
// session's time rather than the real one (the active project lasts one day).
using Configure = std::function<void(ActivityTracker&, Preferences& settings, Clock& clock)>;
// Runs inside the final transaction once every row is written, with each row as
// written and the id the tracker knew it by (the id onRecorded saw). What it
// throws cancels the whole session.
using Written = std::function<void(const std::vector<ActivityBuffer::Written>&)>;

struct Outcome {
    std::int64_t written = 0;  // activity rows the session added
    Instant from = 0;          // first event
    Instant to = 0;            // quit, else last event
};

// Every event of a session, checked: times in order, known keys, values of the
// right shape, nothing after "quit", at least one event.
// Throws ReplayError.
std::vector<ReplayEvent> parse(std::istream& in);
std::vector<ReplayEvent> read(const std::filesystem::path& file);

// Replays `events` (as parse returns them) into `store`'s database, with the
// tracker reading a private copy of `settings`' file. Returns what was written.
// Throws DatabaseError when a write fails and std::system_error when the
// settings cannot be copied; then nothing of the session is kept.
Outcome run(const std::vector<ReplayEvent>& events, ActivityStore& store, const Preferences& settings,
            const Configure& configure = {}, const Written& written = {});

} // namespace Replay
} // namespace ombrelo
