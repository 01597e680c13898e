#include "app/TrackerLock.h"

#include "control/RuntimeFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;

namespace {

int openLockFile(const fs::path& file) {
    int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), file.string());
    return fd;
}

} // namespace

fs::path TrackerLock::fileFor(const fs::path& database) { return trackerFile(database, ".lock"); }

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
