// Other trackers' exports brought in: reading them (sources, columns, values,
// skipped rows), importing them as one batch and undoing it.
#include "classify/Catalog.h"
#include "import/Importer.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using namespace ImportParse;

class ImportTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "import.sqlite"};
    ActivityStore store{db};
    Catalog catalog{db};
    ManualClock clock{local::make(2026, 11, 1, 12, 0)};
    Importer importer{db, store, catalog, clock};

    std::int64_t count(const std::string& sql) { return db.queryInt(sql).value_or(-1); }
    static double hours(const ImportEntry& entry) { return (entry.end - entry.start) / 3600; }
};

const std::string toggl =
    "User,Email,Client,Project,Task,Description,Billable,Start date,Start time,End date,End time,Duration,Tags,"
    "Amount (EUR)\r\n"
    "Anne,anne@exemple.fr,Atelier Dupont,Refonte,,\"Appels, relances\",Yes,2026-10-05,09:00:00,2026-10-05,"
    "10:30:00,01:30:00,,\r\n"
    "Anne,anne@exemple.fr,Atelier Dupont,Veille,,Lecture,No,2026-10-05,11:00:00,2026-10-05,11:30:00,00:30:00,,\r\n"
    "Anne,anne@exemple.fr,Atelier Dupont,Refonte,Maquettes,Écran d'accueil,Yes,2026-10-06,14:00:00,2026-10-06,"
    "15:00:00,01:00:00,,\r\n";

TEST_F(ImportTest, TogglRowsBecomeOneBatchSkippingWhatIsAlreadyTracked) {
    ImportPreview preview = ImportReader::preview(toggl);
    EXPECT_EQ(preview.source, ImportSource::toggl);
    ASSERT_EQ(preview.entries.size(), 3u);
    EXPECT_DOUBLE_EQ(hours(preview.entries[0]), 1.5);
    EXPECT_EQ(preview.entries[0].note, "Appels, relances");  // Task is empty: the description is kept
    EXPECT_EQ(preview.entries[1].billable, false);
    EXPECT_EQ(preview.entries[2].note, "Maquettes — Écran d'accueil");

    Activity tracked;
    tracked.start = local::make(2026, 10, 6, 14, 30);
    tracked.end = tracked.start + 600;
    tracked.appName = "Éditeur";
    store.insert(tracked);
    auto result = importer.run(preview, "toggl.csv", true);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->imported, 2);
    EXPECT_EQ(result->skippedOverlaps, 1);
    EXPECT_EQ(result->projectsCreated, 3);  // the client and its two projects
    EXPECT_EQ(count("SELECT COUNT(*) FROM project p JOIN client c ON c.id = p.client_id "
                    "WHERE c.name = 'Atelier Dupont' AND p.name = 'Refonte' AND p.billable = 1"),
              1);
    EXPECT_EQ(count("SELECT billable FROM project WHERE name = 'Veille'"), 0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM assignment a JOIN project p ON p.id = a.project_id WHERE p.name = "
                    "'Refonte' AND a.note = 'Appels, relances' AND a.source = 'manual'"),
              1);
    EXPECT_EQ(count("SELECT count FROM import_batch"), 2);

    // A second import reuses the client and projects; undoing the first keeps them.
    auto again = importer.run(ImportReader::preview(toggl), "toggl.csv", false);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->projectsCreated, 0);
    ASSERT_TRUE(importer.undo(result->batch));
    EXPECT_EQ(count("SELECT COUNT(*) FROM activity"), 1 + 3);  // the tracked row and the second batch
    EXPECT_EQ(count("SELECT COUNT(*) FROM project"), 2);
    ASSERT_EQ(importer.batches().size(), 1u);
    EXPECT_FALSE(importer.undo(result->batch));
}

TEST_F(ImportTest, TimingRizeAndAFrenchFile) {
    ImportPreview timing = ImportReader::preview(
        "Project,Title,Notes,Start Date,End Date,Duration,Billing Status\n"
        "Studio Brume ▸ Maquettes appli,Écrans,Version 2,2026-10-05 09:00,2026-10-05 10:00,1:00:00,Billed\n"
        "Studio Brume ▸ Maquettes appli,Revue,,2026-10-05 14:00,,1:00:00,Unbilled\n"
        "Interne,Tri,,pas une date,,0:30:00,\n");
    EXPECT_EQ(timing.source, ImportSource::timing);
    ASSERT_EQ(timing.entries.size(), 2u);
    EXPECT_EQ(timing.entries[0].client, "Studio Brume");
    EXPECT_EQ(timing.entries[0].project, "Maquettes appli");
    EXPECT_EQ(timing.entries[0].note, "Écrans — Version 2");
    EXPECT_DOUBLE_EQ(hours(timing.entries[1]), 1);  // its end from the duration
    EXPECT_EQ(timing.warnings, std::vector<std::string>{"Ligne 4 ignorée : début illisible («pas une date»)"});

    ImportPreview rize = ImportReader::preview(
        "Start Time,End Time,Duration,Title,Project,Client,Tags\n"
        "2026-10-05T09:00:00+02:00,,30m,Code,refonte,atelier dupont,\n"
        "2026-10-05T10:00:00+02:00,,1h 15m,Code,Refonte,Atelier Dupont,\n");
    EXPECT_EQ(rize.source, ImportSource::rize);
    ASSERT_EQ(rize.entries.size(), 2u);
    EXPECT_EQ(rize.entries[0].start, local::make(2026, 10, 5, 9, 0));
    EXPECT_DOUBLE_EQ(hours(rize.entries[1]), 1.25);
    auto first = importer.run(rize, "rize.csv", true);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->projectsCreated, 2);  // "refonte" and "Refonte" are one project

    ImportPreview frenchFile = ImportReader::preview(
        "Date;Heure de début;Heure de fin;Durée;Client;Projet;Description\n"
        "05/10/2026;9:00;10:30;;Dupont;Refonte;\"Intégration; responsive\"\n"
        "05/10/2026;14:00;;1,5;Dupont;Refonte;\n"
        "05/10/2026;23:30;00:30;;Dupont;Refonte;Mise en ligne\n"
        "06/10/2026;08:00;09:00;;;;\n"
        "07/10/2026;09:00;;;;;\n"
        "08/10/2026;09:00;;30:00;;;\n");
    EXPECT_EQ(frenchFile.source, ImportSource::generic);
    ASSERT_EQ(frenchFile.entries.size(), 4u) << ::testing::PrintToString(frenchFile.warnings);
    EXPECT_EQ(frenchFile.entries[0].note, "Intégration; responsive");
    EXPECT_EQ(frenchFile.entries[1].end, local::make(2026, 10, 5, 15, 30));
    EXPECT_EQ(frenchFile.entries[2].end, local::make(2026, 10, 6, 0, 30));
    EXPECT_EQ(frenchFile.entries[3].project, std::nullopt);
    EXPECT_EQ(frenchFile.warnings, (std::vector<std::string>{"Ligne 6 ignorée : fin ou durée manquante",
                                                         "Ligne 7 ignorée : plus de 24 heures"}));
}

TEST_F(ImportTest, ValuesAsExportsWriteThem) {
    for (const char* ninety : {"01:30:00", "1:30", "1h30", "90m", "1,5", "1.5", "1h 30m"})
        EXPECT_EQ(duration(ninety), 5400) << ninety;
    EXPECT_EQ(duration("45 min"), 2700);
    EXPECT_EQ(duration(""), std::nullopt);
    EXPECT_EQ(duration("bientôt"), std::nullopt);
    EXPECT_EQ(number("2.000,5"), 2000.5);
    EXPECT_EQ(number("2,000.5"), 2000.5);
    EXPECT_EQ(number("1'250"), 1250);
    EXPECT_EQ(time("02:05 PM"), 14 * 3600 + 5 * 60);
    EXPECT_EQ(time("12:30am"), 30 * 60);
    EXPECT_EQ(time("13:00 PM"), std::nullopt);
    EXPECT_EQ(time("9:5"), std::nullopt);
    EXPECT_EQ(date("03/04/2024"), (CivilDate{2024, 4, 3}));
    EXPECT_EQ(date("03/04/2024", DateOrder::monthFirst), (CivilDate{2024, 3, 4}));
    EXPECT_EQ(date("31/02/2024"), std::nullopt);
    EXPECT_EQ(orderShownBy("10/15/2024 9:00"), DateOrder::monthFirst);
    EXPECT_EQ(orderShownBy("30/01/2024"), DateOrder::dayFirst);
    EXPECT_EQ(orderShownBy("03/04/2024"), std::nullopt);
    EXPECT_EQ(dateTime("2026-10-05T07:00:00.000Z"), local::make(2026, 10, 5, 9, 0));
    EXPECT_EQ(splitPath("Studio Brume ▸ Maquettes ▸ Écrans").project, "Maquettes ▸ Écrans");
    EXPECT_EQ(splitPath("Dupont / Refonte").client, "Dupont");
    EXPECT_EQ(splitPath("Refonte/site").client, std::nullopt);
    for (const char* yes : {"Yes", "oui", "Ja", "Sí", "Sim", "Billed", "À facturer"}) EXPECT_EQ(billable(yes), true);
    for (const char* no : {"No", "Non", "Nein", "Não", "non-billable"}) EXPECT_EQ(billable(no), false);
    EXPECT_EQ(billable("75.00"), std::nullopt);
}

TEST_F(ImportTest, ExportsPeopleBringFromOtherProducts) {
    // Toggl's newer detailed export: "Stop" columns, "-" for no project.
    ImportPreview newer = ImportReader::preview(
        "User,Email,Client,Project,Task,Description,Billable,Start date,Start time,Stop date,Stop time,Duration,"
        "Tags\nAnne,a@x.fr,-,-,-,Relances,No,2026-10-05,09:00:00,2026-10-05,09:45:00,00:45:00,\n");
    EXPECT_EQ(newer.source, ImportSource::toggl);
    ASSERT_EQ(newer.entries.size(), 1u);
    EXPECT_EQ(newer.entries[0].project, std::nullopt);
    EXPECT_EQ(newer.entries[0].end, local::make(2026, 10, 5, 9, 45));
    EXPECT_EQ(newer.entries[0].note, "Relances");

    // Clockify's detailed report, in English and in German, with its money column.
    for (const char* header :
         {"Project,Client,Description,Task,User,Group,Email,Tags,Billable,Start Date,Start Time,End Date,End Time,"
          "Duration (h),Duration (decimal),Billable Rate (EUR),Billable Amount (EUR)",
          "Projekt,Kunde,Beschreibung,Aufgabe,Benutzer,Gruppe,E-Mail,Tags,Abrechenbar,Startdatum,Startzeit,Enddatum,"
          "Endzeit,Dauer (h),Dauer (dezimal),Abrechenbarer Stundensatz (EUR),Abrechenbarer Betrag (EUR)"}) {
        std::string line = std::string(header) + "\nRefonte,Dupont,Maquettes,,Anne,,a@x.fr,,Yes,10/15/2026,"
                                                 "02:00:00 PM,10/15/2026,03:30:00 PM,01:30:00,1.50,80.00,120.00\n";
        ImportPreview clockify = ImportReader::preview(line);
        EXPECT_EQ(clockify.source, ImportSource::clockify) << header;
        ASSERT_EQ(clockify.entries.size(), 1u) << ::testing::PrintToString(clockify.warnings);
        EXPECT_EQ(clockify.entries[0].start, local::make(2026, 10, 15, 14, 0));  // the 15 settles month first
        EXPECT_EQ(clockify.entries[0].client, "Dupont");
        EXPECT_EQ(clockify.entries[0].billable, true);
    }

    // Harvest: a date and decimal hours, no clock time: the day's entries follow each other from 9:00.
    ImportPreview harvest = ImportReader::preview(
        "Date,Client,Project,Project Code,Task,Notes,Hours,Hours Rounded,Billable?,Invoiced?,Billable Rate\n"
        "2026-10-05,Dupont,Refonte,,Design,Maquettes,1.5,1.5,Yes,No,80\n"
        "2026-10-05,Dupont,Refonte,,Design,Revue,0.25,0.25,No,No,80\n");
    EXPECT_EQ(harvest.source, ImportSource::harvest);
    ASSERT_EQ(harvest.entries.size(), 2u);
    EXPECT_EQ(harvest.entries[0].start, local::make(2026, 10, 5, 9, 0));
    EXPECT_EQ(harvest.entries[1].start, local::make(2026, 10, 5, 10, 30));
    EXPECT_EQ(harvest.entries[1].billable, false);
    EXPECT_EQ(harvest.entries[0].note, "Design — Maquettes");

    // A spreadsheet saved by Excel on Windows: Windows-1252, semicolons, decimal commas.
    ImportPreview excel = ImportReader::preview("Date;D\xE9""but;Fin;Dur\xE9""e;Projet;Commentaire\r\n"
                                                "05/10/2026;09:00;;2,5;R\xE9""fection;Caf\xE9\r\n");
    EXPECT_EQ(excel.encoding, TextEncoding::windows1252);
    ASSERT_EQ(excel.entries.size(), 1u) << ::testing::PrintToString(excel.warnings);
    EXPECT_EQ(excel.entries[0].project, "Réfection");
    EXPECT_EQ(excel.entries[0].end, local::make(2026, 10, 5, 11, 30));
    EXPECT_EQ(ImportReader::preview("\xEF\xBB\xBF" + toggl).source, ImportSource::toggl);
}

TEST_F(ImportTest, AFailureMidBatchLeavesNothing) {
    db.execute("CREATE TEMP TRIGGER full_disk BEFORE INSERT ON activity WHEN (SELECT COUNT(*) FROM activity) >= 1 "
               "BEGIN SELECT RAISE(ABORT, 'disque plein'); END");
    EXPECT_FALSE(importer.run(ImportReader::preview(toggl), "toggl.csv", false));
    EXPECT_NE(importer.lastError().value_or("").find("disque plein"), std::string::npos);
    EXPECT_EQ(count("SELECT COUNT(*) FROM activity"), 0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM project"), 0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM import_batch"), 0);
}

} // namespace
} // namespace ombrelo
