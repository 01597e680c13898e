#include "backup/AutoBackup.h"

#include "support/LocalTime.h"
#include "support/Log.h"
#include "support/Preferences.h"

namespace ombrelo {

namespace {

void takeDailyBackup(const Backups& backups, Instant now, Retention retention) {
    auto log = Log::get("backup");
    try {
        BackupEntry entry = backups.take(now);
        std::size_t removed = backups.prune(retention).size();
        backups.clearFailure();
        log->info("Sauvegarde du jour : {} ({} ancienne(s) retirée(s))", entry.file.string(), removed);
    } catch (const std::exception& error) {
        log->error("Sauvegarde du jour impossible : {}", error.what());
        try {
            backups.recordFailure({now, error.what()});
        } catch (const std::exception& unrecorded) {
            log->error("Échec de sauvegarde non enregistré : {}", unrecorded.what());
        }
    }
}

} // namespace

AutoBackup::AutoBackup(const std::filesystem::path& database, const Preferences& preferences, Clock& clock)
    : backups_(database), preferences_(preferences), clock_(clock) {}

AutoBackup::~AutoBackup() { wait(); }

void AutoBackup::wait() {
    if (work_.valid()) work_.get();
}

void AutoBackup::tick() {
    if (work_.valid()) {
        if (work_.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return;
        work_.get();
    }
    Instant now = clock_.now();
    Instant today = local::startOfDay(now);
    if (dayDone_ == today) return;
    Retention retention = Retention::fromPreferences(preferences_);
    if (retention.days == 0) return;  // automatic backups turned off; a later change is seen the same day
    dayDone_ = today;
    if (!backups_.onDay(now).empty()) return;
    try {
        work_ = std::async(std::launch::async, takeDailyBackup, std::cref(backups_), now, retention);
    } catch (const std::system_error& error) {  // no thread to be had: tomorrow, then
        Log::get("backup")->error("Sauvegarde du jour impossible : {}", error.what());
    }
}

} // namespace ombrelo
