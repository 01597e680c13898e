// Shared test fixtures: private folders, a pinned time zone and language, and a
// way to run the real `ombrelo` binary in a private data folder.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
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

// Sets (or, with nothing, removes) an environment variable for the scope,
// putting back what was there, even when the test fails half-way.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

// Sets the interface language for the scope.
class ScopedLanguage {
public:
    explicit ScopedLanguage(const char* code);
    ~ScopedLanguage();

private:
    std::string previous_;
};

inline constexpr std::chrono::seconds commandTimeout{60};

struct CommandResult {
    int status;
    std::string out;
    std::string err;
};

// Runs the built `ombrelo` with `arguments`, in a private XDG data, config and
// runtime folder under `home`, with extra environment "KEY=value" entries and
// `input` (a file) as its standard input. A command still running after
// commandTimeout is killed (status -1).
CommandResult runOmbrelo(const std::filesystem::path& home, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {},
                         const std::optional<std::filesystem::path>& input = std::nullopt);

std::string readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, const std::string& text);

// Checks, on a read-only connection, what every recorder must keep true of the
// activity table whatever happened to it (a crash, several writers): no two rows
// of one device overlap, no row crosses a local midnight, no local day holds more
// non-idle time than it lasts. Each broken rule is one test failure listing its
// rows. Uses the process's TZ.
void expectActivityInvariants(const std::filesystem::path& database);

// The rows of "PRAGMA integrity_check", one per line ("ok" for a sound file), or
// the error that kept it from running.
std::string integrityCheck(const std::filesystem::path& database);

} // namespace ombrelo::testing
