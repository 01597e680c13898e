// ombrelo import as the real binary: bad files refused before anything is
// written, the preview, the import, the list and undo by a prefix of the batch.
#include "storage/Database.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ombrelo {
namespace {

using nlohmann::json;
using testing::runOmbrelo;

class ImportCommandsTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir home;
    std::string file = (home / "ombrelo.sqlite").string();

    testing::CommandResult ombrelo(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--db", file});
        return runOmbrelo(home.path(), arguments, {"LANG=fr_FR.UTF-8", "LC_ALL=fr_FR.UTF-8", "TZ=Europe/Paris"});
    }
    std::string write(const std::string& name, const std::string& text) {
        testing::writeFile(home / name, text);
        return (home / name).string();
    }
    std::int64_t activities() { return Database(file).queryInt("SELECT COUNT(*) FROM activity").value_or(-1); }
};

TEST_F(ImportCommandsTest, BadFilesAreRefusedWithTheirReason) {
    auto missing = ombrelo({"import", (home / "absent.csv").string()});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("Fichier illisible"), std::string::npos) << missing.err;
    EXPECT_NE(ombrelo({"import", write("empty.csv", "  \n")}).err.find("Fichier vide"), std::string::npos);
    EXPECT_NE(ombrelo({"import", write("blob.csv", std::string("PK\x03\x04\0\0", 6))}).err.find("binaires"),
              std::string::npos);
    auto headerOnly = ombrelo({"import", write("header.csv", "Date;Début;Fin\n")});
    EXPECT_EQ(headerOnly.status, 2);
    EXPECT_NE(headerOnly.err.find("Aucune ligne lisible"), std::string::npos) << headerOnly.err;
    auto unknown = ombrelo({"import", write("other.csv", "Nom,Prix\nCafé,2\n")});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("Colonnes introuvables : début (date), durée"), std::string::npos) << unknown.err;
    EXPECT_NE(unknown.err.find("« Nom », « Prix »"), std::string::npos) << unknown.err;
    EXPECT_EQ(activities(), 0);
}

TEST_F(ImportCommandsTest, PreviewImportListAndUndo) {
    std::string csv = write("toggl.csv",
                            "User,Email,Client,Project,Task,Description,Billable,Start date,Start time,End date,"
                            "End time,Duration\nAnne,a@x.fr,Dupont,Refonte,,Relances,Yes,2026-10-05,09:00:00,"
                            "2026-10-05,10:30:00,01:30:00\nAnne,a@x.fr,Dupont,Refonte,,,Yes,hier,,,,\n");
    auto dry = ombrelo({"import", csv, "--dry-run", "--json"});
    ASSERT_EQ(dry.status, 0) << dry.err;
    json preview = json::parse(dry.out);
    EXPECT_EQ(preview["source"], "Toggl Track");
    EXPECT_EQ(preview["columns"]["start_date"], "Start date");
    EXPECT_EQ(preview["entries"], 1);
    EXPECT_EQ(preview["skipped"][0], "Ligne 3 ignorée : début illisible («hier»)");
    EXPECT_EQ(activities(), 0);

    auto done = ombrelo({"import", csv, "--json"});
    ASSERT_EQ(done.status, 0) << done.err;
    std::string batch = json::parse(done.out)["result"]["batch"];
    EXPECT_EQ(activities(), 1);
    auto list = json::parse(ombrelo({"import", "list", "--json"}).out);
    ASSERT_EQ(list["batches"].size(), 1u);
    EXPECT_EQ(list["batches"][0]["file"], "toggl.csv");
    EXPECT_EQ(ombrelo({"import", "undo", "zzz"}).status, 2);
    auto undone = ombrelo({"import", "undo", batch.substr(0, 6)});
    ASSERT_EQ(undone.status, 0) << undone.err;
    EXPECT_EQ(activities(), 0);
}

} // namespace
} // namespace ombrelo
