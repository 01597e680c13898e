#include "import/ImportReader.h"

#include "import/CSVReader.h"
#include "support/Fold.h"
#include "support/LocalTime.h"

#include <algorithm>
#include <map>

namespace ombrelo {

namespace {

using ImportParse::CivilDate;
using ImportParse::DateOrder;
using Meaning = ImportMapping::Meaning;

constexpr double maxEntrySeconds = 24 * 3600;
constexpr int dayEntriesStart = 9 * 3600;

class Row {
public:
    Row(const std::vector<std::string>& cells, const ImportMapping& mapping) : cells_(cells), mapping_(mapping) {}
    // The trimmed text of a meaning's cell; empty when there is none.
    std::string_view operator[](Meaning meaning) const { return at(mapping_[meaning]); }
    std::string_view at(std::optional<std::size_t> column) const {
        if (!column || *column >= cells_.size()) return {};
        return trim(cells_[*column]);
    }

private:
    const std::vector<std::string>& cells_;
    const ImportMapping& mapping_;
};

bool blank(const std::vector<std::string>& row) {
    return std::all_of(row.begin(), row.end(), [](const std::string& cell) { return trim(cell).empty(); });
}

// "-" is how Toggl writes "none".
std::optional<std::string> value(std::string_view text) {
    if (text.empty() || text == "-") return std::nullopt;
    return std::string(text);
}

CivilDate civilDay(Instant t) {
    local::DateParts p = local::parts(t);
    return {p.year, p.month, p.day};
}

std::string lineText(std::int64_t line) { return "Ligne " + std::to_string(line) + " ignorée : "; }

class Interpreter {
public:
    explicit Interpreter(ImportPreview& preview) : preview_(preview) {}

    void row(const std::vector<std::string>& cells, std::int64_t line) {
        Row row(cells, preview_.mapping);
        ImportEntry entry{line};
        std::optional<CivilDate> startDay;
        std::optional<Instant> start = startOf(row, startDay);
        if (!start && !(startDay && row[ImportMapping::startTime].empty() && row[ImportMapping::endTime].empty())) {
            std::string shown(row[ImportMapping::startDate].empty() ? row[ImportMapping::startTime]
                                                                    : row[ImportMapping::startDate]);
            return skip(line, "début illisible («" + shown + "»)");
        }
        std::optional<double> seconds = ImportParse::duration(row[ImportMapping::duration]);
        if (!start) {
            // A day entry: a date and a duration, no clock time.
            if (!seconds) return skip(line, "fin ou durée manquante");
            // Kept as an instant, not a time of day: past a clock change, or a
            // day's worth of entries, the next one still starts where the last ended.
            auto next = nextDayEntry_.try_emplace(*startDay, ImportParse::at(*startDay, dayEntriesStart)).first;
            start = next->second;
            next->second += std::min(*seconds, maxEntrySeconds);
        }
        entry.start = *start;
        std::optional<Instant> end = endOf(row, *start);
        if (!end && seconds) end = *start + *seconds;
        if (!end) return skip(line, "fin ou durée manquante");
        if (*end - *start > maxEntrySeconds) return skip(line, "plus de 24 heures");
        if (*end <= *start) return skip(line, "durée nulle");
        entry.end = *end;
        fillDetails(row, entry);
        preview_.entries.push_back(std::move(entry));
    }

private:
    std::optional<Instant> startOf(const Row& row, std::optional<CivilDate>& day) {
        DateOrder order = preview_.dateOrder;
        std::string_view date = row[ImportMapping::startDate], time = row[ImportMapping::startTime];
        if (auto both = ImportParse::dateTime(date, order)) return both;
        if (date.empty()) return ImportParse::dateTime(time, order);  // one column, "Start Time" in Rize
        day = ImportParse::date(date, order);
        if (!day) return std::nullopt;
        if (auto clock = ImportParse::time(time)) return ImportParse::at(*day, *clock);
        return std::nullopt;
    }

    std::optional<Instant> endOf(const Row& row, Instant start) {
        DateOrder order = preview_.dateOrder;
        std::string_view date = row[ImportMapping::endDate], time = row[ImportMapping::endTime];
        if (auto both = ImportParse::dateTime(date, order)) return both;
        if (auto both = ImportParse::dateTime(time, order)) return both;
        auto clock = ImportParse::time(time);
        if (!clock) return std::nullopt;
        std::optional<CivilDate> day = date.empty() ? civilDay(start) : ImportParse::date(date, order);
        if (!day) return std::nullopt;
        Instant end = ImportParse::at(*day, *clock);
        // An end before the start on the same date is the next morning.
        if (end <= start && date.empty()) end = ImportParse::at(civilDay(local::addDays(start, 1)), *clock);
        return end;
    }

    void fillDetails(const Row& row, ImportEntry& entry) const {
        entry.client = value(row[ImportMapping::client]);
        entry.project = value(row[ImportMapping::project]);
        if (preview_.source == ImportSource::timing && entry.project) {
            ImportParse::Path path = ImportParse::splitPath(*entry.project);
            if (path.client) entry.client = path.client;
            entry.project = value(path.project);
        }
        std::vector<std::string> parts;
        auto add = [&](std::string_view text) {
            if (!value(text)) return;
            std::string piece(text);
            if (std::find(parts.begin(), parts.end(), piece) == parts.end()) parts.push_back(piece);
        };
        add(row[ImportMapping::title]);
        for (std::size_t column : preview_.mapping.moreTitles) add(row.at(column));
        add(row[ImportMapping::notes]);
        std::string note;
        for (const std::string& part : parts) note += (note.empty() ? "" : " — ") + part;
        if (!note.empty()) entry.note = note;
        entry.billable = ImportParse::billable(row[ImportMapping::billable]);
    }

    void skip(std::int64_t line, const std::string& reason) { preview_.warnings.push_back(lineText(line) + reason); }

    ImportPreview& preview_;
    struct DayKey {
        bool operator()(const CivilDate& a, const CivilDate& b) const {
            return std::tie(a.year, a.month, a.day) < std::tie(b.year, b.month, b.day);
        }
    };
    std::map<CivilDate, Instant, DayKey> nextDayEntry_;
};

} // namespace

std::vector<ImportMapping::Meaning> ImportPreview::missing() const {
    std::vector<ImportMapping::Meaning> lacking;
    if (!mapping[ImportMapping::startDate] && !mapping[ImportMapping::startTime])
        lacking.push_back(ImportMapping::startDate);
    if (!mapping[ImportMapping::endDate] && !mapping[ImportMapping::endTime] && !mapping[ImportMapping::duration])
        lacking.push_back(ImportMapping::duration);
    return lacking;
}

namespace ImportReader {

ImportPreview preview(std::string_view bytes) {
    DecodedText decoded = decodeText(bytes);
    ImportPreview preview;
    preview.encoding = decoded.encoding;

    // First pass: the header, the sample, and the first date that settles
    // whether days or months come first.
    bool headed = false, orderKnown = false;
    std::int64_t headerLine = 0, line = 0;
    CSVReader::eachRow(decoded.text, [&](std::vector<std::string>& cells) {
        ++line;
        if (blank(cells)) return;
        if (!headed) {
            headed = true;
            headerLine = line;
            preview.headers = std::move(cells);
            preview.source = ImportMapping::detect(preview.headers);
            preview.mapping = ImportMapping::guess(preview.headers);
            return;
        }
        if (preview.rows.size() < ImportPreview::shownRows) preview.rows.push_back(cells);
        if (orderKnown) return;
        Row row(cells, preview.mapping);
        for (Meaning meaning : {ImportMapping::startDate, ImportMapping::endDate, ImportMapping::startTime})
            if (auto order = ImportParse::orderShownBy(row[meaning])) {
                preview.dateOrder = *order;
                orderKnown = true;
                break;
            }
    });
    if (!headed) return preview;

    // Second pass: the entries. Lines as a spreadsheet shows them, the header
    // being line 1; blank lines count but say nothing.
    Interpreter interpreter(preview);
    line = 0;
    CSVReader::eachRow(decoded.text, [&](std::vector<std::string>& cells) {
        ++line;
        if (line > headerLine && !blank(cells)) interpreter.row(cells, line - headerLine + 1);
    });
    return preview;
}

} // namespace ImportReader

} // namespace ombrelo
