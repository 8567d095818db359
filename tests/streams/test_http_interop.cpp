// The HTTP stream against servers this project did not write: Python's
// http.server for GET, and an http.server-based PUT peer (tests/net/
// put_server.py) for uploads.  Both are started on 127.0.0.1 by the test and
// stopped behind it; without python3 the tests are skipped.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/peer.h"

extern char **environ;

namespace {

namespace fs = std::filesystem;

constexpr int kStartPatienceMs = 20000;

std::string FindPython() {
    const char *path = std::getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/python3";
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

// A child process whose first lines of output tell its port.
class PythonServer {
public:
    ~PythonServer() { Stop(); }

    // Starts python3 with arguments and waits for its output to name the
    // port: the digits behind portMarker.  False if they don't come.
    bool Start(const std::string &python, std::vector<std::string> arguments, const std::string &portMarker) {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0)
            return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        arguments.insert(arguments.begin(), python);
        std::vector<char *> argv;
        for (std::string &a : arguments)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        int failed = posix_spawn(&pid_, python.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        if (failed != 0) {
            pid_ = -1;
            close(out[0]);
            return false;
        }
        output_ = out[0];
        std::string text;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartPatienceMs);
        while (std::chrono::steady_clock::now() < deadline) {
            size_t marker = text.find(portMarker);
            size_t digits = marker == std::string::npos ? marker : marker + portMarker.size();
            size_t end = digits == std::string::npos ? digits : text.find_first_not_of("0123456789", digits);
            if (end != std::string::npos && end > digits) {
                port_ = static_cast<uint16_t>(std::stoi(text.substr(digits, end - digits)));
                return true;
            }
            if (!peer::WaitFor(output_, POLLIN, 500))
                continue;
            char buffer[256];
            ssize_t got = read(output_, buffer, sizeof buffer);
            if (got <= 0)
                break;
            text.append(buffer, static_cast<size_t>(got));
        }
        return false;
    }

    void Stop() {
        if (output_ >= 0)
            close(output_);
        output_ = -1;
        if (pid_ <= 0)
            return;
        kill(pid_, SIGTERM);
        for (int i = 0; i < 100; i++) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    std::string Url(const std::string &path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

private:
    pid_t pid_ = -1;
    int output_ = -1;
    uint16_t port_ = 0;
};

class NetInterop : public ::testing::Test {
protected:
    void SetUp() override {
        python_ = FindPython();
        if (python_.empty())
            GTEST_SKIP() << "python3 is not installed (scripts/deps.sh installs it): no outside HTTP server to test against";
        char pattern[] = "/tmp/halv_net_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        if (!dir_.empty()) {
            std::error_code ignored;
            fs::remove_all(dir_, ignored);
        }
    }

    void WriteFile(const std::string &name, const std::string &bytes) {
        std::ofstream(dir_ + "/" + name, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    // The file's bytes once it exists with length bytes; waits up to 20 s.
    std::string AwaitFile(const std::string &name, size_t length) {
        std::string path = dir_ + "/" + name;
        for (int i = 0; i < 400; i++) {
            std::error_code error;
            if (fs::exists(path, error) && fs::file_size(path, error) == length)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    bool StartGetServer(PythonServer &server) {
        return server.Start(python_, {"-u", "-m", "http.server", "--bind", "127.0.0.1", "--directory", dir_, "0"},
                            "port ");
    }

    std::string python_;
    std::string dir_;
};

std::string ReadBody(HalvIO *io) {
    char *data = nullptr;
    uint32_t size = 0;
    if (HalvIOReadBlock(io, &data, &size) != 1)
        return "<read failed>";
    std::string body(data, size);
    halv_internal_free(data);
    return body;
}

TEST_F(NetInterop, GetFromPythonHttpServer) {
    std::string big = peer::Pattern(3 << 20, 11);
    WriteFile("image.pxs", big);
    WriteFile("small.txt", "a few bytes\n");
    PythonServer server;
    ASSERT_TRUE(StartGetServer(server)) << "python3 -m http.server did not start";

    HalvIO *io = HalvIO_URL(server.Url("/small.txt").c_str(), "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadBody(io), "a few bytes\n");
    io->close(io);

    // The large file through the copy, blocking and non-blocking.
    for (const char *mode : {"r", "rn"}) {
        io = HalvIO_URL(server.Url("/image.pxs").c_str(), mode);
        ASSERT_NE(io, nullptr) << mode;
        HalvIO *mem = HalvIO_Mem(0);
        EXPECT_EQ(HalvIOCopyBytes(mem, io, 0), static_cast<int64_t>(big.size())) << mode;
        EXPECT_TRUE(std::string(static_cast<char *>(HalvIOMemBuffer(mem)), HalvIOMemLength(mem)) == big) << mode;
        mem->close(mem);
        io->close(io);
    }

    // Missing files are answered 404: no stream.
    EXPECT_EQ(HalvIO_URL(server.Url("/missing.pxs").c_str(), "r"), nullptr);
    // A directory redirects (301) without its slash: no stream either.
    fs::create_directory(dir_ + "/sub");
    EXPECT_EQ(HalvIO_URL(server.Url("/sub").c_str(), "r"), nullptr);
    // With the slash, its listing names the files.
    io = HalvIO_URL(server.Url("/").c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_NE(ReadBody(io).find("image.pxs"), std::string::npos);
    io->close(io);
}

TEST_F(NetInterop, PutToAnHttpServerPeerAndGetItBack) {
    PythonServer putServer, getServer;
    std::string script = std::string(HALV_TEST_SOURCE_DIR) + "/streams/put_server.py";
    ASSERT_TRUE(putServer.Start(python_, {"-u", script, dir_}, "PORT ")) << "put_server.py did not start";

    // Writes of many sizes, each its own chunk.
    std::string source = peer::Pattern(1500000, 13);
    HalvIO *io = HalvIO_URL(putServer.Url("/uploads/result.pxs").c_str(), "wb");
    ASSERT_NE(io, nullptr);
    size_t at = 0;
    for (uint32_t step : {1u, 2u, 15u, 16u, 255u, 256u, 4095u, 65536u, 100000u}) {
        ASSERT_EQ(io->write(io, source.data() + at, step), static_cast<int32_t>(step));
        at += step;
    }
    HalvIO *rest = HalvIO_Str(source.data() + at, static_cast<uint32_t>(source.size() - at));
    EXPECT_EQ(HalvIOCopyBytes(io, rest, 0), static_cast<int64_t>(source.size() - at));
    rest->close(rest);
    io->close(io);
    EXPECT_TRUE(AwaitFile("result.pxs", source.size()) == source);

    // A non-blocking upload, and an empty one.
    io = HalvIO_URL(putServer.Url("/second.pxs").c_str(), "wn");
    ASSERT_NE(io, nullptr);
    HalvIO *all = HalvIO_Str(source.data(), static_cast<uint32_t>(source.size()));
    EXPECT_EQ(HalvIOCopyBytes(io, all, 0), static_cast<int64_t>(source.size()));
    all->close(all);
    io->close(io);
    EXPECT_TRUE(AwaitFile("second.pxs", source.size()) == source);
    io = HalvIO_URL(putServer.Url("/empty.pxs").c_str(), "w");
    ASSERT_NE(io, nullptr);
    io->close(io);
    std::error_code error;
    AwaitFile("empty.pxs", 0);
    EXPECT_TRUE(fs::exists(dir_ + "/empty.pxs", error));

    // What went up comes down again through the other server.
    ASSERT_TRUE(StartGetServer(getServer));
    io = HalvIO_URL(getServer.Url("/result.pxs").c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_TRUE(ReadBody(io) == source);
    io->close(io);
}

}  // namespace
