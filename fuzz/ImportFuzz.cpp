// libFuzzer target for the CSV import: the whole reading of a file, and each
// value parser on the lines of the input. Besides crashes and sanitizer
// reports, it aborts when a result breaks what the parsers promise (a date
// that is no calendar date, an entry that ends before it starts).
// Built and run by scripts/fuzz-import.sh.
#include "import/CSVReader.h"
#include "import/ImportParse.h"
#include "import/ImportReader.h"
#include "import/TextDecoding.h"
#include "support/L10n.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

using namespace ombrelo;

namespace {

void check(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

void checkDate(const std::optional<ImportParse::CivilDate>& d) {
    if (!d) return;
    using namespace std::chrono;
    check(d->year >= 1900 && d->year <= 2200, "date: year out of range");
    check(d->month >= 1 && d->month <= 12, "date: month out of range");
    check(d->day >= 1 && d->day <= 31, "date: day out of range");
    check(year_month_day{year{d->year} / d->month / d->day}.ok(), "date: not a calendar date");
}

// Every parser on one value, as a cell of any column would reach it.
void parseValue(std::string_view text) {
    using ImportParse::DateOrder;
    for (DateOrder order : {DateOrder::dayFirst, DateOrder::monthFirst}) {
        checkDate(ImportParse::date(text, order));
        if (auto t = ImportParse::dateTime(text, order)) check(std::isfinite(*t), "dateTime: not finite");
    }
    (void)ImportParse::orderShownBy(text);
    if (auto t = ImportParse::time(text)) check(*t >= 0 && *t < 24 * 3600, "time: outside a day");
    if (auto d = ImportParse::duration(text)) check(!std::isnan(*d) && *d >= 0, "duration: negative or NaN");
    if (auto n = ImportParse::number(text)) check(!std::isnan(*n) && *n >= 0, "number: negative or NaN");
    ImportParse::Path path = ImportParse::splitPath(text);
    check(!path.client || !path.client->empty(), "splitPath: empty client");
    (void)ImportParse::billable(text);
}

// `records`: how many the reader finds in the decoded text, header included.
void checkPreview(const ImportPreview& preview, std::size_t records) {
    // Separators are ASCII, so cells of decoded text stay UTF-8.
    for (const std::string& cell : preview.headers) check(isValidUTF8(cell), "header not UTF-8");
    for (const auto& row : preview.rows)
        for (const std::string& cell : row) check(isValidUTF8(cell), "cell not UTF-8");
    check(preview.rows.size() <= ImportPreview::shownRows, "sample larger than shown");
    check(preview.entries.size() + preview.warnings.size() < std::max<std::size_t>(records, 1),
          "more results than rows");
    std::int64_t previous = 1;
    for (const ImportEntry& entry : preview.entries) {
        check(entry.id > previous && entry.id <= static_cast<std::int64_t>(records), "entry: line out of order");
        previous = entry.id;
        check(std::isfinite(entry.start) && std::isfinite(entry.end), "entry: instant not finite");
        check(entry.end > entry.start && entry.end - entry.start <= 24 * 3600, "entry: span outside (0, 24 h]");
    }
    (void)preview.missing();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // A zone with daylight saving, so that local times cross its changes.
    setenv("TZ", "Europe/Paris", 1);
    tzset();
    L10n::setLanguage("fr");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);

    DecodedText decoded = decodeText(bytes);
    check(isValidUTF8(decoded.text), "decoded text not UTF-8");
    (void)looksBinary(bytes);

    // Record by record and all at once, the reader gives the same records.
    std::vector<std::vector<std::string>> records = CSVReader::rows(decoded.text);
    std::size_t seen = 0;
    CSVReader::eachRow(decoded.text, [&](std::vector<std::string>& cells) {
        check(seen < records.size() && cells == records[seen], "eachRow differs from rows");
        ++seen;
    });
    check(seen == records.size(), "eachRow differs from rows");

    checkPreview(ImportReader::preview(bytes), records.size());

    // The reader from the middle of the text, maybe inside a quote.
    (void)CSVReader::rows(std::string_view(decoded.text).substr(decoded.text.size() / 2));

    // Each line is also one value, so the mutator reaches every parser's
    // branches without building a whole file. Bounded to keep runs quick.
    std::size_t start = 0;
    for (int line = 0; line < 64 && start <= size; ++line) {
        std::size_t end = bytes.find('\n', start);
        if (end == std::string_view::npos) end = size;
        parseValue(bytes.substr(start, end - start));
        start = end + 1;
    }
    return 0;
}
