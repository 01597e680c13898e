#include "platform/linux/Processes.h"

#include <algorithm>
#include <cctype>
#include <fstream>
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

std::vector<int> Processes::children(int pid) const {
    std::vector<int> found;
    fs::path tasks = root_ / std::to_string(pid) / "task";
    std::error_code error;
    bool kernelList = fs::exists(tasks / std::to_string(pid) / "children", error);
    if (kernelList) {
        for (const auto& task : fs::directory_iterator(tasks, error)) {
            std::ifstream in(task.path() / "children");
            for (int child; in >> child;) found.push_back(child);
        }
    } else {
        // Kernels built without the children list: every process names its parent.
        for (const auto& entry : fs::directory_iterator(root_, error)) {
            std::string name = entry.path().filename().string();
            if (!allDigits(name)) continue;
            int candidate = std::stoi(name);
            if (candidate != pid && parent(candidate) == pid) found.push_back(candidate);
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::optional<fs::path> Processes::terminalWorkingDirectory(int terminalPid) const {
    std::vector<int> shells = children(terminalPid);
    if (shells.size() != 1) return std::nullopt;
    int deepest = shells.front();
    // A bounded walk: a process tree is never this deep, a loop in a fake /proc is.
    for (int depth = 0; depth < 32; ++depth) {
        std::vector<int> next = children(deepest);
        if (next.size() != 1) break;
        deepest = next.front();
    }
    if (auto folder = workingDirectory(deepest)) return folder;
    return workingDirectory(shells.front());
}

} // namespace ombrelo::platform
