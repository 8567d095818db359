// Shared pieces of the file, directory and smart-buffer tests: a scratch
// directory each test makes for itself, small file helpers, a capture of
// the library's log messages, and children that run with other rights or
// limits than the test process.
#ifndef HALV_TESTS_FILES_FIXTURE_H
#define HALV_TESTS_FILES_FIXTURE_H

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace files_test {

namespace fs = std::filesystem;

// A new directory under /tmp, removed with all it holds at the end.  Its
// mode lets an unprivileged child in.
class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/tmp/halv_files_XXXXXX";
        const char *made = mkdtemp(pattern);
        if (made != nullptr) {
            path_ = made;
            chmod(made, 0755);
        }
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!path_.empty())
            fs::remove_all(path_, ignored);
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline bool WriteFile(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

inline std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool Exists(const std::string &path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

// Names in directory (without "." and ".."); empty when it can't be read.
inline std::set<std::string> Names(const std::string &directory) {
    std::set<std::string> names;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error))
        names.insert(entry.path().filename().string());
    return names;
}

// Open descriptors of this process.
inline size_t OpenDescriptors() { return Names("/proc/self/fd").size(); }

// Bytes 0, 1, 2, ... of a repeating pattern that shows misplaced bytes.
inline std::string Pattern(size_t length, unsigned seed = 0) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>((i * 131 + seed * 7 + (i >> 8)) & 0xFF);
    return bytes;
}

// Collects what the library logs while it lives; nothing reaches the
// standard streams meanwhile.
class LogCapture {
public:
    explicit LogCapture(bool debug = false) : debug_(debug) {
        Messages().clear();
        HalvSetLoggingCallback(&LogCapture::Receive, 0);
        if (debug_)
            HalvSetDebug(1);
    }
    ~LogCapture() {
        if (debug_)
            HalvSetDebug(0);
        HalvSetLoggingCallback(nullptr, 0);
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    static std::vector<std::string> &Messages() {
        static std::vector<std::string> messages;
        return messages;
    }
    std::string All() const {
        std::string all;
        for (const auto &m : Messages())
            all += m;
        return all;
    }

private:
    static void Receive(const char *text, int, intptr_t) { Messages().emplace_back(text); }
    bool debug_;
};

// Runs body in a child process and gives its exit code (body's result), or
// -1 when it died or ran past the time limit.  Failures inside are written
// to standard error by the body itself.
inline int RunInChild(const std::function<int()> &body, int timeoutSeconds = 60) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        int code = body();
        fflush(nullptr);
        _exit(code);
    }
    int status = 0;
    for (int waited = 0; waited < timeoutSeconds * 100; ++waited) {
        pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        struct timespec pause = {0, 10 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1;
}

// In a child: gives up root, so that permission bits bite.  True when done.
inline bool BecomeNobody() {
    return setgid(65534) == 0 && setuid(65534) == 0 && geteuid() == 65534;
}

// Reports a failed check in a child; returns 1 so that `return Fail(...)`
// ends the body with a failure code.
inline int Fail(const char *what) {
    std::fprintf(stderr, "child check failed: %s\n", what);
    return 1;
}

} // namespace files_test

#endif
