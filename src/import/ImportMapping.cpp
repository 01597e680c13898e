#include "import/ImportMapping.h"

#include "import/ImportParse.h"
#include "support/L10n.h"

#include <algorithm>
#include <initializer_list>
#include <set>

namespace ombrelo {

namespace {

using Aliases = std::initializer_list<std::string_view>;

// Per meaning, the original table's aliases first, then those of the exports
// people bring (Toggl's newer "Stop" columns; Clockify in English, French,
// German, Spanish and Portuguese; Harvest).
const Aliases& aliases(ImportMapping::Meaning meaning) {
    static const Aliases table[ImportMapping::count] = {
        {"start date", "date de debut", "start", "debut", "started at", "start datetime", "begin", "date",
         "startdatum", "fecha de inicio", "data de inicio", "data inicial"},
        {"start time", "heure de debut", "heure debut", "startzeit", "hora de inicio"},
        {"end date", "date de fin", "end", "fin", "ended at", "end datetime", "stop", "stop date", "enddatum",
         "fecha de finalizacion", "fecha de fin", "data de termino", "data de fim", "data final"},
        {"end time", "heure de fin", "heure fin", "stop time", "endzeit", "hora de finalizacion", "hora de fin",
         "hora de termino", "hora de fim"},
        {"duration", "duree", "hours", "heures", "temps", "duration (h)", "duree (h)", "dauer (h)", "duracion (h)",
         "duracao (h)", "dauer", "duracion", "duracao", "duration (decimal)", "time (h)"},
        {"client", "customer", "company", "kunde", "cliente"},
        {"project", "projet", "project path", "projekt", "proyecto", "projeto"},
        {"title", "titre", "description", "task", "tache", "activity", "beschreibung", "descripcion", "descricao",
         "aufgabe", "tarea", "tarefa"},
        {"notes", "note", "comment", "commentaire", "notizen", "comentario"},
        {"billable", "facturable", "billing status", "statut de facturation", "billable?", "abrechenbar",
         "faturavel"},
    };
    return table[meaning];
}

bool contains(const Aliases& list, std::string_view header) {
    return std::find(list.begin(), list.end(), header) != list.end();
}

} // namespace

std::string_view appName(ImportSource source) {
    switch (source) {
    case ImportSource::toggl: return "Toggl Track";
    case ImportSource::timing: return "Timing";
    case ImportSource::rize: return "Rize";
    case ImportSource::clockify: return "Clockify";
    case ImportSource::harvest: return "Harvest";
    case ImportSource::generic: return "Importé d'un CSV";
    }
    return "Importé d'un CSV";
}

ImportSource ImportMapping::detect(const std::vector<std::string>& headers) {
    std::set<std::string> names;
    for (const std::string& header : headers) names.insert(ImportParse::normalised(header));
    auto has = [&](std::string_view name) { return names.contains(std::string(name)); };
    // Clockify's and Harvest's own columns first: Clockify also has the three
    // columns that otherwise mean Toggl.
    for (std::string_view decimal : {"duration (decimal)", "duree (decimal)", "dauer (dezimal)", "duracion (decimal)",
                                     "duracao (decimal)"})
        if (has(decimal)) return ImportSource::clockify;
    if (has("hours") && (has("billable?") || has("hours rounded") || has("invoiced?"))) return ImportSource::harvest;
    if (has("start date") && has("start time") && has("project")) return ImportSource::toggl;
    if (has("billing status")) return ImportSource::timing;
    if (has("title") && has("notes") && has("project")) return ImportSource::timing;
    if (has("start time") && has("end time")) return has("start date") ? ImportSource::generic : ImportSource::rize;
    return ImportSource::generic;
}

ImportMapping ImportMapping::guess(const std::vector<std::string>& headers) {
    ImportMapping mapping;
    for (std::size_t i = 0; i < headers.size(); ++i) {
        std::string name = ImportParse::normalised(headers[i]);
        for (int meaning = 0; meaning < count; ++meaning) {
            if (!contains(aliases(static_cast<Meaning>(meaning)), name)) continue;
            if (!mapping.column[meaning]) mapping.column[meaning] = i;
            else if (meaning == title) mapping.moreTitles.push_back(i);
            break;
        }
    }
    return mapping;
}

std::string_view meaningName(ImportMapping::Meaning meaning) {
    switch (meaning) {
    case ImportMapping::startDate: return L10n::text("début (date)", "start (date)");
    case ImportMapping::startTime: return L10n::text("début (heure)", "start (time)");
    case ImportMapping::endDate: return L10n::text("fin (date)", "end (date)");
    case ImportMapping::endTime: return L10n::text("fin (heure)", "end (time)");
    case ImportMapping::duration: return L10n::text("durée", "duration");
    case ImportMapping::client: return "client";
    case ImportMapping::project: return L10n::text("projet", "project");
    case ImportMapping::title: return L10n::text("titre", "title");
    case ImportMapping::notes: return "notes";
    case ImportMapping::billable: return L10n::text("facturable", "billable");
    case ImportMapping::count: break;
    }
    return "";
}

} // namespace ombrelo
