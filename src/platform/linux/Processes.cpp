#include "platform/linux/Processes.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <memory>
#include <sstream>

namespace ombrelo::platform {

namespace fs = std::filesystem;

namespace {

std::optional<std::string> readFirstLine(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    return line;
}

std::optional<fs::path> readLink(const fs::path& link) {
    std::error_code error;
    fs::path target = fs::read_symlink(link, error);
    if (error || target.empty()) return std::nullopt;
    return target;
}

bool allDigits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

} // namespace

std::optional<fs::path> Processes::executable(int pid) const {
    auto path = readLink(root_ / std::to_string(pid) / "exe");
    if (!path) return std::nullopt;
    std::string text = path->string();
    constexpr std::string_view deleted = " (deleted)";
    if (text.ends_with(deleted)) text.resize(text.size() - deleted.size());
    return fs::path(text);
}

std::optional<std::string> Processes::command(int pid) const {
    auto line = readFirstLine(root_ / std::to_string(pid) / "comm");
    if (!line || line->empty()) return std::nullopt;
    return line;
}

std::optional<fs::path> Processes::workingDirectory(int pid) const {
    return readLink(root_ / std::to_string(pid) / "cwd");
}

std::optional<int> Processes::parent(int pid) const {
    auto line = readFirstLine(root_ / std::to_string(pid) / "stat");
    if (!line) return std::nullopt;
    // "pid (comm) state ppid …": comm may hold spaces and parentheses.
    auto close = line->rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::istringstream rest(line->substr(close + 1));
    std::string state;
    int ppid = 0;
    if (!(rest >> state >> ppid)) return std::nullopt;
    return ppid;
}

bool Processes::kernelListsChildren() const {
    // Kernels built without CONFIG_PROC_CHILDREN have no such file anywhere.
    std::error_code error;
    return fs::exists(root_ / "thread-self/children", error);
}

std::vector<int> Processes::kernelChildren(int pid) const {
    std::vector<int> found;
    std::error_code error;
    for (const auto& task : fs::directory_iterator(root_ / std::to_string(pid) / "task", error)) {
        std::ifstream in(task.path() / "children");
        for (int child; in >> child;) found.push_back(child);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::multimap<int, int> Processes::parentIndex() const {
    // Every process names its parent in its stat file: one pass over /proc.
    std::multimap<int, int> index;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(root_, error)) {
        std::string name = entry.path().filename().string();
        if (!allDigits(name)) continue;
        int pid = std::stoi(name);
        if (auto ppid = parent(pid)) index.emplace(*ppid, pid);
    }
    return index;
}

std::function<std::vector<int>(int)> Processes::childLister() const {
    if (kernelListsChildren()) return [this](int pid) { return kernelChildren(pid); };
    auto index = std::make_shared<std::multimap<int, int>>(parentIndex());
    return [index](int pid) {
        std::vector<int> found;
        auto [first, last] = index->equal_range(pid);
        for (auto it = first; it != last; ++it) found.push_back(it->second);
        std::sort(found.begin(), found.end());
        return found;
    };
}

std::vector<int> Processes::children(int pid) const { return childLister()(pid); }

std::optional<fs::path> Processes::terminalWorkingDirectory(int terminalPid) const {
    auto childrenOf = childLister();
    std::vector<int> shells = childrenOf(terminalPid);
    if (shells.size() != 1) return std::nullopt;
    int deepest = shells.front();
    // A bounded walk: a process tree is never this deep, a loop in a fake /proc is.
    for (int depth = 0; depth < 32; ++depth) {
        std::vector<int> next = childrenOf(deepest);
        if (next.size() != 1) break;
        deepest = next.front();
    }
    if (auto folder = workingDirectory(deepest)) return folder;
    return workingDirectory(shells.front());
}

} // namespace ombrelo::platform
