// Runs tests/env/env_probe (or a copy of it, or another probe program such
// as tests/core/log_probe) in a fresh process with an environment the test
// chooses, and collects what it prints.
#ifndef HALV_TESTS_ENV_PROBE_RUNNER_H
#define HALV_TESTS_ENV_PROBE_RUNNER_H

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "../temp_dir.h"

namespace probe {

using Lines = std::vector<std::string>;
using TempDir = halvtest::TempDir;

struct Result {
    int exitCode = -1; // 128 + the signal for a process a signal ended
    bool timedOut = false;
    std::string out, err;
    Lines lines; // stdout, one entry per line
};

inline std::string ProbePath() { return HALV_TEST_BINARY_DIR "/env/env_probe"; }

inline long long NowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// Runs exe with args and exactly the given environment ("NAME=value"
// entries), plus the sanitizer options of the test process.  A run that
// outlasts the time-out is killed and fails the test.
inline Result Run(const std::string &exe, const Lines &args, const Lines &environment,
                  int timeoutMs = 30000) {
    Result result;
    Lines env = environment;
    for (const char *pass : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"})
        if (const char *value = std::getenv(pass))
            env.push_back(std::string(pass) + "=" + value);
    std::vector<char *> argv{const_cast<char *>(exe.c_str())}, envp;
    for (const auto &arg : args)
        argv.push_back(const_cast<char *>(arg.c_str()));
    for (auto &entry : env)
        envp.push_back(entry.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    int outPipe[2], errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe2: " << errno;
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string *sinks[2] = {&result.out, &result.err};
    int open = spawned == 0 ? 2 : 0;
    for (long long deadline = NowMs() + timeoutMs; open > 0;) {
        long long left = deadline - NowMs();
        if (left <= 0) {
            result.timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, (int)left) < 0)
            continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[4096];
            ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, (size_t)n);
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (auto &fd : fds)
        if (fd.fd >= 0)
            close(fd.fd);
    if (spawned != 0) {
        ADD_FAILURE() << "posix_spawn " << exe << ": " << spawned;
        return result;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status)     ? WEXITSTATUS(status)
                      : WIFSIGNALED(status) ? 128 + WTERMSIG(status)
                                            : -1;
    EXPECT_FALSE(result.timedOut) << exe;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);)
        result.lines.push_back(line);
    return result;
}

// Runs exe (or env_probe) and checks that it ran to its end.
inline Result ProbeAt(const std::string &exe, const Lines &args, const Lines &environment = {}) {
    Result result = Run(exe, args, environment);
    EXPECT_EQ(result.exitCode, 0) << exe << ": " << result.err;
    return result;
}

inline Result Probe(const Lines &args, const Lines &environment) {
    return ProbeAt(ProbePath(), args, environment);
}

} // namespace probe

#endif
