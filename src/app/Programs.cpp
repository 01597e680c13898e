#include "app/Programs.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ombrelo {

std::optional<std::string> programOutput(const std::vector<std::string>& argv) {
    if (argv.empty()) return std::nullopt;
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<std::string> words = argv;
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    pid_t child = 0;
    int failed = ::posix_spawnp(&child, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    std::string output;
    if (failed == 0) {
        char chunk[4096];
        for (ssize_t got; (got = ::read(pipe[0], chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR);)
            if (got > 0) output.append(chunk, std::size_t(got));
    }
    ::close(pipe[0]);
    if (failed != 0) return std::nullopt;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return output;
}

} // namespace ombrelo
