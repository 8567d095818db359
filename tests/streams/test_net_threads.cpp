// Sockets from several threads at once: the socket layer's first start
// racing in many threads, a select-driven echo server of library streams
// serving client threads, and parallel HTTP downloads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/peer.h"

namespace {

constexpr int kThreads = 6;

// Reads exactly length bytes from a blocking stream.
std::string ReadExactly(HalvIO *io, size_t length) {
    std::string bytes(length, '\0');
    int32_t got = HalvIOReadBytes(io, bytes.data(), static_cast<uint32_t>(length));
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return bytes;
}

TEST(ThreadNet, FirstStartsRaceAndEveryPairWorks) {
    HalvernDisableRegistryLoad(1);
    for (bool engineRunning : {true, false}) {
        if (engineRunning) {
            ASSERT_EQ(HalvernInit(), 1);
        }
        std::atomic<int> good{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; t++)
            threads.emplace_back([&, t] {
                HalvIO *listener = HalvIO_TcpSocket("127.0.0.1", 0, 1, 1);
                if (listener == nullptr)
                    return;
                HalvIO *client = HalvIO_TcpSocket("127.0.0.1", peer::PortOf(peer::SocketOf(listener)), 0, 1);
                HalvIO *server = nullptr;
                if (client != nullptr && listener->read(listener, &server, sizeof server) == 8) {
                    std::string message = peer::Pattern(70000, static_cast<unsigned>(t));
                    std::thread writer([&] {
                        HalvIOWriteBytes(client, message.data(), static_cast<uint32_t>(message.size()));
                    });
                    if (ReadExactly(server, message.size()) == message)
                        good++;
                    writer.join();
                    server->close(server);
                }
                if (client != nullptr)
                    client->close(client);
                listener->close(listener);
            });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(good.load(), kThreads);
        if (engineRunning) {
            EXPECT_EQ(HalvernEnd(), 1);
        }
    }
}

TEST(ThreadNet, SelectDrivenEchoServerOfLibraryStreams) {
    HalvIO *listener = HalvIO_TcpSocket("127.0.0.1", 0, 16, 0);
    ASSERT_NE(listener, nullptr);
    uint16_t port = peer::PortOf(peer::SocketOf(listener));
    constexpr int kClients = 5, kRounds = 20;

    std::atomic<bool> serverFailed{false};
    std::thread server([&] {
        std::vector<HalvIO *> streams = {listener};
        int finished = 0;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        char buffer[8192];
        while (finished < kClients && std::chrono::steady_clock::now() < deadline) {
            int32_t ready = HalvIOSelect(streams.data(), static_cast<uint32_t>(streams.size()), nullptr, 0, 1000);
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
                HalvIO *io = streams[i];
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
                HalvIO *one[1] = {io};
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
            HalvIO *io = HalvIO_TcpSocket("127.0.0.1", port, 0, 1);
            if (io == nullptr)
                return;
            bool same = true;
            for (int r = 0; r < kRounds && same; r++) {
                std::string message = peer::Pattern(100 + 997 * static_cast<size_t>(r), static_cast<unsigned>(c * 31 + r));
                HalvIOWriteBytes(io, message.data(), static_cast<uint32_t>(message.size()));
                same = ReadExactly(io, message.size()) == message;
            }
            if (same)
                good++;
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
    constexpr int kPerThread = 4;
    peer::Server server;
    std::string body = peer::Pattern(200000, 17);
    std::string chunkedBody;
    for (size_t at = 0; at < body.size(); at += 30000) {
        size_t n = std::min<size_t>(30000, body.size() - at);
        char size[48];
        std::snprintf(size, sizeof size, "%zx;i=%zu", n, at);
        chunkedBody += std::string(size) + "\r\n" + body.substr(at, n) + "\r\n";
    }
    chunkedBody += "0\r\n\r\n";
    std::atomic<int> served{0};
    server.Serve(
        [&](int fd) {
            peer::ReadHead(fd);
            bool chunked = served.fetch_add(1) % 2 == 0;
            peer::SendAll(fd, chunked ? peer::Response("Transfer-Encoding: chunked\r\n", chunkedBody)
                                      : peer::Response("Content-Length: 200000\r\n", body));
        },
        kThreads * kPerThread);
    std::atomic<int> good{0};
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

}  // namespace
