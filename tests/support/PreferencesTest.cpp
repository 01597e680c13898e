#include "support/Preferences.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ombrelo {
namespace {

class PreferencesTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    std::filesystem::path file = dir / "config/ombrelo/settings.json";
};

TEST_F(PreferencesTest, DefaultsWhenMissingAndTypedRoundTrip) {
    Preferences prefs(file);
    EXPECT_EQ(prefs.get(settings::idleSeconds), 300);
    EXPECT_EQ(prefs.get(settings::workDays), (std::vector<std::int64_t>{2, 3, 4, 5, 6}));
    prefs.set("idleSeconds", 120.0);
    prefs.set("workHoursEnabled", true);
    prefs.set("privateApps", std::vector<std::string>{"keepassxc"});
    prefs.set("activeProject", std::int64_t{42});
    Preferences reread(file);
    EXPECT_EQ(reread.get(settings::idleSeconds), 120);
    EXPECT_TRUE(reread.get(settings::workHoursEnabled));
    EXPECT_EQ(reread.get(settings::privateApps), (std::vector<std::string>{"keepassxc"}));
    EXPECT_EQ(reread.integer("activeProject"), 42);
    reread.remove("activeProject");
    EXPECT_FALSE(prefs.integer("activeProject"));
}

TEST_F(PreferencesTest, WrongTypeReadsAsDefault) {
    testing::writeFile(file, R"({"idleSeconds": "soon", "workDays": [2, "x"], "workHoursStart": 9.0})");
    Preferences prefs(file);
    EXPECT_EQ(prefs.get(settings::idleSeconds), 300);
    EXPECT_EQ(prefs.get(settings::workDays), (std::vector<std::int64_t>{2, 3, 4, 5, 6}));
    EXPECT_EQ(prefs.get(settings::workHoursStart), 9);
}

TEST_F(PreferencesTest, DamagedFileIsKeptAsideNotOverwritten) {
    testing::writeFile(file, "{ this is not json");
    Preferences prefs(file);
    EXPECT_EQ(prefs.get(settings::idleSeconds), 300);
    prefs.set("idleSeconds", 60.0);
    EXPECT_EQ(prefs.get(settings::idleSeconds), 60);
    int aside = 0;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        if (entry.path().filename().string().starts_with("settings.json.damaged-")) {
            ++aside;
            EXPECT_EQ(testing::readFile(entry.path()), "{ this is not json");
        }
    EXPECT_EQ(aside, 1);
}

TEST_F(PreferencesTest, SeesAnotherWritersChanges) {
    Preferences tracker(file), command(file);
    auto generation = tracker.generation();
    EXPECT_FALSE(tracker.integer("activeProject"));
    command.set("activeProject", std::int64_t{7});
    EXPECT_EQ(tracker.integer("activeProject"), 7);
    EXPECT_GT(tracker.generation(), generation);
}

// Two processes writing different keys at once must not lose each other's.
TEST_F(PreferencesTest, ConcurrentWritersKeepEveryKey) {
    Preferences(file).set("seed", true);
    auto writeKeys = [&](const std::string& prefix) {
        Preferences prefs(file);
        for (int i = 0; i < 40; ++i) prefs.set(prefix + std::to_string(i), std::int64_t{i});
    };
    pid_t child = ::fork();
    if (child == 0) {
        writeKeys("child");
        ::_exit(0);
    }
    writeKeys("parent");
    int status = 0;
    ::waitpid(child, &status, 0);
    Preferences prefs(file);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(prefs.integer("child" + std::to_string(i)), i);
        EXPECT_EQ(prefs.integer("parent" + std::to_string(i)), i);
    }
}

} // namespace
} // namespace ombrelo
