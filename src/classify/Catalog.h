// Catalog: the user's categories and classification rules, and the
// classification of activities from them and from the stored corrections
// (manual assignments, the active project's claims, notes, model categories).
//
// Created at start-up with the database: it seeds the default catalogue into an
// empty database, then loads both lists. Every write re-reads the lists. A
// failed write is logged ("Écriture impossible : …", "Affectation impossible :
// …"), leaves the lists as they were, and is reported to the caller through the
// return value and lastError(); it never throws. Only seeding throws.
//
// Classification is computed on demand and never stored. The static part of each
// rule's score is cached per distinct value of each field (application, title,
// site, path, address) and the cache is emptied whenever the rules change, so a
// year of history classifies in a fraction of a second.
//
// Lives on the main loop's thread with the database; not thread-safe. The
// regular expressions it uses come from the process-wide RegexCache.
#pragma once

#include "billing/Project.h"
#include "classify/Assignment.h"
#include "classify/Category.h"
#include "classify/Classified.h"
#include "classify/Rule.h"
#include "classify/RuleMatching.h"
#include "storage/Activity.h"
#include "support/TextHash.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <spdlog/logger.h>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ombrelo {

class Database;

// One activity's classification with what decided it.
struct Classification {
    Classified item;
    std::optional<std::int64_t> categoryRuleID;  // the rule that gave the category, if a rule did
    std::optional<std::int64_t> projectRuleID;   // the rule that gave the project, if a rule did
    std::optional<Assignment> assignment;        // the stored correction, if any
};

// A rule that applies to an activity, with its score.
struct RuleScore {
    Rule rule;
    std::int64_t score;
};

class Catalog {
public:
    // A store without database: empty lists, writes do nothing and fail.
    Catalog();
    // Seeds `db` when it has no category, then loads it. Throws DatabaseError
    // when seeding fails (nothing of the seed is kept).
    explicit Catalog(Database& db);
    ~Catalog();
    Catalog(const Catalog&) = delete;
    Catalog& operator=(const Catalog&) = delete;

    // By ascending id.
    const std::vector<Category>& categories() const { return categories_; }
    const std::vector<Rule>& rules() const { return rules_; }

    // The description of the last failed write or read; cleared by each
    // successful one.
    const std::optional<std::string>& lastError() const { return lastError_; }

    // Re-reads both lists. Returns false (lists unchanged) on failure.
    bool reload();

    // Change announcements: each listener runs after every successful write of
    // this catalogue (categories, rules, corrections, notes) and on
    // announceChange(), so that classified time kept elsewhere (the workspace's
    // day cache) is recomputed. subscribe returns the key that unsubscribe
    // takes; a listener must be unsubscribed before it dies.
    std::uint64_t subscribe(std::function<void()> listener);
    void unsubscribe(std::uint64_t key);
    // For corrections written with writeAssignments inside a transaction of the
    // caller's: call once it is committed.
    void announceChange();

    // Inserts (id 0) or updates. Returns the row id, or nothing on failure.
    std::optional<std::int64_t> save(const Category& category);
    // Also removes the category's rules and clears it from assignments.
    bool remove(const Category& category);
    // Saves rule.normalized(). Returns the row id, or nothing on failure.
    std::optional<std::int64_t> save(const Rule& rule);
    bool remove(const Rule& rule);

    std::optional<Category> category(std::int64_t id) const;
    // The category whose default key is "Navigation".
    std::optional<Category> navigation() const;

    // Inserts the default categories and rules when the database has no
    // category, in one transaction marked as applying (so sync ignores it).
    // Throws DatabaseError (after rolling back) when that fails.
    void seedIfNeeded();

    // The category of the best matching rule; for a browser with no matching
    // rule, "Navigation"; private time never has one.
    std::shared_ptr<const Category> ruleCategory(const Activity& activity);

    // Every rule that applies to `activity`, in rule order, with its score.
    std::vector<RuleScore> applicableRules(const Activity& activity) const;

    // Stored corrections, by activity id, for the id range of `ids`. A failed
    // read is logged and gives nothing (the rules alone then decide).
    std::map<std::int64_t, Assignment> loadOverrides(const std::vector<std::int64_t>& ids);

    // Each activity's category and project, in input order: a manual or active
    // correction first, then the rules. Projects are resolved among `projects`.
    // Pass the activities as an rvalue when they are not needed afterwards: they
    // move into the results instead of being copied.
    std::vector<Classified> classify(std::vector<Activity> activities, const std::vector<Project>& projects);
    // The same with what decided each result.
    std::vector<Classification> classifyDetailed(std::vector<Activity> activities, const std::vector<Project>& projects);

    // Stores a correction for each id in one transaction. Returns false (nothing
    // written) on failure.
    bool assign(const std::vector<std::int64_t>& ids, std::optional<std::int64_t> projectID,
                std::optional<std::int64_t> categoryID, std::string_view source);
    // The statements of assign without a transaction of their own, keeping each
    // row's note. Throws DatabaseError.
    void writeAssignments(const std::vector<std::int64_t>& ids, std::optional<std::int64_t> projectID,
                          std::optional<std::int64_t> categoryID, std::string_view source);
    // Sets (or with nothing, removes) the note of each activity without changing
    // its classification.
    bool setNote(const std::vector<std::int64_t>& ids, const std::optional<std::string>& note);
    // Back to the rules: removes each correction, keeping a note that exists.
    bool clearAssignments(const std::vector<std::int64_t>& ids);

    // For each activity the capture loop writes: claims it for the active
    // project (with the active note), unless it is idle or manual time, was
    // corrected by hand, or is a distraction; without an active project (or for
    // a distraction) an earlier claim on it is removed. Returns false on a
    // database failure (logged "Affectation impossible : …", rolled back).
    bool applyActiveProject(const std::optional<Project>& active, const std::optional<std::string>& note,
                            const Activity& activity, const std::vector<Project>& projects);

private:
    // A rule that may apply to an activity, with its static score.
    struct Candidate {
        std::uint32_t rule;  // index in rules_
        std::int64_t score;
    };
    struct Best {
        std::optional<std::uint32_t> rule;
        std::int64_t score = 0;
    };

    // Where each condition of a rule sits among the memoised condition tests
    // of its field.
    struct Plan {
        std::vector<std::pair<std::size_t, std::uint32_t>> conditions;  // field index, test index
    };
    // A condition of a rule, tested on its own field.
    struct ConditionTest {
        std::uint32_t rule;
        std::uint32_t condition;
    };
    // What the rules make of one value of one field: the rules on that field
    // whose own pattern matches it (by rule index, with their base score), and
    // whether each condition on that field holds.
    struct FieldResults {
        std::vector<Candidate> matching;
        std::vector<std::uint8_t> conditions;  // by condition test index
    };
    // The distinct values of one field seen so far, with their results.
    struct FieldMemo {
        std::unordered_map<std::string, std::uint32_t, TextHash, std::equal_to<>> ids;
        std::optional<std::uint32_t> absent;  // the id of "no value"
        std::vector<FieldResults> results;    // by id
        // Ids of texts met lately, by the address of the shared text: the rows
        // of one read share their texts, so most look-ups end here without
        // hashing one. A slot holds its text, so no other text can take its
        // address meanwhile.
        struct Recent {
            SharedText text;      // the bundle id for the application
            std::string appName;  // the application only
            std::uint32_t id = 0;
        };
        std::array<Recent, 4096> recent;
    };
    // The rules whose text part applies to `activity`, in rule order. Valid
    // until the next call.
    const std::vector<Candidate>& candidates(const Activity& activity);
    // The id of the activity's value of `field`, its results computed on
    // first sight.
    std::uint32_t fieldID(std::size_t field, const Activity& activity);
    // The id of the value `key` of `field` (the activity's), its results
    // computed on first sight.
    std::uint32_t memoID(std::size_t field, const Activity& activity, std::string_view key);
    FieldResults computeFieldResults(std::size_t field, const Activity& activity) const;
    // What decided an item, beside its category and project.
    struct Decision {
        std::optional<std::int64_t> categoryRuleID;
        std::optional<std::int64_t> projectRuleID;
        const Assignment* assignment = nullptr;  // the stored correction, if any
    };
    // Classifies each activity (moved) into the item sink.next() gives, then
    // tells sink.decided() what decided it.
    template <typename Sink>
    void classifyEach(std::vector<Activity>& activities, const std::vector<Project>& projects, Sink&& sink);
    void prepareRules();
    void forgetMatches();
    // The best rule naming a project and the best naming a category among the
    // candidates, in one pass (a rule's time part is computed once).
    struct Choice {
        Best project;
        Best category;
    };
    Choice choose(const std::vector<Candidate>& candidates, MatchSubject& subject) const;
    std::shared_ptr<const Category> sharedCategory(std::optional<std::int64_t> id) const;
    const std::shared_ptr<const Category>& categoryOfRule(std::uint32_t rule) const;
    std::shared_ptr<const Category> fallbackCategory(const Activity& activity) const;

    bool write(const std::function<void()>& body, std::string_view failureFormat);
    void failed(std::string_view format, const std::string& description);

    Database* db_ = nullptr;
    std::shared_ptr<spdlog::logger> log_;
    std::vector<Category> categories_;
    std::vector<std::shared_ptr<const Category>> sharedCategories_;  // parallel to categories_, what items point to
    std::shared_ptr<const Category> navigation_;
    std::vector<Rule> rules_;
    std::vector<RuleMatcher> matchers_;  // parallel to rules_
    std::vector<std::shared_ptr<const Category>> ruleCategories_;  // parallel to rules_
    std::unordered_map<std::int64_t, std::size_t> categoryIndex_;
    std::optional<std::string> lastError_;
    std::map<std::uint64_t, std::function<void()>> listeners_;
    std::uint64_t nextListener_ = 1;

    // The text tests memoised per value of each field, emptied whenever the
    // rules change: a title recurs with many applications and sites, a site
    // with many titles, so a year holds far fewer values than activities.
    std::array<FieldMemo, 5> fieldMemo_;
    std::vector<Plan> plans_;                                   // parallel to rules_
    std::array<std::vector<std::uint32_t>, 5> baseTests_;       // by field: the active rules on it
    std::array<std::vector<ConditionTest>, 5> conditionTests_;  // by field
    std::vector<Candidate> candidates_;
    std::string keyBuffer_;
};

} // namespace ombrelo
