#include "platform/linux/FolderWatch.h"

#include "support/Log.h"

#include <algorithm>
#include <asio.hpp>
#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace ombrelo::platform {

namespace fs = std::filesystem;

struct FolderWatch::Parts {
    Parts(asio::io_context& io, std::vector<std::string> names, std::function<void()> callback)
        : descriptor(io), fileNames(std::move(names)), changed(std::move(callback)) {}
    asio::posix::stream_descriptor descriptor;
    std::vector<std::string> fileNames;
    std::function<void()> changed;
};

FolderWatch::FolderWatch(asio::io_context& io, const fs::path& folder, std::vector<std::string> fileNames,
                         std::function<void()> changed)
    : parts_(std::make_unique<Parts>(io, std::move(fileNames), std::move(changed))) {
    auto log = Log::get("capture");
    std::error_code ignored;
    fs::create_directories(folder, ignored);
    int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        log->warn("Surveillance de {} impossible : {}", folder.string(), std::strerror(errno));
        return;
    }
    constexpr std::uint32_t events = IN_CLOSE_WRITE | IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE;
    if (::inotify_add_watch(fd, folder.c_str(), events) < 0) {
        log->warn("Surveillance de {} impossible : {}", folder.string(), std::strerror(errno));
        ::close(fd);
        return;
    }
    parts_->descriptor.assign(fd);
    wait();
}

FolderWatch::~FolderWatch() = default;

void FolderWatch::wait() {
    parts_->descriptor.async_wait(asio::posix::stream_descriptor::wait_read, [this](std::error_code error) {
        if (error) return;  // cancelled: the watch is going away
        readEvents();
        wait();
    });
}

void FolderWatch::readEvents() {
    alignas(inotify_event) char buffer[8192];
    bool relevant = false;
    for (;;) {
        ssize_t length = ::read(parts_->descriptor.native_handle(), buffer, sizeof buffer);
        if (length <= 0) break;
        for (char* at = buffer; at < buffer + length;) {
            auto* event = reinterpret_cast<inotify_event*>(at);
            relevant |= (event->mask & IN_Q_OVERFLOW) != 0;  // events were lost: look anyway
            if (event->len > 0) {
                std::string name(event->name);
                relevant |= std::find(parts_->fileNames.begin(), parts_->fileNames.end(), name) !=
                            parts_->fileNames.end();
            }
            at += sizeof(inotify_event) + event->len;
        }
    }
    if (relevant && parts_->changed) parts_->changed();
}

} // namespace ombrelo::platform
