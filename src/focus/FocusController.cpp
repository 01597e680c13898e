#include "focus/FocusController.h"

#include "storage/Database.h"
#include "storage/Errors.h"
#include "support/L10n.h"
#include "support/Log.h"
#include "support/Preferences.h"
#include "support/Settings.h"

#include <algorithm>

namespace ombrelo {

FocusController::FocusController(Database& db, Preferences& preferences, Clock& clock, FocusSurroundings* surroundings)
    : records_(db), preferences_(preferences), clock_(clock), surroundings_(surroundings),
      log_(Log::get("focus")), now_(clock.now()), otherWrites_(db) {}

FocusController::~FocusController() = default;

void FocusController::start() {
    now_ = clock_.now();
    try {
        recover();
    } catch (const DatabaseError& error) {
        log_->error("Concentration : lecture impossible ({}), nouvel essai au prochain passage", error.what());
    }
}

void FocusController::recover() {
    std::optional<BreakRecord> previous = std::move(activeBreak_);
    session_ = records_.openSession();
    activeBreak_ = records_.openBreak();
    if (activeBreak_ && previous && previous->id == activeBreak_->id) activeBreak_->idleSeconds = previous->idleSeconds;
    if (activeBreak_ && !previous && now_ >= activeBreak_->plannedEnd) endBreak(activeBreak_->plannedEnd, false);
    if (previous && !activeBreak_ && surroundings_) surroundings_->closeBreak();
}

void FocusController::takeInOtherWrites() {
    if (otherWrites_.happened()) recover();
}

void FocusController::tick() {
    now_ = clock_.now();
    try {
        takeInOtherWrites();
        double idle = surroundings_ ? surroundings_->secondsSinceLastInput() : 0;
        if (session_ && session_->plannedEnd && now_ >= *session_->plannedEnd) {
            stop(*session_->plannedEnd);
            if (surroundings_)
                surroundings_->notify(std::string(L10n::text("Session terminée", "Session over")),
                                      std::string(L10n::text("Bravo ! Pensez à faire une courte pause.",
                                                             "Well done! Think of taking a short break.")));
        }
        if (session_) checkDistraction(now_);
        if (!activeBreak_) {
            trackWork(now_, idle);
        } else {
            if (idle >= tickSeconds) activeBreak_->idleSeconds += tickSeconds;
            if (now_ >= activeBreak_->plannedEnd) endBreak(now_, false);
        }
    } catch (const DatabaseError& error) {
        log_->error("Concentration : écriture impossible ({}), nouvel essai au prochain passage", error.what());
    }
}

void FocusController::startFocus(std::optional<std::int64_t> minutes, std::optional<std::int64_t> projectID,
                                 Instant at) {
    if (minutes && *minutes <= 0) minutes.reset();
    if (session_) stop(at);
    std::optional<Instant> plannedEnd;
    if (minutes) plannedEnd = at + double(*minutes) * 60;
    std::int64_t id = records_.insertSession(at, plannedEnd, projectID);
    session_ = FocusSession{.id = id, .start = at, .plannedEnd = plannedEnd, .projectID = projectID};
    now_ = std::max(now_, at);
    resetDistraction();
    log_->info("Focus démarré ({} min)", minutes.value_or(0));
}

void FocusController::stop(Instant at) {
    if (!session_) return;
    bool reached = !session_->plannedEnd || at >= *session_->plannedEnd;
    Instant end = session_->plannedEnd && reached ? *session_->plannedEnd : at;
    auto outcome = reached ? FocusSession::Outcome::completed : FocusSession::Outcome::stopped;
    records_.endSession(session_->id, end, outcome);
    session_.reset();
    resetDistraction();
    log_->info("Focus terminé ({})", rawValue(outcome));
}

void FocusController::beginBreak(Instant at, bool showPanel) {
    if (activeBreak_) return;
    std::int64_t id = records_.insertBreak(at);
    activeBreak_ = BreakRecord{.id = id, .start = at, .plannedEnd = at + BreakRecord::length};
    if (showPanel && surroundings_) surroundings_->showBreak();
}

void FocusController::endBreak(Instant at, bool skipped) {
    if (!activeBreak_) return;
    double duration = at - activeBreak_->start;
    bool taken = !skipped && duration > 0 && activeBreak_->idleSeconds >= takenIdleShare * duration;
    records_.endBreak(activeBreak_->id, at, taken);
    activeBreak_.reset();
    workSince_.reset();
    if (surroundings_) surroundings_->closeBreak();
}

std::optional<double> FocusController::remaining() const {
    if (!session_ || !session_->plannedEnd) return std::nullopt;
    return std::max(0.0, *session_->plannedEnd - now_);
}

double FocusController::elapsed() const { return session_ ? std::max(0.0, now_ - session_->start) : 0; }

double FocusController::breakEvery() const {
    std::optional<double> minutes = preferences_.number(settings::breakEveryMinutes);
    if (!minutes) return defaultBreakEvery;
    return std::max(0.0, *minutes) * 60;
}

FocusStats FocusController::stats(Instant from, Instant to) { return records_.stats(from, to, clock_.now()); }

void FocusController::resetDistraction() {
    distractionSince_.reset();
    notifiedThisEpisode_ = false;
}

void FocusController::checkDistraction(Instant now) {
    std::optional<WatchedActivity> current = surroundings_ ? surroundings_->currentActivity() : std::nullopt;
    if (!current || !surroundings_->currentIsDistraction()) {
        resetDistraction();
        return;
    }
    if (!distractionSince_) distractionSince_ = now;
    if (notifiedThisEpisode_ || now - *distractionSince_ <= distractionGrace) return;
    notifiedThisEpisode_ = true;
    std::optional<std::string> project =
        session_->projectID ? surroundings_->projectName(*session_->projectID) : std::nullopt;
    std::string target = project ? *project : std::string(L10n::text("votre session", "your session"));
    surroundings_->notify(std::string(L10n::text("Retour à ", "Back to ")) + target + std::string(L10n::text(" ?", "?")),
                          current->label +
                              std::string(L10n::text(" vous a peut-être distrait.", " may have distracted you.")));
}

void FocusController::trackWork(Instant now, double idle) {
    std::optional<WatchedActivity> current = surroundings_ ? surroundings_->currentActivity() : std::nullopt;
    if (!current || idle >= stretchBrokenAfterIdle) {
        workSince_.reset();
        return;
    }
    if (current->away) return;
    if (!workSince_) workSince_ = now - idle;
    double every = breakEvery();
    if (every <= 0) return;
    if (now - *workSince_ >= every && !activeBreak_) beginBreak(now, true);
}

} // namespace ombrelo
