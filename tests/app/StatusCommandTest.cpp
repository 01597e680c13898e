// The real binary, in a private data folder.
#include "storage/Database.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

namespace ombrelo {
namespace {

using testing::runOmbrelo;

TEST(StatusCommand, CreatesDatabaseInDataFolderAndReportsIt) {
    testing::TempDir home;
    auto result = runOmbrelo(home.path(), {"status", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    auto status = nlohmann::json::parse(result.out);
    EXPECT_EQ(status["database"], (home / "data/ombrelo/ombrelo-dev.sqlite").string());
    EXPECT_EQ(status["schema_version"], Database::schemaVersion);
    EXPECT_EQ(status["activities"], 0);
    EXPECT_TRUE(status["first_activity"].is_null());
    EXPECT_EQ(status["paused"], false);
}

TEST(StatusCommand, DbOptionAndEnvironmentPickTheFile) {
    testing::TempDir home;
    auto viaOption = runOmbrelo(home.path(), {"--db", (home / "a.sqlite").string(), "status", "--json"});
    EXPECT_EQ(nlohmann::json::parse(viaOption.out)["database"], (home / "a.sqlite").string());
    auto viaEnvironment =
        runOmbrelo(home.path(), {"status", "--json"}, {"OMBRELO_DB=" + (home / "b.sqlite").string()});
    EXPECT_EQ(nlohmann::json::parse(viaEnvironment.out)["database"], (home / "b.sqlite").string());
}

TEST(StatusCommand, NewerDatabaseIsRefusedUntouchedWithExitThree) {
    testing::TempDir home;
    auto file = home / "newer.sqlite";
    sqlite3* raw = nullptr;
    sqlite3_open(file.c_str(), &raw);
    sqlite3_exec(raw, "CREATE TABLE t (x); PRAGMA user_version = 12;", nullptr, nullptr, nullptr);
    sqlite3_close(raw);
    std::string before = testing::readFile(file);

    auto french = runOmbrelo(home.path(), {"--db", file.string(), "status"}, {"LANG=fr_FR.UTF-8"});
    EXPECT_EQ(french.status, 3);
    EXPECT_NE(french.err.find("Vos données viennent d'une version plus récente de Ombrelo"), std::string::npos);
    EXPECT_NE(french.err.find("Vos données n'ont pas été modifiées."), std::string::npos);
    auto english = runOmbrelo(home.path(), {"--db", file.string(), "status"}, {"LANG=en_GB.UTF-8"});
    EXPECT_EQ(english.status, 3);
    EXPECT_NE(english.err.find("newer version of Ombrelo"), std::string::npos);
    EXPECT_EQ(testing::readFile(file), before);
}

TEST(StatusCommand, OpeningFailuresExitWithTheAlert) {
    testing::TempDir home;
    std::filesystem::create_directories(home / "folder.sqlite");
    auto result = runOmbrelo(home.path(), {"--db", (home / "folder.sqlite").string(), "status"}, {"LANG=fr_FR.UTF-8"});
    EXPECT_EQ(result.status, 2) << "a folder may become a file: worth another try";
    testing::writeFile(home / "notes.sqlite", std::string(4096, 'x'));
    auto notADatabase = runOmbrelo(home.path(), {"--db", (home / "notes.sqlite").string(), "status"});
    EXPECT_EQ(notADatabase.status, 4) << notADatabase.err;
    EXPECT_EQ(testing::readFile(home / "notes.sqlite"), std::string(4096, 'x'));
    EXPECT_NE(result.err.find("Ombrelo ne peut pas ouvrir sa base de données"), std::string::npos);
    EXPECT_NE(result.err.find("Le suivi est désactivé. Détail : "), std::string::npos);
}

TEST(CommandLine, UsageErrorsExitOneAndHelpIsTranslated) {
    testing::TempDir home;
    EXPECT_EQ(runOmbrelo(home.path(), {"status", "--no-such-option"}).status, 1);
    auto help = runOmbrelo(home.path(), {"--help"}, {"LANG=fr_FR.UTF-8"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Utilisation"), std::string::npos);
    auto english = runOmbrelo(home.path(), {"status", "--help"}, {"LANG=C"});
    EXPECT_NE(english.out.find("Open the database"), std::string::npos);
}

} // namespace
} // namespace ombrelo
