// HTTP GET throughput over loopback, side by side with curl:
//   BM_Http_Halv_Read   HalvIO_URL, read slot into a 1 MiB buffer to the end
//   BM_Http_Halv_Copy   HalvIO_URL, HalvIOCopyBytes into a sink back end
//   BM_Http_Curl        `curl -s -o /dev/null URL` as a child process
// All three fetch the same 256 MiB body (Content-Length), in wall-clock
// time, from two servers in turn: <Own>, one server thread of this process,
// and <Nginx>, an nginx process (nginx-light) serving the same bytes as a
// file from a temporary directory.  The run ends with the ratios of the
// library's read and copy throughput to curl's on each server.  Without
// curl or nginx the cases that need them are skipped.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

extern char **environ;

namespace {

constexpr int64_t kBodyBytes = int64_t{256} << 20;
constexpr size_t kSendBlock = size_t{1} << 20;

/* The program of that name on PATH, or empty. */
std::string FindProgram(const char *name) {
    const char *path = std::getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

/* Serves every connection with the same 256 MiB body, one at a time. */
class BodyServer {
  public:
    BodyServer() : block_(kSendBlock) {
        for (size_t i = 0; i < block_.size(); i++)
            block_[i] = static_cast<char>('a' + i % 23);
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(listener_, 8);
        socklen_t length = sizeof address;
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length);
        url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/body.bin";
        thread_ = std::thread([this] { Run(); });
    }
    ~BodyServer() {
        stop_ = true;
        thread_.join();
        close(listener_);
    }
    const std::string &url() const { return url_; }

  private:
    void Run() {
        while (!stop_) {
            pollfd entry = {listener_, POLLIN, 0};
            if (poll(&entry, 1, 100) != 1)
                continue;
            int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                Answer(fd);
                close(fd);
            }
        }
    }
    void Answer(int fd) {
        std::string head;
        char buffer[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
            ssize_t got = recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0)
                return;
            head.append(buffer, static_cast<size_t>(got));
        }
        std::string response = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                               std::to_string(kBodyBytes) + "\r\nConnection: close\r\n\r\n";
        if (!SendAll(fd, response.data(), response.size()))
            return;
        for (int64_t left = kBodyBytes; left > 0; left -= static_cast<int64_t>(kSendBlock))
            if (!SendAll(fd, block_.data(), std::min<size_t>(kSendBlock, static_cast<size_t>(left))))
                return;
    }
    static bool SendAll(int fd, const char *bytes, size_t length) {
        while (length > 0) {
            ssize_t sent = send(fd, bytes, length, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR)
                continue;
            if (sent <= 0)
                return false;
            bytes += sent;
            length -= static_cast<size_t>(sent);
        }
        return true;
    }

    std::vector<char> block_;
    int listener_ = -1;
    std::string url_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

/* The bytes BodyServer sends, as a file nginx serves from a temporary
 * directory of its own.  The process lives as long as this one. */
class NginxServer {
  public:
    NginxServer() {
        std::string nginx = FindProgram("nginx");
        if (nginx.empty())
            nginx = access("/usr/sbin/nginx", X_OK) == 0 ? "/usr/sbin/nginx" : "";
        char templ[] = "/tmp/halv-bench-nginx-XXXXXX";
        if (nginx.empty() || mkdtemp(templ) == nullptr)
            return;
        dir_ = templ;
        if (!WriteBody(dir_ + "/body.bin"))
            return;
        int port = FreePort();
        std::string conf = dir_ + "/nginx.conf";
        FILE *out = std::fopen(conf.c_str(), "w");
        if (out == nullptr)
            return;
        std::fprintf(out,
                     "daemon off;\nmaster_process off;\nworker_processes 1;\npid %s/nginx.pid;\n"
                     "error_log %s/error.log;\nevents { worker_connections 64; }\n"
                     "http {\n  access_log off;\n  sendfile on;\n  client_body_temp_path %s/body;\n"
                     "  proxy_temp_path %s/proxy;\n  default_type application/octet-stream;\n"
                     "  server { listen 127.0.0.1:%d; root %s; }\n}\n",
                     dir_.c_str(), dir_.c_str(), dir_.c_str(), dir_.c_str(), port, dir_.c_str());
        std::fclose(out);
        std::string prefix = dir_ + "/", errors = dir_ + "/error.log";
        std::vector<std::string> arguments = {nginx, "-p", prefix, "-c", conf, "-e", errors};
        std::vector<char *> argv;
        for (std::string &a : arguments)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, nginx.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
            pid_ = -1;
            return;
        }
        if (WaitListening(port))
            url_ = "http://127.0.0.1:" + std::to_string(port) + "/body.bin";
    }
    ~NginxServer() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
        if (!dir_.empty())
            std::filesystem::remove_all(dir_);
    }
    /* Empty when nginx is missing or did not come up. */
    const std::string &url() const { return url_; }

  private:
    static bool WriteBody(const std::string &path) {
        std::vector<char> block(kSendBlock);
        for (size_t i = 0; i < block.size(); i++)
            block[i] = static_cast<char>('a' + i % 23);
        FILE *out = std::fopen(path.c_str(), "wb");
        if (out == nullptr)
            return false;
        bool ok = true;
        for (int64_t left = kBodyBytes; left > 0 && ok; left -= static_cast<int64_t>(kSendBlock))
            ok = std::fwrite(block.data(), 1, block.size(), out) == block.size();
        return std::fclose(out) == 0 && ok;
    }
    /* A loopback port nobody listens on now (the kernel's pick). */
    static int FreePort() {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
        close(fd);
        return ntohs(address.sin_port);
    }
    /* nginx gives no signal when it listens: try to connect for up to 5 s,
     * giving up early when the process has gone. */
    bool WaitListening(int port) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        for (int attempt = 0; attempt < 500; ++attempt) {
            int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            bool up = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
            close(fd);
            if (up)
                return true;
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return false;
            }
            poll(nullptr, 0, 10);
        }
        return false;
    }

    std::string dir_, url_;
    pid_t pid_ = -1;
};

struct Own {
    static std::string Url() {
        static BodyServer server;
        return server.url();
    }
};
struct Nginx {
    static std::string Url() {
        static NginxServer server;
        return server.url();
    }
};

template <typename Server>
void BM_Http_Halv_Read(benchmark::State &state) {
    const std::string url = Server::Url();
    if (url.empty()) {
        state.SkipWithError("the server did not start");
        return;
    }
    std::vector<char> buffer(size_t{1} << 20);
    for (auto _ : state) {
        HalvIO *io = HalvIO_URL(url.c_str(), "r");
        if (io == nullptr) {
            state.SkipWithError("HalvIO_URL failed");
            return;
        }
        int64_t total = 0;
        for (int32_t got; (got = io->read(io, buffer.data(), static_cast<uint32_t>(buffer.size()))) > 0;)
            total += got;
        io->close(io);
        if (total != kBodyBytes) {
            state.SkipWithError("short body");
            return;
        }
    }
    state.SetBytesProcessed(state.iterations() * kBodyBytes);
}
BENCHMARK_TEMPLATE(BM_Http_Halv_Read, Own)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_TEMPLATE(BM_Http_Halv_Read, Nginx)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

/* A back end that takes every byte and keeps none. */
int32_t SinkWrite(HalvIO *, const void *, uint32_t count) { return static_cast<int32_t>(count); }

template <typename Server>
void BM_Http_Halv_Copy(benchmark::State &state) {
    const std::string url = Server::Url();
    if (url.empty()) {
        state.SkipWithError("the server did not start");
        return;
    }
    HalvIO sink = {};
    sink.write = SinkWrite;
    for (auto _ : state) {
        HalvIO *io = HalvIO_URL(url.c_str(), "r");
        if (io == nullptr) {
            state.SkipWithError("HalvIO_URL failed");
            return;
        }
        int64_t total = HalvIOCopyBytes(&sink, io, 0);
        io->close(io);
        if (total != kBodyBytes) {
            state.SkipWithError("short body");
            return;
        }
    }
    state.SetBytesProcessed(state.iterations() * kBodyBytes);
}
BENCHMARK_TEMPLATE(BM_Http_Halv_Copy, Own)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_TEMPLATE(BM_Http_Halv_Copy, Nginx)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

template <typename Server>
void BM_Http_Curl(benchmark::State &state) {
    std::string curl = FindProgram("curl");
    if (curl.empty()) {
        state.SkipWithError("curl is not installed");
        return;
    }
    std::string url = Server::Url();
    if (url.empty()) {
        state.SkipWithError("the server did not start");
        return;
    }
    std::vector<std::string> arguments = {curl, "-s", "-o", "/dev/null", url};
    std::vector<char *> argv;
    for (std::string &a : arguments)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    for (auto _ : state) {
        pid_t pid;
        int status = 0;
        if (posix_spawn(&pid, curl.c_str(), nullptr, nullptr, argv.data(), environ) != 0 ||
            waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            state.SkipWithError("curl failed");
            return;
        }
    }
    state.SetBytesProcessed(state.iterations() * kBodyBytes);
}
BENCHMARK_TEMPLATE(BM_Http_Curl, Own)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_TEMPLATE(BM_Http_Curl, Nginx)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {
                                    {"GET of 256 MiB, own server, read / curl", "BM_Http_Halv_Read<Own>",
                                     "BM_Http_Curl<Own>"},
                                    {"GET of 256 MiB, own server, copy / curl", "BM_Http_Halv_Copy<Own>",
                                     "BM_Http_Curl<Own>"},
                                    {"GET of 256 MiB, nginx, read / curl", "BM_Http_Halv_Read<Nginx>",
                                     "BM_Http_Curl<Nginx>"},
                                    {"GET of 256 MiB, nginx, copy / curl", "BM_Http_Halv_Copy<Nginx>",
                                     "BM_Http_Curl<Nginx>"},
                                });
}
