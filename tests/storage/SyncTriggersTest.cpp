#include "storage/Database.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

std::string lastUid(Database& db, const std::string& table) {
    Statement s = db.prepare("SELECT uid FROM " + table + " ORDER BY id DESC LIMIT 1");
    return s.step() ? s.text(0).value_or("") : "";
}

class SyncTriggers : public ::testing::Test {
protected:
    testing::TempDir dir;
    Database db{dir / "x.sqlite"};

    std::int64_t outboxCount() { return *db.queryInt("SELECT COUNT(*) FROM sync_outbox"); }
    void enableSync() { db.run("INSERT OR REPLACE INTO sync_meta (key, value) VALUES ('enabled', '1')"); }
};

// Two machines creating the same things on their own must agree on their
// identities, or sync would duplicate them instead of merging.
TEST_F(SyncTriggers, SameThingsGetTheSameIdentityOnEveryMachine) {
    auto create = [](Database& on, const std::string& client, const std::string& pattern) {
        auto clientID = on.run("INSERT INTO client (name) VALUES (?)", {client});
        auto project = on.run("INSERT INTO project (client_id, name) VALUES (?, 'Site')", {clientID});
        auto category = on.run("INSERT INTO category (name) VALUES ('Code')");
        on.run("INSERT INTO rule (field, pattern, category_id, project_id) VALUES ('domain', ?, ?, ?)",
               {pattern, category, project});
        return std::vector<std::string>{lastUid(on, "category"), lastUid(on, "project"), lastUid(on, "rule")};
    };
    Database same(dir / "same.sqlite"), otherClient(dir / "other.sqlite");
    auto here = create(db, "Dupont SA", "GitHub.com");
    EXPECT_EQ(create(same, "dupont sa", "github.com"), here);
    // The same project name for another client is another project.
    auto there = create(otherClient, "Martin", "github.com");
    EXPECT_NE(there[1], here[1]);
}

TEST_F(SyncTriggers, IdentitySurvivesRenameAndATakenOneIsNotReused) {
    db.run("INSERT INTO category (name) VALUES ('Travail')");
    std::string first = lastUid(db, "category");
    db.run("UPDATE category SET name = 'Bureau' WHERE name = 'Travail'");
    EXPECT_EQ(lastUid(db, "category"), first);
    db.run("INSERT INTO category (name) VALUES ('travail')");
    std::string second = lastUid(db, "category");
    EXPECT_TRUE(!second.empty() && second != first) << second;
}

// Rows arriving from another device are written while "applying" is set, and
// keep the identity, time and device they carry.
TEST_F(SyncTriggers, ActivityGetsDeviceAndKeepsWhatItCarries) {
    db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (1, 2, 'A', 'app')");
    db.run("INSERT INTO sync_meta (key, value) VALUES ('applying', '1')");
    db.run("INSERT INTO activity (start, end, app_name, kind, device, uid, modified) "
           "VALUES (1, 2, 'B', 'app', 'other', 'u-1', 42)");
    Statement s = db.prepare("SELECT app_name, device, uid, modified FROM activity ORDER BY id");
    ASSERT_TRUE(s.step());
    auto device = db.prepare("SELECT value FROM sync_meta WHERE key = 'device'");
    ASSERT_TRUE(device.step());
    EXPECT_EQ(s.text(1), device.text(0));
    EXPECT_FALSE(s.text(2).value_or("").empty());
    ASSERT_TRUE(s.step());
    EXPECT_EQ(s.text(1), "other");
    EXPECT_EQ(s.text(2), "u-1");
    EXPECT_EQ(s.real(3), 42);
}

TEST_F(SyncTriggers, NothingQueuedWhileSyncIsOff) {
    auto id = db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (1, 2, 'A', 'app')");
    db.run("UPDATE activity SET end = 3 WHERE id = ?", {id});
    db.run("INSERT INTO sync_meta (key, value) VALUES ('enabled', '0')");
    db.run("DELETE FROM activity WHERE id = ?", {id});
    EXPECT_EQ(outboxCount(), 0);
}

TEST_F(SyncTriggers, ChangesQueuedOncePerRecordWhileSyncIsOn) {
    enableSync();
    auto id = db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (1, 2, 'A', 'app')");
    db.run("UPDATE activity SET end = 3 WHERE id = ?", {id});
    db.run("INSERT INTO assignment (activity_id, source) VALUES (?, 'manual')", {id});
    EXPECT_EQ(*db.queryInt("SELECT COUNT(*) FROM sync_outbox WHERE entity = 'activity' AND deleted = 0"), 1);
    // Per-activity tables are queued under the activity's uid.
    EXPECT_EQ(*db.queryInt("SELECT COUNT(*) FROM sync_outbox o JOIN activity a ON a.uid = o.uid "
                           "WHERE o.entity = 'assignment'"),
              1);
    db.run("DELETE FROM activity WHERE id = ?", {id});
    EXPECT_EQ(*db.queryInt("SELECT deleted FROM sync_outbox WHERE entity = 'activity'"), 1);
}

TEST_F(SyncTriggers, ApplyingRemoteChangesNeitherStampsNorQueues) {
    enableSync();
    auto id = db.run("INSERT INTO client (name) VALUES ('Martin')");
    db.execute("DELETE FROM sync_outbox");
    db.run("INSERT INTO sync_meta (key, value) VALUES ('applying', '1')");
    db.run("UPDATE client SET modified = 5 WHERE id = ?", {id});
    db.run("UPDATE client SET name = 'Martin & Fils' WHERE id = ?", {id});
    EXPECT_EQ(outboxCount(), 0);
    Statement s = db.prepare("SELECT modified FROM client WHERE id = ?", {id});
    ASSERT_TRUE(s.step());
    EXPECT_EQ(s.real(0), 5);
}

// A bulk writer stamps its rows itself: the triggers must keep what it wrote
// and still queue the row while sync is on.
TEST_F(SyncTriggers, RowsWrittenWithTheirStampsAreKeptAndQueued) {
    auto insertComplete = [&](const std::string& uid) {
        auto id = db.run("INSERT INTO activity (start, end, app_name, kind, uid, modified, device) "
                         "VALUES (1, 2, 'A', 'app', ?, 42, 'here')",
                         {uid});
        db.run("INSERT INTO assignment (activity_id, source, modified) VALUES (?, 'manual', 43)", {id});
        return id;
    };
    auto id = insertComplete("u-off");
    EXPECT_EQ(outboxCount(), 0);
    Statement kept = db.prepare("SELECT a.uid, a.modified, a.device, s.modified FROM activity a "
                                "JOIN assignment s ON s.activity_id = a.id WHERE a.id = ?",
                                {id});
    ASSERT_TRUE(kept.step());
    EXPECT_EQ(kept.text(0), "u-off");
    EXPECT_EQ(kept.real(1), 42);
    EXPECT_EQ(kept.text(2), "here");
    EXPECT_EQ(kept.real(3), 43);

    enableSync();
    insertComplete("u-on");
    EXPECT_EQ(*db.queryInt("SELECT COUNT(*) FROM sync_outbox WHERE uid = 'u-on' AND deleted = 0"), 2);
    EXPECT_EQ(outboxCount(), 2);
}

TEST_F(SyncTriggers, LocalUpdateRestampsModified) {
    auto id = db.run("INSERT INTO client (name) VALUES ('Martin')");
    db.run("INSERT INTO sync_meta (key, value) VALUES ('applying', '1')");
    db.run("UPDATE client SET modified = 5 WHERE id = ?", {id});
    db.run("DELETE FROM sync_meta WHERE key = 'applying'");
    db.run("UPDATE client SET name = 'Martin & Fils' WHERE id = ?", {id});
    Statement s = db.prepare("SELECT modified FROM client WHERE id = ?", {id});
    ASSERT_TRUE(s.step());
    EXPECT_GT(s.real(0), 1.7e9);
}

} // namespace
} // namespace ombrelo
