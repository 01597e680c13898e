// Workspace: the one place the rest of the program asks for classified time. For
// a period, a day or a search text it reads the activities, clips them to the
// period, has the catalogue classify them against the current projects and
// returns Classified items. It also runs the small writes the views, commands and
// agent tools share (manual time, qualifying an absence), each in one
// transaction with one failure report.
//
// Whole past days are cached by the fingerprint of their rows, so a month or a
// year is not reclassified on every request; today and the partial days at the
// edges of a period are always computed afresh. Cached days are handed out as
// shared immutable runs (ClassifiedList), never copied; a day recomputed
// replaces its run, so what a caller holds never changes under it. A cached day
// is checked against its fingerprint only when the database may have changed
// since: while neither this connection has written (SQLite's total_changes) nor
// another one has committed (PRAGMA data_version), a cached day is served
// without a query. The cache is emptied when the
// classification inputs change: on every change announcement of the catalogue
// (its writes of rules, categories, corrections and notes), after every write
// of its own, and whenever it notices that the categories, rules or projects it
// last classified with are no longer the stores' current ones (the project
// store's changes), and whenever another connection has committed: then the
// catalogue and the projects are re-read first, since another process may have
// changed corrections, rules or projects that no row's fingerprint shows.
//
// Reads never fail: a read error gives an empty list (and is logged). Writes are
// rolled back on failure, logged ("<label> : écriture impossible : <error>") and
// published in writeError().
//
// In demonstration mode (setDemo) every read serves a fixed list of activities
// instead of the store, without caching, and writes do nothing.
//
// Main loop thread only; the cache is never shared with another thread.
#pragma once

#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "classify/Classified.h"
#include "storage/ActivityStore.h"
#include "support/Clock.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <spdlog/logger.h>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

class Workspace {
public:
    // Searches return at most this many activities.
    static constexpr int searchLimit = 2000;

    // Whether whole past days are kept once classified: a long-lived process
    // reads them again and again; a one-shot command reads each day once and
    // would only hold memory.
    enum class DayCache { keep, none };

    // A workspace over the store's activities. `store` may be null for a
    // workspace that only shows demonstration data. The stores must outlive it.
    Workspace(ActivityStore* store, Catalog& catalog, ProjectStore& projects, Clock& clock = Clock::system(),
              DayCache dayCache = DayCache::keep);
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    // Classified items of the half-open period [from, to), each activity clipped
    // to it, by start. Empty when to ≤ from.
    ClassifiedList items(Instant from, Instant to);
    // The same, handed over one calendar day at a time (partial days at the
    // edges), in order; days without activity are skipped. What a total over a
    // long period uses, so that it never holds more than a day at once.
    void eachDay(Instant from, Instant to, const std::function<void(const ClassifiedList::Run&)>& take);
    // The items of the calendar day containing `date`.
    ClassifiedList day(Instant date);
    // Classified non-idle activities of [from, to) whose application, title,
    // site, document path or address contain `text` (trimmed; ASCII case
    // ignored), newest first, at most searchLimit, not clipped. An empty text
    // finds nothing.
    std::vector<Classified> search(std::string_view text, Instant from, Instant to);
    // How many activities search would find without its limit: what a cut
    // result left out shows against it. 0 when the count cannot be read.
    std::size_t searchCount(std::string_view text, Instant from, Instant to);

    // Runs `body` inside one transaction. Returns true once committed (the
    // catalogue then announces the change, which empties the cache); false without a store, or when `body` or the commit
    // threw: then everything is rolled back, the failure logged and kept in
    // writeError(). Exceptions other than std::exception propagate.
    bool write(std::string_view label, const std::function<void()>& body);

    // What manual time does to the time already recorded under it.
    enum class Overlap {
        refuse,   // counted time under it fails the write (the same hour would count twice)
        replace,  // the recorded rows are cut so that the manual entry stands alone
    };
    // Records [start, end) as manual time named `label`, assigned by hand to
    // `projectID` (or to no project): a manual row that no rule overrides, one
    // per calendar day the stretch covers. Absences under it are cut away; other
    // recorded time is refused or cut, as `overlap` says, but billed or paid time
    // is never cut. Returns the new activities' ids; nothing when end ≤ start,
    // the label is blank or the write failed (writeError() says why).
    std::optional<std::vector<std::int64_t>> addManual(Instant start, Instant end, std::string_view label,
                                                       std::optional<std::int64_t> projectID,
                                                       Overlap overlap = Overlap::refuse);
    // The counted (non-idle) activities this machine recorded that overlap
    // [start, end): what manual time there would count twice.
    std::vector<Activity> countedUnder(Instant start, Instant end);

    // The activities among `ids` on either side of a cut.
    struct Split {
        std::vector<std::int64_t> before;  // ending by the cut
        std::vector<std::int64_t> after;   // starting from it
    };
    // Cuts those of `ids` that span `at` in two there, each part keeping the
    // whole's correction and billing mark, so that one side can then be given
    // another project. Nothing when the write failed (writeError() says why).
    std::optional<Split> splitAt(const std::vector<std::int64_t>& ids, Instant at);

    // Turns an absence into described time. The idle rows among `ids` (the rows
    // of an idle block) become manual time: their kind becomes "manual" and their
    // application name `label`, in one statement; each gets a manual assignment
    // to `projectID` (or to no project), so it counts as worked time on that
    // project and never falls back to the rules. Rows that are not idle are left
    // alone. Returns how many rows were qualified; nothing when the label is
    // blank or the write failed.
    std::optional<std::size_t> qualifyIdle(const std::vector<std::int64_t>& ids, std::string_view label,
                                           std::optional<std::int64_t> projectID);

    // Serves `activities` instead of the store (demonstration mode), or with
    // nothing goes back to the store.
    void setDemo(std::optional<std::vector<Activity>> activities);
    bool demo() const { return demo_.has_value(); }

    // Empties the day cache: the classification inputs changed.
    void invalidate();

    // The description of the last failed write; cleared by a successful one.
    const std::optional<std::string>& writeError() const { return writeError_; }

    // For testing and benchmarks: how many whole days were classified and put in
    // the cache since creation.
    std::size_t daysComputed() const { return daysComputed_; }

private:
    // Marks the state of the whole database: equal marks mean no row changed.
    struct Generation {
        std::int64_t dataVersion = 0;   // other connections' commits
        std::int64_t totalChanges = 0;  // this connection's writes
        bool operator==(const Generation&) const = default;
    };
    struct CachedDay {
        std::string fingerprint;
        std::optional<Generation> checkedAt;  // when the fingerprint last matched
        ClassifiedList::Run items;
    };
    // What the cached days were classified with.
    struct Inputs {
        std::vector<Category> categories;
        std::vector<Rule> rules;
        std::vector<Project> projects;
        bool operator==(const Inputs&) const = default;
    };

    // With `fingerprint`, also the fingerprint of the rows read (as the
    // store's fingerprint query gives it).
    std::vector<Classified> compute(Instant from, Instant to, std::string* fingerprint = nullptr);
    std::vector<Activity> read(Instant from, Instant to, std::string* fingerprint = nullptr);
    // The demonstration activities a search for `needle` finds, unsorted.
    std::vector<Activity> demoMatches(std::string_view needle, Instant from, Instant to) const;
    void dropCacheIfInputsChanged();
    // Cuts [start, end) out of the absences that overlap it, and out of counted
    // time too when asked, keeping each remaining part's correction and billing
    // mark. Throws
    // DatabaseError for billed or paid time, which is never cut.
    void cutOut(Instant start, Instant end, bool countedTimeToo);
    // Cuts `row` at `at`: a new row from `at`, with its correction and billing
    // mark; returns its id.
    std::int64_t splitRow(const Activity& row, Instant at);
    // This machine's rows overlapping [start, end), whole.
    std::vector<Activity> recordedHere(Instant start, Instant end);
    // Re-reads the stores and empties the cache when another connection has
    // committed since the last look.
    void takeInOtherWrites();
    std::string fingerprint(Instant from, Instant to);
    std::optional<Generation> generation();
    // The cached items of the whole day [day, next), recomputed when stale.
    ClassifiedList::Run cachedDay(Instant day, Instant next, const std::optional<Generation>& now);

    ActivityStore* store_;
    Catalog& catalog_;
    ProjectStore& projects_;
    Clock& clock_;
    DayCache caching_;
    std::optional<std::vector<Activity>> demo_;
    std::map<Instant, CachedDay> dayCache_;
    Inputs cachedWith_;
    std::shared_ptr<spdlog::logger> log_;
    std::optional<std::string> writeError_;
    std::size_t daysComputed_ = 0;
    std::uint64_t subscription_ = 0;
    std::optional<std::int64_t> seenDataVersion_;
};

} // namespace ombrelo
