// HTTP GET throughput over loopback, side by side with curl:
//   BM_Http_Halv_Read   HalvIO_URL, read slot into a 1 MiB buffer to the end
//   BM_Http_Halv_Copy   HalvIO_URL, HalvIOCopyBytes (4 KiB passes) into a
//                       sink back end
//   BM_Http_Curl        `curl -s -o /dev/null URL` as a child process
// All three fetch the same 256 MiB body (Content-Length) from one server
// thread of this process, in wall-clock time.  The run ends with the ratio
// of the library's read throughput to curl's.  Without curl its case is
// skipped.
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
#include <cstdlib>
#include <cstring>
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

BodyServer &Server() {
    static BodyServer server;
    return server;
}

void BM_Http_Halv_Read(benchmark::State &state) {
    std::vector<char> buffer(size_t{1} << 20);
    for (auto _ : state) {
        HalvIO *io = HalvIO_URL(Server().url().c_str(), "r");
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
BENCHMARK(BM_Http_Halv_Read)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

/* A back end that takes every byte and keeps none. */
int32_t SinkWrite(HalvIO *, const void *, uint32_t count) { return static_cast<int32_t>(count); }

void BM_Http_Halv_Copy(benchmark::State &state) {
    HalvIO sink = {};
    sink.write = SinkWrite;
    for (auto _ : state) {
        HalvIO *io = HalvIO_URL(Server().url().c_str(), "r");
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
BENCHMARK(BM_Http_Halv_Copy)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

std::string FindCurl() {
    const char *path = std::getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/curl";
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

void BM_Http_Curl(benchmark::State &state) {
    std::string curl = FindCurl();
    if (curl.empty()) {
        state.SkipWithError("curl is not installed");
        return;
    }
    std::string url = Server().url();
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
BENCHMARK(BM_Http_Curl)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {
                                    {"GET of 256 MiB over loopback, read / curl", "BM_Http_Halv_Read", "BM_Http_Curl"},
                                    {"GET of 256 MiB over loopback, copy / curl", "BM_Http_Halv_Copy", "BM_Http_Curl"},
                                });
}
