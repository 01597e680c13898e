#include "testing/Processes.h"

#include <fstream>

#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace ombrelo::testing {

namespace {

// The environment for a child, built before fork: after it, only async-signal-safe
// calls are allowed, and other threads may hold locks.
std::vector<std::string> childEnvironment(const std::vector<std::string>& extra) {
    std::vector<std::string> result;
    for (const std::string& entry : extra) result.push_back(entry);
    for (char** variable = environ; *variable; ++variable) {
        std::string entry(*variable);
        std::string key = entry.substr(0, entry.find('='));
        bool overridden = false;
        for (const std::string& added : extra) overridden |= added.substr(0, added.find('=')) == key;
        if (!overridden) result.push_back(entry);
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (std::string& s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                           const std::optional<fs::path>& log, int extraFd) {
    std::vector<std::string> arguments = argv;
    std::vector<std::string> variables = childEnvironment(environment);
    std::vector<char*> argp = pointers(arguments), envp = pointers(variables);
    std::string output = log ? log->string() : "/dev/null";
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
        int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        int in = ::open("/dev/null", O_RDONLY);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(out, 2);
        // Its own process group, so that ending it does not reach the test; and
        // killed if the test dies first, crash included.
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (int fd = 3; fd < 256; ++fd)
            if (fd != extraFd) ::close(fd);
        ::execvpe(argp[0], argp.data(), envp.data());
        ::_exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!status_) stop(SIGTERM, 3s);
    if (!status_) stop(SIGKILL, 3s);
}

bool ChildProcess::running() {
    if (status_) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return false;
    }
    return true;
}

int ChildProcess::stop(int signal, std::chrono::milliseconds timeout) {
    if (!running()) return *status_;
    ::kill(pid_, signal);
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (!running()) return *status_;
        std::this_thread::sleep_for(10ms);
    }
    return -1;
}

int runProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment) {
    ChildProcess child(argv, environment);
    for (int i = 0; i < 1000 && child.running(); ++i) std::this_thread::sleep_for(10ms);
    return child.stop(SIGKILL);
}

std::optional<std::string> programOutput(const std::vector<std::string>& argv,
                                         const std::vector<std::string>& environment) {
    char name[] = "/tmp/ombrelo-output-XXXXXX";
    int fd = ::mkstemp(name);
    if (fd < 0) return std::nullopt;
    ::close(fd);
    int status = -1;
    {
        ChildProcess child(argv, environment, std::filesystem::path(name));
        for (int i = 0; i < 1000 && child.running(); ++i) std::this_thread::sleep_for(10ms);
        status = child.stop(SIGKILL);
    }
    std::ifstream file(name);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    ::unlink(name);
    if (status != 0) return std::nullopt;
    return text;
}

bool eventually(const std::function<bool()>& condition, const std::function<void()>& pump,
                std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (pump) pump();
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(10ms);
    }
}

} // namespace ombrelo::testing
