// ombrelo holidays: the public holidays of a year (this one by default) or of a
// range of days with its working days, for the user's country or another.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "calendar/Holidays.h"
#include "reports/Format.h"
#include "reports/ReportFormat.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Settings.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::optional<int> year;
    std::optional<std::string> country, from, to;
    bool alsaceMoselle = false;
};

Holidays chosenHolidays(Session& session, const Arguments& arguments) {
    Holidays preferred = Holidays::fromPreferences(session.preferences());
    HolidayCountry country = preferred.country();
    if (arguments.country) {
        auto asked = parseHolidayCountry(*arguments.country);
        if (!asked) usageFailure(std::string(L10n::text("Pays inconnu : ", "Unknown country: ")) + *arguments.country);
        country = *asked;
    }
    return Holidays(country, arguments.alsaceMoselle || preferred.alsaceMoselle());
}

Period chosenRange(Session& session, const Arguments& arguments) {
    if (arguments.from || arguments.to) {
        if (arguments.year) usageFailure(std::string(L10n::text("Une année, ou --from et --to.",
                                                                "A year, or --from and --to.")));
        if (!arguments.from || !arguments.to)
            usageFailure(std::string(L10n::text("--from et --to vont ensemble.", "--from and --to go together.")));
        return rangeOptions(*arguments.from, *arguments.to);
    }
    int year = arguments.year.value_or(local::parts(session.clock().now()).year);
    if (year < 1583 || year > 9999)
        usageFailure(std::string(L10n::text("Année hors du calendrier grégorien : ", "Year outside the Gregorian "
                                                                                     "calendar: ")) +
                     std::to_string(year));
    Instant start = local::make(year, 1, 1);
    return {start, local::make(year + 1, 1, 1)};
}

bool onWeekday(const Holiday& holiday) {
    int weekday = local::weekday(holiday.date);
    return weekday != 1 && weekday != 7;
}

void show(Session& session, const Arguments& arguments) {
    Holidays holidays = chosenHolidays(session, arguments);
    Period range = chosenRange(session, arguments);
    std::vector<Holiday> list = holidays.holidays(range.start, range.end);
    int workingDays = holidays.workingDays(range.start, range.end);

    if (session.json) {
        nlohmann::json days = nlohmann::json::array();
        for (const Holiday& holiday : list)
            days.push_back({{"date", local::formatDay(holiday.date)},
                            {"name", Holidays::localizedName(holiday.name)},
                            {"weekday", onWeekday(holiday)}});
        output::json({{"country", rawValue(holidays.country())},
                      {"from", local::formatDay(range.start)},
                      {"to", local::formatDay(local::addDays(range.end, -1))},
                      {"working_days", workingDays},
                      {"holidays", std::move(days)}});
        return;
    }

    ReportFormat format = ReportFormat::current(Format::currency(session.preferences()));
    output::line(fmt::format("{} — {}{}", L10n::text("Jours fériés", "Public holidays"), label(holidays.country()),
                             holidays.alsaceMoselle() ? " (Alsace-Moselle)" : ""));
    output::line(fmt::format("{} {} {} {}", L10n::text("du", "from"), format.date(range.start), L10n::text("au", "to"),
                             format.date(local::addDays(range.end, -1))));
    output::line(scope(holidays.country()));
    output::line("");
    output::TextTable table({"Date", std::string(L10n::text("Jour férié", "Holiday")), ""});
    for (const Holiday& holiday : list)
        table.add({format.date(holiday.date), Holidays::localizedName(holiday.name),
                   onWeekday(holiday) ? "" : std::string(L10n::text("(week-end)", "(weekend)"))});
    if (table.empty())
        output::line(L10n::text("Aucun jour férié sur cette période.", "No public holiday in this period."));
    else
        table.print(std::cout);
    output::line("");
    output::field(L10n::text("Jours ouvrés", "Working days"), std::to_string(workingDays));
}

} // namespace

void holidays(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "holidays", std::string(L10n::text("Jours fériés d'une année ou d'une période, et ses jours ouvrés",
                                           "Public holidays of a year or a period, and its working days")));
    command->add_option("year", arguments->year, std::string(L10n::text("Année (celle-ci par défaut)",
                                                                        "Year (this one by default)")));
    command->add_option("--country", arguments->country, "fr, be, lu, ch, de, gb, us, ca");
    command->add_flag("--alsace-moselle", arguments->alsaceMoselle,
                      std::string(L10n::text("Avec le Vendredi saint et le 26 décembre (France)",
                                             "With Good Friday and 26 December (France)")));
    command->add_option("--from", arguments->from, std::string(L10n::text("Premier jour (AAAA-MM-JJ)",
                                                                          "First day (YYYY-MM-DD)")));
    command->add_option("--to", arguments->to, std::string(L10n::text("Dernier jour inclus (AAAA-MM-JJ)",
                                                                      "Last day, included (YYYY-MM-DD)")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments] { show(session, *arguments); });
}

} // namespace ombrelo::commands
