// ImportReader: a CSV export read into entries to import, with what the user
// confirms first — the source recognised, the column of each meaning, and every
// row that will be skipped, with its reason.
//
// Rows are numbered as a spreadsheet shows the file: the header is line 1.
// A row with a date and a duration but no clock time is a day entry: it starts
// at 9:00, or where the same day's previous day entry ended, so that the day's
// entries follow each other instead of overlapping.
#pragma once

#include "import/ImportMapping.h"
#include "import/ImportParse.h"
#include "import/TextDecoding.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo {

struct ImportEntry {
    std::int64_t id = 0;  // the row's line in the file
    Instant start = 0;
    Instant end = 0;
    std::optional<std::string> client;
    std::optional<std::string> project;
    std::optional<std::string> note;
    std::optional<bool> billable;
};

struct ImportPreview {
    ImportSource source = ImportSource::generic;
    TextEncoding encoding = TextEncoding::utf8;
    std::vector<std::string> headers;
    // The first data rows, raw, as the confirmation shows them; a large
    // file is read row by row and never held whole.
    std::vector<std::vector<std::string>> rows;
    static constexpr std::size_t shownRows = 20;
    ImportMapping mapping;
    ImportParse::DateOrder dateOrder = ImportParse::DateOrder::dayFirst;
    std::vector<ImportEntry> entries;
    std::vector<std::string> warnings;  // one per skipped row

    // The meanings an import needs and the file lacks: a start, and an end or
    // a duration. Empty when the file can be imported.
    std::vector<ImportMapping::Meaning> missing() const;
};

namespace ImportReader {

// Decodes, reads and interprets the bytes of an export.
ImportPreview preview(std::string_view bytes);

} // namespace ImportReader

} // namespace ombrelo
