// ProjectStore against a real database file and a real settings file.
#include "billing/ProjectStore.h"
#include "support/LocalTime.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

class ProjectStoreTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone zone{"Europe/Paris"};
    testing::ScopedLanguage language{"fr"};
    testing::TempDir dir;
    Database db{dir / "ombrelo.sqlite"};
    Preferences preferences{dir / "settings.json"};
    ManualClock clock{local::make(2026, 10, 5, 9, 0)};
    ProjectStore store{db, preferences, clock};

    std::int64_t addClient(const std::string& name) {
        SaveResult saved = store.save(Client{0, name, "teal"});
        EXPECT_TRUE(saved) << (saved.error ? saved.error->text() : "");
        return saved.id;
    }
    Project addProject(const std::string& name, std::optional<std::int64_t> client = std::nullopt) {
        Project p;
        p.name = name;
        p.clientID = client;
        p.color = "green";
        SaveResult saved = store.save(p);
        EXPECT_TRUE(saved) << (saved.error ? saved.error->text() : "");
        return *store.project(saved.id);
    }
    std::vector<std::string> projectNames() const {
        std::vector<std::string> names;
        for (const Project& p : store.projects()) names.push_back(p.name);
        return names;
    }
};

TEST_F(ProjectStoreTest, ListsByNameWhateverTheCase) {
    addProject("zeta");
    addProject("Alpha");
    addProject("beta");
    addProject("Gamma");
    EXPECT_EQ(projectNames(), (std::vector<std::string>{"Alpha", "beta", "Gamma", "zeta"}));
    addClient("martin");
    addClient("Dupont");
    ASSERT_EQ(store.clients().size(), 2u);
    EXPECT_EQ(store.clients()[0].name, "Dupont");
}

TEST_F(ProjectStoreTest, SavesEveryFieldAndReadsItBack) {
    std::int64_t client = addClient("Atelier Dupont");
    Project p;
    p.name = "  Refonte  ";
    p.clientID = client;
    p.color = "peach";
    p.billable = false;
    p.rateKind = Project::RateKind::day;
    p.rateCents = 55000;
    p.dayHours = 7.5;
    p.rounding = Project::Rounding::halfDay;
    p.budgetMinutes = 2400;
    p.archived = true;
    SaveResult saved = store.save(p);
    ASSERT_TRUE(saved);
    p.id = saved.id;
    p.name = "Refonte";
    EXPECT_EQ(store.project(saved.id), p);

    // A second store reads the same row from the file.
    ProjectStore other(db, preferences, clock);
    EXPECT_EQ(other.project(saved.id), p);
    EXPECT_EQ(other.label(p), "Atelier Dupont › Refonte");

    p.rateCents = 60000;
    p.budgetMinutes.reset();
    ASSERT_TRUE(store.save(p));
    EXPECT_EQ(store.project(p.id), p);
}

TEST_F(ProjectStoreTest, RefusedWritesChangeNothing) {
    Project kept = addProject("Refonte");
    Project p = kept;
    p.rateCents = Project::maxRateCents + 1;
    SaveResult refused = store.save(p);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error->kind, StoreError::Kind::invalid);
    EXPECT_EQ(refused.error->problem, RecordProblem::rateOutOfRange);
    EXPECT_EQ(store.project(kept.id), kept);

    p = kept;
    p.clientID = 999;
    EXPECT_EQ(store.save(p).error->problem, RecordProblem::unknownClient);
    p = kept;
    p.id = 999;
    EXPECT_EQ(store.save(p).error->kind, StoreError::Kind::notFound);
    EXPECT_EQ(store.remove(p)->kind, StoreError::Kind::notFound);
    EXPECT_EQ(store.save(Client{0, "", "teal"}).error->problem, RecordProblem::emptyName);
    EXPECT_EQ(projectNames(), std::vector<std::string>{"Refonte"});
    EXPECT_TRUE(store.clients().empty());
}

TEST_F(ProjectStoreTest, DatabaseFailureIsReportedNotThrown) {
    Project kept = addProject("Refonte");
    db.execute("CREATE TRIGGER no_update BEFORE UPDATE ON project BEGIN SELECT RAISE(ABORT, 'lecture seule'); END");
    Project p = kept;
    p.name = "Autre";
    SaveResult result = store.save(p);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error->kind, StoreError::Kind::database);
    EXPECT_NE(result.error->detail.find("lecture seule"), std::string::npos);
    EXPECT_EQ(store.project(kept.id), kept);
}

TEST_F(ProjectStoreTest, RemovingAClientKeepsItsProjects) {
    std::int64_t client = addClient("Dupont");
    Project p = addProject("Refonte", client);
    ASSERT_FALSE(store.remove(*store.client(client)));
    EXPECT_FALSE(store.client(client));
    EXPECT_EQ(store.project(p.id)->clientID, std::nullopt);
    ASSERT_FALSE(store.remove(*store.project(p.id)));
    EXPECT_TRUE(store.projects().empty());
}

TEST_F(ProjectStoreTest, FindsByIdNameLabelThenContainment) {
    std::int64_t dupont = addClient("Atelier Dupont");
    Project refonte = addProject("Refonte", dupont);
    Project refonteMartin = addProject("Refonte site Martin");
    Project durant = addProject("Durant");
    EXPECT_EQ(store.find(std::to_string(durant.id))->id, durant.id);
    EXPECT_EQ(store.find("+" + std::to_string(durant.id))->id, durant.id);
    EXPECT_FALSE(store.find("999"));                     // an id never falls back to names
    EXPECT_EQ(store.find("  REFONTE ")->id, refonte.id);  // equality wins over containment
    EXPECT_EQ(store.find("atelier dupont › refonte")->id, refonte.id);
    EXPECT_EQ(store.find("martin")->id, refonteMartin.id);
    EXPECT_EQ(store.find("dur")->id, durant.id);
    EXPECT_EQ(store.find("Réfonte")->id, refonte.id);  // accents are ignored too
    EXPECT_FALSE(store.find(""));
    EXPECT_FALSE(store.find("Inconnu"));
    EXPECT_EQ(store.findClient("dupont")->id, dupont);
    EXPECT_EQ(store.findClient(std::to_string(dupont))->id, dupont);
    EXPECT_FALSE(store.findClient("Martin"));
}

// The active project: one day of life, archived never active, and shared with
// other processes through the settings file.

TEST_F(ProjectStoreTest, ChoosingTheSameProjectTheSameDayKeepsItsStart) {
    Project p = addProject("Refonte");
    int changes = 0;
    store.didChangeActive = [&] { ++changes; };
    ASSERT_FALSE(store.setActive(p));
    Instant started = clock.now();
    ASSERT_FALSE(store.setActiveNote(std::string("maquettes")));
    clock.advance(3600);
    ASSERT_FALSE(store.setActive(p));
    EXPECT_EQ(store.activeSince(), started);
    EXPECT_EQ(store.activeNote(), "maquettes");
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(preferences.integer(settings::activeProject), p.id);
    EXPECT_EQ(preferences.number(settings::activeProjectSince), started);

    // Switching restarts the clock and drops the note.
    Project other = addProject("Durant");
    ASSERT_FALSE(store.setActive(other));
    EXPECT_EQ(store.activeSince(), clock.now());
    EXPECT_EQ(store.activeNote(), std::nullopt);
    EXPECT_EQ(preferences.text(settings::activeProjectNote), std::nullopt);
    EXPECT_EQ(changes, 2);

    ASSERT_FALSE(store.setActive(std::nullopt));
    EXPECT_FALSE(store.activeProject());
    EXPECT_EQ(preferences.integer(settings::activeProject), std::nullopt);
    EXPECT_EQ(preferences.number(settings::activeProjectSince), std::nullopt);
    EXPECT_EQ(changes, 3);
}

TEST_F(ProjectStoreTest, TheActiveProjectEndsWithTheDayWithoutAWrite) {
    Project p = addProject("Refonte");
    clock.set(local::make(2026, 10, 5, 23, 50));
    ASSERT_FALSE(store.setActive(p));
    ASSERT_TRUE(store.activeProject());
    std::string before = testing::readFile(preferences.path());
    clock.set(local::make(2026, 10, 6, 0, 10));
    EXPECT_FALSE(store.activeProject());
    EXPECT_EQ(testing::readFile(preferences.path()), before);
    EXPECT_EQ(store.activeProjectID(), p.id);

    // Choosing it again the next day starts it afresh.
    ASSERT_FALSE(store.setActive(p));
    EXPECT_EQ(store.activeSince(), clock.now());
    EXPECT_EQ(store.activeProject()->id, p.id);
}

TEST_F(ProjectStoreTest, AnArchivedOrMissingProjectIsNeverActive) {
    Project p = addProject("Refonte");
    ASSERT_FALSE(store.setActive(p));
    p.archived = true;
    ASSERT_TRUE(store.save(p));
    EXPECT_FALSE(store.activeProject());
    p.archived = false;
    ASSERT_TRUE(store.save(p));
    EXPECT_TRUE(store.activeProject());
    ASSERT_FALSE(store.remove(p));
    EXPECT_FALSE(store.activeProject());

    Project unsaved;
    unsaved.name = "Brouillon";
    EXPECT_EQ(store.setActive(unsaved)->kind, StoreError::Kind::notFound);
}

TEST_F(ProjectStoreTest, SurvivesARestartWithinTheDay) {
    Project p = addProject("Refonte");
    ASSERT_FALSE(store.setActive(p));
    ASSERT_FALSE(store.setActiveNote(std::string("maquettes")));
    Preferences reread(preferences.path());
    ProjectStore restarted(db, reread, clock);
    EXPECT_EQ(restarted.activeProject()->id, p.id);
    EXPECT_EQ(restarted.activeNote(), "maquettes");
}

TEST_F(ProjectStoreTest, AnotherProcessChangeReachesTheRunningStore) {
    addProject("Refonte");
    int changes = 0;
    store.didChangeActive = [&] { ++changes; };
    EXPECT_FALSE(store.syncActiveFromPreferences());

    // Another process (its own settings object and store) creates a project and
    // starts it; this store has never seen that project.
    Preferences theirPreferences(preferences.path());
    ProjectStore theirs(db, theirPreferences, clock);
    Project made;
    made.name = "Durant";
    SaveResult saved = theirs.save(made);
    ASSERT_TRUE(saved);
    ASSERT_FALSE(theirs.setActive(theirs.project(saved.id)));
    ASSERT_FALSE(theirs.setActiveNote(std::string("appel")));

    auto active = store.activeProject();
    ASSERT_TRUE(active);
    EXPECT_EQ(active->id, saved.id);
    EXPECT_EQ(store.activeNote(), "appel");
    EXPECT_EQ(changes, 1);
    EXPECT_FALSE(store.syncActiveFromPreferences());  // nothing new since

    ASSERT_FALSE(theirs.setActive(std::nullopt));
    EXPECT_FALSE(store.activeProject());
    EXPECT_EQ(changes, 2);
}

} // namespace
} // namespace ombrelo
