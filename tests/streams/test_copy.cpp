// HalvIOCopyBytes, HalvIOSkipBytes and HalvIOReadBlock against every slot
// answer, with the exact calls a back end of the caller's sees; would-block
// copies over real non-blocking pipes fed and drained by real threads.
#include <gtest/gtest.h>

#include <chrono>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/scripted_stream.h"

namespace {

using Counts = std::vector<uint32_t>;

std::string Pattern(size_t length) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; i++)
        bytes[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
    return bytes;
}

HalvIO *MemOver(const std::string &bytes) {
    HalvIO *io = HalvIO_Mem(0);
    HalvIOWriteBytes(io, bytes.data(), static_cast<uint32_t>(bytes.size()));
    io->seek(io, 0, 0);
    return io;
}

std::string MemBytes(HalvIO *io) {
    return std::string(static_cast<const char *>(HalvIOMemBuffer(io)), HalvIOMemLength(io));
}

TEST(StreamsCopyBytes, PassesOfAtMost4096AndTheCountGiven) {
    scripted::Script src, dst;
    src.source = Pattern(10000);
    HalvIO *in = scripted::Open(src);
    HalvIO *out = scripted::Open(dst);
    EXPECT_EQ(HalvIOCopyBytes(out, in, 5000), 5000);
    EXPECT_EQ(src.Counts('r'), (Counts{4096, 904}));
    EXPECT_EQ(dst.Counts('w'), (Counts{4096, 904}));
    EXPECT_EQ(dst.sink, src.source.substr(0, 5000));

    // Count 0: until the end, which the read after the last bytes reports.
    src.source = Pattern(4096);
    src.position = 0;
    src.calls.clear();
    dst.sink.clear();
    EXPECT_EQ(HalvIOCopyBytes(out, in, 0), 4096);
    EXPECT_EQ(src.Counts('r'), (Counts{4096, 4096}));
    EXPECT_EQ(dst.sink, src.source);

    // A count beyond the source ends at its end.
    src.position = 0;
    dst.sink.clear();
    EXPECT_EQ(HalvIOCopyBytes(out, in, 1 << 20), 4096);
    in->close(in);
    out->close(out);
}

TEST(StreamsCopyBytes, ShortReadsAndShortWritesAreCarriedOn) {
    scripted::Script src, dst;
    src.source = Pattern(6000);
    src.readPlan = {100, 7};
    dst.writePlan = {60, 30, 10, 5};
    HalvIO *in = scripted::Open(src);
    HalvIO *out = scripted::Open(dst);
    EXPECT_EQ(HalvIOCopyBytes(out, in, 0), 6000);
    EXPECT_EQ(dst.sink, src.source);
    EXPECT_EQ(src.Counts('r'), (Counts{4096, 4096, 4096, 4096, 4096}));
    // Each pass is written in as many calls as it takes, each for the rest.
    EXPECT_EQ(dst.Counts('w'), (Counts{100, 40, 10, 7, 2, 4096, 1797}));
    in->close(in);
    out->close(out);
}

TEST(StreamsCopyBytes, FailuresGiveMinusOne) {
    scripted::Script src, dst;
    src.source = Pattern(9000);
    HalvIO *in = scripted::Open(src);
    HalvIO *out = scripted::Open(dst);
    for (int32_t answer : {-1, -7}) {
        src.position = 0;
        src.readPlan = {4096, answer};
        EXPECT_EQ(HalvIOCopyBytes(out, in, 0), -1);
    }
    for (int32_t answer : {-1, -5, 0}) { // 0: a destination that takes nothing
        src.position = 0;
        src.readPlan.clear();
        dst.writePlan = {10, answer};
        EXPECT_EQ(HalvIOCopyBytes(out, in, 0), -1) << answer;
    }

    // A negative count makes no call at all.
    src.calls.clear();
    dst.calls.clear();
    EXPECT_EQ(HalvIOCopyBytes(out, in, -1), -1);
    EXPECT_EQ(HalvIOCopyBytes(out, in, INT64_MIN), -1);
    EXPECT_TRUE(src.calls.empty());
    EXPECT_TRUE(dst.calls.empty());
    in->close(in);
    out->close(out);
}

TEST(StreamsCopyBytes, BrokenSlotsCannotOverrunTheBuffer) {
    // A read that claims more bytes than the pass asked for, and a write
    // that claims more than it was offered, are failures.
    struct Liars {
        static int32_t Read(HalvIO *, void *, uint32_t count) { return static_cast<int32_t>(count) + 1; }
        static int32_t Write(HalvIO *, const void *, uint32_t count) { return static_cast<int32_t>(count) + 1; }
    };
    HalvIO liar = {};
    liar.read = Liars::Read;
    liar.write = Liars::Write;
    HalvIO *mem = MemOver("some bytes");
    EXPECT_EQ(HalvIOCopyBytes(mem, &liar, 10), -1);
    EXPECT_EQ(HalvIOCopyBytes(&liar, mem, 10), -1);
    mem->close(mem);
}

TEST(StreamsCopyBytes, InMemoryStreamsCopyLikeAnyOther) {
    std::string bytes = Pattern(100000);
    HalvIO *src = MemOver(bytes);
    HalvIO *dst = HalvIO_Mem(0);
    EXPECT_EQ(HalvIOCopyBytes(dst, src, 0), 100000);
    EXPECT_EQ(MemBytes(dst), bytes);
    // Capacity grew as 4096-byte writes grow it: doubling from 4096.
    EXPECT_EQ(HalvIOMemCapacity(dst), 131072u);
    EXPECT_EQ(src->seek(src, 0, 1), 100000);

    // Into a memory stream the copy leaves the capacity that writes of 4096
    // bytes each would, from any starting capacity and position.
    for (uint32_t initial : {0u, 10u, 4096u, 5000u})
        for (uint32_t at : {0u, 7u, 4096u})
            for (uint32_t length : {1u, 4096u, 20000u, 100000u}) {
                SCOPED_TRACE(std::to_string(initial) + " " + std::to_string(at) + " " + std::to_string(length));
                HalvIO *copied = HalvIO_Mem(initial), *written = HalvIO_Mem(initial);
                for (HalvIO *io : {copied, written})
                    io->seek(io, at, 0);
                src->seek(src, 0, 0);
                EXPECT_EQ(HalvIOCopyBytes(copied, src, length), length);
                for (uint32_t done = 0; done < length; done += 4096)
                    HalvIOWriteBytes(written, bytes.data() + done, std::min(4096u, length - done));
                EXPECT_EQ(HalvIOMemCapacity(copied), HalvIOMemCapacity(written));
                EXPECT_EQ(MemBytes(copied), MemBytes(written));
                copied->close(copied);
                written->close(written);
            }

    // From a position, with a count; into a sized string stream that fills.
    src->seek(src, 50, 0);
    std::string small(100, '\0');
    HalvIO *str = HalvIO_Str(small.data(), 100);
    EXPECT_EQ(HalvIOCopyBytes(str, src, 60), 60);
    EXPECT_EQ(small.substr(0, 60), bytes.substr(50, 60));
    EXPECT_EQ(small[60], '\0');
    EXPECT_EQ(HalvIOCopyBytes(str, src, 0), -1); // 40 taken, then 0
    EXPECT_EQ(small.substr(60), bytes.substr(110, 40));
    EXPECT_EQ(src->seek(src, 0, 1), 50 + 60 + 4096);

    // From a string stream, and within one memory stream: each pass is read
    // before it is written, so the copy sees the bytes as they were.
    str->seek(str, 0, 0);
    HalvIO *mem = HalvIO_Mem(4);
    EXPECT_EQ(HalvIOCopyBytes(mem, str, 0), 100); // a sized stream reads to its capacity
    EXPECT_EQ(MemBytes(mem), small);
    mem->close(mem);
    mem = MemOver("abcdef");
    EXPECT_EQ(HalvIOCopyBytes(mem, mem, 3), 3);
    EXPECT_EQ(MemBytes(mem), "abcabc");
    mem->seek(mem, 0, 0);
    EXPECT_EQ(HalvIOCopyBytes(mem, mem, 0), 6);
    EXPECT_EQ(MemBytes(mem), "abcabcabcabc");
    mem->close(mem);

    // A string stream over the memory stream's own buffer as the source:
    // the growing destination must not pull the bytes away under the copy.
    HalvIO *grow = MemOver(Pattern(3000));
    grow->seek(grow, 0, 2);
    HalvIO *view = HalvIO_Str(HalvIOMemBuffer(grow), 3000);
    EXPECT_EQ(HalvIOCopyBytes(grow, view, 3000), 3000);
    view->close(view);
    EXPECT_EQ(MemBytes(grow), Pattern(3000) + Pattern(3000));
    grow->close(grow);
    str->close(str);
    src->close(src);
    dst->close(dst);
}

// A back end over one end of a pipe in non-blocking mode: EAGAIN is -2.
struct PipeStream {
    HalvIO io;
    int32_t fd;
    std::atomic<int> *wouldBlocks;

    static PipeStream *Of(HalvIO *io) { return reinterpret_cast<PipeStream *>(io); }
    static int32_t Answer(ssize_t result, PipeStream *p) {
        if (result >= 0)
            return static_cast<int32_t>(result);
        if (errno == EAGAIN) {
            p->wouldBlocks->fetch_add(1);
            return -2;
        }
        return -1;
    }
    static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
        return Answer(::read(Of(io)->fd, buffer, count), Of(io));
    }
    static int32_t Write(HalvIO *io, const void *bytes, uint32_t count) {
        return Answer(::write(Of(io)->fd, bytes, count), Of(io));
    }
    static HalvIO *Open(int fd, std::atomic<int> *wouldBlocks) {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        auto *p = static_cast<PipeStream *>(halv_internal_calloc(1, sizeof(PipeStream)));
        p->io.read = Read;
        p->io.write = Write;
        p->io.close = [](HalvIO *io) { halv_internal_free(io); };
        p->fd = fd;
        p->wouldBlocks = wouldBlocks;
        return &p->io;
    }
};

TEST(StreamsCopyBytes, WouldBlockWaitsForTheSourceToBeReadable) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::atomic<int> wouldBlocks{0};
    HalvIO *src = PipeStream::Open(fds[0], &wouldBlocks);
    std::string bytes = Pattern(200000);
    // The writer starts only once the copy has found the pipe empty.
    std::thread writer([&] {
        for (int i = 0; i < 5000 && wouldBlocks.load() == 0; i++)
            usleep(1000);
        for (size_t at = 0; at < bytes.size();) {
            ssize_t put = ::write(fds[1], bytes.data() + at, std::min<size_t>(7000, bytes.size() - at));
            if (put > 0)
                at += static_cast<size_t>(put);
        }
        close(fds[1]);
    });
    HalvIO *dst = HalvIO_Mem(0);
    EXPECT_EQ(HalvIOCopyBytes(dst, src, 0), 200000);
    writer.join();
    EXPECT_GT(wouldBlocks.load(), 0);
    EXPECT_EQ(MemBytes(dst), bytes);
    dst->close(dst);
    src->close(src);
    close(fds[0]);
}

TEST(StreamsCopyBytes, WouldBlockWaitsForTheDestinationToBeWritable) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::atomic<int> wouldBlocks{0};
    HalvIO *dst = PipeStream::Open(fds[1], &wouldBlocks);
    std::string bytes = Pattern(300000); // several times a pipe's capacity
    std::string received;
    std::thread reader([&] {
        // Start draining only once the full pipe has made the copy wait, so
        // the wait happens however fast this thread would have been.
        for (int i = 0; i < 10000 && wouldBlocks.load() == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        char buffer[3000];
        ssize_t got;
        while ((got = ::read(fds[0], buffer, sizeof buffer)) != 0)
            if (got > 0)
                received.append(buffer, static_cast<size_t>(got));
    });
    HalvIO *src = MemOver(bytes);
    EXPECT_EQ(HalvIOCopyBytes(dst, src, 0), 300000);
    close(fds[1]);
    reader.join();
    EXPECT_GT(wouldBlocks.load(), 0);
    EXPECT_EQ(received, bytes);
    src->close(src);
    dst->close(dst);
    close(fds[0]);
}

TEST(StreamsCopyBytes, WouldBlockWithNothingToWaitOnFails) {
    // No descriptor, a descriptor that isn't open, and one that is ready but
    // whose stream keeps saying would-block: -1, and no hang.
    int devnull = open("/dev/null", O_RDWR | O_CLOEXEC);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    close(fds[0]);
    close(fds[1]);
    for (int32_t fd : {-1, fds[0], devnull}) {
        scripted::Script src, dst;
        src.source = "abc";
        src.readPlan = std::deque<int32_t>(20000, -2);
        HalvIO *in = scripted::Open(src, fd);
        HalvIO *out = scripted::Open(dst, fd);
        EXPECT_EQ(HalvIOCopyBytes(out, in, 0), -1) << fd;
        src.readPlan.clear();
        src.position = 0;
        dst.writePlan = std::deque<int32_t>(20000, -2);
        EXPECT_EQ(HalvIOCopyBytes(out, in, 0), -1) << fd;
        in->close(in);
        out->close(out);
    }
    close(devnull);
}

TEST(StreamsSkipBytes, SeekSettlesItWhateverPositionItReports) {
    scripted::Script s;
    s.source = Pattern(100);
    s.seekable = true;
    s.position = 3;
    HalvIO *io = scripted::Open(s);
    EXPECT_EQ(HalvIOSkipBytes(io, 2), 2); // the seek itself reports 5
    EXPECT_EQ(s.position, 5u);
    ASSERT_EQ(s.calls.size(), 1u);
    EXPECT_EQ(s.calls[0].slot, 's');
    EXPECT_EQ(s.calls[0].offset, 2);
    EXPECT_EQ(s.calls[0].whence, 1);
    io->close(io);

    // On memory streams a negative skip moves back and reports its count.
    HalvIO *mem = MemOver(Pattern(20));
    mem->seek(mem, 10, 0);
    EXPECT_EQ(HalvIOSkipBytes(mem, -5), -5);
    EXPECT_EQ(mem->seek(mem, 0, 1), 5);
    mem->close(mem);

    // A sized string stream refuses a seek to its end; the skip then reads.
    char text[] = "0123456789";
    HalvIO *str = HalvIO_Str(text, 10);
    EXPECT_EQ(HalvIOSkipBytes(str, 10), 10);
    char rest[4];
    EXPECT_EQ(str->read(str, rest, 4), 0);
    str->close(str);
}

TEST(StreamsSkipBytes, WithoutSeekReadsInPassesOf1024) {
    scripted::Script s;
    s.source = Pattern(3000);
    HalvIO *io = scripted::Open(s);
    EXPECT_EQ(HalvIOSkipBytes(io, 2500), 2500);
    EXPECT_EQ(s.Counts('r'), (Counts{1024, 1024, 452}));
    EXPECT_EQ(s.position, 2500u);

    // Shorter than the count: the stream's length.
    s.position = 1500;
    s.calls.clear();
    EXPECT_EQ(HalvIOSkipBytes(io, 5000), 1500);
    EXPECT_EQ(s.Counts('r'), (Counts{1024, 1024, 548}));

    // Zero and negative counts read nothing.
    s.calls.clear();
    EXPECT_EQ(HalvIOSkipBytes(io, 0), 0);
    EXPECT_EQ(HalvIOSkipBytes(io, -3), 0);
    EXPECT_EQ(s.Counts('r'), Counts{});

    // A failing read: -1; would-block is passed on.
    for (auto [answer, result] : {std::pair{-1, -1}, {-7, -1}, {-2, -2}}) {
        s.position = 0;
        s.readPlan = {1024, answer};
        EXPECT_EQ(HalvIOSkipBytes(io, 5000), result);
    }
    io->close(io);
}

TEST(StreamsReadBlock, SeekableStreamsAreReadWholeFromTheStart) {
    std::string bytes = Pattern(5000);
    HalvIO *mem = MemOver(bytes);
    mem->seek(mem, 2000, 0);
    char *data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(HalvIOReadBlock(mem, &data, &size), 1);
    EXPECT_EQ(size, 5000u);
    EXPECT_EQ(std::string(data, size), bytes);
    EXPECT_EQ(data[size], '\0');
    halv_internal_free(data);
    mem->close(mem);

    // An empty one gives a buffer that holds a NUL.
    mem = HalvIO_Mem(0);
    EXPECT_EQ(HalvIOReadBlock(mem, &data, &size), 1);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(data[0], '\0');
    halv_internal_free(data);
    mem->close(mem);

    // A short read frees the buffer: data null, result 0.
    scripted::Script s;
    s.source = "0123456789";
    s.seekable = true;
    s.readPlan = {5, 0};
    HalvIO *io = scripted::Open(s);
    data = reinterpret_cast<char *>(&size);
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    s.readPlan = {-1};
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    io->close(io);
}

TEST(StreamsReadBlock, LengthsBeyondTheLimitAndNullOutPointersAreRefused) {
    struct Huge {
        static int64_t Seek(HalvIO *, int64_t, int32_t) { return 0x7FFFFFFF; }
        static int32_t Read(HalvIO *, void *, uint32_t) { return -1; }
    };
    HalvIO huge = {};
    huge.seek = Huge::Seek;
    huge.read = Huge::Read;
    char sentinel;
    char *data = &sentinel;
    uint32_t size = 77;
    EXPECT_EQ(HalvIOReadBlock(&huge, &data, &size), 0);
    EXPECT_EQ(data, &sentinel);
    EXPECT_EQ(size, 77u);

    scripted::Script s;
    s.source = "abc";
    s.seekable = true;
    HalvIO *io = scripted::Open(s);
    EXPECT_EQ(HalvIOReadBlock(io, nullptr, &size), 0);
    EXPECT_EQ(HalvIOReadBlock(io, &data, nullptr), 0);
    EXPECT_TRUE(s.calls.empty());
    io->close(io);
}

TEST(StreamsReadBlock, StreamsThatCannotSeekAreReadFromWhereTheyStand) {
    scripted::Script s;
    s.source = "xx" + Pattern(3000);
    s.position = 2;
    HalvIO *io = scripted::Open(s);
    char *data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 1);
    EXPECT_EQ(size, 3000u);
    EXPECT_EQ(std::string(data, size), Pattern(3000));
    EXPECT_EQ(data[size], '\0');
    halv_internal_free(data);
    // Capacities 1024, 2048, 4096: each pass reads the rest of the capacity.
    EXPECT_EQ(s.Counts('r'), (Counts{1024, 1024, 2048, 1096}));

    // Exactly filling a capacity goes on, and the next pass finds the end.
    s.source = Pattern(1024);
    s.position = 0;
    s.calls.clear();
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 1);
    EXPECT_EQ(size, 1024u);
    EXPECT_EQ(s.Counts('r'), (Counts{1024, 1024}));
    halv_internal_free(data);

    // Empty: one NUL.
    s.position = s.source.size();
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 1);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(data[0], '\0');
    halv_internal_free(data);

    // Failures, and would-block, give 0 with data null.
    for (int32_t answer : {-1, -2}) {
        s.position = 0;
        s.readPlan = {100, answer};
        EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 0);
        EXPECT_EQ(data, nullptr);
    }
    io->close(io);

    // A seek answer that is negative but not -1 is no length either.
    struct OddSeek {
        static int64_t Seek(HalvIO *, int64_t, int32_t) { return -3; }
    };
    s = {};
    s.source = "odd";
    io = scripted::Open(s);
    io->seek = OddSeek::Seek;
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 1);
    EXPECT_STREQ(data, "odd");
    halv_internal_free(data);
    io->close(io);

    // A sized string stream refuses to seek to its end: read from the
    // position it stands on.
    char text[] = "hello world";
    HalvIO *str = HalvIO_Str(text, 11);
    str->seek(str, 6, 0);
    EXPECT_EQ(HalvIOReadBlock(str, &data, &size), 1);
    EXPECT_STREQ(data, "world");
    halv_internal_free(data);
    str->close(str);
}

} // namespace
