// tests/streams/nginx_server.h - a real nginx on 127.0.0.1 for the HTTP
// stream's tests: started by the test itself, not as a daemon and as the
// current user, with its own configuration, prefix, logs and temporary
// directories in a fresh directory and a free port, and stopped at the end.
// nginx is installed by scripts/deps.sh (nginx-light).
//
// nginx writes its pid file only once its listening socket is open, and its
// access log line only once a request is finished (the body stored and
// renamed into place, the answer sent), so the tests wait on those two files
// through inotify rather than by polling or sleeping.
#ifndef HALV_TESTS_STREAMS_NGINX_SERVER_H
#define HALV_TESTS_STREAMS_NGINX_SERVER_H

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "streams/peer.h"

extern char **environ;

namespace nginx_test {

namespace fs = std::filesystem;

inline constexpr int kStartPatienceMs = 20000;
inline constexpr int kRequestPatienceMs = 60000;

inline std::string ReadWholeFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// nginx is in /usr/sbin, which an ordinary user's PATH may leave out.
inline std::string FindNginx() {
    const char *path = std::getenv("PATH");
    std::string dirs = std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin:/usr/local/sbin";
    std::stringstream list(dirs);
    std::string dir;
    while (std::getline(list, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/nginx";
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

// A port on 127.0.0.1 that nothing listens on right now.
inline uint16_t FreePort() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    uint16_t port = 0;
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
        port = peer::PortOf(fd);
    if (fd >= 0)
        close(fd);
    return port;
}

// Waits for changes in one directory: files written and closed, or renamed
// into it.
class DirectoryWatch {
public:
    explicit DirectoryWatch(const std::string &dir) {
        fd_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (fd_ >= 0)
            inotify_add_watch(fd_, dir.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MODIFY);
    }
    ~DirectoryWatch() {
        if (fd_ >= 0)
            close(fd_);
    }
    bool ok() const { return fd_ >= 0; }

    // Waits until done() holds, looking again after every change in the
    // directory (and whenever `also` becomes readable), up to timeoutMs.
    template <typename Done>
    bool WaitUntil(Done done, int timeoutMs, int also = -1) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!done()) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return false;
            pollfd entries[2] = {{fd_, POLLIN, 0}, {also, POLLIN, 0}};
            if (poll(entries, also >= 0 ? 2 : 1, static_cast<int>(left.count())) < 0 && errno != EINTR)
                return false;
            char events[4096];
            while (read(fd_, events, sizeof events) > 0) {
            }
            if (also >= 0 && (entries[1].revents & (POLLIN | POLLHUP)) != 0 && !onAlso_())
                return done();
        }
        return true;
    }

    // Called when `also` is readable; false stops the wait.
    template <typename F>
    void OnAlso(F f) {
        onAlso_ = f;
    }

private:
    int fd_ = -1;
    std::function<bool()> onAlso_ = [] { return true; };
};

// One nginx in a directory of its own, serving PUT into <dir>/store and
// GET from there; AddLocations adds location blocks to its server before
// Start.
class Nginx {
public:
    void AddLocations(const std::string &text) { locations_ += text; }

    ~Nginx() { Stop(); }

    // Starts nginx; false with the reason in error() when it doesn't come up.
    bool Start(const std::string &nginx, const std::string &dir) {
        dir_ = dir;
        for (const char *sub : {"conf", "logs", "store", "temp"})
            fs::create_directories(dir_ + "/" + sub);
        // A port freed a moment ago may be taken again before nginx binds it.
        for (int attempt = 0; attempt < 3; attempt++) {
            port_ = FreePort();
            if (port_ != 0 && StartOnce(nginx))
                return true;
            Stop();
        }
        return false;
    }

    void Stop() {
        if (stderr_ >= 0)
            close(stderr_);
        stderr_ = -1;
        if (pid_ <= 0)
            return;
        kill(pid_, SIGTERM);
        // Bounded: a pidfd says when it has gone; an nginx that hangs is killed.
        int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        if (pidfd >= 0) {
            pollfd entry = {pidfd, POLLIN, 0};
            if (poll(&entry, 1, 10000) != 1)
                kill(pid_, SIGKILL);
            close(pidfd);
        }
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    std::string Url(const std::string &path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    std::string StoredPath(const std::string &name) const { return dir_ + "/store/" + name; }
    std::string error() const { return error_ + "\nerror log:\n" + ReadWholeFile(dir_ + "/logs/error.log"); }

    // The access log's lines so far: "<status> <request line>".
    std::vector<std::string> Requests() const {
        std::vector<std::string> lines;
        std::stringstream log(ReadWholeFile(dir_ + "/logs/access.log"));
        std::string line;
        while (std::getline(log, line))
            lines.push_back(line);
        return lines;
    }

    // Waits until count requests have been logged, and gives the last one.
    std::string AwaitRequest(size_t count) {
        DirectoryWatch watch(dir_ + "/logs");
        watch.WaitUntil([&] { return Requests().size() >= count; }, kRequestPatienceMs);
        std::vector<std::string> lines = Requests();
        return lines.size() >= count ? lines[count - 1] : "<no request logged>";
    }

    // Waits until line has been logged; nginx writes a request's line only
    // after its response has gone, so a client may be ahead of the log.
    bool AwaitLogged(const std::string &line) {
        auto logged = [&] {
            std::vector<std::string> lines = Requests();
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        };
        DirectoryWatch watch(dir_ + "/logs");
        watch.WaitUntil(logged, kRequestPatienceMs);
        return logged();
    }

private:
    bool StartOnce(const std::string &nginx) {
        fs::remove(dir_ + "/logs/nginx.pid");
        WriteConfig();
        DirectoryWatch watch(dir_ + "/logs");
        if (!watch.ok()) {
            error_ = "inotify failed";
            return false;
        }
        int err[2];
        if (pipe2(err, O_CLOEXEC) != 0)
            return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, err[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err[1], 2);
        std::vector<std::string> arguments = {nginx, "-p", dir_ + "/", "-c", dir_ + "/conf/nginx.conf",
                                              "-e", dir_ + "/logs/error.log"};
        std::vector<char *> argv;
        for (std::string &a : arguments)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        int failed = posix_spawn(&pid_, nginx.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(err[1]);
        if (failed != 0) {
            pid_ = -1;
            close(err[0]);
            error_ = "posix_spawn of " + nginx + " failed: " + std::strerror(failed);
            return false;
        }
        stderr_ = err[0];
        // Ready once the pid file is there; gone if its output ends first.
        std::string output;
        bool exited = false;
        watch.OnAlso([&] {
            char buffer[512];
            ssize_t got = read(stderr_, buffer, sizeof buffer);
            if (got > 0)
                output.append(buffer, static_cast<size_t>(got));
            exited = got == 0;
            return !exited;
        });
        std::string pidFile = dir_ + "/logs/nginx.pid";
        bool ready = watch.WaitUntil([&] { return fs::exists(pidFile); }, kStartPatienceMs, stderr_);
        if (!ready)
            error_ = exited ? "nginx exited: " + output : "nginx did not write its pid file: " + output;
        return ready;
    }

    void WriteConfig() {
        std::ofstream conf(dir_ + "/conf/nginx.conf");
        conf << "daemon off;\n"
                "master_process off;\n"  // one process, the current user's
                "pid " << dir_ << "/logs/nginx.pid;\n"
                "error_log " << dir_ << "/logs/error.log;\n"
                "events { worker_connections 64; }\n"
                "http {\n"
                "  log_format status '$status $request';\n"
                "  access_log " << dir_ << "/logs/access.log status;\n";
        for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            conf << "  " << kind << "_temp_path " << dir_ << "/temp/" << kind << ";\n";
        conf << "  client_max_body_size 0;\n"
                "  server {\n"
                "    listen 127.0.0.1:" << port_ << ";\n"
                "    root " << dir_ << "/store;\n" << locations_ <<
                "    location / {\n"
                "      dav_methods PUT;\n"
                "      create_full_put_path on;\n"
                "    }\n"
                "  }\n"
                "}\n";
    }

    std::string dir_;
    std::string error_;
    pid_t pid_ = -1;
    int stderr_ = -1;
    uint16_t port_ = 0;
    std::string locations_;
};

}  // namespace nginx_test

#endif
