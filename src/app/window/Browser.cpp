#include "app/window/Browser.h"

#include "support/Log.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace ombrelo::Browser {

namespace {

bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (!folder.empty() && ::access((std::filesystem::path(folder) / program).c_str(), X_OK) == 0) return true;
    return false;
}

std::vector<std::string> fromVariable(const std::string& variable, const std::string& url) {
    std::string first = variable.substr(0, variable.find(':'));
    std::vector<std::string> argv;
    std::stringstream words(first);
    bool placed = false;
    for (std::string word; words >> word;) {
        if (std::size_t at = word.find("%s"); at != std::string::npos) {
            word.replace(at, 2, url);
            placed = true;
        }
        argv.push_back(word);
    }
    if (!argv.empty() && !placed) argv.push_back(url);
    return argv;
}

} // namespace

std::vector<std::string> command(const std::string& url) {
    if (const char* variable = std::getenv("BROWSER"); variable && *variable) {
        std::vector<std::string> argv = fromVariable(variable, url);
        if (!argv.empty()) return argv;
    }
    for (const char* chromium : {"chromium", "chromium-browser", "google-chrome", "brave-browser"})
        if (onPath(chromium)) return {chromium, "--app=" + url};
    return {"xdg-open", url};
}

bool open(const std::string& url) {
    std::vector<std::string> argv = command(url);
    std::vector<char*> pointers;
    for (std::string& word : argv) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    pid_t child = 0;
    int failed = ::posix_spawnp(&child, pointers[0], nullptr, nullptr, pointers.data(), environ);
    if (failed != 0) {
        Log::get("ui")->error("Navigateur introuvable ({}) : {}", argv[0], std::strerror(failed));
        return false;
    }
    std::thread([child] { ::waitpid(child, nullptr, 0); }).detach();
    return true;
}

} // namespace ombrelo::Browser
