#include "support/AtomicFile.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

namespace {

[[noreturn]] void fail(int error, const std::filesystem::path& path) {
    throw std::system_error(error, std::generic_category(), path.string());
}

// Read from /proc rather than with umask(2), which would change it for a moment
// under the process's other threads.
mode_t currentUmask() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
    return 022;
}

void writeAll(int fd, std::string_view bytes, const std::filesystem::path& path) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail(errno, path);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode) {
    std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    std::string temporary = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    int fd = ::mkstemp(temporary.data());
    if (fd < 0) fail(errno, path);
    try {
        if (::fchmod(fd, mode & ~currentUmask()) != 0) fail(errno, path);
        writeAll(fd, bytes, path);
        if (::fsync(fd) != 0) fail(errno, path);
        if (::close(fd) != 0) {
            fd = -1;
            fail(errno, path);
        }
        fd = -1;
        if (::rename(temporary.c_str(), path.c_str()) != 0) fail(errno, path);
    } catch (...) {
        if (fd >= 0) ::close(fd);
        ::unlink(temporary.c_str());
        throw;
    }
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

} // namespace ombrelo
