// The classification half of Catalog: stored corrections merged with the rules,
// and the writes of corrections, notes and the active project's claims.
#include "classify/Catalog.h"

#include "storage/Database.h"

#include <algorithm>
#include <spdlog/spdlog.h>

namespace ombrelo {

namespace {

constexpr std::string_view assignmentFailure = "Affectation impossible : {}";

void writeNotes(Database& db, const std::vector<std::int64_t>& ids, const std::optional<std::string>& note) {
    for (std::int64_t id : ids) {
        if (note) {
            db.run("INSERT INTO assignment (activity_id, source, note) VALUES (?, 'note', ?) "
                   "ON CONFLICT(activity_id) DO UPDATE SET note = excluded.note",
                   {id, *note});
        } else {
            // Without its note, a row that carried only a note has nothing left.
            db.run("UPDATE assignment SET note = NULL WHERE activity_id = ?", {id});
            db.run("DELETE FROM assignment WHERE activity_id = ? AND source = 'note'", {id});
        }
    }
}

void clearRows(Database& db, const std::vector<std::int64_t>& ids) {
    for (std::int64_t id : ids) {
        db.run("UPDATE assignment SET project_id = NULL, category_id = NULL, source = 'note' "
               "WHERE activity_id = ? AND note IS NOT NULL",
               {id});
        db.run("DELETE FROM assignment WHERE activity_id = ? AND note IS NULL", {id});
    }
}

} // namespace

std::map<std::int64_t, Assignment> Catalog::loadOverrides(const std::vector<std::int64_t>& ids) {
    std::map<std::int64_t, Assignment> rows;
    if (!db_ || ids.empty()) return rows;
    auto [low, high] = std::minmax_element(ids.begin(), ids.end());
    try {
        Statement statement = db_->prepare(
            "SELECT activity_id, project_id, category_id, source, note FROM assignment WHERE activity_id BETWEEN ? AND ?",
            {*low, *high});
        while (statement.step()) {
            Assignment row{statement.int64(0), statement.optionalInt64(1), statement.optionalInt64(2),
                           statement.text(3).value_or(""), statement.text(4)};
            rows.emplace(row.activityID, std::move(row));
        }
    } catch (const DatabaseError& error) {
        log_->error("Lecture des affectations impossible : {}", error.description());
        rows.clear();
    }
    return rows;
}

template <typename Sink>
void Catalog::classifyEach(std::vector<Activity>& activities, const std::vector<Project>& projects, Sink&& sink) {
    std::vector<std::int64_t> ids;
    ids.reserve(activities.size());
    for (const Activity& activity : activities)
        if (activity.id != 0) ids.push_back(activity.id);
    std::map<std::int64_t, Assignment> overrides = loadOverrides(ids);

    // One shared copy of each project for all the items of the call.
    std::unordered_map<std::int64_t, std::shared_ptr<const Project>> projectIndex;
    for (const Project& project : projects) projectIndex.emplace(project.id, std::make_shared<const Project>(project));
    auto project = [&](std::optional<std::int64_t> id) -> std::shared_ptr<const Project> {
        if (!id) return nullptr;
        auto found = projectIndex.find(*id);
        return found == projectIndex.end() ? nullptr : found->second;
    };

    for (Activity& activity : activities) {
        Classified& item = sink.next();
        Decision decision;
        const std::vector<Candidate>& found = candidates(activity);
        MatchSubject subject(activity);

        Choice chosen = choose(found, subject);
        Best projectRule = activity.kind != Activity::Kind::idle ? chosen.project : Best();
        Best categoryRule = activity.kind != Activity::Kind::privateTime ? chosen.category : Best();

        auto row = overrides.find(activity.id);
        const Assignment* stored = row == overrides.end() ? nullptr : &row->second;
        if (stored && (stored->source == source::manual || stored->source == source::active)) {
            // A correction to no project sticks even when a project rule matches.
            item.project = project(stored->projectID);
            item.manual = stored->source == source::manual;
        } else if (projectRule.rule) {
            item.project = project(rules_[*projectRule.rule].projectID);
            if (item.project) decision.projectRuleID = rules_[*projectRule.rule].id;
        }

        if (stored && stored->categoryID) item.category = sharedCategory(stored->categoryID);
        if (!item.category && activity.kind != Activity::Kind::privateTime) {
            if (categoryRule.rule) {
                item.category = categoryOfRule(*categoryRule.rule);
                if (item.category) decision.categoryRuleID = rules_[*categoryRule.rule].id;
            } else {
                item.category = fallbackCategory(activity);
            }
        }
        if (stored) item.note = stored->note;
        decision.assignment = stored;
        item.activity = std::move(activity);
        sink.decided(decision);
    }
}

std::vector<Classified> Catalog::classify(std::vector<Activity> activities, const std::vector<Project>& projects) {
    // Each item is made in its place in the result.
    struct Items {
        std::vector<Classified> list;
        Classified& next() { return list.emplace_back(); }
        void decided(const Decision&) {}
    } items;
    items.list.reserve(activities.size());
    classifyEach(activities, projects, items);
    return std::move(items.list);
}

std::vector<Classification> Catalog::classifyDetailed(std::vector<Activity> activities,
                                                      const std::vector<Project>& projects) {
    struct Results {
        std::vector<Classification> list;
        Classified& next() { return list.emplace_back().item; }
        void decided(const Decision& decision) {
            Classification& result = list.back();
            result.categoryRuleID = decision.categoryRuleID;
            result.projectRuleID = decision.projectRuleID;
            if (decision.assignment) result.assignment = *decision.assignment;
        }
    } results;
    results.list.reserve(activities.size());
    classifyEach(activities, projects, results);
    return std::move(results.list);
}

void Catalog::writeAssignments(const std::vector<std::int64_t>& ids, std::optional<std::int64_t> projectID,
                               std::optional<std::int64_t> categoryID, std::string_view source) {
    for (std::int64_t id : ids)
        db_->run("INSERT INTO assignment (activity_id, project_id, category_id, source) VALUES (?, ?, ?, ?) "
                 "ON CONFLICT(activity_id) DO UPDATE SET project_id = excluded.project_id, "
                 "category_id = excluded.category_id, source = excluded.source, note = assignment.note",
                 {id, sqlInt(projectID), sqlInt(categoryID), std::string(source)});
}

bool Catalog::assign(const std::vector<std::int64_t>& ids, std::optional<std::int64_t> projectID,
                     std::optional<std::int64_t> categoryID, std::string_view source) {
    return write(
        [&] {
            Transaction transaction(*db_);
            writeAssignments(ids, projectID, categoryID, source);
            transaction.commit();
        },
        assignmentFailure);
}

bool Catalog::setNote(const std::vector<std::int64_t>& ids, const std::optional<std::string>& note) {
    return write(
        [&] {
            Transaction transaction(*db_);
            writeNotes(*db_, ids, note);
            transaction.commit();
        },
        assignmentFailure);
}

bool Catalog::clearAssignments(const std::vector<std::int64_t>& ids) {
    return write(
        [&] {
            Transaction transaction(*db_);
            clearRows(*db_, ids);
            transaction.commit();
        },
        assignmentFailure);
}

bool Catalog::applyActiveProject(const std::optional<Project>& active, const std::optional<std::string>& note,
                                 const Activity& activity, const std::vector<Project>& projects) {
    if (activity.kind == Activity::Kind::idle || activity.kind == Activity::Kind::manual) return true;
    if (!db_ || activity.id == 0) return true;
    try {
        std::optional<std::string> stored;
        {
            Statement statement = db_->prepare("SELECT source FROM assignment WHERE activity_id = ?", {activity.id});
            if (statement.step()) stored = statement.text(0);
        }
        if (stored == source::manual) return true;  // corrections are never overwritten

        std::vector<Classification> alone = classifyDetailed({activity}, projects);
        const std::shared_ptr<const Category>& category = alone.front().item.category;
        bool distraction = category && category->isDistraction;

        Transaction transaction(*db_);
        if (active && !distraction) {
            writeAssignments({activity.id}, active->id, std::nullopt, source::active);
            if (note && !note->empty()) writeNotes(*db_, {activity.id}, note);
        } else if (stored == source::active) {
            clearRows(*db_, {activity.id});
        }
        transaction.commit();
        lastError_.reset();
        return true;
    } catch (const DatabaseError& error) {
        failed(assignmentFailure, error.description());
        return false;
    }
}

} // namespace ombrelo
