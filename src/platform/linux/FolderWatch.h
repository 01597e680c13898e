// FolderWatch: runs a callback when chosen files of one folder are written,
// created, replaced or removed (inotify), so that the tracker takes in another
// process's change of the settings or of the database at once rather than at its
// next sample.
//
// The events of one wake-up are folded into one call. Without inotify (or when
// the folder cannot be watched) it logs why and never calls: the sample still
// notices changes, later. Owned by `ombrelo run`; main loop thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace asio {
class io_context;
}

namespace ombrelo::platform {

class FolderWatch {
public:
    // Creates `folder` when it does not exist yet (so a first write is seen).
    FolderWatch(asio::io_context& io, const std::filesystem::path& folder, std::vector<std::string> fileNames,
                std::function<void()> changed);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

private:
    struct Parts;
    void wait();
    void readEvents();

    std::unique_ptr<Parts> parts_;
};

} // namespace ombrelo::platform
