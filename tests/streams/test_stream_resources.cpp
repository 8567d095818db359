// Streams of every back end, opened and closed in long loops and with an allocation
// failing at every step of their opening: afterwards the process holds as many
// descriptors and library blocks as before.
//
// The failures come from this program's own halv_internal_malloc, _calloc, _realloc and
// _free: the library calls those exported names through the dynamic linker, so these
// replace them for the whole library in this program only (the library has no hook).
// They count the blocks that are out and can fail the n-th allocation from now.
//
// 100,000 rounds per back end, 10,000 under a sanitizer; sockets 2,000 (200): each
// round leaves a connection in TIME_WAIT, and loopback has under 30,000 ports to give.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "sanitized_build.h"
#include "streams/file_fixture.h"
#include "streams/peer.h"

namespace {

std::atomic<long> gBlocksOut{0};
std::atomic<long> gFailIn{0};  // 0: off; n: the n-th allocation from now fails
std::atomic<long> gFailed{0};

bool FailThisOne() {
    long left = gFailIn.load();
    while (left > 0) {
        if (gFailIn.compare_exchange_weak(left, left - 1))
            break;
    }
    if (left == 1) {
        gFailed.fetch_add(1);
        return true;
    }
    return false;
}

void *Counted(void *block) {
    if (block != nullptr)
        gBlocksOut.fetch_add(1);
    return block;
}

}  // namespace

extern "C" {

void *halv_internal_malloc(size_t size) noexcept {
    return FailThisOne() ? nullptr : Counted(std::malloc(size));
}

void *halv_internal_calloc(size_t count, size_t size) noexcept {
    return FailThisOne() ? nullptr : Counted(std::calloc(count, size));
}

void *halv_internal_realloc(void *ptr, size_t size) noexcept {
    if (ptr != nullptr && size == 0) {
        std::free(ptr);
        gBlocksOut.fetch_sub(1);
        return nullptr;
    }
    if (FailThisOne())
        return nullptr;
    void *block = std::realloc(ptr, size);
    if (block != nullptr && ptr == nullptr)
        gBlocksOut.fetch_add(1);
    return block;
}

void halv_internal_free(void *ptr) noexcept {
    if (ptr != nullptr)
        gBlocksOut.fetch_sub(1);
    std::free(ptr);
}

}  // extern "C"

namespace {

constexpr int kRounds = halvtest::ScaledRounds(100000);
constexpr int kSocketRounds = halvtest::ScaledRounds(2000);

using files_test::OpenDescriptors;

// One back end: open makes a stream (null on failure) and leaves nothing else behind
// once it is closed and FinishRound has run.
struct Backend {
    std::string name;
    std::function<HalvIO *()> open;
    int rounds = kRounds;
};

class StreamResources : public ::testing::Test {
public:
    void SetUp() override {
        ASSERT_FALSE(dir_.path().empty());
        file_ = dir_ / "file.bin";
        ASSERT_TRUE(files_test::WriteFile(file_, "0123456789"));
        listener_ = HalvIO_TcpSocket(nullptr, 0, 64, 1);
    }
    void TearDown() override {
        if (listener_ != nullptr)
            listener_->close(listener_);
    }

    std::vector<Backend> Backends() {
        static char text[] = "some text";
        std::vector<Backend> all = {
            {"str", [] { return HalvIO_Str(text, sizeof text); }},
            {"mem", [] { return HalvIO_Mem(64); }},
            {"multiplex",
             [] {
                 HalvIO *parts[2] = {nullptr, nullptr};
                 return HalvIO_Multiplex(parts, 2);
             }},
            {"file name", [this] { return HalvIO_FileName(file_.c_str(), "rb"); }},
            {"temporary", [this] { return HalvIO_Mktemp((dir_.path() + "/").c_str()); }},
            {"fd",
             [this] {
                 int fd = open(file_.c_str(), O_RDONLY | O_CLOEXEC);
                 HalvIO *io = HalvIO_FD(fd);
                 if (io == nullptr)
                     close(fd);
                 else
                     io->setAutoClose(io, 1);
                 return io;
             }},
            {"fp",
             [this] {
                 FILE *fp = HalvFOpen(file_.c_str(), "rb");
                 HalvIO *io = HalvIO_FP(fp);
                 if (io == nullptr && fp != nullptr)
                     fclose(fp);
                 else if (io != nullptr)
                     io->setAutoClose(io, 1);
                 return io;
             }},
            {"smart buffer",
             [] {
                 // The stream and the buffer under it, as one: the buffer is
                 // freed by the stream's finish below.
                 HalvSmartBuffer *sb = HalvSBInit(1, 1024);
                 HalvIO *io = HalvIO_SB(sb);
                 if (io == nullptr)
                     HalvSBFree(sb);
                 else
                     buffers_.push_back(sb);
                 return io;
             }},
        };
        if (listener_ != nullptr) {
            uint16_t port = peer::PortOf(peer::SocketOf(listener_));
            all.push_back({"tcp client",
                           [this, port] {
                               HalvIO *io = HalvIO_TcpSocket("127.0.0.1", port, 0, 1);
                               AcceptAndDrop();
                               return io;
                           },
                           kSocketRounds});
            // A PUT reads no answer, so the unaccepted backlog is all the
            // server it needs.
            all.push_back({"url put",
                           [this, port] {
                               std::string url = "http://127.0.0.1:" + std::to_string(port) + "/x";
                               HalvIO *io = HalvIO_URL(url.c_str(), "w");
                               AcceptAndDrop();
                               return io;
                           },
                           kSocketRounds});
            all.push_back({"listener", [] { return HalvIO_TcpSocket("127.0.0.1", 0, 4, 0); },
                           kSocketRounds});
        }
        return all;
    }

    // Frees the smart buffers of closed "smart buffer" streams.
    void FinishRound() {
        for (HalvSmartBuffer *sb : buffers_)
            HalvSBFree(sb);
        buffers_.clear();
    }

    // Accepts one connection, if one waits, and closes it.
    void AcceptAndDrop() {
        HalvIO *list[1] = {listener_};
        if (HalvIOSelect(list, 1, nullptr, 0, 0) != 1)
            return;
        HalvIO *connection = nullptr;
        if (listener_->read(listener_, &connection, sizeof connection) == sizeof connection)
            connection->close(connection);
    }

    files_test::ScratchDir dir_;
    std::string file_;
    HalvIO *listener_ = nullptr;
    static inline std::vector<HalvSmartBuffer *> buffers_;
};

TEST_F(StreamResources, StreamsOpenedAndClosedInALoopLeaveNothingBehind) {
    ASSERT_NE(listener_, nullptr);
    for (const Backend &b : Backends()) {
        SCOPED_TRACE(b.name);
        size_t fds = OpenDescriptors();
        long blocks = gBlocksOut.load();
        for (int i = 0; i < b.rounds; i++) {
            HalvIO *io = b.open();
            ASSERT_NE(io, nullptr) << "round " << i;
            io->close(io);
            FinishRound();
        }
        EXPECT_EQ(OpenDescriptors(), fds);
        EXPECT_EQ(gBlocksOut.load(), blocks);
    }
}

TEST_F(StreamResources, AnAllocationFailingAtEveryStepOfAnOpenLeaksNothing) {
    ASSERT_NE(listener_, nullptr);
    for (const Backend &b : Backends()) {
        SCOPED_TRACE(b.name);
        size_t fds = OpenDescriptors();
        long blocks = gBlocksOut.load();
        // Fail the first allocation, then the second, ... until an open
        // gets through with the failure still pending: every step was hit.
        int steps = 0;
        for (long step = 1; step < 1000; step++) {
            long failedBefore = gFailed.load();
            gFailIn.store(step);
            HalvIO *io = b.open();
            bool hit = gFailed.load() != failedBefore;
            gFailIn.store(0);
            if (io != nullptr)
                io->close(io);
            FinishRound();
            EXPECT_EQ(OpenDescriptors(), fds) << "failure at allocation " << step;
            EXPECT_EQ(gBlocksOut.load(), blocks) << "failure at allocation " << step;
            if (!hit) {
                ASSERT_NE(io, nullptr) << "no failure injected, and still no stream";
                break;
            }
            steps++;
        }
        // Every back end allocates its record: at least one step was hit.
        EXPECT_GE(steps, 1);
    }
}

}  // namespace
