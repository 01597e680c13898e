#include "storage/Database.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

class SyncTriggers : public ::testing::Test {
protected:
    testing::TempDir dir;
    Database db{dir / "x.sqlite"};

    std::int64_t outboxCount() { return *db.queryInt("SELECT COUNT(*) FROM sync_outbox"); }
    std::string uidOfCategory(const std::string& name) {
        Statement s = db.prepare("SELECT uid FROM category WHERE name = ?", {name});
        return s.step() ? s.text(0).value_or("") : "";
    }
    void enableSync() { db.run("INSERT OR REPLACE INTO sync_meta (key, value) VALUES ('enabled', '1')"); }
};

TEST_F(SyncTriggers, NaturalIdentityThenRandomHexOnClash) {
    db.run("INSERT INTO category (name) VALUES ('Travail')");
    EXPECT_EQ(uidOfCategory("Travail"), "category:travail");
    db.run("UPDATE category SET name = 'Bureau' WHERE name = 'Travail'");
    db.run("INSERT INTO category (name) VALUES ('travail')");
    std::string random = uidOfCategory("travail");
    EXPECT_EQ(random.size(), 32u);
    EXPECT_EQ(random.find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST_F(SyncTriggers, ProjectAndRuleIdentitiesNameTheirOwners) {
    auto client = db.run("INSERT INTO client (name) VALUES ('Dupont SA')");
    auto project = db.run("INSERT INTO project (client_id, name) VALUES (?, 'Site')", {client});
    auto category = db.run("INSERT INTO category (name) VALUES ('Code')");
    db.run("INSERT INTO rule (field, pattern, category_id, project_id) VALUES ('domain', 'GitHub.com', ?, ?)",
           {category, project});
    Statement p = db.prepare("SELECT uid FROM project");
    ASSERT_TRUE(p.step());
    EXPECT_EQ(p.text(0), "project:dupont sa:site");
    Statement r = db.prepare("SELECT uid FROM rule");
    ASSERT_TRUE(r.step());
    EXPECT_EQ(r.text(0), "rule:domain:github.com:code:site");
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
    EXPECT_EQ(s.text(2)->size(), 32u);
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
