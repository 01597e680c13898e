#include "import/Importer.h"

#include "classify/Assignment.h"
#include "classify/Catalog.h"
#include "storage/Errors.h"
#include "storage/SyncStamps.h"
#include "support/Fold.h"
#include "support/Log.h"
#include "support/Uuid.h"

#include <algorithm>
#include <unordered_map>

namespace ombrelo {

Importer::Importer(Database& db, ActivityStore& activities, Catalog& catalog, Clock& clock)
    : db_(db), activities_(activities), catalog_(catalog), clock_(clock), log_(Log::get("import")) {}

std::vector<const ImportEntry*> Importer::withoutOverlaps(const std::vector<ImportEntry>& entries,
                                                          std::int64_t& skipped) {
    std::vector<const ImportEntry*> kept;
    if (entries.empty()) return kept;
    Instant from = std::min_element(entries.begin(), entries.end(), [](const ImportEntry& a, const ImportEntry& b) {
                       return a.start < b.start;
                   })->start;
    Instant to = std::max_element(entries.begin(), entries.end(), [](const ImportEntry& a, const ImportEntry& b) {
                     return a.end < b.end;
                 })->end;
    // Absences are no tracked work: time done away from the computer may be
    // imported over them.
    std::vector<Activity> tracked = activities_.activities(from, to);
    std::erase_if(tracked, [](const Activity& a) { return a.kind == Activity::Kind::idle; });
    // By start; the longest end so far tells whether anything earlier reaches past a start.
    std::vector<Instant> reach(tracked.size());
    for (std::size_t i = 0; i < tracked.size(); ++i)
        reach[i] = std::max(i ? reach[i - 1] : tracked[i].end, tracked[i].end);
    for (const ImportEntry& entry : entries) {
        auto before = std::lower_bound(tracked.begin(), tracked.end(), entry.end,
                                       [](const Activity& a, Instant end) { return a.start < end; });
        std::size_t count = static_cast<std::size_t>(before - tracked.begin());
        bool overlaps = count > 0 && reach[count - 1] > entry.start;
        if (overlaps) ++skipped;
        else kept.push_back(&entry);
    }
    return kept;
}

// The clients and projects by folded name, read once per import: folding is
// the slow part of a name lookup, and an import asks it for every row.
struct Importer::Names {
    std::unordered_map<std::string, std::int64_t> clients;
    // Folded project name → (client id or 0, project id), in table order.
    std::unordered_map<std::string, std::vector<std::pair<std::int64_t, std::int64_t>>> projects;
    std::unordered_map<std::string, std::string> folded;

    const std::string& fold(const std::string& name) {
        auto found = folded.find(name);
        if (found == folded.end()) found = folded.emplace(name, ombrelo::fold(name)).first;
        return found->second;
    }
};

std::int64_t Importer::clientID(const std::string& name, Names& names, std::int64_t& created) {
    const std::string& key = names.fold(name);
    if (auto found = names.clients.find(key); found != names.clients.end()) return found->second;
    ++created;
    std::int64_t id = db_.run("INSERT INTO client (name, color) VALUES (?, 'carmine')", {name});
    names.clients.emplace(key, id);
    return id;
}

std::optional<std::int64_t> Importer::projectID(const ImportEntry& entry, Names& names, std::int64_t& created) {
    if (!entry.project) return std::nullopt;
    std::optional<std::int64_t> client;
    if (entry.client) client = clientID(*entry.client, names, created);
    auto& sameName = names.projects[names.fold(*entry.project)];
    for (const auto& [owner, id] : sameName)
        if (owner == client.value_or(0)) return id;
    // No client named: a project of that name, whoever it is for.
    if (!entry.client && !sameName.empty()) return sameName.front().second;
    ++created;
    std::int64_t id = db_.run("INSERT INTO project (client_id, name, color, billable) VALUES (?, ?, 'teal', ?)",
                              {sqlInt(client), *entry.project, std::int64_t{entry.billable.value_or(true)}});
    sameName.emplace_back(client.value_or(0), id);
    return id;
}

std::optional<Importer::Result> Importer::run(const ImportPreview& preview, std::string_view file, bool skipOverlaps) {
    Result result;
    std::vector<const ImportEntry*> entries;
    try {
        if (skipOverlaps) {
            entries = withoutOverlaps(preview.entries, result.skippedOverlaps);
        } else {
            for (const ImportEntry& entry : preview.entries) entries.push_back(&entry);
        }
        result.batch = randomUUID();
        Transaction transaction(db_);
        Names names;
        for (Statement clients = db_.prepare("SELECT id, name FROM client"); clients.step();)
            names.clients.emplace(names.fold(clients.text(1).value_or("")), clients.int64(0));
        for (Statement projects = db_.prepare("SELECT id, name, client_id FROM project ORDER BY id"); projects.step();)
            names.projects[names.fold(projects.text(1).value_or(""))].emplace_back(projects.optionalInt64(2).value_or(0),
                                                                                   projects.int64(0));
        std::string app(appName(preview.source));
        static const std::string insertAssignment =
            "INSERT INTO assignment (activity_id, project_id, category_id, source, note, modified) VALUES (?, ?, NULL, "
            "?, ?, " + std::string(syncStamp::now) + ")";
        for (const ImportEntry* entry : entries) {
            Activity activity;
            activity.start = entry->start;
            activity.end = entry->end;
            activity.appName = app;
            std::int64_t id = activities_.insert(activity, result.batch);
            // The project and the note in one row: a fresh activity has no correction yet.
            std::optional<std::int64_t> project = projectID(*entry, names, result.projectsCreated);
            if (project || entry->note)
                db_.run(insertAssignment,
                        {id, sqlInt(project), std::string(project ? source::manual : source::note),
                         sqlText(entry->note)});
            ++result.imported;
        }
        db_.run("INSERT INTO import_batch (id, source, file, at, count) VALUES (?, ?, ?, ?, ?)",
                {result.batch, app, std::string(file), clock_.now(), result.imported});
        transaction.commit();
    } catch (const DatabaseError& error) {
        lastError_ = error.what();
        log_->error("Import impossible : {}", error.what());
        return std::nullopt;
    }
    lastError_.reset();
    catalog_.announceChange();
    log_->info("Import {} : {} entrées, {} chevauchements ignorés", result.batch, result.imported,
               result.skippedOverlaps);
    return result;
}

std::vector<ImportBatch> Importer::batches() {
    std::vector<ImportBatch> list;
    Statement statement = db_.prepare("SELECT id, source, file, at, count FROM import_batch ORDER BY at DESC");
    while (statement.step())
        list.push_back({statement.text(0).value_or(""), statement.text(1).value_or(""),
                        statement.text(2).value_or(""), statement.real(3), statement.int64(4)});
    return list;
}

bool Importer::undo(std::string_view batch) {
    try {
        Transaction transaction(db_);
        db_.run("DELETE FROM activity WHERE import_batch = ?", {std::string(batch)});
        db_.run("DELETE FROM import_batch WHERE id = ?", {std::string(batch)});
        bool found = db_.changes() > 0;
        transaction.commit();
        if (!found) return false;
    } catch (const DatabaseError& error) {
        lastError_ = error.what();
        log_->error("Annulation d'import impossible : {}", error.what());
        return false;
    }
    lastError_.reset();
    catalog_.announceChange();
    return true;
}

} // namespace ombrelo
