// Inputs the import fuzzer (fuzz/ImportFuzz.cpp) found mishandled.
#include "import/ImportParse.h"
#include "import/ImportReader.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

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

} // namespace
} // namespace ombrelo
