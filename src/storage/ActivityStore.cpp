#include "storage/ActivityStore.h"

#include "storage/DeviceMerge.h"
#include "storage/SyncStamps.h"
#include "support/TextHash.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <unordered_map>

namespace ombrelo {

namespace {

constexpr const char* selectColumns =
    "SELECT id, start, end, bundle_id, app_name, title, domain, kind, path, url, device";

// What a search matches; its values come from searchValues.
constexpr const char* searchCondition =
    "WHERE end > ? AND start < ? AND start >= ? AND kind != 'idle'\n"
    "  AND (app_name LIKE ? ESCAPE '\\' OR title LIKE ? ESCAPE '\\' OR domain LIKE ? ESCAPE '\\'\n"
    "       OR path LIKE ? ESCAPE '\\' OR url LIKE ? ESCAPE '\\')";

// Past this many distinct texts the pool starts over, so that a long-running
// process's memory stays bounded.
constexpr std::size_t textPoolLimit = 100'000;

// Rows share their equal texts through `texts`.
Activity decodeRow(const Statement& row, ActivityStore::RowTexts& texts) {
    auto text = [&](int column) { return texts.text(static_cast<std::size_t>(column), row.textView(column)); };
    Activity a;
    a.id = row.int64(0);
    a.start = row.real(1);
    a.end = row.real(2);
    a.bundleID = text(3);
    a.appName = row.textView(4).value_or("");
    a.title = text(5);
    a.domain = text(6);
    a.kind = kindFromRaw(row.textView(7).value_or(""));
    a.path = text(8);
    a.url = text(9);
    a.device = text(10);
    return a;
}

// Seconds per application name, in one pass over the rows.
class AppTally {
public:
    void add(std::string_view name, std::optional<std::string_view> bundleID, double seconds) {
        auto known = index_.find(name);
        if (known == index_.end()) {
            known = index_.emplace(std::string(name), totals_.size()).first;
            totals_.push_back({std::string(name), std::nullopt, 0});
        }
        AppTotal& total = totals_[known->second];
        total.seconds += seconds;
        // The name's greatest bundle id, whatever the order of the rows.
        if (bundleID && (!total.bundleID || *bundleID > *total.bundleID)) total.bundleID = std::string(*bundleID);
    }
    // Largest first, equal ones by name.
    std::vector<AppTotal> sorted() && {
        std::sort(totals_.begin(), totals_.end(), [](const AppTotal& a, const AppTotal& b) {
            return a.seconds != b.seconds ? a.seconds > b.seconds : a.appName < b.appName;
        });
        return std::move(totals_);
    }

private:
    std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>> index_;
    std::vector<AppTotal> totals_;
};

double clippedSeconds(const Activity& a, Instant from, Instant to) {
    return std::max(0.0, std::min(a.end, to) - std::max(a.start, from));
}

} // namespace

std::string likePattern(std::string_view text) {
    std::string pattern = "%";
    for (char c : text) {
        if (c == '\\' || c == '%' || c == '_') pattern += '\\';
        pattern += c;
    }
    return pattern + "%";
}

ActivityStore::ActivityStore(Database& db) : db_(db) { refresh(); }

void ActivityStore::refresh() {
    try {
        // Both read from their indexes (activity_length, activity_device).
        Statement longest = db_.prepare("SELECT COALESCE(MAX(end - start), 0) FROM activity");
        longest.step();
        double found = longest.real(0);
        Statement devices = db_.prepare("SELECT (SELECT MIN(device) FROM activity), (SELECT MAX(device) FROM activity)");
        devices.step();
        bool several = devices.text(0) != devices.text(1);
        longest_ = found;
        severalDevices_ = several;
    } catch (const DatabaseError&) {
        longest_ = 0;
        severalDevices_ = false;
    }
}

std::int64_t ActivityStore::insert(const Activity& a, const std::optional<std::string>& importBatch) {
    longest_ = std::max(longest_, a.end - a.start);
    static const std::string sql =
        "INSERT INTO activity (start, end, bundle_id, app_name, title, domain, kind, path, url, import_batch, uid, "
        "modified, device)\nVALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, " +
        std::string(syncStamp::freshUid) + ", " + std::string(syncStamp::now) + ", " +
        std::string(syncStamp::device) + ")";
    return db_.run(sql,
                   {a.start, a.end, sqlText(a.bundleID), a.appName, sqlText(a.title), sqlText(a.domain),
                    std::string(rawValue(a.kind)), sqlText(a.path), sqlText(a.url), sqlText(importBatch)});
}

void ActivityStore::raiseLongest(std::int64_t id, Instant end) {
    Statement start = db_.prepare("SELECT start FROM activity WHERE id = ?", {id});
    if (start.step()) longest_ = std::max(longest_, end - start.real(0));
}

void ActivityStore::updateEnd(std::int64_t id, Instant end) {
    db_.run("UPDATE activity SET end = ? WHERE id = ?", {end, id});
    raiseLongest(id, end);
}

bool ActivityStore::updateEndIf(std::int64_t id, Instant expected, Instant end) {
    db_.run("UPDATE activity SET end = ? WHERE id = ? AND end = ?", {end, id, expected});
    if (db_.changes() == 0) return false;
    raiseLongest(id, end);
    return true;
}

void ActivityStore::updateStart(std::int64_t id, Instant start) {
    db_.run("UPDATE activity SET start = ? WHERE id = ?", {start, id});
}

void ActivityStore::updateDetails(const Activity& a) {
    db_.run("UPDATE activity SET app_name = ?, title = ?, domain = ?, kind = ?, path = ?, url = ? WHERE id = ?",
            {a.appName, sqlText(a.title), sqlText(a.domain), std::string(rawValue(a.kind)), sqlText(a.path),
             sqlText(a.url), a.id});
}

void ActivityStore::remove(std::int64_t id) { db_.run("DELETE FROM activity WHERE id = ?", {id}); }

std::vector<Activity> ActivityStore::readActivities(Statement& statement) {
    std::vector<Activity> out;
    if (texts_.size() > textPoolLimit) texts_.clear();
    while (statement.step()) out.push_back(decodeRow(statement, texts_));
    return out;
}

std::vector<Activity> ActivityStore::recent(int limit) {
    Statement s = db_.prepare(std::string(selectColumns) + "\nFROM activity ORDER BY start DESC LIMIT ?",
                              {std::int64_t{limit}});
    return readActivities(s);
}

std::optional<Activity> ActivityStore::activity(std::int64_t id) {
    Statement s = db_.prepare(std::string(selectColumns) + " FROM activity WHERE id = ?", {id});
    if (!s.step()) return std::nullopt;
    return decodeRow(s, texts_);
}

std::vector<Activity> ActivityStore::activities(Instant from, Instant to) {
    Statement s = db_.prepare(std::string(selectColumns) +
                                  "\nFROM activity WHERE end > ? AND start < ? AND start >= ? ORDER BY start",
                              {from, to, lowerBound(from)});
    return readActivities(s);
}

double ActivityStore::activeSeconds(Instant from, Instant to) {
    if (severalDevices_) {
        double total = 0;
        for (const Activity& a : mergeDevices(activities(from, to)))
            if (a.kind != Activity::Kind::idle) total += clippedSeconds(a, from, to);
        return total;
    }
    Statement s = db_.prepare("SELECT COALESCE(SUM(MIN(end, ?) - MAX(start, ?)), 0)\n"
                              "FROM activity WHERE kind != 'idle' AND end > ? AND start < ? AND start >= ?",
                              {to, from, from, to, lowerBound(from)});
    s.step();
    return s.real(0);
}

std::vector<AppTotal> ActivityStore::appTotals(Instant from, Instant to) {
    AppTally tally;
    if (severalDevices_) {
        for (const Activity& a : mergeDevices(activities(from, to)))
            if (a.kind == Activity::Kind::app)
                tally.add(a.appName, a.bundleID ? std::optional<std::string_view>(*a.bundleID) : std::nullopt,
                          clippedSeconds(a, from, to));
        return std::move(tally).sorted();
    }
    // Summed here rather than by GROUP BY, which sorts every row by name first.
    Statement s = db_.prepare("SELECT app_name, bundle_id, MIN(end, ?) - MAX(start, ?)\n"
                              "FROM activity WHERE kind = 'app' AND end > ? AND start < ? AND start >= ?",
                              {to, from, from, to, lowerBound(from)});
    while (s.step()) tally.add(s.textView(0).value_or(""), s.textView(1), s.real(2));
    return std::move(tally).sorted();
}

std::vector<SQLValue> ActivityStore::searchValues(std::string_view text, Instant from, Instant to) const {
    std::string pattern = likePattern(text);
    return {from, to, lowerBound(from), pattern, pattern, pattern, pattern, pattern};
}

std::vector<Activity> ActivityStore::search(std::string_view text, Instant from, Instant to, int limit) {
    std::vector<SQLValue> values = searchValues(text, from, to);
    values.emplace_back(std::int64_t{limit});
    Statement s = db_.prepare(std::string(selectColumns) + " FROM activity\n" + searchCondition +
                                  "\nORDER BY start DESC LIMIT ?",
                              values);
    return readActivities(s);
}

std::int64_t ActivityStore::searchCount(std::string_view text, Instant from, Instant to) {
    return db_.queryInt(std::string("SELECT COUNT(*) FROM activity\n") + searchCondition, searchValues(text, from, to))
        .value_or(0);
}

// Both fingerprints add whole numbers, so the order of the rows cannot change
// the sums: ends in microseconds, lengths in characters (code points, as
// SQLite's LENGTH counts them).
std::string ActivityStore::fingerprint(Instant from, Instant to) {
    Statement s = db_.prepare(
        "SELECT COUNT(*), COALESCE(SUM(CAST(ROUND(end * 1000000) AS INTEGER)), 0), "
        "COALESCE(SUM(LENGTH(app_name) + LENGTH(COALESCE(title, '')) + LENGTH(kind)), 0)\n"
        "FROM activity WHERE end > ? AND start < ? AND start >= ?",
        {from, to, lowerBound(from)});
    s.step();
    return fmt::format("{}-{}-{}", s.int64(0), s.int64(1), s.int64(2));
}

std::string ActivityStore::fingerprint(const std::vector<Activity>& rows) {
    auto characters = [](std::string_view text) {
        return std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
    };
    std::int64_t ends = 0, lengths = 0;
    for (const Activity& row : rows) {
        ends += std::llround(row.end * 1'000'000);
        lengths += characters(row.appName) + (row.title ? characters(*row.title) : 0) + characters(rawValue(row.kind));
    }
    return fmt::format("{}-{}-{}", rows.size(), ends, lengths);
}

std::optional<Instant> ActivityStore::firstStart() {
    Statement s = db_.prepare("SELECT MIN(start) FROM activity");
    if (!s.step()) return std::nullopt;
    return s.optionalReal(0);
}

} // namespace ombrelo
