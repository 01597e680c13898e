#include "storage/Schema.h"

#include "storage/Database.h"

namespace ombrelo {

namespace {

void step1(Database& db) {
    db.execute(R"(
CREATE TABLE activity (
  id INTEGER PRIMARY KEY,
  start REAL NOT NULL,
  end REAL NOT NULL,
  bundle_id TEXT,
  app_name TEXT NOT NULL,
  title TEXT,
  domain TEXT,
  kind TEXT NOT NULL
);
CREATE INDEX activity_start ON activity(start);
CREATE TABLE client (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  color TEXT
);
CREATE TABLE project (
  id INTEGER PRIMARY KEY,
  client_id INTEGER REFERENCES client(id) ON DELETE SET NULL,
  name TEXT NOT NULL,
  color TEXT,
  billable INTEGER NOT NULL DEFAULT 1,
  rate_kind TEXT NOT NULL DEFAULT 'hour',
  rate_cents INTEGER NOT NULL DEFAULT 0,
  day_hours REAL NOT NULL DEFAULT 7,
  rounding TEXT NOT NULL DEFAULT 'none',
  budget_minutes INTEGER,
  archived INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE category (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  color TEXT,
  is_distraction INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE rule (
  id INTEGER PRIMARY KEY,
  field TEXT NOT NULL,
  pattern TEXT NOT NULL,
  category_id INTEGER REFERENCES category(id) ON DELETE CASCADE,
  project_id INTEGER REFERENCES project(id) ON DELETE CASCADE,
  priority INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE assignment (
  activity_id INTEGER PRIMARY KEY REFERENCES activity(id) ON DELETE CASCADE,
  project_id INTEGER REFERENCES project(id) ON DELETE SET NULL,
  category_id INTEGER REFERENCES category(id) ON DELETE SET NULL,
  source TEXT NOT NULL
);
CREATE TABLE focus_session (
  id INTEGER PRIMARY KEY,
  start REAL NOT NULL,
  planned_end REAL NOT NULL,
  end REAL,
  project_id INTEGER REFERENCES project(id) ON DELETE SET NULL,
  outcome TEXT
);
CREATE TABLE pause (
  id INTEGER PRIMARY KEY,
  start REAL NOT NULL,
  end REAL,
  taken INTEGER NOT NULL DEFAULT 0
);
)");
}

void step2(Database& db) {
    db.execute("ALTER TABLE category ADD COLUMN symbol TEXT");
    db.execute("CREATE INDEX rule_field ON rule(field)");
}

// The program's own category, for databases that already have categories; a new
// database gets it from the catalogue's seed instead.
void step3(Database& db) {
    db.run("INSERT INTO category (name, color, symbol, is_distraction) "
           "SELECT 'Ombrelo', 'carmine', 'timer', 0 "
           "WHERE EXISTS (SELECT 1 FROM category) "
           "AND NOT EXISTS (SELECT 1 FROM category WHERE name = 'Ombrelo')");
    db.run("INSERT INTO rule (field, pattern, category_id) "
           "SELECT 'app', 'fr.ombrelo.app', (SELECT id FROM category WHERE name = 'Ombrelo' ORDER BY id LIMIT 1) "
           "WHERE EXISTS (SELECT 1 FROM category WHERE name = 'Ombrelo') "
           "AND NOT EXISTS (SELECT 1 FROM rule WHERE pattern = 'fr.ombrelo.app')");
}

void step4(Database& db) {
    db.execute("ALTER TABLE activity ADD COLUMN path TEXT");
    db.execute("ALTER TABLE activity ADD COLUMN url TEXT");
    db.execute("ALTER TABLE assignment ADD COLUMN note TEXT");
}

void step5(Database& db) {
    db.execute(R"(
CREATE TABLE billing (
  activity_id INTEGER PRIMARY KEY REFERENCES activity(id) ON DELETE CASCADE,
  status TEXT NOT NULL,
  invoice TEXT,
  at REAL
))");
}

void step6(Database& db) {
    for (const char* column : {"operator", "conditions", "hours", "weekdays"})
        db.execute(std::string("ALTER TABLE rule ADD COLUMN ") + column + " TEXT");
}

// The program's former name gives way to the current one.
void step7(Database& db) {
    db.execute("UPDATE category SET name = 'Ombrelo' WHERE name = 'Vantor';");
    db.execute("UPDATE rule SET pattern = 'fr.ombrelo.app' WHERE pattern = 'fr.vantor.app';");
}

void step8(Database& db) {
    db.execute("ALTER TABLE activity ADD COLUMN import_batch TEXT");
    db.execute("CREATE INDEX activity_import ON activity(import_batch)");
    db.execute(R"(
CREATE TABLE import_batch (
  id TEXT PRIMARY KEY,
  source TEXT NOT NULL,
  file TEXT,
  at REAL NOT NULL,
  count INTEGER NOT NULL DEFAULT 0
))");
}

// What every opening asks of the whole table (the longest row, whether several
// devices wrote it) answered from an index instead of a scan, so that start-up
// does not grow with history; and the range index covering what the totals of a
// period read, so that they never visit the rows themselves.
void step10(Database& db) {
    db.execute("CREATE INDEX activity_length ON activity(end - start)");
    db.execute("CREATE INDEX activity_device ON activity(device)");
    db.execute("DROP INDEX activity_start");
    db.execute("CREATE INDEX activity_start ON activity(start, end, kind, app_name, bundle_id)");
}

using Step = void (*)(Database&);
constexpr Step steps[] = {step1, step2, step3, step4, step5, step6, step7, step8, createSyncSchema, step10,
                         skipStampingCompleteRows};
static_assert(std::size(steps) == Database::schemaVersion);

} // namespace

void migrateStep(Database& db, std::int64_t step) {
    // Another process may be opening the same file (the tracker and a command at
    // login): the version is read again under the write lock, or both would run
    // the step, and one that is idempotent could even set the version back.
    db.execute("BEGIN IMMEDIATE");
    try {
        if (db.userVersion() < step) {
            steps[step - 1](db);
            db.execute("PRAGMA user_version = " + std::to_string(step));
        }
        db.execute("COMMIT");
    } catch (...) {
        try {
            db.execute("ROLLBACK");
        } catch (const DatabaseError&) {
        }
        throw;
    }
}

void migrate(Database& db, std::int64_t target) {
    std::int64_t current = std::max<std::int64_t>(db.userVersion(), 0);
    for (std::int64_t step = current + 1; step <= target; ++step) migrateStep(db, step);
}

} // namespace ombrelo
