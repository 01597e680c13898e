// Processes for tests: a child program ended with the test, one run to its end,
// and waiting on a condition instead of a fixed sleep.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo::testing {

// A child process, ended (SIGTERM, then SIGKILL) when the object goes.
class ChildProcess {
public:
    // Runs `argv` with `environment` added ("KEY=value"); stdout and stderr go
    // to `log` when given, else to /dev/null.
    ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {},
                 const std::optional<std::filesystem::path>& log = std::nullopt, int extraFd = -1);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int pid() const { return pid_; }
    bool running();
    // Sends `signal` and waits for the exit; returns the exit status (-1 when
    // killed by a signal, or still running after `timeout`).
    int stop(int signal, std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    int pid_ = -1;
    std::optional<int> status_;
};

// Runs a program to its end; returns its exit status.
int runProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {});

// Runs a program to its end and returns what it wrote on stdout and stderr;
// absent when it failed.
std::optional<std::string> programOutput(const std::vector<std::string>& argv,
                                         const std::vector<std::string>& environment = {});

// Polls `condition` until it holds or `timeout` passes, calling `pump` between
// tries (to let events in). Tests never assert on the time this takes.
bool eventually(const std::function<bool()>& condition, const std::function<void()>& pump = {},
                std::chrono::milliseconds timeout = std::chrono::seconds(10));

} // namespace ombrelo::testing
