// Steps 9 and 11 of the schema: what synchronisation between the user's machines needs.
// Every synchronised row gets an identity that survives the trip to another
// machine (`uid`, or the activity's uid for per-activity tables), a modification
// time, and triggers that queue local changes in `sync_outbox` while sync is on.
#include "storage/Database.h"
#include "storage/Schema.h"
#include "storage/SyncStamps.h"
#include "support/Uuid.h"

#include <optional>
#include <set>

namespace ombrelo {

namespace {

enum class Key { uid, textID, activity };

struct SyncedTable {
    const char* name;
    Key key;
    const char* naturalIdentity;  // written on NEW; nullptr when the table has none
};

constexpr SyncedTable syncedTables[] = {
    {"category", Key::uid, "'category:' || lower(NEW.name)"},
    {"client", Key::uid, "'client:' || lower(NEW.name)"},
    {"project", Key::uid,
     "'project:' || COALESCE((SELECT lower(name) FROM client WHERE id = NEW.client_id), '') || ':' || lower(NEW.name)"},
    {"rule", Key::uid,
     "'rule:' || NEW.field || ':' || lower(NEW.pattern) || ':' || COALESCE((SELECT lower(name) FROM category WHERE id = "
     "NEW.category_id), '') || ':' || COALESCE((SELECT lower(name) FROM project WHERE id = NEW.project_id), '')"},
    {"import_batch", Key::textID, nullptr},
    {"activity", Key::uid, nullptr},
    {"assignment", Key::activity, nullptr},
    {"billing", Key::activity, nullptr},
    {"focus_session", Key::uid, nullptr},
    {"pause", Key::uid, nullptr},
};

const std::string nowSQL(syncStamp::now);
const std::string randomHexSQL(syncStamp::freshUid);
const std::string guardSQL = "(SELECT value FROM sync_meta WHERE key = 'enabled') = '1' AND "
                             "COALESCE((SELECT value FROM sync_meta WHERE key = 'applying'), '0') != '1'";
const std::string notApplyingSQL = "COALESCE((SELECT value FROM sync_meta WHERE key = 'applying'), '0') != '1'";

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string keyCondition(const SyncedTable& table) {
    return table.key == Key::activity ? "activity_id = NEW.activity_id" : "id = NEW.id";
}

// The row's sync identity seen through the alias NEW or OLD.
std::string syncIdentity(const SyncedTable& table, const std::string& alias) {
    switch (table.key) {
    case Key::uid: return alias + ".uid";
    case Key::activity: return "(SELECT uid FROM activity WHERE id = " + alias + ".activity_id)";
    case Key::textID: return alias + ".id";
    }
    return {};
}

std::string queueChange(const SyncedTable& table, const std::string& alias, int deleted) {
    std::string identity = syncIdentity(table, alias);
    return "INSERT OR REPLACE INTO sync_outbox (entity, uid, deleted)SELECT '" + std::string(table.name) + "', " +
           identity + ", " + std::to_string(deleted) + " WHERE " + guardSQL + " AND " + identity + " IS NOT NULL;";
}

// A row inserted without its identity, time or device, which the insert
// trigger then stamps.
std::string incompleteSQL(const SyncedTable& table) {
    std::string missing = table.key == Key::uid ? "NEW.uid IS NULL OR NEW.modified IS NULL" : "NEW.modified IS NULL";
    if (std::string_view(table.name) == "activity") missing += " OR NEW.device IS NULL";
    return missing;
}

// Stamping rewrites the row, which fires the update trigger and queues the row
// under its new identity; a complete row is only queued, and while sync is off
// costs no more than the trigger's condition.
std::string insertTriggerOf(const SyncedTable& table) {
    const std::string t = table.name;
    std::string assignments;
    if (table.key == Key::uid) {
        std::string fresh = table.naturalIdentity
                                ? "CASE WHEN EXISTS (SELECT 1 FROM " + t + " WHERE uid = " + table.naturalIdentity +
                                      ") THEN " + randomHexSQL + " ELSE " + table.naturalIdentity + " END"
                                : randomHexSQL;
        assignments += "uid = COALESCE(NEW.uid, " + fresh + "), ";
    }
    assignments += "modified = COALESCE(NEW.modified, " + nowSQL + ")";
    if (t == "activity") assignments += ", device = COALESCE(NEW.device, " + std::string(syncStamp::device) + ")";

    const std::string incomplete = incompleteSQL(table);
    return "CREATE TRIGGER sync_" + t + "_insert AFTER INSERT ON " + t + " WHEN " + incomplete + " OR (" + guardSQL +
           ") BEGIN UPDATE " + t + " SET " + assignments + " WHERE " + keyCondition(table) + " AND (" + incomplete +
           "); " + queueChange(table, "NEW", 0) + " END;\n";
}

std::string triggersOf(const SyncedTable& table) {
    const std::string t = table.name;
    return insertTriggerOf(table) + "CREATE TRIGGER sync_" + t + "_update AFTER UPDATE ON " + t + " WHEN " +
           notApplyingSQL + " BEGIN UPDATE " + t + " SET modified = " + nowSQL + " WHERE " + keyCondition(table) +
           "; " + queueChange(table, "NEW", 0) + " END;\n" + "CREATE TRIGGER sync_" + t + "_delete AFTER DELETE ON " +
           t + " BEGIN " + queueChange(table, "OLD", 1) + " END;\n";
}

// Gives every existing row a uid: its natural identity when it has one not yet
// taken in this pass, a random UUID otherwise.
void backFillUids(Database& db, const SyncedTable& table) {
    const std::string t = table.name;
    std::vector<std::pair<std::int64_t, std::optional<std::string>>> rows;
    {
        std::string sql = table.naturalIdentity
                              ? "SELECT t.id, " + replaceAll(table.naturalIdentity, "NEW.", "t.") + " FROM " + t +
                                    " t ORDER BY t.id"
                              : "SELECT id FROM " + t + " ORDER BY id";
        Statement statement = db.prepare(sql);
        while (statement.step())
            rows.emplace_back(statement.int64(0),
                              table.naturalIdentity ? statement.text(1) : std::optional<std::string>());
    }
    std::set<std::string> given;
    for (auto& [id, natural] : rows) {
        std::string uid = natural && !given.count(*natural) ? *natural : randomUUID();
        given.insert(uid);
        db.run("UPDATE " + t + " SET uid = ? WHERE id = ?", {uid, id});
    }
    db.execute("CREATE UNIQUE INDEX " + t + "_uid ON " + t + "(uid)");
}

} // namespace

void createSyncSchema(Database& db) {
    db.execute(R"(
CREATE TABLE sync_meta (
  key TEXT PRIMARY KEY,
  value TEXT
);
CREATE TABLE sync_outbox (
  entity TEXT NOT NULL,
  uid TEXT NOT NULL,
  deleted INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY (entity, uid)
);
CREATE TABLE sync_record (
  name TEXT PRIMARY KEY,
  entity TEXT NOT NULL,
  uid TEXT NOT NULL,
  system TEXT
);
)");
    db.execute("ALTER TABLE activity ADD COLUMN device TEXT");
    db.run("INSERT INTO sync_meta (key, value) VALUES ('device', ?)", {randomUUID()});
    db.execute("UPDATE activity SET device = (SELECT value FROM sync_meta WHERE key = 'device')");

    for (const SyncedTable& table : syncedTables) {
        const std::string t = table.name;
        if (table.key == Key::uid) db.execute("ALTER TABLE " + t + " ADD COLUMN uid TEXT");
        db.execute("ALTER TABLE " + t + " ADD COLUMN modified REAL");
        db.execute("UPDATE " + t + " SET modified = " + nowSQL);
        if (table.key == Key::uid) backFillUids(db, table);
        db.execute(triggersOf(table));
    }
}

void skipStampingCompleteRows(Database& db) {
    for (const SyncedTable& table : syncedTables) {
        db.execute("DROP TRIGGER sync_" + std::string(table.name) + "_insert");
        db.execute(insertTriggerOf(table));
    }
}

} // namespace ombrelo
