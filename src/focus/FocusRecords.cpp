#include "focus/FocusRecords.h"

#include "storage/Database.h"

#include <algorithm>

namespace ombrelo {

std::string_view rawValue(FocusSession::Outcome outcome) {
    return outcome == FocusSession::Outcome::completed ? "completed" : "stopped";
}

double longestStretch(std::vector<std::pair<Instant, Instant>> intervals, double gap) {
    std::sort(intervals.begin(), intervals.end());
    double longest = 0;
    std::optional<std::pair<Instant, Instant>> stretch;
    for (const auto& [start, end] : intervals) {
        if (!stretch || start >= stretch->second + gap)
            stretch = std::pair(start, end);
        else
            stretch->second = std::max(stretch->second, end);
        longest = std::max(longest, stretch->second - stretch->first);
    }
    return longest;
}

std::int64_t FocusRecords::insertSession(Instant start, std::optional<Instant> plannedEnd,
                                         std::optional<std::int64_t> projectID) {
    return db_.run("INSERT INTO focus_session (start, planned_end, project_id) VALUES (?, ?, ?)",
                   {start, plannedEnd.value_or(start), sqlInt(projectID)});
}

void FocusRecords::endSession(std::int64_t id, Instant end, FocusSession::Outcome outcome) {
    db_.run("UPDATE focus_session SET end = ?, outcome = ? WHERE id = ?",
            {end, std::string(rawValue(outcome)), id});
}

std::optional<FocusSession> FocusRecords::openSession() {
    Statement row = db_.prepare(
        "SELECT id, start, planned_end, project_id FROM focus_session WHERE end IS NULL ORDER BY start DESC LIMIT 1");
    if (!row.step()) return std::nullopt;
    FocusSession session{.id = row.int64(0), .start = row.real(1), .projectID = row.optionalInt64(3)};
    if (double planned = row.real(2); planned > session.start) session.plannedEnd = planned;
    return session;
}

std::int64_t FocusRecords::insertBreak(Instant start) { return db_.run("INSERT INTO pause (start) VALUES (?)", {start}); }

void FocusRecords::endBreak(std::int64_t id, Instant end, bool taken) {
    db_.run("UPDATE pause SET end = ?, taken = ? WHERE id = ?", {end, std::int64_t(taken), id});
}

std::optional<BreakRecord> FocusRecords::openBreak() {
    Statement row = db_.prepare("SELECT id, start FROM pause WHERE end IS NULL ORDER BY start DESC LIMIT 1");
    if (!row.step()) return std::nullopt;
    Instant start = row.real(1);
    return BreakRecord{.id = row.int64(0), .start = start, .plannedEnd = start + BreakRecord::length};
}

FocusStats FocusRecords::stats(Instant from, Instant to, Instant now) {
    FocusStats stats;
    std::vector<std::pair<Instant, Instant>> intervals;
    Statement sessions = db_.prepare(
        "SELECT start, COALESCE(end, ?), outcome FROM focus_session WHERE start < ? AND COALESCE(end, start) > ?",
        {now, to, from});
    while (sessions.step()) {
        Instant start = sessions.real(0), end = sessions.real(1);
        stats.focusTime += std::max(0.0, std::min(end, to) - std::max(start, from));
        std::optional<std::string_view> outcome = sessions.textView(2);
        if (outcome == rawValue(FocusSession::Outcome::completed)) ++stats.completed;
        if (outcome == rawValue(FocusSession::Outcome::stopped)) ++stats.interrupted;
        intervals.emplace_back(start, end);
    }
    stats.longestStretch = longestStretch(std::move(intervals), 120);
    Statement breaks = db_.prepare("SELECT taken FROM pause WHERE end IS NOT NULL AND start < ? AND end > ?", {to, from});
    while (breaks.step()) ++(breaks.int64(0) == 1 ? stats.breaksTaken : stats.breaksSkipped);
    return stats;
}

FocusRecords::Counts FocusRecords::countStartingIn(Instant from, Instant to) {
    return {db_.queryInt("SELECT COUNT(*) FROM focus_session WHERE start >= ? AND start < ?", {from, to}).value_or(0),
            db_.queryInt("SELECT COUNT(*) FROM pause WHERE start >= ? AND start < ?", {from, to}).value_or(0)};
}

void FocusRecords::forgetStartingIn(Instant from, Instant to) {
    db_.run("DELETE FROM focus_session WHERE start >= ? AND start < ?", {from, to});
    db_.run("DELETE FROM pause WHERE start >= ? AND start < ?", {from, to});
}

} // namespace ombrelo
