// ombrelo report and ombrelo holidays as the real binary: files written whole or
// not at all, the status filter's amounts, the holidays' JSON.
#include "storage/ActivityStore.h"
#include "storage/Database.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ombrelo {
namespace {

using nlohmann::json;
using testing::runOmbrelo;

// Atelier Dupont's statement example: 3 h on 5 October 2026 and 5 h on the 7th,
// a day rate of 550 with half days; an hour for another client on the 6th.
class ReportCommandsTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir home;
    std::string file = (home / "ombrelo.sqlite").string();
    std::vector<std::int64_t> ids;

    void SetUp() override {
        Database db{file};
        ActivityStore store{db};
        std::int64_t dupont = db.run("INSERT INTO client (name, color) VALUES ('Atelier Dupont', 'teal')");
        std::int64_t zinc = db.run("INSERT INTO client (name, color) VALUES ('Zinc', 'teal')");
        std::int64_t refonte = db.run("INSERT INTO project (client_id, name, color, rate_kind, rate_cents, day_hours, "
                                      "rounding) VALUES (?, 'Refonte; site', 'teal', 'day', 55000, 7, 'halfDay')",
                                      {dupont});
        std::int64_t audit = db.run("INSERT INTO project (client_id, name, color, rate_cents) "
                                    "VALUES (?, 'Audit', 'teal', 10000)",
                                    {zinc});
        auto add = [&](int day, double hours, std::int64_t project) {
            Activity a;
            a.start = local::make(2026, 10, day, 9, 0);
            a.end = a.start + hours * 3600;
            a.kind = Activity::Kind::manual;
            a.appName = "Atelier";
            std::int64_t id = store.insert(a);
            db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')", {id, project});
            ids.push_back(id);
        };
        add(5, 3, refonte);
        add(7, 5, refonte);
        add(6, 1, audit);
    }

    testing::CommandResult ombrelo(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--db", file});
        return runOmbrelo(home.path(), arguments,
                          {"OMBRELO_NOW=2026-10-31T18:00:00", "LANG=fr_FR.UTF-8", "LC_ALL=fr_FR.UTF-8"});
    }
};

TEST_F(ReportCommandsTest, ExportsTheMonthsStatementInEveryFormat) {
    auto csv = ombrelo({"report", "--client", "dupont", "--format", "summary-csv", "-o", (home / "a.csv").string()});
    ASSERT_EQ(csv.status, 0) << csv.err;
    EXPECT_NE(testing::readFile(home / "a.csv").find("Total;Atelier Dupont;;;8,00;1,50;;;825,00\r\n"),
              std::string::npos);

    // The format follows the file's extension.
    ASSERT_EQ(ombrelo({"report", "--client", "dupont", "-o", (home / "b.xlsx").string()}).status, 0);
    EXPECT_EQ(testing::readFile(home / "b.xlsx").substr(0, 2), "PK");
    ASSERT_EQ(ombrelo({"report", "--template", "timesheet", "-o", (home / "c.html").string()}).status, 0);
    EXPECT_NE(testing::readFile(home / "c.html").find("<h1>Feuille de temps</h1>"), std::string::npos);

    auto all = ombrelo({"report", "--format", "json", "-o", "-"});
    ASSERT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(json::parse(all.out)["totaux"]["montant_ht_total"], 925);

    auto screen = ombrelo({"report", "--client", "Atelier Dupont"});
    EXPECT_NE(screen.out.find("du 1er octobre au 31 octobre 2026"), std::string::npos) << screen.out;
    EXPECT_NE(screen.out.find("825,00"), std::string::npos);
    EXPECT_NE(screen.out.find("Jours ouvrés"), std::string::npos);
}

TEST_F(ReportCommandsTest, StatusFilterPricesOnlyTheTimeInThatStatus) {
    ASSERT_EQ(ombrelo({"billing", "mark", "billed", "--ids", std::to_string(ids[0]), "--invoice", "F-12"}).status, 0);
    auto toBill = ombrelo({"report", "--client", "dupont", "--status", "toBill", "--json"});
    ASSERT_EQ(toBill.status, 0) << toBill.err;
    json document = json::parse(toBill.out);
    ASSERT_EQ(document["lignes"].size(), 1u);
    EXPECT_EQ(document["totaux"]["montant_ht_total"], 550);
    auto billed = json::parse(ombrelo({"report", "--client", "dupont", "--status", "billed", "--json"}).out);
    ASSERT_EQ(billed["lignes"].size(), 1u);
    EXPECT_EQ(billed["lignes"][0]["facture"], "F-12");
    EXPECT_EQ(billed["totaux"]["montant_ht_total"], 275);
}

TEST_F(ReportCommandsTest, AFailedExportLeavesNothingBehind) {
    std::filesystem::create_directory(home / "taken");
    auto onFolder = ombrelo({"report", "--format", "csv", "-o", (home / "taken").string()});
    EXPECT_EQ(onFolder.status, 2);
    EXPECT_NE(onFolder.err.find("L'export n'a pas pu être enregistré."), std::string::npos) << onFolder.err;
    for (const auto& entry : std::filesystem::directory_iterator(home.path()))
        EXPECT_EQ(entry.path().filename().string().find(".taken"), std::string::npos) << entry.path();

    testing::writeFile(home / "plain", "x");
    EXPECT_EQ(ombrelo({"report", "-o", (home / "plain" / "out.csv").string()}).status, 2);
    EXPECT_EQ(ombrelo({"report", "-o", (home / "out.pdf").string()}).status, 1);
    EXPECT_EQ(ombrelo({"report", "--client", "nobody"}).status, 2);
}

TEST_F(ReportCommandsTest, HolidaysOfAYearAndOfARange) {
    auto year = ombrelo({"holidays", "2026", "--json"});
    ASSERT_EQ(year.status, 0) << year.err;
    json france = json::parse(year.out);
    EXPECT_EQ(france["country"], "fr");
    EXPECT_EQ(france["holidays"].size(), 11u);
    EXPECT_EQ(france["holidays"][0], (json{{"date", "2026-01-01"}, {"name", "Jour de l'an"}, {"weekday", true}}));

    auto range = ombrelo({"holidays", "--country", "us", "--from", "2027-12-01", "--to", "2027-12-31", "--json"});
    ASSERT_EQ(range.status, 0) << range.err;
    json us = json::parse(range.out);
    EXPECT_EQ(us["to"], "2027-12-31");
    // Christmas 2027 is a Saturday, observed on Friday 24; New Year's Day 2028
    // is observed on Friday 31 December.
    EXPECT_EQ(us["working_days"], 21);
    EXPECT_EQ(us["holidays"].back()["name"], "Jour de l'an (anticipé)");
    EXPECT_EQ(ombrelo({"holidays", "--country", "xx"}).status, 1);
}

} // namespace
} // namespace ombrelo
