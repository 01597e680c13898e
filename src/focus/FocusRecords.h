// Focus sessions and breaks as the database keeps them (tables `focus_session`
// and `pause`, times in seconds since 1970), and the statistics of a period.
//
// An open-ended session has no planned end, but the column is NOT NULL: such a
// session stores its own start as planned end. No planned session can look the
// same, since a plan of zero minutes or less starts an open-ended session.
#pragma once

#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrelo {

class Database;

struct FocusSession {
    enum class Outcome { completed, stopped };

    std::int64_t id = 0;
    Instant start = 0;
    std::optional<Instant> plannedEnd;  // absent: open-ended
    std::optional<Instant> end;         // absent while running
    std::optional<std::int64_t> projectID;
    std::optional<Outcome> outcome;     // absent while running
};

// "completed", "stopped".
std::string_view rawValue(FocusSession::Outcome outcome);

struct BreakRecord {
    static constexpr double length = 300;

    std::int64_t id = 0;
    Instant start = 0;
    Instant plannedEnd = 0;  // start + length
    std::optional<Instant> end;
    bool taken = false;
    double idleSeconds = 0;  // seen by the running tracker only; never stored
};

struct FocusStats {
    double focusTime = 0;
    std::int64_t completed = 0;
    std::int64_t interrupted = 0;
    double longestStretch = 0;
    std::int64_t breaksTaken = 0;
    std::int64_t breaksSkipped = 0;
};

// The longest run of intervals (start, end) in which each begins less than
// `gap` seconds after the run so far ends; 0 without intervals.
double longestStretch(std::vector<std::pair<Instant, Instant>> intervals, double gap);

// The statements; each throws DatabaseError.
class FocusRecords {
public:
    explicit FocusRecords(Database& db) : db_(db) {}

    std::int64_t insertSession(Instant start, std::optional<Instant> plannedEnd, std::optional<std::int64_t> projectID);
    void endSession(std::int64_t id, Instant end, FocusSession::Outcome outcome);
    // The most recent session left without an end.
    std::optional<FocusSession> openSession();

    std::int64_t insertBreak(Instant start);
    void endBreak(std::int64_t id, Instant end, bool taken);
    // The most recent break left without an end.
    std::optional<BreakRecord> openBreak();

    // Sessions and finished breaks overlapping [from, to); `now` ends a running
    // session.
    FocusStats stats(Instant from, Instant to, Instant now);

    // Sessions and breaks that start in [from, to).
    struct Counts {
        std::int64_t sessions = 0;
        std::int64_t breaks = 0;
    };
    Counts countStartingIn(Instant from, Instant to);
    // Deletes them; run inside the caller's transaction.
    void forgetStartingIn(Instant from, Instant to);

private:
    Database& db_;
};

} // namespace ombrelo
