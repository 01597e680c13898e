// Shared test fixtures: private folders, a pinned time zone and language, and a
// way to run the real `ombrelo` binary in a private data folder.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ombrelo::testing {

// A fresh folder under /tmp, removed with everything in it at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// Sets TZ for the scope (for instance "Europe/Paris"), restoring it afterwards.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone);
    ~ScopedTimeZone();

private:
    std::string previous_;
    bool had_;
};

// Sets the interface language for the scope.
class ScopedLanguage {
public:
    explicit ScopedLanguage(const char* code);
    ~ScopedLanguage();

private:
    std::string previous_;
};

struct CommandResult {
    int status;
    std::string out;
    std::string err;
};

// Runs the built `ombrelo` with `arguments`, in a private XDG data, config and
// runtime folder under `home`, with extra environment "KEY=value" entries.
CommandResult runOmbrelo(const std::filesystem::path& home, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {});

std::string readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, const std::string& text);

} // namespace ombrelo::testing
