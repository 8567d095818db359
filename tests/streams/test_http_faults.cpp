// The HTTP stream against servers on 127.0.0.1 that misbehave on purpose:
// bodies cut short, lying lengths, hostile chunk framing, heads that never
// end or come one byte a second, servers that accept and say nothing,
// interim and redirect answers, a reset in the middle of an upload, and
// addresses that lead nowhere.  Every case must end in the documented
// result within a bounded time and a bounded number of calls: never a
// crash, a signal, an unbounded allocation or a hang.
//
// Each server (peer::Server) talks on a std::thread of its own, so this
// program is one of the threaded ones that the TSan pass runs.
//
// HV_URL_TIMEOUT bounds connect, request and head; it is set small here so
// that the cases that wait for it finish quickly.  Elapsed times are only
// checked against generous ceilings that tell "bounded" from "hung".
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <string>

#include "dpk_hvsup.h"
#include "streams/peer.h"

namespace {

using peer::Response;
using peer::Server;

constexpr int kTimeoutMs = 1000;
// What a bounded wait may take on a loaded machine under a sanitizer; a
// hang lasts until the test's patience (10 s in the peer) or for ever.
constexpr int kPromptMs = 8000;

class HttpFaults : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(HalvSetenv("HV_URL_TIMEOUT", std::to_string(kTimeoutMs).c_str()), 1); }
    void TearDown() override { HalvSetenv("HV_URL_TIMEOUT", nullptr); }
};

struct Stopwatch {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    long long Ms() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    }
};

// Reads to the end in bounded calls; the last result (0 or negative) is
// kept in *last.
std::string Drain(HalvIO *io, int32_t *last, uint32_t pass = 4096) {
    std::string body;
    std::string buffer(pass, '\0');
    *last = 1;
    for (int calls = 0; calls < 100000 && *last > 0; calls++) {
        *last = io->read(io, buffer.data(), pass);
        if (*last > 0)
            body.append(buffer.data(), static_cast<size_t>(*last));
    }
    return body;
}

HalvIO *Get(Server &server, const std::string &response, const char *mode = "r") {
    server.Respond(response);
    return HalvIO_URL(server.Url("/image").c_str(), mode);
}

// Sends bytes until the client goes away or limit bytes have gone.
void Flood(int fd, const std::string &unit, size_t limit) {
    for (size_t sent = 0; sent < limit; sent += unit.size())
        if (!peer::SendAll(fd, unit))
            return;
}

// A socket on 127.0.0.1 that listens and never accepts.
struct Listener {
    Listener() {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(fd, 4);
    }
    ~Listener() { close(fd); }
    std::string Url() const { return "http://127.0.0.1:" + std::to_string(peer::PortOf(fd)) + "/"; }
    // Whether a connection waits to be accepted.
    bool Pending() const { return peer::WaitFor(fd, POLLIN, 0); }
    int fd = -1;
};

// Waits for the client to close, so a server that "never answers" is still
// a conversation that ends.
void AwaitClose(int fd) { peer::ReadToEnd(fd); }

TEST_F(HttpFaults, BodiesCutShortEndAsAnOrdinaryEnd) {
    Server server;
    int32_t last;
    // Closed in the middle of a Content-Length body.
    HalvIO *io = Get(server, Response("Content-Length: 100\r\n", std::string(40, 'a')));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(Drain(io, &last), std::string(40, 'a'));
    EXPECT_EQ(last, 0);
    EXPECT_EQ(io->read(io, &last, 1), 0);
    io->close(io);
    server.Join();

    // Closed in the middle of a body without a length: the close is its end.
    io = Get(server, Response("", std::string(70000, 'b')));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(Drain(io, &last, 1000), std::string(70000, 'b'));
    EXPECT_EQ(last, 0);
    io->close(io);
    server.Join();

    // A chunk announced longer than what comes before the close.
    io = Get(server, Response("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n10\r\nhello"));
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(Drain(io, &last), "abchello");
    EXPECT_EQ(last, 0);
    io->close(io);
    server.Join();
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
    std::string body;
    char buffer[64];
    for (int i = 0; i < 100 && body.size() < 5; i++) {
        int32_t got = io->read(io, buffer, sizeof buffer);
        if (got > 0)
            body.append(buffer, static_cast<size_t>(got));
        else
            ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    }
    EXPECT_EQ(body, "short");
    // The rest never comes: would-block, and the caller's wait times out.
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), -2);
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 100), 2);
    // The server gives up: the close makes the stream ready, and reads end.
    done.Open();
    ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);
}

TEST_F(HttpFaults, HostileChunkFramingFailsOrEndsWithoutReadingOn) {
    Server server;
    char buffer[64];
    // Sizes beyond 64 bits, and beyond the 31 bits a chunk may have: -1, for
    // good.
    for (const char *size : {"1ffffffffffffffffffff", "ffffffffffffffff", "8000000000000000", "80000000"}) {
        HalvIO *io = Get(server, Response("Transfer-Encoding: chunked\r\n", std::string(size) + "\r\nabc\r\n0\r\n\r\n"));
        ASSERT_NE(io, nullptr) << size;
        EXPECT_EQ(io->read(io, buffer, sizeof buffer), -1) << size;
        EXPECT_EQ(io->read(io, buffer, sizeof buffer), -1) << size;
        io->close(io);
        server.Join();
    }

    // A chunk extension of a mebibyte: the size line never fits the line
    // buffer, so the body ends there.  The server's flood is cut off by the
    // client's close, not read.
    Stopwatch clock;
    server.Serve([&](int fd) {
        peer::ReadHead(fd);
        peer::SendAll(fd, Response("Transfer-Encoding: chunked\r\n", "5;"));
        Flood(fd, std::string(4096, 'e'), 1u << 20);
        peer::SendAll(fd, "\r\nhello\r\n0\r\n\r\n");
    });
    HalvIO *io = HalvIO_URL(server.Url().c_str(), "r");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0);
    io->close(io);
    server.Join();
    EXPECT_LT(clock.Ms(), kPromptMs);
}

TEST_F(HttpFaults, HeadsThatNeverEndAreRefusedWithinTheTimeBound) {
    Server server;
    struct Case {
        const char *name;
        std::function<void(int)> conversation;
    };
    const Case cases[] = {
        // One header line that never ends: refused at the line buffer's end.
        {"endless header line",
         [](int fd) {
             peer::ReadHead(fd);
             peer::SendAll(fd, "HTTP/1.1 200 OK\r\nX-Endless: ");
             Flood(fd, std::string(4096, 'h'), 64u << 20);
         }},
        // Header lines without end, as fast as the client takes them.
        {"endless header lines",
         [](int fd) {
             peer::ReadHead(fd);
             peer::SendAll(fd, "HTTP/1.1 200 OK\r\n");
             std::string lines;
             for (int i = 0; i < 200; i++)
                 lines += "X-Key-" + std::to_string(i) + ": value\r\n";
             Flood(fd, lines, 256u << 20);
         }},
        // One byte a second: the status line is never done in time.  The
        // pause is a wait for the client's close, so the server stops with it.
        {"one byte per second",
         [](int fd) {
             peer::ReadHead(fd);
             int one = 1;
             setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
             for (char c : std::string("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok")) {
                 if (!peer::SendAll(fd, std::string(1, c)) || peer::WaitFor(fd, POLLIN, 1000))
                     return;
             }
         }},
        // Accepted, the request read, and never a word back.
        {"never answers", [](int fd) { AwaitClose(fd); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        server.Serve(c.conversation);
        Stopwatch clock;
        EXPECT_EQ(HalvIO_URL(server.Url().c_str(), "r"), nullptr);
        EXPECT_LT(clock.Ms(), kPromptMs);
        server.Join();
    }

    // Listening, but never accepting: the system completes the connection
    // and takes the request, and nothing answers.
    Listener silent;
    Stopwatch clock;
    EXPECT_EQ(HalvIO_URL(silent.Url().c_str(), "r"), nullptr);
    EXPECT_LT(clock.Ms(), kPromptMs);
    EXPECT_TRUE(silent.Pending());
}

TEST_F(HttpFaults, InterimAndRedirectAnswersAreRefusedAndNotFollowed) {
    Server server;
    // 100 Continue is a status other than 200: the stream is refused, the
    // final answer behind it is never looked at.
    EXPECT_EQ(Get(server, "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"), nullptr);
    server.Join();
    EXPECT_EQ(Get(server, "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 100 Continue\r\n\r\n"), nullptr);
    server.Join();
    // Redirects are not followed: nothing ever connects to where they point.
    Listener target;
    for (const char *status : {"301 Moved Permanently", "302 Found", "307 Temporary Redirect"}) {
        EXPECT_EQ(Get(server, Response("Location: " + target.Url() + "\r\nContent-Length: 0\r\n", "", status)),
                  nullptr)
            << status;
        server.Join();
    }
    EXPECT_FALSE(target.Pending());

    // A PUT never reads the answer: interim answers change nothing.
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
}

TEST_F(HttpFaults, AResetDuringAPutFailsTheWritesWithoutASignal) {
    Server server;
    server.Serve([&](int fd) {
        peer::ReadHead(fd);
        // Linger 0: the close sends a reset, not an orderly end.
        struct linger abort = {1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    });
    HalvIO *io = HalvIO_URL(server.Url("/upload").c_str(), "w");
    ASSERT_NE(io, nullptr);
    server.Join();
    std::string block(65536, 'p');
    int32_t result = 0;
    int writes = 0;
    // The first writes may still fit the send buffer; a reset peer fails the
    // next ones.  SIGPIPE would end the test program here.
    for (; writes < 10000 && result >= 0; writes++)
        result = io->write(io, block.data(), static_cast<uint32_t>(block.size()));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(io->write(io, block.data(), 10), -1);
    Stopwatch clock;
    io->close(io);
    EXPECT_LT(clock.Ms(), kPromptMs);
}

TEST_F(HttpFaults, AddressesThatLeadNowhereFailPromptly) {
    // A port that is bound but doesn't listen refuses the connection.
    int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(bound, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    std::string refused = "http://127.0.0.1:" + std::to_string(peer::PortOf(bound)) + "/";
    for (const std::string &url : {refused, std::string("http://nonexistent.invalid/image")}) {
        for (const char *mode : {"r", "w"}) {
            Stopwatch clock;
            EXPECT_EQ(HalvIO_URL(url.c_str(), mode), nullptr) << url << " " << mode;
            EXPECT_LT(clock.Ms(), kPromptMs);
        }
    }

    // A proxy that accepts and never answers: refused within the bound, the
    // request it was sent being the whole URL.
    Server proxy;
    proxy.Serve([&](int fd) {
        proxy.SetRequest(peer::ReadHead(fd));
        AwaitClose(fd);
    });
    ASSERT_EQ(HalvSetenv("HV_PROXY", ("127.0.0.1:" + std::to_string(proxy.port())).c_str()), 1);
    Stopwatch clock;
    EXPECT_EQ(HalvIO_URL("http://images.example/a.pxs", "r"), nullptr);
    EXPECT_LT(clock.Ms(), kPromptMs);
    // A proxy on the refused port.
    ASSERT_EQ(HalvSetenv("HV_PROXY", ("127.0.0.1:" + std::to_string(peer::PortOf(bound))).c_str()), 1);
    EXPECT_EQ(HalvIO_URL("http://images.example/a.pxs", "r"), nullptr);
    HalvSetenv("HV_PROXY", nullptr);
    proxy.Join();
    EXPECT_EQ(proxy.request().rfind("GET http://images.example/a.pxs HTTP/1.1\r\n", 0), 0u) << proxy.request();
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
    // The body comes after more than the head's bound: a blocking read waits.
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
    server.Join();
}

}  // namespace
