// The HTTP stream against nginx, a standard server on 127.0.0.1.  Uploads
// go to its WebDAV module, which stores each PUT body as a file and holds a
// chunked body to the letter of HTTP/1.1, refusing one that does not end as
// it should.  Downloads read files it serves with a Content-Length, and
// files it passes through a substitution filter, which sends them chunked.
// curl, an independent client, reads back what the stream uploaded and
// uploads what the stream reads.  The server comes from
// streams/nginx_server.h; if it cannot be started the test fails.
#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <string>

#include "dpk_hvsup.h"
#include "streams/nginx_server.h"
#include "streams/peer.h"

namespace {

using nginx_test::FindNginx;
using nginx_test::Nginx;
using nginx_test::ReadWholeFile;
namespace fs = std::filesystem;

// Runs curl with args; its exit status, or -1 when it can't be started.
int RunCurl(const std::vector<std::string> &args) {
    std::vector<std::string> all = {"curl", "--silent", "--show-error", "--fail", "--max-time", "60"};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : all)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid;
    if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Every read of a GET on url into one string, through the copy (which
// waits on a non-blocking stream when it would block).  ok false when the
// stream is refused.
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

// The substitution filter takes away the Content-Length, so nginx sends
// these files chunked.
constexpr char kChunkedLocation[] =
    "    location /chunked/ {\n"
    "      sub_filter 'cat' 'dog';\n"
    "      sub_filter_once off;\n"
    "      sub_filter_types *;\n"
    "    }\n";

class NginxServer : public ::testing::Test {
protected:
    void SetUp() override {
        std::string nginx = FindNginx();
        ASSERT_FALSE(nginx.empty()) << "nginx is not installed; scripts/deps.sh installs nginx-light";
        char pattern[] = "/tmp/halv_nginx_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        server_.AddLocations(kChunkedLocation);
        ASSERT_TRUE(server_.Start(nginx, dir_)) << server_.error();
    }
    void TearDown() override {
        server_.Stop();
        if (!dir_.empty()) {
            std::error_code ignored;
            fs::remove_all(dir_, ignored);
        }
    }

    // Checks that the file nginx stored under name is body, byte for byte.
    void ExpectStored(const std::string &name, const std::string &body) {
        std::string stored = ReadWholeFile(server_.StoredPath(name));
        ASSERT_EQ(stored.size(), body.size()) << name;
        auto mismatch = std::mismatch(stored.begin(), stored.end(), body.begin());
        EXPECT_TRUE(mismatch.first == stored.end())
            << name << ": first differing byte at " << (mismatch.first - stored.begin());
    }

    void Store(const std::string &name, const std::string &bytes) {
        fs::create_directories(fs::path(server_.StoredPath(name)).parent_path());
        std::ofstream(server_.StoredPath(name), std::ios::binary) << bytes;
    }

    Nginx server_;
    std::string dir_;
};

using NginxUpload = NginxServer;
using NginxDownload = NginxServer;

TEST_F(NginxUpload, BodiesOfEverySizeAreStoredIntact) {
    struct Case {
        const char *name;
        size_t size;
        const char *mode;
    };
    // Empty (no write at all), one byte, 1 MiB through the copy, and 64 MiB
    // through the copy on a non-blocking stream, which meets would-block.
    const Case cases[] = {
        {"empty.pxs", 0, "wb"},
        {"one.pxs", 1, "wb"},
        {"mebibyte.pxs", 1u << 20, "wb"},
        {"sub/dir/large.pxs", 64u << 20, "wn"},
    };
    size_t requests = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::string body = peer::Pattern(c.size, static_cast<unsigned>(c.size % 251));
        HalvIO *io = HalvIO_URL(server_.Url(std::string("/") + c.name).c_str(), c.mode);
        ASSERT_NE(io, nullptr);
        if (c.size == 1) {
            EXPECT_EQ(io->write(io, body.data(), 1), 1);
        } else if (c.size > 1) {
            HalvIO *source = HalvIO_Str(body.data(), static_cast<uint32_t>(body.size()));
            EXPECT_EQ(HalvIOCopyBytes(io, source, 0), static_cast<int64_t>(body.size()));
            source->close(source);
        }
        io->close(io);
        // 201 Created: the body was whole, and is in place.
        std::string logged = server_.AwaitRequest(++requests);
        EXPECT_EQ(logged, std::string("201 PUT /") + c.name + " HTTP/1.1") << server_.error();
        ExpectStored(c.name, body);
    }
}

TEST_F(NginxUpload, ARewrittenFileHoldsTheNewBody) {
    // Many writes of odd sizes, each its own chunk, over a file that exists.
    std::string first = peer::Pattern(300000, 3);
    std::string second = peer::Pattern(123457, 4);
    size_t requests = 0;
    for (const std::string *body : {&first, &second}) {
        HalvIO *io = HalvIO_URL(server_.Url("/image.pxs").c_str(), "w");
        ASSERT_NE(io, nullptr);
        size_t at = 0;
        for (uint32_t step = 1; at < body->size(); step = step * 3 + 1) {
            uint32_t size = static_cast<uint32_t>(std::min<size_t>(step, body->size() - at));
            ASSERT_EQ(io->write(io, body->data() + at, size), static_cast<int32_t>(size));
            at += size;
        }
        io->close(io);
        std::string logged = server_.AwaitRequest(++requests);
        // 201 for a new file, 204 for one replaced.
        EXPECT_EQ(logged, std::string(requests == 1 ? "201" : "204") + " PUT /image.pxs HTTP/1.1") << server_.error();
        ExpectStored("image.pxs", *body);
    }
}

TEST_F(NginxDownload, FilesComeWholeWithTheirLength) {
    struct Case {
        const char *name;
        size_t size;
    };
    const Case cases[] = {{"empty.pxs", 0}, {"one.pxs", 1}, {"page.pxs", 4096}, {"large.pxs", 16u << 20}};
    for (const Case &c : cases) {
        std::string body = peer::Pattern(c.size, static_cast<unsigned>(c.size % 97));
        Store(c.name, body);
        for (const char *mode : {"r", "rn"}) {
            SCOPED_TRACE(std::string(c.name) + " " + mode);
            Fetched got = Fetch(server_.Url(std::string("/") + c.name), mode);
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

TEST_F(NginxDownload, ChunkedResponsesComeWithoutTheirFraming) {
    // Text with the filter's pattern all through it, so that the filter
    // demonstrably ran: what comes is nginx's own rewrite.
    std::string text;
    for (int i = 0; text.size() < (3u << 20); i++)
        text += "line " + std::to_string(i) + ": the cat sat on the mat, concatenated\n";
    std::string expected = text;
    for (size_t at = 0; (at = expected.find("cat", at)) != std::string::npos; at += 3)
        expected.replace(at, 3, "dog");
    Store("chunked/text.txt", text);

    // nginx does send it chunked.
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string url = server_.Url("/chunked/text.txt");
    address.sin_port = htons(static_cast<uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_TRUE(peer::SendAll(fd, "GET /chunked/text.txt HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n"));
    std::string head = peer::ReadHead(fd);
    close(fd);
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
    std::string body;
    char buffer[37];
    for (int32_t got; (got = io->read(io, buffer, sizeof buffer)) > 0;)
        body.append(buffer, static_cast<size_t>(got));
    EXPECT_TRUE(body == expected);
    io->close(io);
}

TEST_F(NginxServer, CurlReadsWhatThePutSentAndTheGetReadsWhatCurlSent) {
    // The stream uploads, curl downloads.
    std::string body = peer::Pattern(700001, 11);
    HalvIO *io = HalvIO_URL(server_.Url("/up/by_stream.pxs").c_str(), "w");
    ASSERT_NE(io, nullptr);
    HalvIO *source = HalvIO_Str(body.data(), static_cast<uint32_t>(body.size()));
    EXPECT_EQ(HalvIOCopyBytes(io, source, 0), static_cast<int64_t>(body.size()));
    source->close(source);
    io->close(io);
    EXPECT_EQ(server_.AwaitRequest(1), "201 PUT /up/by_stream.pxs HTTP/1.1") << server_.error();
    std::string fetched = dir_ + "/by_curl.pxs";
    ASSERT_EQ(RunCurl({"--output", fetched, server_.Url("/up/by_stream.pxs")}), 0);
    EXPECT_TRUE(ReadWholeFile(fetched) == body);

    // curl uploads (with a Content-Length), the stream downloads.
    std::string other = peer::Pattern(300007, 12);
    std::string local = dir_ + "/local.pxs";
    std::ofstream(local, std::ios::binary) << other;
    ASSERT_EQ(RunCurl({"--upload-file", local, server_.Url("/up/by_curl.pxs")}), 0);
    Fetched got = Fetch(server_.Url("/up/by_curl.pxs"), "r");
    ASSERT_TRUE(got.ok);
    EXPECT_TRUE(got.body == other);
}

}  // namespace
