#include "app/TrackerLock.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;

namespace {

// FNV-1a: the same name for the same path in every build and process.
std::uint64_t stableHash(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return hash;
}

fs::path runtimeFolder() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && *runtime) return fs::path(runtime) / "ombrelo";
    return fs::temp_directory_path() / ("ombrelo-" + std::to_string(::getuid()));
}

int openLockFile(const fs::path& file) {
    fs::create_directories(file.parent_path());
    int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), file.string());
    return fd;
}

} // namespace

fs::path TrackerLock::fileFor(const fs::path& database) {
    std::error_code ignored;
    fs::path absolute = fs::weakly_canonical(fs::absolute(database, ignored), ignored);
    return runtimeFolder() / fmt::format("tracker-{:016x}.lock", stableHash(absolute.string()));
}

std::optional<TrackerLock> TrackerLock::acquire(const fs::path& database) {
    int fd = openLockFile(fileFor(database));
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        int error = errno;
        ::close(fd);
        throw std::system_error(error, std::generic_category(), "tracker lock");
    }
    return TrackerLock(fd);
}

std::optional<int> TrackerLock::holder(const fs::path& database) {
    fs::path file = fileFor(database);
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::optional<int> pid;
    if (::flock(fd, LOCK_SH | LOCK_NB) != 0) {
        char text[32] = {};
        ssize_t length = ::pread(fd, text, sizeof text - 1, 0);
        pid = length > 0 ? std::atoi(text) : 0;
    }
    ::close(fd);
    return pid;
}

TrackerLock::TrackerLock(TrackerLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }

TrackerLock::~TrackerLock() {
    if (fd_ >= 0) ::close(fd_);
}

} // namespace ombrelo
