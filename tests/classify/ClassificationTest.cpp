#include "classify/BlockDrag.h"
#include "classify/Catalog.h"
#include "storage/ActivityStore.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using Field = Rule::Field;
using Op = Rule::Operator;

// A seeded catalogue, two projects with their own rules (Xcode → Refonte,
// github.com → Durant) and helpers to record activities.
class ClassificationTest : public ::testing::Test {
protected:
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "classify.sqlite"};
    ActivityStore store{db};
    Catalog catalog{db};
    std::vector<Project> projects;
    Project refonte, durant;

    void SetUp() override {
        refonte = addProject("Refonte");
        durant = addProject("Durant");
        addProjectRule(Field::app, "com.apple.dt.xcode", refonte.id);
        addProjectRule(Field::domain, "github.com", durant.id);
    }

    Project addProject(const std::string& name) {
        Project project;
        project.name = name;
        project.color = "teal";
        project.id = db.run("INSERT INTO project (name, color) VALUES (?, ?)", {name, project.color});
        projects.push_back(project);
        return project;
    }

    std::int64_t addCategory(const std::string& name) { return *catalog.save(Category{0, name, "green", "tag", false}); }

    void addProjectRule(Field field, std::string pattern, std::int64_t project) {
        Rule rule;
        rule.field = field;
        rule.pattern = std::move(pattern);
        rule.projectID = project;
        ASSERT_TRUE(catalog.save(rule));
    }

    Activity record(std::string bundleID, std::optional<std::string> domain = std::nullopt,
                    Activity::Kind kind = Activity::Kind::app) {
        Activity a;
        a.start = 1'780'000'000;
        a.end = a.start + 300;
        a.bundleID = std::move(bundleID);
        a.appName = "App";
        a.domain = std::move(domain);
        a.kind = kind;
        a.id = store.insert(a);
        return a;
    }

    Classification one(const Activity& activity) { return catalog.classifyDetailed({activity}, projects).front(); }
    std::string projectOf(const Activity& activity) {
        auto project = one(activity).item.project;
        return project ? project->name : "-";
    }
    std::string categoryOf(const Activity& activity) {
        auto category = one(activity).item.category;
        return category ? category->name : "-";
    }
    std::optional<std::string> sourceOf(const Activity& activity) {
        auto row = catalog.loadOverrides({activity.id});
        if (row.empty()) return std::nullopt;
        return row.begin()->second.source;
    }
};

TEST_F(ClassificationTest, RulesGiveCategoryAndProjectWithTheDecidingRules) {
    Activity xcode = record("com.apple.dt.Xcode");
    Classification result = one(xcode);
    ASSERT_TRUE(result.item.project && result.item.category);
    EXPECT_EQ(result.item.project->name, "Refonte");
    EXPECT_EQ(result.item.category->name, "Code");
    EXPECT_FALSE(result.item.manual);
    EXPECT_FALSE(result.assignment);
    auto rule = [&](std::optional<std::int64_t> id) {
        for (const Rule& r : catalog.rules())
            if (r.id == id) return r;
        return Rule{};
    };
    EXPECT_EQ(rule(result.categoryRuleID).categoryID, result.item.category->id);
    EXPECT_EQ(rule(result.projectRuleID).projectID, refonte.id);

    // Results keep the input order, and a project outside the given list is none.
    Activity hub = record("firefox", "github.com");
    auto both = catalog.classify({hub, xcode}, {refonte});
    EXPECT_EQ(both[0].activity.id, hub.id);
    EXPECT_FALSE(both[0].project);
    EXPECT_EQ(both[1].project->name, "Refonte");
}

TEST_F(ClassificationTest, ManualCorrectionBeatsRulesUntilCleared) {
    Activity xcode = record("com.apple.dt.xcode");
    ASSERT_TRUE(catalog.setNote({xcode.id}, std::string("appel client")));
    ASSERT_TRUE(catalog.assign({xcode.id}, durant.id, std::nullopt, source::manual));
    Classification corrected = one(xcode);
    EXPECT_EQ(corrected.item.project->name, "Durant");
    EXPECT_TRUE(corrected.item.manual);
    EXPECT_FALSE(corrected.projectRuleID);
    EXPECT_EQ(corrected.item.category->name, "Code");  // no category chosen: the rules'
    EXPECT_EQ(corrected.item.note, "appel client");    // the note survived the correction

    ASSERT_TRUE(catalog.clearAssignments({xcode.id}));
    EXPECT_EQ(projectOf(xcode), "Refonte");
    EXPECT_FALSE(one(xcode).item.manual);
    EXPECT_EQ(one(xcode).item.note, "appel client");
    EXPECT_EQ(sourceOf(xcode), "note");

    // Without a note, clearing leaves no row at all.
    Activity other = record("com.apple.dt.xcode");
    ASSERT_TRUE(catalog.assign({other.id}, durant.id, std::nullopt, source::manual));
    ASSERT_TRUE(catalog.clearAssignments({other.id}));
    EXPECT_FALSE(sourceOf(other));
}

TEST_F(ClassificationTest, ManualToNoProjectSticksAndCategoryOverrides) {
    Activity xcode = record("com.apple.dt.xcode");
    std::int64_t clients = addCategory("Clients");
    ASSERT_TRUE(catalog.assign({xcode.id}, std::nullopt, clients, source::manual));
    EXPECT_EQ(projectOf(xcode), "-");
    EXPECT_EQ(categoryOf(xcode), "Clients");
    EXPECT_FALSE(one(xcode).categoryRuleID);

    // A correction whose category was deleted falls back to the rules' category.
    ASSERT_TRUE(catalog.remove(*catalog.category(clients)));
    EXPECT_EQ(categoryOf(xcode), "Code");
    EXPECT_EQ(projectOf(xcode), "-");
}

TEST_F(ClassificationTest, ActiveAndModelRowsOverrideOneSideEach) {
    Activity xcode = record("com.apple.dt.xcode");
    ASSERT_TRUE(catalog.assign({xcode.id}, durant.id, std::nullopt, source::active));
    EXPECT_EQ(projectOf(xcode), "Durant");
    EXPECT_EQ(categoryOf(xcode), "Code");
    EXPECT_FALSE(one(xcode).item.manual);

    ASSERT_TRUE(catalog.assign({xcode.id}, std::nullopt, addCategory("Clients"), source::ai));
    EXPECT_EQ(projectOf(xcode), "Refonte");  // the model gives no project
    EXPECT_EQ(categoryOf(xcode), "Clients");
}

TEST_F(ClassificationTest, NotesChangeNothingElse) {
    Activity hub = record("firefox", "github.com");
    ASSERT_TRUE(catalog.setNote({hub.id}, std::string("revue PR")));
    EXPECT_EQ(projectOf(hub), "Durant");
    EXPECT_EQ(categoryOf(hub), "Code");
    EXPECT_EQ(one(hub).item.note, "revue PR");
    ASSERT_TRUE(catalog.setNote({hub.id}, std::nullopt));
    EXPECT_FALSE(sourceOf(hub));
}

TEST_F(ClassificationTest, IdleTimeGetsNoRuleProject) {
    Activity away = record("com.apple.dt.xcode", std::nullopt, Activity::Kind::idle);
    EXPECT_EQ(projectOf(away), "-");
}

TEST_F(ClassificationTest, ActiveProjectClaimsWorkButNotDistractions) {
    Activity xcode = record("com.apple.dt.xcode");
    ASSERT_TRUE(catalog.applyActiveProject(durant, std::string("sprint 3"), xcode, projects));
    EXPECT_EQ(sourceOf(xcode), "active");
    EXPECT_EQ(projectOf(xcode), "Durant");  // beats the project rule
    EXPECT_EQ(categoryOf(xcode), "Code");   // never changes the category
    EXPECT_EQ(one(xcode).item.note, "sprint 3");

    Activity video = record("firefox", "www.youtube.com");
    ASSERT_TRUE(catalog.applyActiveProject(durant, std::nullopt, video, projects));
    EXPECT_FALSE(sourceOf(video));
    EXPECT_EQ(projectOf(video), "-");

    Activity away = record("firefox", std::nullopt, Activity::Kind::idle);
    ASSERT_TRUE(catalog.applyActiveProject(durant, std::nullopt, away, projects));
    EXPECT_FALSE(sourceOf(away));
}

TEST_F(ClassificationTest, ActiveProjectKeepsManualCorrections) {
    Activity video = record("firefox", "youtube.com");
    ASSERT_TRUE(catalog.assign({video.id}, refonte.id, std::nullopt, source::manual));
    ASSERT_TRUE(catalog.applyActiveProject(durant, std::nullopt, video, projects));
    EXPECT_EQ(sourceOf(video), "manual");
    EXPECT_EQ(projectOf(video), "Refonte");
}

TEST_F(ClassificationTest, StoppingTheActiveProjectReleasesTheCurrentActivityOnly) {
    Activity earlier = record("com.apple.dt.xcode");
    Activity current = record("com.apple.dt.xcode");
    ASSERT_TRUE(catalog.applyActiveProject(durant, std::nullopt, earlier, projects));
    ASSERT_TRUE(catalog.applyActiveProject(durant, std::string("note"), current, projects));
    ASSERT_TRUE(catalog.applyActiveProject(std::nullopt, std::nullopt, current, projects));
    EXPECT_EQ(sourceOf(earlier), "active");
    EXPECT_EQ(sourceOf(current), "note");  // its note stays
    EXPECT_EQ(projectOf(current), "Refonte");
}

TEST_F(ClassificationTest, FailedAssignmentChangesNothing) {
    Activity xcode = record("com.apple.dt.xcode");
    // The second id does not exist: the foreign key fails and the whole batch rolls back.
    EXPECT_FALSE(catalog.assign({xcode.id, xcode.id + 100}, durant.id, std::nullopt, source::manual));
    EXPECT_TRUE(catalog.lastError());
    EXPECT_FALSE(sourceOf(xcode));
    EXPECT_FALSE(db.inTransaction());
}

TEST(BlockDragTest, PayloadReadsBackAndForeignTextIsRefused) {
    const std::vector<std::int64_t> ids{812, 9007199254740993};  // beyond a double's exact integers
    for (bool idle : {false, true}) EXPECT_EQ(BlockDrag::parse(BlockDrag::payload(ids, idle)), (BlockDrag::Dropped{ids, idle}));
    std::string one = BlockDrag::payload({1}, false);
    EXPECT_FALSE(BlockDrag::parse("https://example.com"));
    EXPECT_FALSE(BlockDrag::parse(one + ",,2"));
    EXPECT_FALSE(BlockDrag::parse(one + ",x"));
}

} // namespace
} // namespace ombrelo
