// TCP streams on 127.0.0.1: client and listening streams, blocking and
// non-blocking modes, HalvIOSelect over read, accept and write readiness,
// copies between sockets, failures, and the socket layer across engine
// starts and stops.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/peer.h"

namespace {

using peer::SocketOf;

// The eventMask word behind the socket descriptor word.
uint32_t EventMaskOf(HalvIO *io) {
    uint32_t mask;
    std::memcpy(&mask, reinterpret_cast<const char *>(io) + sizeof(HalvIO) + sizeof(intptr_t), sizeof mask);
    return mask;
}

bool CloseOnExec(HalvIO *io) { return (fcntl(SocketOf(io), F_GETFD) & FD_CLOEXEC) != 0; }
bool NonBlocking(HalvIO *io) { return (fcntl(SocketOf(io), F_GETFL) & O_NONBLOCK) != 0; }

struct Pair {
    HalvIO *listener = nullptr;
    HalvIO *client = nullptr;
    HalvIO *server = nullptr;
    ~Pair() {
        for (HalvIO *io : {client, server, listener})
            if (io != nullptr)
                io->close(io);
    }
};

// A listener on 127.0.0.1, a client connected to it and the accepted end.
void Connect(Pair &pair, int32_t blocking) {
    pair.listener = HalvIO_TcpSocket("127.0.0.1", 0, 4, blocking);
    ASSERT_NE(pair.listener, nullptr);
    pair.client = HalvIO_TcpSocket("127.0.0.1", peer::PortOf(SocketOf(pair.listener)), 0, blocking);
    ASSERT_NE(pair.client, nullptr);
    HalvIO *list[1] = {pair.listener};
    ASSERT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    ASSERT_EQ(pair.listener->read(pair.listener, &pair.server, sizeof pair.server), 8);
    ASSERT_NE(pair.server, nullptr);
}

// Reads exactly length bytes, waiting in HalvIOSelect on would-block.
std::string ReadExactly(HalvIO *io, size_t length) {
    std::string bytes;
    std::vector<char> buffer(65536);
    HalvIO *list[1] = {io};
    for (int calls = 0; calls < 100000 && bytes.size() < length; calls++) {
        int32_t got = io->read(io, buffer.data(), static_cast<uint32_t>(std::min(buffer.size(), length - bytes.size())));
        if (got == -2 && HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs) == 1)
            continue;
        if (got <= 0)
            break;
        bytes.append(buffer.data(), static_cast<size_t>(got));
    }
    return bytes;
}

TEST(NetTcp, ClientAndListenerExchangeBytes) {
    Pair pair;
    Connect(pair, 1);
    EXPECT_TRUE(CloseOnExec(pair.listener));
    EXPECT_TRUE(CloseOnExec(pair.client));
    EXPECT_TRUE(CloseOnExec(pair.server));
    EXPECT_FALSE(NonBlocking(pair.server));

    EXPECT_EQ(HalvIOWriteString(pair.client, "ping"), 4);
    EXPECT_EQ(ReadExactly(pair.server, 4), "ping");
    EXPECT_EQ(pair.server->write(pair.server, "pong!", 5), 5);
    EXPECT_EQ(ReadExactly(pair.client, 5), "pong!");
    EXPECT_EQ(pair.client->write(pair.client, "x", 0), 0);

    // A plain stream is raw bytes: nothing in them is taken for framing.
    std::string raw = "5\r\nhello\r\n0\r\n\r\nHTTP/1.1 200 OK\r\n";
    EXPECT_EQ(HalvIOWriteBytes(pair.client, raw.data(), static_cast<uint32_t>(raw.size())),
              static_cast<int32_t>(raw.size()));
    EXPECT_EQ(ReadExactly(pair.server, raw.size()), raw);

    // A megabyte each way at once: a thread writes while this one reads.
    std::string up = peer::Pattern(1 << 20, 1), down = peer::Pattern(1 << 20, 2);
    std::thread writer([&] { HalvIOWriteBytes(pair.server, down.data(), static_cast<uint32_t>(down.size())); });
    std::thread reader([&] { EXPECT_TRUE(ReadExactly(pair.server, up.size()) == up); });
    EXPECT_EQ(HalvIOWriteBytes(pair.client, up.data(), static_cast<uint32_t>(up.size())), 1 << 20);
    EXPECT_TRUE(ReadExactly(pair.client, down.size()) == down);
    writer.join();
    reader.join();

    // Slots: no seek, nothing to flush, no auto-close flag.
    for (HalvIO *io : {pair.client, pair.server, pair.listener}) {
        EXPECT_EQ(io->seek(io, 0, 0), -1);
        EXPECT_EQ(io->seek(io, 0, 2), -1);
        ASSERT_NE(io->flush, nullptr);
        io->flush(io);
        EXPECT_EQ(io->setAutoClose, nullptr);
    }
    // A listener hands out streams only by the pointer's size, and can't be
    // written.
    char buffer[16];
    EXPECT_EQ(pair.listener->read(pair.listener, buffer, 4), -1);
    EXPECT_EQ(pair.listener->read(pair.listener, buffer, 16), -1);
    EXPECT_EQ(pair.listener->write(pair.listener, "x", 1), -1);

    // The client's close reaches the other end as the end of the stream.
    pair.client->close(pair.client);
    pair.client = nullptr;
    EXPECT_EQ(pair.server->read(pair.server, buffer, sizeof buffer), 0);
}

TEST(NetTcp, NonBlockingStreamsSayWouldBlockAndWaitInSelect) {
    HalvIO *listener = HalvIO_TcpSocket(nullptr, 0, 2, 0);  // every local address
    ASSERT_NE(listener, nullptr);
    EXPECT_TRUE(NonBlocking(listener));
    HalvIO *conn = nullptr;
    HalvIO *accepting[1] = {listener};
    EXPECT_EQ(listener->read(listener, &conn, sizeof conn), -2);
    EXPECT_EQ(HalvIOSelect(accepting, 1, nullptr, 0, 0), 2);
    EXPECT_EQ(HalvIOSelect(accepting, 1, nullptr, 0, 100), 2);

    HalvIO *client = HalvIO_TcpSocket("127.0.0.1", peer::PortOf(SocketOf(listener)), 0, 0);
    ASSERT_NE(client, nullptr);
    EXPECT_TRUE(NonBlocking(client));
    ASSERT_EQ(HalvIOSelect(accepting, 1, nullptr, 0, peer::kPatienceMs), 1);
    ASSERT_EQ(listener->read(listener, &conn, sizeof conn), 8);
    EXPECT_TRUE(NonBlocking(conn));  // the listener's mode
    EXPECT_EQ(listener->read(listener, &conn, sizeof conn), -2);  // no second one waiting

    char buffer[64];
    HalvIO *reading[1] = {conn}, *writing[1] = {client};
    EXPECT_EQ(conn->read(conn, buffer, sizeof buffer), -2);
    EXPECT_EQ(HalvIOSelect(reading, 1, nullptr, 0, 0), 2);
    EXPECT_EQ(EventMaskOf(conn), 0u);
    // Write readiness with no read list.
    EXPECT_EQ(HalvIOSelect(nullptr, 0, writing, 1, peer::kPatienceMs), 1);
    EXPECT_EQ(client->write(client, "abc", 3), 3);
    EXPECT_EQ(HalvIOSelect(reading, 1, nullptr, 0, peer::kPatienceMs), 1);
    EXPECT_EQ(conn->read(conn, buffer, sizeof buffer), 3);
    EXPECT_EQ(EventMaskOf(conn), 0u);

    // Fill the path until the writer says would-block; then it isn't
    // writable until the reader takes bytes.
    std::string block = peer::Pattern(65536);
    size_t sent = 0;
    int32_t put = 0;
    for (int i = 0; i < 10000 && (put = client->write(client, block.data(), 65536)) > 0; i++)
        sent += static_cast<size_t>(put);
    EXPECT_EQ(put, -2);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, writing, 1, 0), 2);
    // The same stream in both lists: readable or writable, whichever first.
    HalvIO *both[1] = {client};
    EXPECT_EQ(HalvIOSelect(both, 1, both, 1, 0), 2);
    std::string drained = ReadExactly(conn, sent);
    EXPECT_EQ(drained.size(), sent);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, writing, 1, peer::kPatienceMs), 1);
    EXPECT_EQ(EventMaskOf(client), 0u);

    client->close(client);
    conn->close(conn);
    listener->close(listener);
}

TEST(NetTcp, CopyBytesBetweenNonBlockingSocketsWaitsInSelect) {
    Pair in, out;
    Connect(in, 0);
    Connect(out, 0);
    std::string source = peer::Pattern(3 << 20, 5);
    std::string received;
    // Feed in.client from one thread, drain out.server from another; copy
    // in.server to out.client here.  Both ends block now and then.
    std::thread feeder([&] {
        HalvIO *list[1] = {in.client};
        size_t at = 0;
        for (int i = 0; i < 1000000 && at < source.size(); i++) {
            int32_t put = in.client->write(in.client, source.data() + at,
                                           static_cast<uint32_t>(std::min<size_t>(100000, source.size() - at)));
            if (put > 0)
                at += static_cast<size_t>(put);
            else if (put != -2 || HalvIOSelect(nullptr, 0, list, 1, peer::kPatienceMs) != 1)
                break;
        }
        shutdown(SocketOf(in.client), SHUT_WR);
    });
    std::thread drainer([&] { received = ReadExactly(out.server, source.size()); });
    EXPECT_EQ(HalvIOCopyBytes(out.client, in.server, 0), static_cast<int64_t>(source.size()));
    feeder.join();
    drainer.join();
    EXPECT_TRUE(received == source);
}

TEST(NetTcp, SelectArgumentsClosedPeersAndLongLists) {
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 0, 0), 2);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 0, 20), 2);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 0, -1), -1);  // could never end
    EXPECT_EQ(HalvIOSelect(nullptr, 1, nullptr, 0, 0), -1);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 2, 0), -1);
    HalvIO *mem = HalvIO_Mem(16);
    HalvIO *foreign[1] = {mem};
    HalvIO *null[1] = {nullptr};
    EXPECT_EQ(HalvIOSelect(foreign, 1, nullptr, 0, 0), -1);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, foreign, 1, 0), -1);
    EXPECT_EQ(HalvIOSelect(null, 1, nullptr, 0, 0), -1);
    mem->close(mem);

    // A time-out is kept, roughly: not early, not for ever.
    Pair pair;
    Connect(pair, 1);
    HalvIO *list[1] = {pair.server};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 300), 2);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(250));
    EXPECT_LT(waited, std::chrono::seconds(10));

    // A peer that has closed makes the stream ready; its read gives 0.
    pair.client->close(pair.client);
    pair.client = nullptr;
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    char buffer[8];
    EXPECT_EQ(pair.server->read(pair.server, buffer, sizeof buffer), 0);

    // Forty connections: only the last one has data.
    HalvIO *listener = HalvIO_TcpSocket("127.0.0.1", 0, 64, 1);
    ASSERT_NE(listener, nullptr);
    uint16_t port = peer::PortOf(SocketOf(listener));
    std::vector<HalvIO *> clients, servers;
    for (int i = 0; i < 40; i++) {
        clients.push_back(HalvIO_TcpSocket("127.0.0.1", port, 0, 1));
        ASSERT_NE(clients.back(), nullptr);
        HalvIO *conn = nullptr;
        ASSERT_EQ(listener->read(listener, &conn, sizeof conn), 8);
        servers.push_back(conn);
    }
    EXPECT_EQ(HalvIOSelect(servers.data(), 40, nullptr, 0, 0), 2);
    EXPECT_EQ(clients.back()->write(clients.back(), "z", 1), 1);
    EXPECT_EQ(HalvIOSelect(servers.data(), 40, nullptr, 0, peer::kPatienceMs), 1);
    for (HalvIO *io : servers)
        EXPECT_EQ(EventMaskOf(io), 0u);
    EXPECT_EQ(servers.back()->read(servers.back(), buffer, 1), 1);
    for (size_t i = 0; i < clients.size(); i++) {
        clients[i]->close(clients[i]);
        servers[i]->close(servers[i]);
    }
    listener->close(listener);
}

TEST(NetTcp, FailuresGiveNullOrMinusOneAndNoSignal) {
    // A port that is bound but doesn't listen refuses the connection.
    int bound = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(bound, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    uint16_t deadPort = peer::PortOf(bound);
    EXPECT_EQ(HalvIO_TcpSocket("127.0.0.1", deadPort, 0, 1), nullptr);
    EXPECT_EQ(HalvIO_TcpSocket("127.0.0.1", deadPort, 0, 0), nullptr);
    // Listening on a port that is taken.
    EXPECT_EQ(HalvIO_TcpSocket("127.0.0.1", deadPort, 4, 1), nullptr);
    close(bound);
    // A host that can't be looked up.
    EXPECT_EQ(HalvIO_TcpSocket("", 80, 0, 1), nullptr);

    // Writing to a peer that has gone: -1, and the process lives on.
    Pair pair;
    Connect(pair, 1);
    pair.server->close(pair.server);
    pair.server = nullptr;
    std::string block = peer::Pattern(65536);
    int32_t result = 0;
    for (int i = 0; i < 10000 && result >= 0; i++)
        result = pair.client->write(pair.client, block.data(), 65536);
    EXPECT_EQ(result, -1);
    char buffer[8];
    int32_t got = pair.client->read(pair.client, buffer, sizeof buffer);
    EXPECT_TRUE(got == 0 || got == -1) << got;
}

TEST(NetTcp, SocketLayerAcrossEngineStartsAndStops) {
    HalvernDisableRegistryLoad(1);
    for (int round = 0; round < 3; round++) {
        ASSERT_EQ(HalvernInit(), 1);
        Pair pair;
        Connect(pair, round % 2);
        EXPECT_EQ(pair.client->write(pair.client, "r", 1), 1);
        EXPECT_EQ(ReadExactly(pair.server, 1), "r");
        pair.client->close(pair.client);
        pair.server->close(pair.server);
        pair.listener->close(pair.listener);
        pair = Pair();
        // The socket layer's cleanup runs in the last stop and succeeds.
        EXPECT_EQ(HalvernEnd(), 1);
    }
    // With the engine stopped, sockets work all the same.
    Pair pair;
    Connect(pair, 1);
    EXPECT_EQ(pair.client->write(pair.client, "s", 1), 1);
    EXPECT_EQ(ReadExactly(pair.server, 1), "s");
}

}  // namespace
