// TrackerLock: one tracker per database. Two trackers on one file would record
// the same minutes twice (rows of one machine are never merged), so `ombrelo run`
// holds an exclusive flock on a file of the runtime folder named after the
// database. The lock dies with its holder, crash included, so it never goes
// stale; the file holds the holder's process id, so a second tracker and
// `ombrelo status` can say which process tracks.
#pragma once

#include <filesystem>
#include <optional>

namespace ombrelo {

class TrackerLock {
public:
    // The lock file for `database`, in the runtime folder (RuntimeFolder.h).
    static std::filesystem::path fileFor(const std::filesystem::path& database);

    // Takes the lock, or nothing when another process holds it (holder() then
    // names it). Throws std::system_error when the lock file cannot be made.
    static std::optional<TrackerLock> acquire(const std::filesystem::path& database);
    // The process tracking `database` now, if any.
    static std::optional<int> holder(const std::filesystem::path& database);

    TrackerLock(TrackerLock&& other) noexcept;
    TrackerLock& operator=(TrackerLock&&) = delete;
    TrackerLock(const TrackerLock&) = delete;
    ~TrackerLock();

private:
    explicit TrackerLock(int fd) : fd_(fd) {}
    int fd_;
};

} // namespace ombrelo
