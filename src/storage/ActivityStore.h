// ActivityStore: the only code that reads and writes the `activity` table. The
// capture loop inserts and extends rows through it; views, reports and agent
// tools read ranges, totals and searches.
//
// Range reads use the `activity_start` index with a lower bound: a row that
// overlaps [from, to) started no earlier than from − longest, where `longest` is
// the longest row in the table. insert and updateEnd raise `longest` as rows grow
// and refresh recomputes it, so the bound is never too small and no overlapping
// row is missed.
//
// The texts of the rows read are pooled for the store's life (bounded), so the
// activities of every read share each distinct text.
//
// Every operation throws DatabaseError on a SQLite failure, except refresh.
// Main loop thread only.
#pragma once

#include "storage/Activity.h"
#include "storage/Database.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

class ActivityStore {
public:
    // The pool of the texts read, one per column of a row.
    using RowTexts = TextPool<11>;

    explicit ActivityStore(Database& db);

    Database& database() { return db_; }

    // Recomputes `longest` and `severalDevices` from the table; on failure they
    // fall back to 0 and false, and nothing is thrown.
    void refresh();

    double longest() const { return longest_; }
    // True when the table holds activities from more than one device.
    bool severalDevices() const { return severalDevices_; }

    // Returns the new row id. `importBatch`: the import the row belongs to.
    std::int64_t insert(const Activity& activity, const std::optional<std::string>& importBatch = std::nullopt);
    void updateEnd(std::int64_t id, Instant end);
    // updateEnd for a row that still ends at `expected`; false (nothing
    // written) when it ends elsewhere or is gone.
    bool updateEndIf(std::int64_t id, Instant expected, Instant end);
    // Moves a row's start later (a stretch cut out of its beginning).
    void updateStart(std::int64_t id, Instant start);
    // Rewrites application, title, site, kind, path and address; times untouched.
    void updateDetails(const Activity& activity);
    void remove(std::int64_t id);

    std::vector<Activity> recent(int limit);
    std::optional<Activity> activity(std::int64_t id);
    // Every activity overlapping [from, to), whole (not clipped), by start.
    std::vector<Activity> activities(Instant from, Instant to);
    // Non-idle time overlapping [from, to), clipped to it.
    double activeSeconds(Instant from, Instant to);
    // Clipped seconds of `app` rows per application name, largest first.
    std::vector<AppTotal> appTotals(Instant from, Instant to);
    // Non-idle activities whose application, title, site, path or address
    // contain `text` (ASCII case-insensitive, `%` and `_` literal), newest first.
    std::vector<Activity> search(std::string_view text, Instant from, Instant to, int limit);
    // How many activities search would find without a limit.
    std::int64_t searchCount(std::string_view text, Instant from, Instant to);
    // Changes whenever a row of the range is added, removed, extended, retitled
    // or rekinded; equal strings mean the range is unchanged.
    std::string fingerprint(Instant from, Instant to);
    // The same of the rows activities(from, to) returned, without a query.
    static std::string fingerprint(const std::vector<Activity>& rows);
    std::optional<Instant> firstStart();

private:
    double lowerBound(Instant from) const { return from - longest_ - 1; }
    // Keeps `longest` at least as long as row `id` once it ends at `end`.
    void raiseLongest(std::int64_t id, Instant end);
    std::vector<Activity> readActivities(Statement& statement);
    std::vector<SQLValue> searchValues(std::string_view text, Instant from, Instant to) const;

    Database& db_;
    // The texts of every read: a day read again, or the same titles on
    // another day, come out of the pool without a new allocation.
    RowTexts texts_;
    double longest_ = 0;
    bool severalDevices_ = false;
};

// The LIKE pattern that matches `text` literally anywhere, escaped with "\".
std::string likePattern(std::string_view text);

} // namespace ombrelo
