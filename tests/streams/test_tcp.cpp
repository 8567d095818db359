// TCP streams on 127.0.0.1: blocking and non-blocking modes, HalvIOSelect, copies
// between sockets, failures, and threads: first starts racing engine starts and stops,
// a select-driven echo server of library streams, parallel HTTP downloads.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/peer.h"

namespace {

using peer::ReadExactly;
using peer::SocketOf;

// The eventMask word behind the socket descriptor word.
uint32_t EventMaskOf(HalvIO *io) {
    uint32_t mask;
    std::memcpy(&mask, reinterpret_cast<const char *>(io) + sizeof(HalvIO) + sizeof(intptr_t), sizeof mask);
    return mask;
}

bool NonBlocking(HalvIO *io) { return (fcntl(SocketOf(io), F_GETFL) & O_NONBLOCK) != 0; }

uint16_t PortOf(HalvIO *io) { return peer::PortOf(SocketOf(io)); }

// A listener on 127.0.0.1, a client connected to it and the accepted end.
struct Pair {
    HalvIO *listener = nullptr, *client = nullptr, *server = nullptr;
    explicit Pair(int32_t blocking) {
        listener = HalvIO_TcpSocket("127.0.0.1", 0, 4, blocking);
        client = listener != nullptr ? HalvIO_TcpSocket("127.0.0.1", PortOf(listener), 0, blocking) : nullptr;
        HalvIO *list[1] = {listener};
        if (client != nullptr && HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs) == 1 &&
            listener->read(listener, &server, sizeof server) != 8)
            server = nullptr;
    }
    ~Pair() {
        for (HalvIO *io : {client, server, listener})
            if (io != nullptr)
                io->close(io);
    }
    bool ok() const { return server != nullptr; }
    void CloseClient() {
        client->close(client);
        client = nullptr;
    }
};

TEST(NetTcp, ClientAndListenerExchangeBytes) {
    Pair pair(1);
    ASSERT_TRUE(pair.ok());
    for (HalvIO *io : {pair.client, pair.server, pair.listener}) {
        EXPECT_TRUE(fcntl(SocketOf(io), F_GETFD) & FD_CLOEXEC);
        // No seek, nothing to flush, no auto-close flag.
        EXPECT_EQ(io->seek(io, 0, 0), -1);
        EXPECT_EQ(io->seek(io, 0, 2), -1);
        ASSERT_NE(io->flush, nullptr);
        io->flush(io);
        EXPECT_EQ(io->setAutoClose, nullptr);
    }
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
    std::thread writer(
        [&] { HalvIOWriteBytes(pair.server, down.data(), static_cast<uint32_t>(down.size())); });
    std::thread reader([&] { EXPECT_TRUE(ReadExactly(pair.server, up.size()) == up); });
    EXPECT_EQ(HalvIOWriteBytes(pair.client, up.data(), static_cast<uint32_t>(up.size())), 1 << 20);
    EXPECT_TRUE(ReadExactly(pair.client, down.size()) == down);
    writer.join();
    reader.join();

    // A listener hands out streams only by the pointer's size, and can't be
    // written.
    char buffer[16];
    EXPECT_EQ(pair.listener->read(pair.listener, buffer, 4), -1);
    EXPECT_EQ(pair.listener->read(pair.listener, buffer, 16), -1);
    EXPECT_EQ(pair.listener->write(pair.listener, "x", 1), -1);
    // The client's close reaches the other end as the end of the stream.
    pair.CloseClient();
    EXPECT_EQ(pair.server->read(pair.server, buffer, sizeof buffer), 0);
}

TEST(NetTcp, NonBlockingStreamsSayWouldBlockAndWaitInSelect) {
    HalvIO *listener = HalvIO_TcpSocket(nullptr, 0, 2, 0); // every local address
    ASSERT_NE(listener, nullptr);
    EXPECT_TRUE(NonBlocking(listener));
    HalvIO *conn = nullptr;
    HalvIO *accepting[1] = {listener};
    EXPECT_EQ(listener->read(listener, &conn, sizeof conn), -2);
    EXPECT_EQ(HalvIOSelect(accepting, 1, nullptr, 0, 0), 2);
    EXPECT_EQ(HalvIOSelect(accepting, 1, nullptr, 0, 100), 2);

    HalvIO *client = HalvIO_TcpSocket("127.0.0.1", PortOf(listener), 0, 0);
    ASSERT_NE(client, nullptr);
    EXPECT_TRUE(NonBlocking(client));
    ASSERT_EQ(HalvIOSelect(accepting, 1, nullptr, 0, peer::kPatienceMs), 1);
    ASSERT_EQ(listener->read(listener, &conn, sizeof conn), 8);
    EXPECT_TRUE(NonBlocking(conn));                              // the listener's mode
    EXPECT_EQ(listener->read(listener, &conn, sizeof conn), -2); // no second one waiting

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
    EXPECT_EQ(HalvIOSelect(writing, 1, writing, 1, 0), 2);
    EXPECT_EQ(ReadExactly(conn, sent).size(), sent);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, writing, 1, peer::kPatienceMs), 1);
    EXPECT_EQ(EventMaskOf(client), 0u);
    for (HalvIO *io : {client, conn, listener})
        io->close(io);
}

TEST(NetTcp, CopyBytesBetweenNonBlockingSocketsWaitsInSelect) {
    Pair in(0), out(0);
    ASSERT_TRUE(in.ok() && out.ok());
    std::string source = peer::Pattern(3 << 20, 5), received;
    // Feed in.client from one thread, drain out.server from another; copy
    // in.server to out.client here.  Both ends block now and then.
    std::thread feeder([&] {
        HalvIO *list[1] = {in.client};
        for (size_t at = 0, i = 0; i < 1000000 && at < source.size(); i++) {
            int32_t put =
                in.client->write(in.client, source.data() + at,
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
    HalvIO *mem = HalvIO_Mem(16);
    HalvIO *foreign[1] = {mem}, *null[1] = {nullptr};
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 0, 0), 2);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 0, 20), 2);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 0, -1), -1); // could never end
    EXPECT_EQ(HalvIOSelect(nullptr, 1, nullptr, 0, 0), -1);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, nullptr, 2, 0), -1);
    EXPECT_EQ(HalvIOSelect(foreign, 1, nullptr, 0, 0), -1);
    EXPECT_EQ(HalvIOSelect(nullptr, 0, foreign, 1, 0), -1);
    EXPECT_EQ(HalvIOSelect(null, 1, nullptr, 0, 0), -1);
    mem->close(mem);

    // A time-out is kept, roughly: not early, not for ever.
    Pair pair(1);
    ASSERT_TRUE(pair.ok());
    HalvIO *list[1] = {pair.server};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, 300), 2);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(250));
    EXPECT_LT(waited, std::chrono::seconds(10));
    // A peer that has closed makes the stream ready; its read gives 0.
    pair.CloseClient();
    EXPECT_EQ(HalvIOSelect(list, 1, nullptr, 0, peer::kPatienceMs), 1);
    char buffer[8];
    EXPECT_EQ(pair.server->read(pair.server, buffer, sizeof buffer), 0);

    // Forty connections: only the last one has data.
    HalvIO *listener = HalvIO_TcpSocket("127.0.0.1", 0, 64, 1);
    ASSERT_NE(listener, nullptr);
    std::vector<HalvIO *> clients, servers;
    for (int i = 0; i < 40; i++) {
        clients.push_back(HalvIO_TcpSocket("127.0.0.1", PortOf(listener), 0, 1));
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
    // A port that is bound but doesn't listen refuses the connection, and
    // can't be listened on by another socket.
    int bound = peer::BindLoopback(0);
    uint16_t deadPort = peer::PortOf(bound);
    EXPECT_EQ(HalvIO_TcpSocket("127.0.0.1", deadPort, 0, 1), nullptr);
    EXPECT_EQ(HalvIO_TcpSocket("127.0.0.1", deadPort, 0, 0), nullptr);
    EXPECT_EQ(HalvIO_TcpSocket("127.0.0.1", deadPort, 4, 1), nullptr);
    close(bound);
    EXPECT_EQ(HalvIO_TcpSocket("", 80, 0, 1), nullptr); // a host that can't be looked up

    // Writing to a peer that has gone: -1, and the process lives on.
    Pair pair(1);
    ASSERT_TRUE(pair.ok());
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

TEST(ThreadNet, FirstStartsRaceAcrossEngineStartsAndStops) {
    constexpr int kThreads = 6;
    HalvernDisableRegistryLoad(1);
    // Three engine lifetimes (the socket layer's cleanup runs in each last
    // stop and must succeed), then none: sockets work all the same.
    for (int round = 0; round < 4; round++) {
        bool engine = round < 3;
        if (engine) {
            ASSERT_EQ(HalvernInit(), 1);
        }
        std::atomic<int> good{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; t++)
            threads.emplace_back([&good, t] {
                Pair pair(1);
                std::string message = peer::Pattern(70000, static_cast<unsigned>(t));
                if (!pair.ok())
                    return;
                std::thread writer([&] {
                    HalvIOWriteBytes(pair.client, message.data(), static_cast<uint32_t>(message.size()));
                });
                if (ReadExactly(pair.server, message.size()) == message)
                    good++;
                writer.join();
            });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(good.load(), kThreads);
        if (engine) {
            EXPECT_EQ(HalvernEnd(), 1);
        }
    }
}

TEST(ThreadNet, SelectDrivenEchoServerOfLibraryStreams) {
    HalvIO *listener = HalvIO_TcpSocket("127.0.0.1", 0, 16, 0);
    ASSERT_NE(listener, nullptr);
    constexpr int kClients = 5, kRounds = 20;
    std::atomic<bool> serverFailed{false};
    std::thread server([&] {
        std::vector<HalvIO *> streams = {listener};
        int finished = 0;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        char buffer[8192];
        while (finished < kClients && std::chrono::steady_clock::now() < deadline) {
            int32_t ready =
                HalvIOSelect(streams.data(), static_cast<uint32_t>(streams.size()), nullptr, 0, 1000);
            if (ready == 2)
                continue;
            if (ready != 1) {
                serverFailed = true;
                break;
            }
            HalvIO *fresh = nullptr;
            while (listener->read(listener, &fresh, sizeof fresh) == 8)
                streams.push_back(fresh);
            for (size_t i = 1; i < streams.size();) {
                HalvIO *io = streams[i], *one[1] = {io};
                int32_t got = io->read(io, buffer, sizeof buffer);
                if (got == -2) {
                    i++;
                    continue;
                }
                if (got <= 0) {
                    io->close(io);
                    streams.erase(streams.begin() + static_cast<long>(i));
                    finished++;
                    continue;
                }
                // Echo, waiting for room when the client is slow to read.
                for (int32_t sent = 0; sent < got;) {
                    int32_t put = io->write(io, buffer + sent, static_cast<uint32_t>(got - sent));
                    if (put > 0)
                        sent += put;
                    else if (put != -2 || HalvIOSelect(nullptr, 0, one, 1, 10000) != 1)
                        break;
                }
                i++;
            }
        }
        for (size_t i = 1; i < streams.size(); i++)
            streams[i]->close(streams[i]);
    });

    std::atomic<int> good{0};
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; c++)
        clients.emplace_back([&, c] {
            HalvIO *io = HalvIO_TcpSocket("127.0.0.1", PortOf(listener), 0, 1);
            if (io == nullptr)
                return;
            bool same = true;
            for (int r = 0; r < kRounds && same; r++) {
                std::string message =
                    peer::Pattern(100 + 997 * static_cast<size_t>(r), static_cast<unsigned>(c * 31 + r));
                HalvIOWriteBytes(io, message.data(), static_cast<uint32_t>(message.size()));
                same = ReadExactly(io, message.size()) == message;
            }
            good += same;
            io->close(io);
        });
    for (std::thread &client : clients)
        client.join();
    server.join();
    listener->close(listener);
    EXPECT_FALSE(serverFailed.load());
    EXPECT_EQ(good.load(), kClients);
}

TEST(ThreadNet, ParallelDownloadsFromOneServer) {
    constexpr int kThreads = 6, kPerThread = 4;
    peer::Server server;
    const std::string body = peer::Pattern(200000, 17);
    const std::string responses[] = {
        peer::Response("Transfer-Encoding: chunked\r\n", peer::Chunked(body, 30000)),
        peer::Response("Content-Length: 200000\r\n", body)};
    std::atomic<int> served{0}, good{0};
    server.Serve(
        [&](int fd) {
            peer::ReadHead(fd);
            peer::SendAll(fd, responses[served.fetch_add(1) % 2]);
        },
        kThreads * kPerThread);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < kPerThread; i++) {
                HalvIO *io = HalvIO_URL(server.Url("/file").c_str(), "r");
                if (io == nullptr)
                    continue;
                HalvIO *mem = HalvIO_Mem(0);
                if (HalvIOCopyBytes(mem, io, 0) == static_cast<int64_t>(body.size()) &&
                    std::string(static_cast<char *>(HalvIOMemBuffer(mem)), HalvIOMemLength(mem)) == body)
                    good++;
                mem->close(mem);
                io->close(io);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    server.Join();
    EXPECT_EQ(good.load(), kThreads * kPerThread);
}

} // namespace
