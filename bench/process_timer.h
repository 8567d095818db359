// Wall time of a whole process, for the benchmarks that compare commands
// (halvern against cp or vips) as a user would run them.
#ifndef HALV_BENCH_PROCESS_TIMER_H
#define HALV_BENCH_PROCESS_TIMER_H

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

extern char **environ;

// Runs args (args[0] a path) as a process; its wall time in seconds, or -1
// when it could not start or did not exit with 0.
inline double SpawnSeconds(std::vector<std::string> args) {
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? seconds : -1;
}

#endif
