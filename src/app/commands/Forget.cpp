// ombrelo forget --from … --to … [--yes]: deletes what was recorded in a period
// (activities with their corrections, focus sessions, breaks), in one
// transaction. Without --yes it only says what would go. Time already billed or
// paid is never forgotten: an invoice was computed from it.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/BackupCommands.h"
#include "app/commands/TimeModel.h"
#include "focus/FocusRecords.h"
#include "storage/Database.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string from, to;
    bool yes = false;
};

struct Contents {
    std::int64_t activities = 0, invoiced = 0;
    FocusRecords::Counts focus;
};

constexpr const char* activitiesIn = "FROM activity WHERE start >= ? AND start < ?";

Contents contents(Database& db, Instant from, Instant to) {
    Contents found;
    found.activities = db.queryInt(std::string("SELECT COUNT(*) ") + activitiesIn, {from, to}).value_or(0);
    found.invoiced = db.queryInt(std::string("SELECT COUNT(*) FROM billing WHERE status IN ('billed', 'paid') AND "
                                             "activity_id IN (SELECT id ") + activitiesIn + ")",
                                 {from, to})
                         .value_or(0);
    found.focus = FocusRecords(db).countStartingIn(from, to);
    return found;
}

// What would go or went, after the period: " : 2 activités, …".
std::string describe(const Contents& found) {
    return fmt::format("{}{}, {} {}, {} {}", L10n::text(" : ", ": "), activityCount(std::size_t(found.activities)),
                       found.focus.sessions, L10n::text("session(s) de concentration", "focus session(s)"),
                       found.focus.breaks, L10n::text("pause(s)", "break(s)"));
}

// What is in the period, refused when part of it was invoiced.
Contents forgettable(Database& db, Instant from, Instant to) {
    Contents found = contents(db, from, to);
    if (found.invoiced > 0)
        throw CommandFailure(exitStatus::failure,
                             fmt::format("{} {}", found.invoiced,
                                         L10n::text("activité(s) de la période sont facturées ou payées : rien n'est "
                                                    "effacé. Retirez d'abord leur état (ombrelo billing clear).",
                                                    "activities of the period are billed or paid: nothing is deleted. "
                                                    "Clear their state first (ombrelo billing clear).")));
    return found;
}

void forget(Session& session, const Arguments& arguments) {
    Instant from = dateTimeOption("--from", arguments.from), to = dateTimeOption("--to", arguments.to);
    if (to <= from) usageFailure(std::string(L10n::text("--to doit suivre --from.", "--to must follow --from.")));
    Database& db = session.database();
    std::string period = local::formatDateTime(from) + " → " + local::formatDateTime(to);
    try {
        Contents found = forgettable(db, from, to);
        if (!arguments.yes) {
            output::line(std::string(L10n::text("À effacer, ", "Would delete, ")) + period + describe(found));
            output::line(L10n::text("Rien n'est effacé sans --yes.", "Nothing is deleted without --yes."));
            return;
        }
        backUpBefore(session, "forget");
        // Counted again under the write lock: the tracker or a billing mark may
        // have changed the period since.
        Transaction transaction(db);
        found = forgettable(db, from, to);
        db.run(std::string("DELETE ") + activitiesIn, {from, to});
        FocusRecords(db).forgetStartingIn(from, to);
        transaction.commit();
        output::line(std::string(L10n::text("Effacé, ", "Deleted, ")) + period + describe(found));
    } catch (const DatabaseError& error) {
        throw CommandFailure(exitStatus::failure,
                             std::string(L10n::text("Rien n'est effacé : ", "Nothing deleted: ")) + error.what());
    }
}

} // namespace

void forget(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "forget", std::string(L10n::text("Efface ce qui a été enregistré sur une période",
                                         "Delete what was recorded in a period")));
    command->add_option("--from", arguments->from, std::string(L10n::text("Début (AAAA-MM-JJTHH:MM)", "Start (YYYY-MM-DDTHH:MM)")))
        ->required();
    command->add_option("--to", arguments->to, std::string(L10n::text("Fin exclue (AAAA-MM-JJTHH:MM)", "End, excluded (YYYY-MM-DDTHH:MM)")))
        ->required();
    command->add_flag("--yes", arguments->yes, std::string(L10n::text("Efface vraiment", "Really delete")));
    command->callback([&session, arguments] { forget(session, *arguments); });
}

} // namespace ombrelo::commands
