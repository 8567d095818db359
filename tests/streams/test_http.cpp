// The HTTP stream against a scripted server on 127.0.0.1: the exact bytes
// of GET and PUT requests, bodies bounded by Content-Length, by chunks and
// by the server's close, status handling, the proxy setting, non-blocking
// reads and writes, and hostile responses.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "dpk_hvsup.h"
#include "streams/peer.h"

namespace {

using peer::Response;
using peer::Server;

constexpr char kGetTail[] = "Accept-Encoding: chunked, identity\r\n\r\n";

std::string ReadAll(HalvIO *io, uint32_t pass = 4096) {
    std::string body;
    std::string buffer(pass, '\0');
    for (int calls = 0; calls < 1000000; calls++) {
        int32_t got = io->read(io, buffer.data(), pass);
        if (got <= 0)
            break;
        body.append(buffer.data(), static_cast<size_t>(got));
    }
    return body;
}

// Opens a GET on a server that answers response; the stream, or null.
HalvIO *Get(Server &server, const std::string &response, const std::string &path = "/") {
    server.Respond(response);
    return HalvIO_URL(server.Url(path).c_str(), "r");
}

TEST(NetHttpRequest, GetSendsExactlyThreeLinesAndTheHostWithoutPort) {
    Server server;
    HalvIO *io = Get(server, Response("Content-Length: 0\r\n", ""), "/dir/file.txt?x=1&y=%20");
    ASSERT_NE(io, nullptr);
    server.Join();
    EXPECT_EQ(server.request(), "GET /dir/file.txt?x=1&y=%20 HTTP/1.1\r\nHost: 127.0.0.1\r\n" + std::string(kGetTail));
    io->close(io);

    // No path at all: "/".
    server.Respond(Response("Content-Length: 0\r\n", ""));
    io = HalvIO_URL(("http://127.0.0.1:" + std::to_string(server.port())).c_str(), "rb");
    ASSERT_NE(io, nullptr);
    server.Join();
    EXPECT_EQ(server.request(), "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n" + std::string(kGetTail));
    io->close(io);

    // The scheme matches in any case of letters; the rest is sent as given.
    server.Respond(Response("Content-Length: 0\r\n", ""));
    io = HalvIO_URL(("HtTp://localhost:" + std::to_string(server.port()) + "/A").c_str(), "r+");
    ASSERT_NE(io, nullptr);
    server.Join();
    EXPECT_EQ(server.request(), "GET /A HTTP/1.1\r\nHost: localhost\r\n" + std::string(kGetTail));
    io->close(io);
}

TEST(NetHttpRequest, UrlsThatAreRefusedBeforeAnyConnection) {
    Server server;
    std::string port = std::to_string(server.port());
    const std::string refused[] = {
        "https://127.0.0.1:" + port + "/",
        "ftp://127.0.0.1:" + port + "/",
        "127.0.0.1:" + port + "/",
        "http:/127.0.0.1:" + port + "/",
        "",
        // A request line of 512 bytes or more does not fit its buffer.
        "http://127.0.0.1:" + port + "/" + std::string(500, 'a'),
        // Control bytes would end the request line early.
        "http://127.0.0.1:" + port + "/a\r\nX-Evil: 1",
        "http://127.0.0.1:" + port + "/a\tb",
    };
    for (const std::string &url : refused)
        EXPECT_EQ(HalvIO_URL(url.c_str(), "r"), nullptr) << url;
    EXPECT_EQ(HalvIO_URL(nullptr, "r"), nullptr);
    EXPECT_EQ(server.accepted(), 0);

    // The longest request line that fits: 511 bytes with its line end.
    std::string prefix = "http://127.0.0.1:" + port;
    std::string path = "/" + std::string(511 - std::string("GET  HTTP/1.1\r\n").size() - 1, 'p');
    server.Respond(Response("Content-Length: 2\r\n", "ok"));
    HalvIO *io = HalvIO_URL((prefix + path).c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "ok");
    server.Join();
    EXPECT_EQ(server.request().find("\r\n"), 509u);
    io->close(io);

    // A port that is bound but doesn't listen refuses the connection.
    int bound = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(bound, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    std::string deadUrl = "http://127.0.0.1:" + std::to_string(peer::PortOf(bound)) + "/";
    EXPECT_EQ(HalvIO_URL(deadUrl.c_str(), "r"), nullptr);
    EXPECT_EQ(HalvIO_URL(deadUrl.c_str(), "w"), nullptr);
    close(bound);
}

TEST(NetHttpRequest, ProxyGetsTheWholeUrlAndItsOwnHostName) {
    Server proxy;
    ASSERT_EQ(HalvSetenv("HV_PROXY", ("127.0.0.1:" + std::to_string(proxy.port())).c_str()), 1);
    proxy.Respond(Response("Content-Length: 5\r\n", "proxy"));
    HalvIO *io = HalvIO_URL("http://images.example:8123/set/a.pxs", "r");
    HalvSetenv("HV_PROXY", nullptr);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "proxy");
    proxy.Join();
    EXPECT_EQ(proxy.request(),
              "GET http://images.example:8123/set/a.pxs HTTP/1.1\r\nHost: 127.0.0.1\r\n" + std::string(kGetTail));
    io->close(io);

    // Only http URLs are handed to the proxy.
    HalvSetenv("HV_PROXY", ("127.0.0.1:" + std::to_string(proxy.port())).c_str());
    EXPECT_EQ(HalvIO_URL("https://images.example/a", "r"), nullptr);
    HalvSetenv("HV_PROXY", nullptr);
    EXPECT_EQ(proxy.accepted(), 1);
}

TEST(NetHttpResponse, ContentLengthBoundsTheBodyWithoutWaitingForTheClose) {
    Server server;
    peer::Gate done;
    std::atomic<bool> closed{false};
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        peer::SendAll(fd, Response("Content-Length: 10\r\n", "0123456789trailing junk"));
        done.Wait();
        closed = true;
    });
    HalvIO *io = HalvIO_URL(server.Url("/ten").c_str(), "r");
    ASSERT_NE(io, nullptr);
    char buffer[64];
    EXPECT_EQ(HalvIOReadBytes(io, buffer, sizeof buffer), 10);
    EXPECT_EQ(std::string(buffer, 10), "0123456789");
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    // The reads above came back while the server still held the connection.
    EXPECT_FALSE(closed.load());
    done.Open();
    io->close(io);
    server.Join();

    // Header names in any case, blanks before the number.
    io = Get(server, "HTTP/1.1 200 Fine\r\ncontent-length:    5\r\n\r\nhello world");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "hello");
    io->close(io);

    // Content-Length 0.
    io = Get(server, Response("Content-Length: 0\r\n", "nothing"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->read(io, buffer, 1), 0);
    io->close(io);
}

TEST(NetHttpResponse, WithoutLengthOrChunksTheBodyRunsToTheClose) {
    Server server;
    std::string body = peer::Pattern(300000);
    HalvIO *io = Get(server, "HTTP/1.0 200 OK\r\nServer: scripted\r\n\r\n" + body);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io, 7000), body);
    EXPECT_EQ(io->read(io, &body[0], 10), 0);
    io->close(io);
}

TEST(NetHttpResponse, ChunkedBodiesLoseTheirFramingAndStopAtTheLastChunk) {
    Server server;
    char buffer[64];
    HalvIO *io = Get(server, Response("Transfer-Encoding: chunked\r\n",
                                      "5;name=value;x\r\nhello\r\n6\r\n world\r\n0\r\nTrailer: t\r\n\r\n"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "hello world");
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);

    // "transfer-encoding: CHUNKED", sizes in upper case, a Content-Length
    // beside them counts for nothing.
    io = Get(server, "HTTP/1.1 200 OK\r\ncontent-length: 3\r\ntransfer-encoding:   CHUNKED\r\n\r\n"
                     "A\r\n0123456789\r\n1a\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "0123456789abcdefghijklmnopqrstuvwxyz");
    io->close(io);

    // Reads smaller than a chunk take it in pieces; no size line is looked
    // for inside a chunk, even where its bytes look like one.
    io = Get(server, Response("Transfer-Encoding: chunked\r\n", "d\r\n3\r\nabc\r\n0\r\n\r\n\r\n4\r\nend!\r\n0\r\n\r\n"));
    ASSERT_NE(io, nullptr);
    std::string body;
    for (int i = 0; i < 100; i++) {
        int32_t got = io->read(io, buffer, 5);
        if (got <= 0)
            break;
        EXPECT_LE(got, 5);
        body.append(buffer, static_cast<size_t>(got));
    }
    EXPECT_EQ(body, "3\r\nabc\r\n0\r\n\r\nend!");
    io->close(io);
}

TEST(NetHttpResponse, ShortReceivesInsideChunksKeepTheFraming) {
    Server server;
    std::string chunk1 = peer::Pattern(5000, 3), chunk2 = peer::Pattern(70000, 4);
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::string wire = Response("Transfer-Encoding: chunked\r\n", "") + "1388\r\n" + chunk1 + "\r\n" + "11170\r\n" +
                           chunk2 + "\r\n0\r\n\r\n";
        // Dribble the response out so that receives come back short.
        for (size_t at = 0; at < wire.size();) {
            size_t piece = at < 20000 ? 777 : 9000;
            piece = std::min(piece, wire.size() - at);
            peer::SendAll(fd, std::string_view(wire).substr(at, piece));
            at += piece;
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io, 65536), chunk1 + chunk2);
    io->close(io);
}

TEST(NetHttpResponse, StatusOtherThan200AndBrokenStatusLinesGiveNull) {
    Server server;
    const std::string refused[] = {
        "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n",
        "HTTP/1.1 301 Moved Permanently\r\nLocation: http://127.0.0.1/\r\n\r\n",
        "HTTP/1.1 500 Internal Server Error\r\n\r\n",
        "HTTP/1.1 2000 OK\r\n\r\n",
        "HTTP/1.1 OK 200\r\n\r\n",
        "HTTP/1.1\r\n\r\n",
        "200\r\n\r\n",
        "garbage\r\n\r\n",
        "\r\n\r\n",
        "",  // closed before a byte
        "HTTP/1.1 200 " + std::string(600, 'x') + "\r\n\r\n",  // status line over the limit
    };
    for (const std::string &response : refused) {
        EXPECT_EQ(Get(server, response), nullptr) << response.substr(0, 60);
        server.Join();
    }

    // Any reason text, any version word, blanks before the code; a 511-byte
    // status line is the longest delivered.
    const std::string accepted[] = {
        "HTTP/1.0 200 Whatever reason you like\r\n\r\n",
        "  HTTP/1.1   200\r\n\r\n",
        "HTTP/1.1 200 " + std::string(511 - 13, 'r') + "\r\n\r\n",
    };
    for (const std::string &response : accepted) {
        HalvIO *io = Get(server, response + "body");
        ASSERT_NE(io, nullptr) << response.substr(0, 60);
        EXPECT_EQ(ReadAll(io), "body");
        io->close(io);
    }
}

TEST(NetHttpResponse, HostileHeadsGiveNull) {
    Server server;
    const std::string refused[] = {
        Response("X-Long: " + std::string(600, 'h') + "\r\n", "body"),   // header over the line limit
        Response("X-Exact: " + std::string(512 - 9, 'h') + "\r\n", ""), // 512 bytes: no room for its end
        Response("Content-Length: -5\r\n", "body"),
        Response("Content-Length: 2147483648\r\n", "body"),
        Response("Content-Length: 99999999999999999999999\r\n", "body"),
        Response("Content-Length: ten\r\n", "body"),
        Response("Content-Length:\r\n", "body"),
    };
    for (const std::string &response : refused) {
        EXPECT_EQ(Get(server, response), nullptr) << response.substr(0, 60);
        server.Join();
    }
    // A header of 511 bytes is still a header.
    HalvIO *io = Get(server, Response("X-Fits: " + std::string(511 - 8, 'h') + "\r\nContent-Length: 3\r\n", "abcdef"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "abc");
    io->close(io);
}

TEST(NetHttpResponse, HostileChunkSizesFailAndStayFailed) {
    Server server;
    const char *sizes[] = {"-5", "80000000", "ffffffff", "100000000", "fffffffffffffffffffffffff", "zz", "  ",
                           "+x"};
    char buffer[64];
    for (const char *size : sizes) {
        HalvIO *io = Get(server, Response("Transfer-Encoding: chunked\r\n",
                                          std::string("3\r\nabc\r\n") + size + "\r\n0123456789\r\n0\r\n\r\n"));
        ASSERT_NE(io, nullptr) << size;
        EXPECT_EQ(HalvIOReadBytes(io, buffer, 3), 3);
        EXPECT_EQ(io->read(io, buffer, sizeof buffer), -1) << size;
        EXPECT_EQ(io->read(io, buffer, sizeof buffer), -1) << size;
        io->close(io);
    }

    // A size line that fills the line buffer is never delivered: end of
    // body, every time, with no further receive.
    HalvIO *io = Get(server, Response("Transfer-Encoding: chunked\r\n", std::string(600, '0') + "5\r\nhello\r\n0\r\n\r\n"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);

    // The largest size that fits, announced but cut short by the close.
    io = Get(server, Response("Transfer-Encoding: chunked\r\n", "7fffffff\r\nabc"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "abc");
    io->close(io);
}

TEST(NetHttpResponse, RandomResponsesEndCleanly) {
    // Seeded noise built from the bytes framing is made of: every stream
    // either refuses at once or ends in 0 or -1 within bounded reads.
    Server server;
    const char alphabet[] = "0123456789abcdefABCDEF;\r\n\r\n -+xzHTP/:";
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7FFF; };
    int opened = 0;
    for (int round = 0; round < 60; round++) {
        std::string noise;
        size_t length = 1 + next() % 3000;
        for (size_t i = 0; i < length; i++)
            noise += alphabet[next() % (sizeof alphabet - 1)];
        std::string head = round % 3 == 0 ? "" : round % 3 == 1 ? "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                                                : "HTTP/1.1 200 OK\r\n";
        HalvIO *io = Get(server, head + noise);
        if (io == nullptr) {
            server.Join();
            continue;
        }
        opened++;
        char buffer[256];
        int32_t got = 1;
        for (int calls = 0; calls < 100000 && got > 0; calls++)
            got = io->read(io, buffer, 1 + next() % sizeof buffer);
        EXPECT_TRUE(got == 0 || got == -1) << round << ": " << got;
        io->close(io);
        server.Join();
    }
    EXPECT_GT(opened, 20);
}

TEST(NetHttpResponse, EarlyClosesEndTheBody) {
    Server server;
    char buffer[64];
    // Cut inside a chunk: the bytes that came, then the end.
    HalvIO *io = Get(server, Response("Transfer-Encoding: chunked\r\n", "a\r\nhello"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "hello");
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);

    // Cut inside a size line, and behind a chunk's data.
    for (const char *body : {"5\r\nhello\r\n1", "5\r\nhello", "5\r\nhello\r\n"}) {
        io = Get(server, Response("Transfer-Encoding: chunked\r\n", body));
        ASSERT_NE(io, nullptr);
        EXPECT_EQ(ReadAll(io), "hello") << body;
        io->close(io);
    }

    // Cut inside a Content-Length body.
    io = Get(server, Response("Content-Length: 100\r\n", "only this"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "only this");
    io->close(io);

    // Cut inside the head: what came of it counts, and the body is empty.
    io = Get(server, "HTTP/1.1 200 OK\r\nContent-Le");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);
    io = Get(server, "HTTP/1.1 200 OK\r\nContent-Length: 2");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);
}

TEST(NetHttpNonBlocking, WouldBlockHalfLinesAndWaitsWithTimeOuts) {
    Server server;
    peer::Gate sendHalfLine, sendRest, finish;
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        peer::SendAll(fd, Response("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n"));
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
    // The first chunk is there or on its way.
    ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    std::string body;
    for (int i = 0; i < 100 && body.size() < 3; i++) {
        int32_t got = io->read(io, buffer, sizeof buffer);
        if (got > 0)
            body.append(buffer, static_cast<size_t>(got));
        else
            ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    }
    EXPECT_EQ(body, "abc");
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
    body.clear();
    for (int i = 0; i < 1000; i++) {
        int32_t got = io->read(io, buffer, sizeof buffer);
        if (got == 0)
            break;
        if (got > 0) {
            body.append(buffer, static_cast<size_t>(got));
            continue;
        }
        ASSERT_EQ(got, -2);
        ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    }
    EXPECT_EQ(body, "0123456789abcdef");
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    finish.Open();
    io->close(io);
}

TEST(NetHttpNonBlocking, CopyBytesWaitsOnAStalledServer) {
    Server server;
    std::string body = peer::Pattern(200000, 9);
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        peer::SendAll(fd, Response("Content-Length: " + std::to_string(body.size()) + "\r\n", ""));
        for (size_t at = 0; at < body.size(); at += 50000) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            peer::SendAll(fd, std::string_view(body).substr(at, 50000));
        }
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "rn");
    ASSERT_NE(io, nullptr);
    HalvIO *mem = HalvIO_Mem(0);
    EXPECT_EQ(HalvIOCopyBytes(mem, io, 0), static_cast<int64_t>(body.size()));
    EXPECT_EQ(std::string(static_cast<char *>(HalvIOMemBuffer(mem)), HalvIOMemLength(mem)), body);
    mem->close(mem);
    io->close(io);
}

/* A caller's back end that keeps what it is given and the largest write. */
struct Keeper {
    HalvIO io = {};
    std::string bytes;
    uint32_t largest = 0;
};

/* The socket's receive low-water mark: a copy may raise it while it runs,
 * and must leave the usual 1 behind. */
int LowWater(HalvIO *io) {
    int bytes = -1;
    socklen_t length = sizeof bytes;
    getsockopt(peer::SocketOf(io), SOL_SOCKET, SO_RCVLOWAT, &bytes, &length);
    return bytes;
}

int32_t KeeperWrite(HalvIO *io, const void *bytes, uint32_t count) {
    Keeper *keeper = reinterpret_cast<Keeper *>(io);
    keeper->bytes.append(static_cast<const char *>(bytes), count);
    keeper->largest = count > keeper->largest ? count : keeper->largest;
    return static_cast<int32_t>(count);
}

TEST(NetHttpResponse, CopyBytesHandsOnPassesOfAtMost4096AndLeavesTheRestReadable) {
    Server server;
    const std::string body = peer::Pattern(150001, 5);
    peer::Gate done;
    server.Serve([&](int fd) {
        server.SetRequest(peer::ReadHead(fd));
        peer::SendAll(fd, Response("Content-Length: " + std::to_string(body.size()) + "\r\n", ""));
        /* In pieces of odd sizes, the last far below a pass. */
        for (size_t at = 0; at < body.size(); at += 37000)
            peer::SendAll(fd, std::string_view(body).substr(at, 37000));
        done.Wait(); /* the connection stays open: no read may wait for its end */
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
    ASSERT_NE(io, nullptr);
    /* A read that waited for more than there is would fail here, not hang. */
    timeval patience = {5, 0};
    setsockopt(peer::SocketOf(io), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Keeper keeper;
    keeper.io.write = KeeperWrite;
    EXPECT_EQ(HalvIOCopyBytes(&keeper.io, io, 100003), 100003);
    EXPECT_EQ(LowWater(io), 1);
    EXPECT_LE(keeper.largest, 4096u);
    EXPECT_EQ(keeper.bytes, body.substr(0, 100003));
    /* The rest, of which the last piece is short, by plain reads and by a
     * copy to the end of the body. */
    char buffer[1000];
    ASSERT_EQ(io->read(io, buffer, sizeof buffer), 1000);
    EXPECT_EQ(std::string(buffer, 1000), body.substr(100003, 1000));
    keeper.bytes.clear();
    EXPECT_EQ(HalvIOCopyBytes(&keeper.io, io, 0), static_cast<int64_t>(body.size() - 101003));
    EXPECT_EQ(keeper.bytes, body.substr(101003));
    EXPECT_EQ(LowWater(io), 1);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    done.Open();
    io->close(io);
    server.Join();

    /* Chunked: the same bytes, without the framing. */
    std::string chunked;
    for (size_t at = 0; at < body.size(); at += 20000) {
        const std::string piece = body.substr(at, 20000);
        char size[16];
        snprintf(size, sizeof size, "%zx\r\n", piece.size());
        chunked += size + piece + "\r\n";
    }
    io = Get(server, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked + "0\r\n\r\n");
    ASSERT_NE(io, nullptr);
    keeper.bytes.clear();
    EXPECT_EQ(HalvIOCopyBytes(&keeper.io, io, 0), static_cast<int64_t>(body.size()));
    EXPECT_EQ(keeper.bytes, body);
    io->close(io);
    server.Join();
}

TEST(NetHttpPut, RequestAndChunksAreExact) {
    Server server;
    server.Receive();
    HalvIO *io = HalvIO_URL(server.Url("/upload/here.bin").c_str(), "wb");
    ASSERT_NE(io, nullptr);
    std::string bytes = peer::Pattern(255, 5);
    EXPECT_EQ(io->write(io, bytes.data(), 255), 255);
    EXPECT_EQ(io->write(io, "x", 0), 0);  // an empty chunk would end the body
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    EXPECT_EQ(io->write(io, bytes.data(), 16), 16);
    EXPECT_EQ(io->seek(io, 0, 0), -1);
    io->flush(io);
    EXPECT_EQ(io->setAutoClose, nullptr);
    char buffer[8];
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), -1);  // an upload doesn't read
    io->close(io);
    server.Join();
    EXPECT_EQ(server.request(), "PUT /upload/here.bin HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n"
                                "ff\r\n" + bytes + "\r\n3\r\nabc\r\n10\r\n" + bytes.substr(0, 16) + "\r\n0\r\n\r\n");

    // No write at all: only the last chunk and the empty trailer.
    server.Receive();
    io = HalvIO_URL(("http://127.0.0.1:" + std::to_string(server.port())).c_str(), "w");
    ASSERT_NE(io, nullptr);
    io->close(io);
    server.Join();
    EXPECT_EQ(server.request(), "PUT / HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
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
    bool blocked = false;
    // Fill the path until the stream says would-block; bounded.
    for (int i = 0; i < 100000 && !blocked && written < source.size(); i++) {
        uint32_t ask = static_cast<uint32_t>(std::min<size_t>(10007, source.size() - written));
        int32_t put = io->write(io, source.data() + written, ask);
        if (put == -2) {
            blocked = true;
        } else {
            ASSERT_GT(put, 0);
            ASSERT_LE(static_cast<uint32_t>(put), ask);
            written += static_cast<size_t>(put);
        }
    }
    EXPECT_TRUE(blocked);
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

TEST(NetHttpPut, AClosedServerMakesWritesFailWithoutASignal) {
    Server server;
    server.Serve([](int fd) { peer::ReadHead(fd); });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "w");
    ASSERT_NE(io, nullptr);
    server.Join();
    std::string bytes = peer::Pattern(65536);
    int32_t result = 0;
    for (int i = 0; i < 10000 && result >= 0; i++)
        result = io->write(io, bytes.data(), static_cast<uint32_t>(bytes.size()));
    EXPECT_EQ(result, -1);
    io->close(io);
}

}  // namespace
