// Hand-made classified items and the client statement used across the report
// tests: Atelier Dupont's "Refonte; site" at a day rate of 550 with half days.
#pragma once

#include "billing/Project.h"
#include "classify/Classified.h"
#include "support/LocalTime.h"

#include <memory>
#include <optional>
#include <string>

namespace ombrelo::testing {

struct ReportItems {
    std::int64_t nextID = 1;
    Client dupont{1, "Atelier Dupont"};
    Client other{2, "Zinc & Co"};
    Project refonte = project(10, "Refonte; site", dupont.id, 55'000, Project::RateKind::day,
                              Project::Rounding::halfDay);

    static Project project(std::int64_t id, std::string name, std::optional<std::int64_t> client, std::int64_t rate,
                           Project::RateKind kind = Project::RateKind::hour,
                           Project::Rounding rounding = Project::Rounding::none) {
        Project p;
        p.id = id;
        p.name = std::move(name);
        p.clientID = client;
        p.rateCents = rate;
        p.rateKind = kind;
        p.rounding = rounding;
        p.dayHours = 7;
        return p;
    }

    Classified item(Instant start, double seconds, const std::optional<Project>& p, std::string note = {},
                    Activity::Kind kind = Activity::Kind::app) {
        Classified it;
        it.activity.id = nextID++;
        it.activity.start = start;
        it.activity.end = start + seconds;
        it.activity.appName = "Figma";
        it.activity.kind = kind;
        if (p) it.project = std::make_shared<const Project>(*p);
        if (!note.empty()) it.note = SharedText(note);
        return it;
    }

    // 3 h on Monday 5 October 2026 and 5 h on Wednesday 7 October.
    ClassifiedList statementExample() {
        return {item(local::make(2026, 10, 5, 9, 0), 3 * 3600, refonte),
                item(local::make(2026, 10, 7, 9, 0), 5 * 3600, refonte)};
    }
};

} // namespace ombrelo::testing
