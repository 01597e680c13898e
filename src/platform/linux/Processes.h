// Processes: what /proc says about a process (its program, working folder,
// children), for naming a window's application and finding what a terminal is
// working on. Every read answers "absent" for a process that has ended or that
// belongs to another user.
//
// Stateless; any thread.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo::platform {

class Processes {
public:
    // `root`: the proc file system ("/proc"); tests may point elsewhere.
    explicit Processes(std::filesystem::path root = "/proc") : root_(std::move(root)) {}

    // The running program's path (/proc/PID/exe), without the " (deleted)" an
    // upgrade leaves behind.
    std::optional<std::filesystem::path> executable(int pid) const;
    // The process name the kernel keeps (/proc/PID/comm).
    std::optional<std::string> command(int pid) const;
    std::optional<std::filesystem::path> workingDirectory(int pid) const;
    // Direct children, by process id.
    std::vector<int> children(int pid) const;

    // The working folder of what a terminal runs: follow single children down from
    // the terminal (its shell, then what the shell runs) and take the deepest
    // one's folder. Absent when the terminal runs several shells (tabs: which one
    // is in front cannot be known) or none.
    std::optional<std::filesystem::path> terminalWorkingDirectory(int terminalPid) const;

private:
    std::optional<int> parent(int pid) const;
    bool kernelListsChildren() const;
    std::vector<int> kernelChildren(int pid) const;
    // Children of every process, from one pass over /proc.
    std::multimap<int, int> parentIndex() const;
    // A lookup of children valid for one walk down the tree.
    std::function<std::vector<int>(int)> childLister() const;
    std::filesystem::path root_;
};

} // namespace ombrelo::platform
