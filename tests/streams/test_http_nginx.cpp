// The HTTP stream against nginx on 127.0.0.1, started by the test as the current user
// with its own configuration and scratch directories (scripts/deps.sh installs
// nginx-light).  Uploads go to its WebDAV module, which holds a chunked body to the
// letter of HTTP/1.1; downloads read files served with a Content-Length, and chunked
// through a substitution filter.  curl, an independent client, reads back what the
// stream uploaded and uploads what the stream reads.
//
// nginx writes its pid file once it listens and its access log line once a request is
// finished, so the tests wait on those two files through inotify, never by sleeping.
#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "streams/file_fixture.h"
#include "streams/peer.h"

extern char **environ;

namespace {

using files_test::ReadFile;
namespace fs = std::filesystem;

constexpr int kStartPatienceMs = 20000;
constexpr int kRequestPatienceMs = 60000;

// Starts args[0] (looked up in PATH) with standard output and error on out
// (or /dev/null); the pid, or -1.
pid_t Spawn(std::vector<std::string> args, int out = -1) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (out >= 0) {
        posix_spawn_file_actions_adddup2(&actions, out, 1);
        posix_spawn_file_actions_adddup2(&actions, out, 2);
    }
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// curl's exit status, or -1 when it can't be started.
int RunCurl(std::vector<std::string> args) {
    args.insert(args.begin(), {"curl", "--silent", "--show-error", "--fail", "--max-time", "60"});
    pid_t pid = Spawn(args);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// nginx is in /usr/sbin, which an ordinary user's PATH may leave out.
std::string FindNginx() {
    const char *path = std::getenv("PATH");
    std::stringstream list(std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin:/usr/local/sbin");
    for (std::string dir; std::getline(list, dir, ':');)
        if (access((dir + "/nginx").c_str(), X_OK) == 0)
            return dir + "/nginx";
    return {};
}

// Waits until done() holds, looking again after every file written, closed
// or renamed in dir, up to timeoutMs.  While it waits, whatever comes on
// `also` is added to *output; its end stops the wait.
template <typename Done>
bool WaitInDirectory(const std::string &dir, Done done, int timeoutMs, int also = -1,
                     std::string *output = nullptr) {
    int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch < 0)
        return false;
    inotify_add_watch(watch, dir.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MODIFY);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    bool ended = false;
    while (!done() && !ended) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                          std::chrono::steady_clock::now());
        pollfd entries[2] = {{watch, POLLIN, 0}, {also, POLLIN, 0}};
        if (left.count() <= 0 ||
            (poll(entries, also >= 0 ? 2 : 1, static_cast<int>(left.count())) < 0 && errno != EINTR))
            break;
        char events[4096];
        while (read(watch, events, sizeof events) > 0) {
        }
        if (also >= 0 && (entries[1].revents & (POLLIN | POLLHUP)) != 0) {
            ssize_t got = read(also, events, sizeof events);
            if (got > 0)
                output->append(events, static_cast<size_t>(got));
            ended = got <= 0;
        }
    }
    close(watch);
    return done();
}

// The substitution filter takes away the Content-Length, so nginx sends
// these files chunked.
constexpr char kChunkedLocation[] = "    location /chunked/ {\n"
                                    "      sub_filter 'cat' 'dog';\n"
                                    "      sub_filter_once off;\n"
                                    "      sub_filter_types *;\n"
                                    "    }\n";

// One nginx in a directory of its own, serving PUT into <dir>/store and GET
// from there.
class Nginx {
public:
    ~Nginx() { Stop(); }

    // Starts nginx; false with the reason in error() when it doesn't come up.
    bool Start(const std::string &dir) {
        dir_ = dir;
        for (const char *sub : {"conf", "logs", "store", "temp"})
            fs::create_directories(dir_ + "/" + sub);
        // A port freed a moment ago may be taken again before nginx binds it.
        for (int attempt = 0; attempt < 3; attempt++) {
            int fd = peer::BindLoopback(0);
            port_ = peer::PortOf(fd);
            close(fd);
            if (port_ != 0 && StartOnce())
                return true;
            Stop();
        }
        return false;
    }

    void Stop() {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGTERM);
        // Bounded: a pidfd says when it has gone; an nginx that hangs is killed.
        int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        pollfd entry = {pidfd, POLLIN, 0};
        if (pidfd >= 0 && poll(&entry, 1, 10000) != 1)
            kill(pid_, SIGKILL);
        if (pidfd >= 0)
            close(pidfd);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    uint16_t port() const { return port_; }
    std::string Url(const std::string &path) const { return peer::LoopbackUrl(port_, path); }
    std::string StoredPath(const std::string &name) const { return dir_ + "/store/" + name; }
    std::string error() const { return error_ + "\nerror log:\n" + ReadFile(dir_ + "/logs/error.log"); }

    // The access log's lines so far: "<status> <request line>".
    std::vector<std::string> Requests() const {
        std::vector<std::string> lines;
        std::stringstream log(ReadFile(dir_ + "/logs/access.log"));
        for (std::string line; std::getline(log, line);)
            lines.push_back(line);
        return lines;
    }

    // Waits until count requests have been logged, and gives the last one.
    std::string AwaitRequest(size_t count) {
        WaitInDirectory(dir_ + "/logs", [&] { return Requests().size() >= count; }, kRequestPatienceMs);
        std::vector<std::string> lines = Requests();
        return lines.size() >= count ? lines[count - 1] : "<no request logged>";
    }

    // Waits until line has been logged; nginx writes a request's line only
    // after its response has gone, so a client may be ahead of the log.
    bool AwaitLogged(const std::string &line) {
        return WaitInDirectory(dir_ + "/logs", [&] {
            std::vector<std::string> lines = Requests();
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        }, kRequestPatienceMs);
    }

private:
    bool StartOnce() {
        std::string pidFile = dir_ + "/logs/nginx.pid";
        fs::remove(pidFile);
        WriteConfig();
        int err[2];
        if (pipe2(err, O_CLOEXEC) != 0)
            return false;
        pid_ = Spawn(
            {FindNginx(), "-p", dir_ + "/", "-c", dir_ + "/conf/nginx.conf", "-e", dir_ + "/logs/error.log"},
            err[1]);
        close(err[1]);
        // Ready once the pid file is there; gone if its output ends first.
        std::string output;
        bool ready = pid_ > 0 && WaitInDirectory(dir_ + "/logs", [&] { return fs::exists(pidFile); },
                                                  kStartPatienceMs, err[0], &output);
        close(err[0]);
        if (!ready)
            error_ = pid_ <= 0 ? "nginx could not be started" : "nginx did not write its pid file: " + output;
        return ready;
    }

    void WriteConfig() {
        std::ofstream conf(dir_ + "/conf/nginx.conf");
        conf << "daemon off;\nmaster_process off;\n" // one process, the current user's
             << "pid " << dir_ << "/logs/nginx.pid;\nerror_log " << dir_ << "/logs/error.log;\n"
             << "events { worker_connections 64; }\nhttp {\n  log_format status '$status $request';\n"
             << "  access_log " << dir_ << "/logs/access.log status;\n";
        for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            conf << "  " << kind << "_temp_path " << dir_ << "/temp/" << kind << ";\n";
        conf << "  client_max_body_size 0;\n  server {\n    listen 127.0.0.1:" << port_ << ";\n    root "
             << dir_ << "/store;\n"
             << kChunkedLocation
             << "    location / {\n      dav_methods PUT;\n      create_full_put_path on;\n    }\n  }\n}\n";
    }

    std::string dir_, error_;
    pid_t pid_ = -1;
    uint16_t port_ = 0;
};

// Every read of a GET on url into one string, through the copy (which waits
// on a non-blocking stream when it would block).  ok false when the stream
// is refused.
struct Fetched {
    bool ok = false;
    std::string body;
};
Fetched Fetch(const std::string &url, const char *mode) {
    Fetched out;
    HalvIO *io = HalvIO_URL(url.c_str(), mode);
    if (io == nullptr)
        return out;
    HalvIO *mem = HalvIO_Mem(0);
    out.ok = HalvIOCopyBytes(mem, io, 0) >= 0;
    out.body.assign(static_cast<char *>(HalvIOMemBuffer(mem)), HalvIOMemLength(mem));
    mem->close(mem);
    io->close(io);
    return out;
}

// Uploads body to url through the copy.
void Upload(const std::string &url, const std::string &body, const char *mode = "w") {
    HalvIO *io = HalvIO_URL(url.c_str(), mode);
    ASSERT_NE(io, nullptr);
    // Over nothing the string stream is unsized and ends at once.
    HalvIO *source = HalvIO_Str(const_cast<char *>(body.c_str()), static_cast<uint32_t>(body.size()));
    EXPECT_EQ(HalvIOCopyBytes(io, source, 0), static_cast<int64_t>(body.size()));
    source->close(source);
    io->close(io);
}

class NginxServer : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(FindNginx().empty()) << "nginx is not installed; scripts/deps.sh installs nginx-light";
        ASSERT_FALSE(dir_.path().empty());
        ASSERT_TRUE(server_.Start(dir_.path())) << server_.error();
    }
    void TearDown() override { server_.Stop(); }

    // Checks that the file nginx stored under name is body, byte for byte.
    void ExpectStored(const std::string &name, const std::string &body) {
        std::string stored = ReadFile(server_.StoredPath(name));
        ASSERT_EQ(stored.size(), body.size()) << name;
        auto mismatch = std::mismatch(stored.begin(), stored.end(), body.begin());
        EXPECT_TRUE(mismatch.first == stored.end())
            << name << ": first differing byte at " << (mismatch.first - stored.begin());
    }

    void Store(const std::string &name, const std::string &bytes) {
        fs::create_directories(fs::path(server_.StoredPath(name)).parent_path());
        ASSERT_TRUE(files_test::WriteFile(server_.StoredPath(name), bytes));
    }

    files_test::ScratchDir dir_;
    Nginx server_;
};

TEST_F(NginxServer, UploadedBodiesOfEverySizeAreStoredIntact) {
    // Empty (no write at all), one byte, 1 MiB through the copy, and 64 MiB
    // through the copy on a non-blocking stream, which meets would-block.
    const struct {
        const char *name;
        size_t size;
        const char *mode;
    } cases[] = {{"empty.pxs", 0, "wb"}, {"one.pxs", 1, "wb"}, {"mebibyte.pxs", 1u << 20, "wb"},
                 {"sub/dir/large.pxs", 64u << 20, "wn"}};
    size_t requests = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::string body = peer::Pattern(c.size, static_cast<unsigned>(c.size % 251));
        Upload(server_.Url(std::string("/") + c.name), body, c.mode);
        // 201 Created: the body was whole, and is in place.
        EXPECT_EQ(server_.AwaitRequest(++requests), std::string("201 PUT /") + c.name + " HTTP/1.1")
            << server_.error();
        ExpectStored(c.name, body);
    }

    // Many writes of odd sizes, each its own chunk, over a file that exists:
    // 201 for the new file, 204 for the one replaced.
    for (unsigned seed : {3u, 4u}) {
        std::string body = peer::Pattern(seed == 3 ? 300000 : 123457, seed);
        HalvIO *io = HalvIO_URL(server_.Url("/image.pxs").c_str(), "w");
        ASSERT_NE(io, nullptr);
        for (size_t at = 0, step = 1, size; at < body.size(); at += size, step = step * 3 + 1) {
            size = std::min(step, body.size() - at);
            ASSERT_EQ(io->write(io, body.data() + at, static_cast<uint32_t>(size)),
                      static_cast<int32_t>(size));
        }
        io->close(io);
        EXPECT_EQ(server_.AwaitRequest(++requests),
                  (seed == 3 ? "201" : "204") + std::string(" PUT /image.pxs HTTP/1.1"))
            << server_.error();
        ExpectStored("image.pxs", body);
    }
}

TEST_F(NginxServer, DownloadsComeWholeWithTheirLength) {
    for (size_t size : {0u, 1u, 4096u, 16u << 20}) {
        std::string name = "/file" + std::to_string(size) + ".pxs";
        std::string body = peer::Pattern(size, static_cast<unsigned>(size % 97));
        Store(name, body);
        for (const char *mode : {"r", "rn"}) {
            SCOPED_TRACE(name + " " + mode);
            Fetched got = Fetch(server_.Url(name), mode);
            ASSERT_TRUE(got.ok) << server_.error();
            EXPECT_EQ(got.body.size(), body.size());
            EXPECT_TRUE(got.body == body);
        }
    }
    // Not there, and a directory named without its slash (a redirect).
    fs::create_directories(server_.StoredPath("dir"));
    EXPECT_FALSE(Fetch(server_.Url("/missing.pxs"), "r").ok);
    EXPECT_FALSE(Fetch(server_.Url("/dir"), "r").ok);
    ASSERT_TRUE(server_.AwaitLogged("301 GET /dir HTTP/1.1"));
    std::vector<std::string> log = server_.Requests();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], "404 GET /missing.pxs HTTP/1.1");
    EXPECT_EQ(log.back(), "301 GET /dir HTTP/1.1");
}

TEST_F(NginxServer, ChunkedDownloadsComeWithoutTheirFraming) {
    // Text with the filter's pattern all through it, so that the filter
    // demonstrably ran: what comes is nginx's own rewrite.
    std::string text;
    for (int i = 0; text.size() < (3u << 20); i++)
        text += "line " + std::to_string(i) + ": the cat sat on the mat, concatenated\n";
    std::string expected = text;
    for (size_t at = 0; (at = expected.find("cat", at)) != std::string::npos; at += 3)
        expected.replace(at, 3, "dog");
    Store("chunked/text.txt", text);
    std::string url = server_.Url("/chunked/text.txt");

    // nginx does send it chunked.
    HalvIO *raw = HalvIO_TcpSocket("127.0.0.1", server_.port(), 0, 1);
    ASSERT_NE(raw, nullptr);
    HalvIOWriteString(raw, "GET /chunked/text.txt HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
    std::string head = peer::ReadHead(peer::SocketOf(raw));
    raw->close(raw);
    EXPECT_NE(head.find("Transfer-Encoding: chunked"), std::string::npos) << head.substr(0, 400);
    EXPECT_EQ(head.find("Content-Length"), std::string::npos);

    for (const char *mode : {"r", "rn"}) {
        SCOPED_TRACE(mode);
        Fetched got = Fetch(url, mode);
        ASSERT_TRUE(got.ok) << server_.error();
        EXPECT_EQ(got.body.size(), expected.size());
        EXPECT_TRUE(got.body == expected);
    }
    // Small reads cross chunk boundaries without losing a byte.
    HalvIO *io = HalvIO_URL(url.c_str(), "r");
    ASSERT_NE(io, nullptr);
    int32_t last;
    EXPECT_TRUE(peer::Drain(io, 37, &last) == expected);
    EXPECT_EQ(last, 0);
    io->close(io);
}

TEST_F(NginxServer, CurlReadsWhatThePutSentAndTheGetReadsWhatCurlSent) {
    std::string body = peer::Pattern(700001, 11);
    Upload(server_.Url("/up/by_stream.pxs"), body);
    EXPECT_EQ(server_.AwaitRequest(1), "201 PUT /up/by_stream.pxs HTTP/1.1") << server_.error();
    std::string fetched = dir_ / "by_curl.pxs";
    ASSERT_EQ(RunCurl({"--output", fetched, server_.Url("/up/by_stream.pxs")}), 0);
    EXPECT_TRUE(ReadFile(fetched) == body);

    // curl uploads (with a Content-Length), the stream downloads.
    std::string other = peer::Pattern(300007, 12);
    ASSERT_TRUE(files_test::WriteFile(dir_ / "local.pxs", other));
    ASSERT_EQ(RunCurl({"--upload-file", dir_ / "local.pxs", server_.Url("/up/by_curl.pxs")}), 0);
    Fetched got = Fetch(server_.Url("/up/by_curl.pxs"), "r");
    ASSERT_TRUE(got.ok);
    EXPECT_TRUE(got.body == other);
}

} // namespace
