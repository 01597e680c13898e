// ImportMapping: which tracker an export comes from and which of its columns
// holds each meaning (start, end, duration, client, project, title, notes,
// billable), found by the headers' names in the languages those exports use.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

enum class ImportSource { toggl, timing, rize, clockify, harvest, generic };

// The application name imported activities carry: "Toggl Track", "Timing",
// "Rize", "Clockify", "Harvest", "Importé d'un CSV".
std::string_view appName(ImportSource source);

struct ImportMapping {
    enum Meaning { startDate, startTime, endDate, endTime, duration, client, project, title, notes, billable, count };

    std::optional<std::size_t> column[count];
    // Title-like columns after the first (a description beside a task), whose
    // text joins the note so that none is lost.
    std::vector<std::size_t> moreTitles;

    static ImportSource detect(const std::vector<std::string>& headers);
    static ImportMapping guess(const std::vector<std::string>& headers);

    std::optional<std::size_t> operator[](Meaning meaning) const { return column[meaning]; }
};

// "début", "fin", … : a meaning as the preview names it, in the user's language.
std::string_view meaningName(ImportMapping::Meaning meaning);

} // namespace ombrelo
