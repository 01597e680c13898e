// AutoBackup: the running tracker's daily backup. At the first sample of a day
// without a backup it copies the database on a thread of its own (with its own
// connection, so capture goes on meanwhile), then lets go what the retention
// settings no longer keep. A failure is logged and recorded for `status`, and
// tried again the next day; tracking never depends on it.
#pragma once

#include "backup/Backups.h"
#include "support/Clock.h"

#include <future>
#include <optional>

namespace ombrelo {

class Preferences;

class AutoBackup {
public:
    AutoBackup(const std::filesystem::path& database, const Preferences& preferences, Clock& clock);
    // Waits for a backup under way.
    ~AutoBackup();
    AutoBackup(const AutoBackup&) = delete;
    AutoBackup& operator=(const AutoBackup&) = delete;

    // Called at each sample.
    void tick();
    // Waits for the backup under way, if any; for tests and the end of tracking.
    void wait();

private:
    Backups backups_;
    const Preferences& preferences_;
    Clock& clock_;
    std::optional<Instant> dayDone_;  // the local day whose backup was taken or tried
    std::future<void> work_;
};

} // namespace ombrelo
