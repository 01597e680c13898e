#include "testing/TestSupport.h"

#include "support/L10n.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace ombrelo::testing {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "ombrelo-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

ScopedTimeZone::ScopedTimeZone(const char* zone) {
    const char* current = std::getenv("TZ");
    had_ = current != nullptr;
    if (had_) previous_ = current;
    ::setenv("TZ", zone, 1);
    ::tzset();
}

ScopedTimeZone::~ScopedTimeZone() {
    if (had_) ::setenv("TZ", previous_.c_str(), 1);
    else ::unsetenv("TZ");
    ::tzset();
}

ScopedLanguage::ScopedLanguage(const char* code) : previous_(L10n::language()) { L10n::setLanguage(code); }

ScopedLanguage::~ScopedLanguage() { L10n::setLanguage(previous_); }

std::string readFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const fs::path& file, const std::string& text) {
    if (file.has_parent_path()) fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
}

CommandResult runOmbrelo(const fs::path& home, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    fs::path outFile = home / ".ombrelo-out", errFile = home / ".ombrelo-err";
    fs::create_directories(home / "run");
    fs::permissions(home / "run", fs::perms::owner_all);
    pid_t child = ::fork();
    if (child == 0) {
        int out = ::open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(out, 1);
        ::dup2(err, 2);
        int in = ::open("/dev/null", O_RDONLY);
        ::dup2(in, 0);
        ::setenv("HOME", home.c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", (home / "run").c_str(), 1);
        ::unsetenv("OMBRELO_DB");
        ::setenv("OMBRELO_LOG", "warn", 1);
        for (const std::string& entry : environment) ::putenv(const_cast<char*>(entry.c_str()));
        std::vector<char*> argv{const_cast<char*>(OMBRELO_BINARY)};
        for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        ::execv(OMBRELO_BINARY, argv.data());
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(outFile), readFile(errFile)};
}

} // namespace ombrelo::testing
