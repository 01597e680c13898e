// Inputs the import mishandled, found with its fuzzer (fuzz/ImportFuzz.cpp).
#include "import/ImportParse.h"
#include "import/ImportReader.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace ombrelo {
namespace {

using ImportParse::CivilDate;
using ImportParse::DateOrder;

// std::chrono's month and day hold one byte: a month of 260 was checked as 4
// and a day of 3100 as 28, so these dates passed as real ones and their entries
// landed years away once normalised.
TEST(ImportRegression, MonthsAndDaysPastTheCalendarAreUnreadable) {
    testing::ScopedTimeZone paris("Europe/Paris");
    for (std::string_view text : {"2024-3-3100", "2024-03-260", "1900-1-257", "2024-260-04", "2024/268/31",
                                  "260/03/2024", "04/260/2024", "31.264.24"})
        EXPECT_FALSE(ImportParse::date(text)) << text;
    EXPECT_FALSE(ImportParse::date("03/260/2024", DateOrder::monthFirst));
    EXPECT_FALSE(ImportParse::dateTime("2024-3-3100 10:00"));
    EXPECT_FALSE(ImportParse::dateTime("2024-03-260T10:00:00Z"));

    // Real dates at the edges still read.
    EXPECT_EQ(ImportParse::date("2024-3-31"), (CivilDate{2024, 3, 31}));
    EXPECT_EQ(ImportParse::date("04.03.2024"), (CivilDate{2024, 3, 4}));
    EXPECT_EQ(ImportParse::date("2024-02-29"), (CivilDate{2024, 2, 29}));
    EXPECT_FALSE(ImportParse::date("2023-02-29"));

    // Through the reader: the row is skipped with a warning, not imported in 2032.
    ImportPreview preview = ImportReader::preview("Start date,Start time,Duration\n"
                                                  "2024-03-3100,10:00,1:00\n"
                                                  "2024-03-04,10:00,1:00\n");
    ASSERT_EQ(preview.entries.size(), 1u);
    EXPECT_EQ(preview.entries[0].id, 3);
    ASSERT_EQ(preview.warnings.size(), 1u);
    EXPECT_NE(preview.warnings[0].find("Ligne 2"), std::string::npos) << preview.warnings[0];
}

// A day entry starts where the same day's previous one ended, counted as
// wall-clock seconds after midnight in an int. Past a daylight-saving change
// that count lands an hour early, over the previous entry; and some 25,000
// full days on one date overflowed it (undefined behaviour, then entries
// thrown back decades).
TEST(ImportRegression, DayEntriesOfOneDateFollowEachOther) {
    auto expectFollowing = [](const ImportPreview& preview, std::size_t count) {
        ASSERT_EQ(preview.entries.size(), count);
        for (std::size_t i = 1; i < preview.entries.size(); ++i)
            ASSERT_GE(preview.entries[i].start, preview.entries[i - 1].end) << "line " << preview.entries[i].id;
    };
    {
        // Paris moves its clocks forward in the night after 30 March 2024.
        testing::ScopedTimeZone paris("Europe/Paris");
        expectFollowing(ImportReader::preview("Date,Hours\n2024-03-30,10\n2024-03-30,10\n2024-03-30,10\n"), 3);
    }
    testing::ScopedTimeZone utc("UTC");
    std::string file = "Date,Duration\n";
    for (int i = 0; i < 25'000; ++i) file += "2024-03-04,24:00:00\n";
    expectFollowing(ImportReader::preview(file), 25'000);
}

} // namespace
} // namespace ombrelo
