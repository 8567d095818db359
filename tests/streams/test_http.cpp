// The HTTP stream against scripted servers on 127.0.0.1: exact request bytes, the
// framing rules at their boundaries (fuzz_http checks them against a model on every
// corpus input), non-blocking use, the proxy, and servers that misbehave on purpose.
#include <gtest/gtest.h>

#include <sys/time.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/peer.h"

namespace {

using peer::Response;
using peer::Server;

constexpr char kGetTail[] = "Accept-Encoding: chunked, identity\r\n\r\n";
constexpr char kChunked[] = "Transfer-Encoding: chunked\r\n";

// Opens a GET on a server that answers response; the stream, or null.
HalvIO *Get(Server &server, const std::string &response, const std::string &path = "/") {
    server.Respond(response);
    return HalvIO_URL(server.Url(path).c_str(), "r");
}

void SetProxy(uint16_t port) {
    ASSERT_EQ(HalvSetenv("HV_PROXY", ("127.0.0.1:" + std::to_string(port)).c_str()), 1);
}

TEST(NetHttpRequest, GetSendsExactlyThreeLinesAndTheHostWithoutPort) {
    Server server;
    const std::string port = std::to_string(server.port());
    // The scheme matches in any case of letters; the rest is sent as given.
    const struct {
        std::string url, mode, request;
    } rows[] = {
        {server.Url("/dir/file.txt?x=1&y=%20"), "r",
         "GET /dir/file.txt?x=1&y=%20 HTTP/1.1\r\nHost: 127.0.0.1\r\n"},
        {"http://127.0.0.1:" + port, "rb", "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n"},
        {"HtTp://localhost:" + port + "/A", "r+", "GET /A HTTP/1.1\r\nHost: localhost\r\n"},
    };
    for (const auto &row : rows) {
        server.Respond(Response("Content-Length: 0\r\n", ""));
        HalvIO *io = HalvIO_URL(row.url.c_str(), row.mode.c_str());
        ASSERT_NE(io, nullptr) << row.url;
        server.Join();
        EXPECT_EQ(server.request(), row.request + kGetTail);
        io->close(io);
    }
}

TEST(NetHttpRequest, UrlsThatAreRefusedBeforeAnyConnection) {
    Server server;
    const std::string port = std::to_string(server.port());
    const std::string refused[] = {
        "https://127.0.0.1:" + port + "/", "ftp://127.0.0.1:" + port + "/", "127.0.0.1:" + port + "/",
        "http:/127.0.0.1:" + port + "/", "",
        // A request line of 512 bytes or more does not fit its buffer.
        server.Url("/" + std::string(500, 'a')),
        // Control bytes would end the request line early.
        server.Url("/a\r\nX-Evil: 1"), server.Url("/a\tb"),
    };
    for (const std::string &url : refused)
        EXPECT_EQ(HalvIO_URL(url.c_str(), "r"), nullptr) << url;
    EXPECT_EQ(HalvIO_URL(nullptr, "r"), nullptr);
    EXPECT_EQ(server.accepted(), 0);

    // The longest request line that fits: 511 bytes with its line end.
    std::string path = "/" + std::string(511 - std::string("GET  HTTP/1.1\r\n").size() - 1, 'p');
    HalvIO *io = Get(server, Response("Content-Length: 2\r\n", "ok"), path);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(peer::Drain(io), "ok");
    server.Join();
    EXPECT_EQ(server.request().find("\r\n"), 509u);
    io->close(io);
}

// What a GET reads of each response: the body, and the answer that ends it
// (0 the end, -1 a failure), which every later read repeats.
TEST(NetHttpResponse, BodiesEndAtTheirLengthTheirLastChunkOrTheClose) {
    struct Row {
        std::string response, body;
        int32_t last = 0;
        uint32_t pass = 4096;
    };
    const std::string big = peer::Pattern(300000);
    const std::string alphabet = "abcdefghijklmnopqrstuvwxyz";
    std::vector<Row> rows = {
        // Header names in any case, blanks before the number, bytes beyond it.
        {"HTTP/1.1 200 Fine\r\ncontent-length:    5\r\n\r\nhello world", "hello"},
        {"HTTP/1.0 200 OK\r\nServer: scripted\r\n\r\n" + big, big, 0, 7000},
        // Chunks lose their framing, extensions and trailers; a
        // Content-Length beside them counts for nothing.
        {Response(kChunked, "5;name=value;x\r\nhello\r\n6\r\n world\r\n0\r\nTrailer: t\r\n\r\n"),
         "hello world"},
        {"HTTP/1.1 200 OK\r\ncontent-length: 3\r\ntransfer-encoding:   "
         "CHUNKED\r\n\r\nA\r\n0123456789\r\n1a\r\n" +
             alphabet + "\r\n0\r\n\r\n",
         "0123456789" + alphabet},
        // Reads smaller than a chunk take it in pieces; no size line is
        // looked for inside a chunk, even where its bytes look like one.
        {Response(kChunked, "d\r\n3\r\nabc\r\n0\r\n\r\n\r\n4\r\nend!\r\n0\r\n\r\n"),
         "3\r\nabc\r\n0\r\n\r\nend!", 0, 5},
        // Blanks before the code; a 511-byte status line and a 511-byte header still fit.
        {"  HTTP/1.1   200\r\n\r\nbody", "body"},
        {"HTTP/1.1 200 " + std::string(511 - 13, 'r') + "\r\n\r\nbody", "body"},
        {Response("X-Fits: " + std::string(511 - 8, 'h') + "\r\nContent-Length: 3\r\n", "abcdef"), "abc"},
        // Closed early: inside a chunk, a size line, a Content-Length body, the head.
        {Response(kChunked, "3\r\nabc\r\n10\r\nhello"), "abchello"},
        {Response(kChunked, "5\r\nhello\r\n1"), "hello"},
        {Response("Content-Length: 100\r\n", "only this"), "only this"},
        {"HTTP/1.1 200 OK\r\nContent-Le", ""},
        // The largest chunk size, cut short by the close.
        {Response(kChunked, "7fffffff\r\nabc"), "abc"},
        // A size line that fills the line buffer is never delivered.
        {Response(kChunked, std::string(600, '0') + "5\r\nhello\r\n0\r\n\r\n"), ""},
    };
    // Sizes that are no numbers, negative, or beyond the 31 bits a chunk may
    // have (or beyond 64): -1 for good.
    for (const char *size : {"-5", "80000000", "100000000", "fffffffffffffffffffffffff", "zz"})
        rows.push_back(
            {Response(kChunked, std::string("3\r\nabc\r\n") + size + "\r\n0123456789\r\n0\r\n\r\n"), "abc",
             -1});
    for (const char *size : {"1ffffffffffffffffffff", "ffffffffffffffff", "8000000000000000"})
        rows.push_back({Response(kChunked, std::string(size) + "\r\nabc\r\n0\r\n\r\n"), "", -1});

    Server server;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.response.substr(0, 70));
        HalvIO *io = Get(server, row.response);
        ASSERT_NE(io, nullptr);
        int32_t last;
        EXPECT_TRUE(peer::Drain(io, row.pass, &last) == row.body);
        EXPECT_EQ(last, row.last);
        char buffer[64];
        EXPECT_EQ(io->read(io, buffer, sizeof buffer), row.last);
        io->close(io);
        server.Join();
    }
}

TEST(NetHttpResponse, RefusedAnswersGiveNullAndRedirectsAreNotFollowed) {
    int target = peer::BindLoopback(4);
    const std::string location =
        "Location: " + peer::LoopbackUrl(peer::PortOf(target)) + "\r\nContent-Length: 0\r\n";
    const std::string refused[] = {
        "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 2000 OK\r\n\r\n",
        "HTTP/1.1 OK 200\r\n\r\n", "200\r\n\r\n", "", // the last closed before a byte
        "HTTP/1.1 200 " + std::string(600, 'x') + "\r\n\r\n", // status line over the limit
        Response("X-Long: " + std::string(600, 'h') + "\r\n", "body"),
        Response("X-Exact: " + std::string(512 - 9, 'h') + "\r\n", ""), // no room for its end
        Response("Content-Length: -5\r\n", "body"), Response("Content-Length: 2147483648\r\n", "body"),
        Response("Content-Length: 99999999999999999999999\r\n", "body"),
        Response("Content-Length: ten\r\n", "body"),
        // An interim answer is a status other than 200: the final answer
        // behind it is never looked at.
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok",
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 100 Continue\r\n\r\n",
        Response(location, "", "301 Moved Permanently"), Response(location, "", "307 Temporary Redirect"),
    };
    Server server;
    for (const std::string &response : refused) {
        EXPECT_EQ(Get(server, response), nullptr) << response.substr(0, 60);
        server.Join();
    }
    // Nothing ever connected to where the redirects point.
    EXPECT_FALSE(peer::WaitFor(target, POLLIN, 0));
    close(target);
}

TEST(NetHttpResponse, ShortReceivesInsideChunksKeepTheFraming) {
    Server server;
    std::string chunk1 = peer::Pattern(5000, 3), chunk2 = peer::Pattern(70000, 4);
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        peer::NoDelay(fd);
        std::string wire =
            Response(kChunked, "1388\r\n" + chunk1 + "\r\n11170\r\n" + chunk2 + "\r\n0\r\n\r\n");
        // Dribble the response out so that receives come back short.
        for (size_t at = 0, piece; at < wire.size(); at += piece) {
            piece = std::min<size_t>(at < 20000 ? 777 : 9000, wire.size() - at);
            peer::SendAll(fd, std::string_view(wire).substr(at, piece));
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(peer::Drain(io, 65536), chunk1 + chunk2);
    io->close(io);
}

TEST(NetHttpNonBlocking, WouldBlockHalfLinesAndWaitsWithTimeOuts) {
    Server server;
    peer::Gate sendHalfLine, sendRest, finish;
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        peer::NoDelay(fd);
        peer::SendAll(fd, Response(kChunked, "3\r\nabc\r\n"));
        sendHalfLine.Wait();
        peer::SendAll(fd, "1");
        sendRest.Wait();
        peer::SendAll(fd, "0;ext\r\n0123456789abcdef\r\n0\r\n\r\n");
        finish.Wait();
    });
    HalvIO *io = HalvIO_URL(server.Url("/slow").c_str(), "rn");
    ASSERT_NE(io, nullptr);
    HalvIO *list[1] = {io};
    char buffer[64];
    EXPECT_EQ(peer::ReadExactly(io, 3), "abc");
    // Nothing more is coming: would-block, and a wait that times out.
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), -2);
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 0), 2);
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 150), 2);
    // Half a size line: taken, kept, would-block.
    sendHalfLine.Open();
    ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), -2);
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 0), 2);
    // The rest completes it: "10" is sixteen bytes.
    sendRest.Open();
    int32_t last;
    EXPECT_EQ(peer::Drain(io, sizeof buffer, &last), "0123456789abcdef");
    EXPECT_EQ(last, 0);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    finish.Open();
    io->close(io);
}

/* A caller's back end that keeps what it is given and the largest write. */
struct Keeper {
    HalvIO io = {};
    std::string bytes;
    uint32_t largest = 0;
    static int32_t Write(HalvIO *io, const void *bytes, uint32_t count) {
        Keeper *keeper = reinterpret_cast<Keeper *>(io);
        keeper->bytes.append(static_cast<const char *>(bytes), count);
        keeper->largest = std::max(count, keeper->largest);
        return static_cast<int32_t>(count);
    }
};

/* The socket's receive low-water mark: a copy may raise it while it runs,
 * and must leave the usual 1 behind. */
int LowWater(HalvIO *io) {
    int bytes = -1;
    socklen_t length = sizeof bytes;
    getsockopt(peer::SocketOf(io), SOL_SOCKET, SO_RCVLOWAT, &bytes, &length);
    return bytes;
}

TEST(NetHttpResponse, CopyBytesHandsOnPassesOfAtMost4096AndLeavesTheRestReadable) {
    Server server;
    const std::string body = peer::Pattern(150001, 5);
    peer::Gate done;
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        // Bytes beyond the length, in pieces of odd sizes, the last far
        // below a pass; the connection stays open, so no read may wait for
        // its end.
        std::string wire = Response("Content-Length: " + std::to_string(body.size()) + "\r\n", body + "junk");
        for (size_t at = 0; at < wire.size(); at += 37000)
            peer::SendAll(fd, std::string_view(wire).substr(at, 37000));
        done.Wait();
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
    ASSERT_NE(io, nullptr);
    // A read that waited for more than there is would fail here, not hang.
    timeval patience = {5, 0};
    setsockopt(peer::SocketOf(io), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Keeper keeper;
    keeper.io.write = Keeper::Write;
    EXPECT_EQ(HalvIOCopyBytes(&keeper.io, io, 100003), 100003);
    EXPECT_EQ(LowWater(io), 1);
    EXPECT_LE(keeper.largest, 4096u);
    EXPECT_EQ(keeper.bytes, body.substr(0, 100003));
    // The rest by a plain read and by a copy to the end of the body.
    char buffer[1000];
    ASSERT_EQ(HalvIOReadBytes(io, buffer, sizeof buffer), 1000);
    EXPECT_EQ(std::string(buffer, 1000), body.substr(100003, 1000));
    keeper.bytes.clear();
    EXPECT_EQ(HalvIOCopyBytes(&keeper.io, io, 0), static_cast<int64_t>(body.size() - 101003));
    EXPECT_EQ(keeper.bytes, body.substr(101003));
    EXPECT_EQ(LowWater(io), 1);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    done.Open();
    io->close(io);
    server.Join();

    // Chunked: the same bytes, without the framing.
    io = Get(server, Response(kChunked, peer::Chunked(body, 20000)));
    ASSERT_NE(io, nullptr);
    keeper.bytes.clear();
    EXPECT_EQ(HalvIOCopyBytes(&keeper.io, io, 0), static_cast<int64_t>(body.size()));
    EXPECT_EQ(keeper.bytes, body);
    io->close(io);
}

TEST(NetHttpPut, RequestAndChunksAreExact) {
    Server server;
    server.Receive();
    HalvIO *io = HalvIO_URL(server.Url("/upload/here.bin").c_str(), "wb");
    ASSERT_NE(io, nullptr);
    std::string bytes = peer::Pattern(255, 5);
    EXPECT_EQ(io->write(io, bytes.data(), 255), 255);
    EXPECT_EQ(io->write(io, "x", 0), 0); // an empty chunk would end the body
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    EXPECT_EQ(io->write(io, bytes.data(), 16), 16);
    EXPECT_EQ(io->seek(io, 0, 0), -1);
    io->flush(io);
    EXPECT_EQ(io->setAutoClose, nullptr);
    char buffer[8];
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), -1); // an upload doesn't read
    io->close(io);
    server.Join();
    const std::string head = " HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(server.request(), "PUT /upload/here.bin" + head + "ff\r\n" + bytes + "\r\n3\r\nabc\r\n10\r\n" +
                                    bytes.substr(0, 16) + "\r\n0\r\n\r\n");

    // No write at all: only the last chunk and the empty trailer.
    server.Receive();
    io = HalvIO_URL(("http://127.0.0.1:" + std::to_string(server.port())).c_str(), "w");
    ASSERT_NE(io, nullptr);
    io->close(io);
    server.Join();
    EXPECT_EQ(server.request(), "PUT /" + head + "0\r\n\r\n");
}

TEST(NetHttpPut, NonBlockingUploadsKeepWholeChunksThroughWouldBlock) {
    Server server;
    peer::Gate drain;
    server.Serve([&](int fd) {
        drain.Wait();
        server.SetRequest(peer::ReadToEnd(fd));
    });
    HalvIO *io = HalvIO_URL(server.Url("/big").c_str(), "wn");
    ASSERT_NE(io, nullptr);
    int small = 4096;
    setsockopt(peer::SocketOf(io), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    std::string source = peer::Pattern(3 << 20, 7);
    size_t written = 0;
    int32_t put = 0;
    // Fill the path until the stream says would-block; bounded.
    for (int i = 0; i < 100000 && written < source.size(); i++) {
        uint32_t ask = static_cast<uint32_t>(std::min<size_t>(10007, source.size() - written));
        if ((put = io->write(io, source.data() + written, ask)) == -2)
            break;
        ASSERT_GT(put, 0);
        ASSERT_LE(static_cast<uint32_t>(put), ask);
        written += static_cast<size_t>(put);
    }
    EXPECT_EQ(put, -2);
    HalvIO *list[1] = {io};
    EXPECT_EQ(HalvIOSelect(nullptr, 0, list, 1, 0), 2);
    drain.Open();
    // The rest through the copy, which waits on the stream when it blocks.
    HalvIO *rest = HalvIO_Str(source.data() + written, static_cast<uint32_t>(source.size() - written));
    EXPECT_EQ(HalvIOCopyBytes(io, rest, 0), static_cast<int64_t>(source.size() - written));
    rest->close(rest);
    io->close(io);
    server.Join();
    std::string wire = server.request();
    size_t head = wire.find("\r\n\r\n");
    ASSERT_NE(head, std::string::npos);
    peer::Dechunked body = peer::Dechunk(std::string_view(wire).substr(head + 4));
    EXPECT_TRUE(body.ok);
    EXPECT_EQ(body.body.size(), source.size());
    EXPECT_TRUE(body.body == source);
}

// HV_URL_TIMEOUT bounds connect, request and head; set small so the cases that wait for
// it finish quickly.  kPromptMs only tells "bounded" (even loaded, under a sanitizer)
// from "hung" (the peer's 10 s patience or for ever).
constexpr int kTimeoutMs = 1000;
constexpr int kPromptMs = 8000;

class HttpFaults : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(HalvSetenv("HV_URL_TIMEOUT", std::to_string(kTimeoutMs).c_str()), 1); }
    void TearDown() override { HalvSetenv("HV_URL_TIMEOUT", nullptr); }
};

struct Stopwatch {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    long long Ms() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
            .count();
    }
};

// Sends bytes until the client goes away or limit bytes have gone.
void Flood(int fd, const std::string &unit, size_t limit) {
    for (size_t sent = 0; sent < limit && peer::SendAll(fd, unit); sent += unit.size()) {
    }
}

TEST_F(HttpFaults, ALengthLargerThanTheBodyOnAnOpenConnectionIsBoundedBySelect) {
    Server server;
    peer::Gate done;
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        peer::SendAll(fd, Response("Content-Length: 1000\r\n", "short"));
        done.Wait();
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "rn");
    ASSERT_NE(io, nullptr);
    HalvIO *list[1] = {io};
    char buffer[64];
    EXPECT_EQ(peer::ReadExactly(io, 5), "short");
    // The rest never comes: would-block, and the caller's wait times out.
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), -2);
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 100), 2);
    // The server gives up: the close makes the stream ready, and reads end.
    done.Open();
    ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);
}

TEST_F(HttpFaults, EndlessOrSilentAnswersAreCutOffWithinTheTimeBound) {
    struct Case {
        const char *name;
        std::function<void(int)> conversation;
        bool opens; // a head that ends: the stream opens and its body ends
    };
    const Case cases[] = {
        // A chunk extension of a mebibyte: the size line never fits the line
        // buffer, so the body ends there; the flood is cut off by the
        // client's close, not read.
        {"endless chunk extension",
         [](int fd) {
             peer::ReadHead(fd);
             peer::SendAll(fd, Response(kChunked, "5;"));
             Flood(fd, std::string(4096, 'e'), 1u << 20);
             peer::SendAll(fd, "\r\nhello\r\n0\r\n\r\n");
         },
         true},
        // One header line that never ends: refused at the line buffer's end.
        {"endless header line",
         [](int fd) {
             peer::ReadHead(fd);
             peer::SendAll(fd, "HTTP/1.1 200 OK\r\nX-Endless: ");
             Flood(fd, std::string(4096, 'h'), 64u << 20);
         },
         false},
        // Header lines without end, as fast as the client takes them.
        {"endless header lines",
         [](int fd) {
             peer::ReadHead(fd);
             peer::SendAll(fd, "HTTP/1.1 200 OK\r\n");
             std::string lines;
             for (int i = 0; i < 200; i++)
                 lines += "X-Key-" + std::to_string(i) + ": value\r\n";
             Flood(fd, lines, 256u << 20);
         },
         false},
        // One byte a second: the status line is never done in time.  The
        // pause is a wait for the client's close, so the server stops with it.
        {"one byte per second",
         [](int fd) {
             peer::ReadHead(fd);
             peer::NoDelay(fd);
             for (char c : std::string("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"))
                 if (!peer::SendAll(fd, std::string(1, c)) || peer::WaitFor(fd, POLLIN, 1000))
                     return;
         },
         false},
        // Accepted, the request read, and never a word back until the close.
        {"never answers", [](int fd) { peer::ReadToEnd(fd); }, false},
    };
    Server server;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        server.Serve(c.conversation);
        Stopwatch clock;
        HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
        EXPECT_EQ(io != nullptr, c.opens);
        if (io != nullptr) {
            char buffer[64];
            EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
            EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
            io->close(io);
        }
        server.Join();
        EXPECT_LT(clock.Ms(), kPromptMs);
    }

    // Listening, but never accepting: the system completes the connection
    // and takes the request, and nothing answers.
    int silent = peer::BindLoopback(4);
    Stopwatch clock;
    EXPECT_EQ(HalvIO_URL(peer::LoopbackUrl(peer::PortOf(silent)).c_str(), "r"), nullptr);
    EXPECT_LT(clock.Ms(), kPromptMs);
    EXPECT_TRUE(peer::WaitFor(silent, POLLIN, 0));
    close(silent);
}

TEST_F(HttpFaults, PutsNeverReadTheAnswerAndAResetFailsTheirWritesWithoutASignal) {
    // Interim answers change nothing for an upload.
    Server server;
    server.Serve([&](int fd) {
        peer::SendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
        server.SetRequest(peer::ReadToEnd(fd));
    });
    HalvIO *io = HalvIO_URL(server.Url("/up").c_str(), "w");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    io->close(io);
    server.Join();
    peer::Dechunked body = peer::Dechunk(server.request().substr(server.request().find("\r\n\r\n") + 4));
    EXPECT_TRUE(body.ok);
    EXPECT_EQ(body.body, "abc");

    server.Serve([&](int fd) {
        peer::ReadHead(fd);
        // Linger 0: the close sends a reset, not an orderly end.
        struct linger abort = {1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    });
    io = HalvIO_URL(server.Url("/upload").c_str(), "w");
    ASSERT_NE(io, nullptr);
    server.Join();
    std::string block(65536, 'p');
    int32_t result = 0;
    // The first writes may still fit the send buffer; a reset peer fails the
    // next ones.  SIGPIPE would end the test program here.
    for (int writes = 0; writes < 10000 && result >= 0; writes++)
        result = io->write(io, block.data(), static_cast<uint32_t>(block.size()));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(io->write(io, block.data(), 10), -1);
    Stopwatch clock;
    io->close(io);
    EXPECT_LT(clock.Ms(), kPromptMs);
}

TEST_F(HttpFaults, AddressesThatLeadNowhereFailPromptlyAndProxiesGetTheWholeUrl) {
    int bound = peer::BindLoopback(0);
    for (const std::string &url :
         {peer::LoopbackUrl(peer::PortOf(bound)), std::string("http://nonexistent.invalid/a")}) {
        for (const char *mode : {"r", "w"}) {
            Stopwatch clock;
            EXPECT_EQ(HalvIO_URL(url.c_str(), mode), nullptr) << url << " " << mode;
            EXPECT_LT(clock.Ms(), kPromptMs);
        }
    }
    // A proxy gets the whole URL and its own host name; only http URLs are
    // handed to it.  One that accepts and never answers is refused within
    // the bound, as is one on the refused port.
    Server proxy;
    SetProxy(proxy.port());
    proxy.Respond(Response("Content-Length: 5\r\n", "proxy"));
    HalvIO *io = HalvIO_URL("http://images.example:8123/set/a.pxs", "r");
    EXPECT_EQ(HalvIO_URL("https://images.example/a", "r"), nullptr);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(peer::Drain(io), "proxy");
    proxy.Join();
    EXPECT_EQ(proxy.request(), "GET http://images.example:8123/set/a.pxs HTTP/1.1\r\nHost: 127.0.0.1\r\n" +
                                   std::string(kGetTail));
    EXPECT_EQ(proxy.accepted(), 1);
    io->close(io);
    proxy.Serve([&](int fd) { peer::ReadToEnd(fd); });
    Stopwatch clock;
    EXPECT_EQ(HalvIO_URL("http://images.example/a.pxs", "r"), nullptr);
    EXPECT_LT(clock.Ms(), kPromptMs);
    SetProxy(peer::PortOf(bound));
    EXPECT_EQ(HalvIO_URL("http://images.example/a.pxs", "r"), nullptr);
    HalvSetenv("HV_PROXY", nullptr);
    proxy.Join();
    EXPECT_EQ(proxy.accepted(), 2);
    close(bound);
}

TEST_F(HttpFaults, TheTimeBoundLetsAnOrdinaryServerThroughInEveryMode) {
    // The head is read under the bound; the stream is blocking afterwards
    // unless 'n' asked otherwise, and a slow body is no longer bounded by it.
    Server server;
    peer::Gate sendBody;
    server.Serve([&](int fd) {
        peer::ReadHead(fd);
        peer::SendAll(fd, Response("Content-Length: 4\r\n", ""));
        sendBody.Wait();
        peer::SendAll(fd, "late");
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(fcntl(peer::SocketOf(io), F_GETFL) & O_NONBLOCK, 0);
    HalvIO *list[1] = {io};
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, kTimeoutMs + 200), 2);
    sendBody.Open();
    char buffer[8];
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "late");
    io->close(io);
    server.Join();

    server.Respond(Response("Content-Length: 2\r\n", "ok"));
    io = HalvIO_URL(server.Url().c_str(), "rn");
    ASSERT_NE(io, nullptr);
    EXPECT_NE(fcntl(peer::SocketOf(io), F_GETFL) & O_NONBLOCK, 0);
    io->close(io);
}

} // namespace
