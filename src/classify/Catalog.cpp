// The store half of Catalog: lists, writes, seeding and the choice of the best
// rule. Classification and corrections are in CatalogAssignments.cpp.
#include "classify/Catalog.h"

#include "classify/DefaultCatalog.h"
#include "storage/Database.h"
#include "support/Browsers.h"
#include "support/Log.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace ombrelo {

namespace {

#if defined(__linux__)
constexpr bool linuxDesktop = true;
#else
constexpr bool linuxDesktop = false;
#endif

// Past this many distinct values of one field the match memo starts over, so a
// long-running tracker's memory stays bounded.
constexpr std::size_t matchCacheLimit = 200'000;

Category readCategory(Statement& row) {
    return {row.int64(0), row.text(1).value_or(""), row.text(2).value_or(""), row.text(3).value_or(""),
            row.optionalInt64(4).value_or(0) != 0};
}

// Damaged columns read as "nothing": an unknown field as `app`, an unknown
// operator as a simple rule, undecodable conditions, hours or days as absent.
Rule readRule(Statement& row) {
    Rule rule;
    rule.id = row.int64(0);
    rule.field = fieldFromRaw(row.text(1).value_or("")).value_or(Rule::Field::app);
    rule.pattern = row.text(2).value_or("");
    rule.categoryID = row.optionalInt64(3);
    rule.projectID = row.optionalInt64(4);
    if (auto op = row.text(5)) rule.op = operatorFromRaw(*op);
    rule.conditions = decodeConditions(row.text(6));
    std::tie(rule.startMinute, rule.endMinute) = decodeHours(row.text(7));
    rule.weekdays = decodeWeekdays(row.text(8));
    return rule;
}

std::vector<SQLValue> ruleValues(const Rule& rule) {
    return {std::string(rawValue(rule.field)),
            rule.pattern,
            sqlInt(rule.categoryID),
            sqlInt(rule.projectID),
            rule.op ? SQLValue(std::string(rawValue(*rule.op))) : SQLValue(nullptr),
            sqlText(encodeConditions(rule.conditions)),
            sqlText(encodeHours(rule.startMinute, rule.endMinute)),
            sqlText(encodeWeekdays(rule.weekdays))};
}

constexpr std::size_t fieldIndex(Rule::Field field) { return static_cast<std::size_t>(field); }

// The text a rule on `field` reads; for the application, its bundle id (the
// name goes with it).
const SharedText& fieldText(Rule::Field field, const Activity& activity) {
    switch (field) {
    case Rule::Field::app:
        return activity.bundleID;
    case Rule::Field::domain:
        return activity.domain;
    case Rule::Field::title:
        return activity.title;
    case Rule::Field::path:
        return activity.path;
    case Rule::Field::url:
        break;
    }
    return activity.url;
}

// The slot of a shared text among `slots`, by its address: allocations are
// aligned on 16 bytes, so the low bits say nothing.
std::size_t slotOf(const SharedText& text, std::size_t slots) {
    return (reinterpret_cast<std::uintptr_t>(text.identity()) >> 4) % slots;
}

void appendKeyPart(std::string& key, std::string_view value) {
    // Length-prefixed, so no text can imitate another split of the fields.
    auto size = static_cast<std::uint32_t>(value.size());
    key += '\1';
    key.append(reinterpret_cast<const char*>(&size), sizeof size);
    key += value;
}

void appendKeyPart(std::string& key, const SharedText& value) {
    if (value) appendKeyPart(key, std::string_view(*value));
    else key += '\0';
}

} // namespace

Catalog::Catalog() : log_(Log::get("catalog")) {}

Catalog::Catalog(Database& db) : db_(&db), log_(Log::get("catalog")) {
    seedIfNeeded();
    reload();
}

Catalog::~Catalog() = default;

bool Catalog::reload() {
    if (!db_) return true;
    try {
        std::vector<Category> categories;
        Statement categoryRows = db_->prepare("SELECT id, name, color, symbol, is_distraction FROM category ORDER BY id");
        while (categoryRows.step()) categories.push_back(readCategory(categoryRows));

        std::vector<Rule> rules;
        Statement ruleRows = db_->prepare(
            "SELECT id, field, pattern, category_id, project_id, operator, conditions, hours, weekdays FROM rule ORDER BY id");
        while (ruleRows.step()) rules.push_back(readRule(ruleRows));

        categories_ = std::move(categories);
        categoryIndex_.clear();
        sharedCategories_.clear();
        for (std::size_t i = 0; i < categories_.size(); ++i) {
            categoryIndex_[categories_[i].id] = i;
            sharedCategories_.push_back(std::make_shared<const Category>(categories_[i]));
        }
        navigation_.reset();
        for (const std::shared_ptr<const Category>& category : sharedCategories_)
            if (!navigation_ && defaultKey(category->name) == "Navigation") navigation_ = category;
        if (rules != rules_) {
            rules_ = std::move(rules);
            prepareRules();
        }
        ruleCategories_.clear();
        for (const Rule& rule : rules_) ruleCategories_.push_back(sharedCategory(rule.categoryID));
        return true;
    } catch (const DatabaseError& error) {
        lastError_ = error.description();
        log_->error("Lecture impossible : {}", error.description());
        return false;
    }
}

void Catalog::failed(std::string_view format, const std::string& description) {
    lastError_ = description;
    log_->error(fmt::runtime(format), description);
}

std::uint64_t Catalog::subscribe(std::function<void()> listener) {
    listeners_.emplace(nextListener_, std::move(listener));
    return nextListener_++;
}

void Catalog::unsubscribe(std::uint64_t key) { listeners_.erase(key); }

void Catalog::announceChange() {
    // A listener may unsubscribe while it runs; go through a copy of the keys.
    std::vector<std::uint64_t> keys;
    for (const auto& [key, listener] : listeners_) keys.push_back(key);
    for (std::uint64_t key : keys)
        if (auto found = listeners_.find(key); found != listeners_.end()) found->second();
}

bool Catalog::write(const std::function<void()>& body, std::string_view failureFormat) {
    if (!db_) {
        lastError_ = "no database";
        return false;
    }
    try {
        body();
        lastError_.reset();
        reload();
        announceChange();
        return true;
    } catch (const DatabaseError& error) {
        failed(failureFormat, error.description());
        reload();
        return false;
    }
}

std::optional<std::int64_t> Catalog::save(const Category& category) {
    std::int64_t id = category.id;
    std::vector<SQLValue> values{category.name, category.color, category.symbol,
                                 std::int64_t(category.isDistraction ? 1 : 0)};
    bool ok = write(
        [&] {
            if (id == 0) {
                id = db_->run("INSERT INTO category (name, color, symbol, is_distraction) VALUES (?, ?, ?, ?)", values);
            } else {
                values.push_back(id);
                db_->run("UPDATE category SET name = ?, color = ?, symbol = ?, is_distraction = ? WHERE id = ?", values);
            }
        },
        "Écriture impossible : {}");
    return ok ? std::optional(id) : std::nullopt;
}

bool Catalog::remove(const Category& category) {
    return write([&] { db_->run("DELETE FROM category WHERE id = ?", {category.id}); }, "Écriture impossible : {}");
}

std::optional<std::int64_t> Catalog::save(const Rule& rule) {
    Rule normalized = rule.normalized();
    std::int64_t id = normalized.id;
    std::vector<SQLValue> values = ruleValues(normalized);
    bool ok = write(
        [&] {
            if (id == 0) {
                id = db_->run("INSERT INTO rule (field, pattern, category_id, project_id, operator, conditions, hours, weekdays)\n"
                              "VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                              values);
            } else {
                values.push_back(id);
                db_->run("UPDATE rule SET field = ?, pattern = ?, category_id = ?, project_id = ?,\n"
                         "operator = ?, conditions = ?, hours = ?, weekdays = ? WHERE id = ?",
                         values);
            }
        },
        "Écriture impossible : {}");
    return ok ? std::optional(id) : std::nullopt;
}

bool Catalog::remove(const Rule& rule) {
    return write([&] { db_->run("DELETE FROM rule WHERE id = ?", {rule.id}); }, "Écriture impossible : {}");
}

std::optional<Category> Catalog::category(std::int64_t id) const {
    auto found = categoryIndex_.find(id);
    if (found == categoryIndex_.end()) return std::nullopt;
    return categories_[found->second];
}

std::optional<Category> Catalog::navigation() const {
    return navigation_ ? std::optional(*navigation_) : std::nullopt;
}

void Catalog::seedIfNeeded() {
    if (!db_ || db_->queryInt("SELECT COUNT(*) FROM category").value_or(0) != 0) return;
    Transaction transaction(*db_);
    try {
        // Another process starting on the same new file may have seeded it since
        // the count above; under the transaction's write lock this count is final.
        if (db_->queryInt("SELECT COUNT(*) FROM category").value_or(0) != 0) return;
        db_->run("INSERT OR REPLACE INTO sync_meta (key, value) VALUES ('applying', '1')");
        std::map<std::string_view, std::int64_t> ids;
        for (const DefaultCategory& category : defaultCategories()) {
            ids[category.name] = db_->run(
                "INSERT INTO category (name, color, symbol, is_distraction, modified) VALUES (?, ?, ?, ?, 0)",
                {localizedCategoryName(category.name), std::string(category.color), std::string(category.symbol),
                 std::int64_t(category.isDistraction ? 1 : 0)});
        }
        auto insert = [&](const DefaultRule& rule) {
            auto id = ids.find(rule.category);
            db_->run("INSERT INTO rule (field, pattern, category_id, modified) VALUES (?, ?, ?, 0)",
                     {std::string(rawValue(rule.field)), std::string(rule.pattern),
                      id == ids.end() ? SQLValue(nullptr) : SQLValue(id->second)});
        };
        for (const DefaultRule& rule : defaultRules()) insert(rule);
        if (linuxDesktop)
            for (const DefaultRule& rule : linuxDefaultRules()) insert(rule);
        db_->run("DELETE FROM sync_meta WHERE key = 'applying'");
        transaction.commit();
    } catch (const DatabaseError& error) {
        try {
            db_->run("DELETE FROM sync_meta WHERE key = 'applying'");
        } catch (const DatabaseError&) {
            // The rollback below removes it anyway.
        }
        log_->error("Catalogue par défaut impossible : {}", error.description());
        throw;
    }
}

void Catalog::prepareRules() {
    matchers_.clear();
    plans_.clear();
    for (auto& tests : baseTests_) tests.clear();
    for (auto& tests : conditionTests_) tests.clear();
    matchers_.reserve(rules_.size());
    for (std::uint32_t i = 0; i < rules_.size(); ++i) {
        const RuleMatcher& matcher = matchers_.emplace_back(rules_[i]);
        Plan& plan = plans_.emplace_back();
        if (!rules_[i].categoryID && !rules_[i].projectID) continue;  // inert: never a candidate
        baseTests_[fieldIndex(rules_[i].field)].push_back(i);
        for (std::uint32_t k = 0; k < matcher.conditionCount(); ++k) {
            std::size_t field = fieldIndex(matcher.conditionField(k));
            plan.conditions.emplace_back(field, static_cast<std::uint32_t>(conditionTests_[field].size()));
            conditionTests_[field].push_back({i, k});
        }
    }
    forgetMatches();
}

void Catalog::forgetMatches() {
    for (FieldMemo& memo : fieldMemo_) memo = {};
}

Catalog::FieldResults Catalog::computeFieldResults(std::size_t field, const Activity& activity) const {
    // The activity reduced to this one field, so that the results hold for
    // every activity with the same value.
    Activity part;
    switch (static_cast<Rule::Field>(field)) {
    case Rule::Field::app:
        part.bundleID = activity.bundleID;
        part.appName = activity.appName;
        break;
    case Rule::Field::domain:
        part.domain = activity.domain;
        break;
    case Rule::Field::title:
        part.title = activity.title;
        break;
    case Rule::Field::path:
        part.path = activity.path;
        break;
    case Rule::Field::url:
        part.url = activity.url;
        break;
    }
    MatchSubject subject(part);
    FieldResults results;
    for (std::uint32_t rule : baseTests_[field])
        if (auto score = matchers_[rule].baseScore(subject)) results.matching.push_back({rule, *score});
    results.conditions.reserve(conditionTests_[field].size());
    for (const ConditionTest& test : conditionTests_[field])
        results.conditions.push_back(matchers_[test.rule].conditionHolds(test.condition, subject) ? 1 : 0);
    return results;
}

std::uint32_t Catalog::memoID(std::size_t field, const Activity& activity, std::string_view key) {
    FieldMemo& memo = fieldMemo_[field];
    if (auto found = memo.ids.find(key); found != memo.ids.end()) return found->second;
    memo.results.push_back(computeFieldResults(field, activity));
    auto id = static_cast<std::uint32_t>(memo.results.size() - 1);
    memo.ids.emplace(key, id);
    return id;
}

std::uint32_t Catalog::fieldID(std::size_t field, const Activity& activity) {
    FieldMemo& memo = fieldMemo_[field];
    bool app = static_cast<Rule::Field>(field) == Rule::Field::app;
    const SharedText& text = fieldText(static_cast<Rule::Field>(field), activity);
    if (!text && !app) {
        if (!memo.absent) {
            memo.results.push_back(computeFieldResults(field, activity));
            memo.absent = static_cast<std::uint32_t>(memo.results.size() - 1);
        }
        return *memo.absent;
    }
    FieldMemo::Recent* recent = text ? &memo.recent[slotOf(text, memo.recent.size())] : nullptr;
    if (recent && recent->text.sharedWith(text) && (!app || recent->appName == activity.appName)) return recent->id;

    std::uint32_t id;
    if (app) {
        keyBuffer_.clear();
        appendKeyPart(keyBuffer_, activity.bundleID);
        appendKeyPart(keyBuffer_, std::string_view(activity.appName));
        id = memoID(field, activity, keyBuffer_);
    } else {
        id = memoID(field, activity, *text);
    }
    if (recent) *recent = {text, app ? activity.appName : std::string(), id};
    return id;
}

const std::vector<Catalog::Candidate>& Catalog::candidates(const Activity& activity) {
    bool full = false;
    for (const FieldMemo& memo : fieldMemo_) full = full || memo.results.size() >= matchCacheLimit;
    if (full) forgetMatches();

    std::array<const FieldResults*, 5> fields{};
    candidates_.clear();
    for (std::size_t field = 0; field < fields.size(); ++field) {
        if (baseTests_[field].empty() && conditionTests_[field].empty()) continue;
        fields[field] = &fieldMemo_[field].results[fieldID(field, activity)];
        candidates_.insert(candidates_.end(), fields[field]->matching.begin(), fields[field]->matching.end());
    }
    // Rule order decides ties between equal scores.
    auto byRule = [](const Candidate& a, const Candidate& b) { return a.rule < b.rule; };
    if (!std::is_sorted(candidates_.begin(), candidates_.end(), byRule))
        std::sort(candidates_.begin(), candidates_.end(), byRule);
    std::size_t kept = 0;
    for (const Candidate& candidate : candidates_) {
        const Plan& plan = plans_[candidate.rule];
        auto score = matchers_[candidate.rule].combine(candidate.score, [&](std::size_t k) {
            auto [field, test] = plan.conditions[k];
            return fields[field]->conditions[test] != 0;
        });
        if (score) candidates_[kept++] = {candidate.rule, *score};
    }
    candidates_.resize(kept);
    return candidates_;
}

Catalog::Choice Catalog::choose(const std::vector<Candidate>& candidates, MatchSubject& subject) const {
    Choice choice;
    for (const Candidate& candidate : candidates) {
        const Rule& rule = rules_[candidate.rule];
        std::int64_t score = candidate.score;
        const RuleMatcher& matcher = matchers_[candidate.rule];
        if (matcher.timeRestricted()) {
            auto bonus = matcher.timeScore(subject);
            if (!bonus) continue;
            score = addScores(score, *bonus);
        }
        // Strictly greater: on equal scores the older rule (lower id) stays.
        auto consider = [&](Best& best) {
            if (!best.rule || score > best.score) best = {candidate.rule, score};
        };
        if (rule.projectID) consider(choice.project);
        if (rule.categoryID) consider(choice.category);
    }
    return choice;
}

std::shared_ptr<const Category> Catalog::sharedCategory(std::optional<std::int64_t> id) const {
    if (!id) return nullptr;
    auto found = categoryIndex_.find(*id);
    return found == categoryIndex_.end() ? nullptr : sharedCategories_[found->second];
}

const std::shared_ptr<const Category>& Catalog::categoryOfRule(std::uint32_t rule) const {
    return ruleCategories_[rule];
}

std::shared_ptr<const Category> Catalog::fallbackCategory(const Activity& activity) const {
    if (!activity.bundleID || !isBrowser(*activity.bundleID)) return nullptr;
    return navigation_;
}

std::shared_ptr<const Category> Catalog::ruleCategory(const Activity& activity) {
    if (activity.kind == Activity::Kind::privateTime) return nullptr;
    MatchSubject subject(activity);
    Best chosen = choose(candidates(activity), subject).category;
    if (chosen.rule) return categoryOfRule(*chosen.rule);
    return fallbackCategory(activity);
}

std::vector<RuleScore> Catalog::applicableRules(const Activity& activity) const {
    std::vector<RuleScore> found;
    MatchSubject subject(activity);
    for (std::size_t i = 0; i < matchers_.size(); ++i)
        if (auto score = matchers_[i].specificity(subject)) found.push_back({rules_[i], *score});
    return found;
}

} // namespace ombrelo
