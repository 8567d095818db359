// The operations over any back end (byte loops, line readers, copy, skip, block read)
// against every answer a slot can give, with the exact calls a caller's back end sees;
// the in-memory line scan against one-byte reads; would-block copies over real pipes.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/support.h"

namespace {

using scripted::Counts;
using scripted::MemBytes;
using scripted::MemOver;
using scripted::Pattern;

TEST(StreamsRecord, SlotsSitWhereHostsExpectThem) {
    EXPECT_EQ(offsetof(HalvIO, copy), 0u);
    EXPECT_EQ(offsetof(HalvIO, reservedWord), 8u);
    EXPECT_EQ(offsetof(HalvIO, close), 16u);
    EXPECT_EQ(offsetof(HalvIO, read), 24u);
    EXPECT_EQ(offsetof(HalvIO, write), 32u);
    EXPECT_EQ(offsetof(HalvIO, flush), 40u);
    EXPECT_EQ(offsetof(HalvIO, seek), 48u);
    EXPECT_EQ(offsetof(HalvIO, setAutoClose), 56u);
    EXPECT_EQ(sizeof(HalvIO), 64u);

    // The library's constructors: copy slot null, word zero, flush and seek
    // always filled, setAutoClose only where the stream can own a resource.
    char text[8] = "abc";
    HalvIO *str = HalvIO_Str(text, sizeof text), *mem = HalvIO_Mem(0), *multi = HalvIO_Multiplex(&str, 1);
    for (HalvIO *io : {str, mem, multi}) {
        ASSERT_NE(io, nullptr);
        EXPECT_EQ(io->copy, nullptr);
        EXPECT_EQ(io->reservedWord, 0u);
        EXPECT_TRUE(io->close && io->read && io->write && io->flush && io->seek);
    }
    EXPECT_NE(str->setAutoClose, nullptr);
    EXPECT_EQ(mem->setAutoClose, nullptr);
    EXPECT_EQ(multi->setAutoClose, nullptr);
    for (HalvIO *io : {multi, mem, str})
        io->close(io);
}

TEST(StreamsReadWriteBytes, LoopOverShortAnswersAndPassNegativeOnesOn) {
    const struct {
        std::string source;
        std::deque<int32_t> plan;
        uint32_t count;
        int32_t result;
        Counts calls;
    } reads[] = {
        {"0123456789", std::deque<int32_t>(10, 1), 10, 10, {10, 9, 8, 7, 6, 5, 4, 3, 2, 1}},
        {"abcdefgh", {3, 2}, 12, 8, {12, 9, 7, 4}}, // then the end of the source
        {"abcdefgh", {2, 0, 5}, 8, 2, {8, 6}},     // a 0 ends the loop
        // Negative answers win over earlier bytes.
        {std::string(100, 'x'), {4, -1, 4}, 50, -1, {50, 46}},
        {std::string(100, 'x'), {4, -2, 4}, 50, -2, {50, 46}},
        {std::string(100, 'x'), {4, -7, 4}, 50, -7, {50, 46}},
        {"abc", {-1}, 5, -1, {5}},
        {"abc", {-1}, 0, 0, {}}, // count 0 makes no call
    };
    for (const auto &row : reads) {
        SCOPED_TRACE(row.source.substr(0, 10) + " " + std::to_string(row.count));
        scripted::Script s;
        s.source = row.source;
        s.readPlan = row.plan;
        HalvIO *io = scripted::Open(s);
        char buffer[100];
        EXPECT_EQ(HalvIOReadBytes(io, buffer, row.count), row.result);
        EXPECT_EQ(s.Counts('r'), row.calls);
        EXPECT_EQ(std::string(buffer, static_cast<size_t>(std::max(row.result, 0))),
                  row.source.substr(0, static_cast<size_t>(std::max(row.result, 0))));
        io->close(io);
    }

    const struct {
        std::deque<int32_t> plan;
        uint32_t count;
        int32_t result;
        const char *sink;
        Counts calls;
    } writes[] = {
        {{3, 1, 2}, 10, 10, "abcdefghij", {10, 7, 6, 4}},
        {{4, 0, 5}, 10, 4, "abcd", {10, 6}}, // nothing accepted ends the loop
        // Negative answers are the result; the bytes before go unreported.
        {{4, -1}, 10, -1, "abcd", {10, 6}},
        {{4, -2}, 10, -2, "abcd", {10, 6}},
        {{-1}, 0, 0, "", {}},
    };
    for (const auto &row : writes) {
        scripted::Script s;
        s.writePlan = row.plan;
        HalvIO *io = scripted::Open(s);
        EXPECT_EQ(HalvIOWriteBytes(io, "abcdefghij", row.count), row.result);
        EXPECT_EQ(s.sink, row.sink);
        EXPECT_EQ(s.Counts('w'), row.calls);
        io->close(io);
    }
}

TEST(StreamsWriteString, OneCallWithTheWholeTextNoLoop) {
    const struct {
        std::deque<int32_t> plan;
        const char *text;
        int32_t result;
        Counts calls;
    } rows[] = {
        {{3}, "hello", 3, {5}}, {{0}, "hello", 0, {5}},         {{-1}, "hello", -1, {5}},
        {{-2}, "hello", -2, {5}}, {{}, "all of it", 9, {9}}, {{}, nullptr, 0, {}},
    };
    for (const auto &row : rows) {
        scripted::Script s;
        s.writePlan = row.plan;
        HalvIO *io = scripted::Open(s);
        EXPECT_EQ(HalvIOWriteString(io, row.text), row.result);
        EXPECT_EQ(s.Counts('w'), row.calls);
        io->close(io);
    }
    // The empty text is one call with count 0, which a sized string stream
    // answers by terminating its buffer.
    char buffer[8] = "zzzzzzz";
    HalvIO *str = HalvIO_Str(buffer, sizeof buffer);
    EXPECT_EQ(HalvIOWriteString(str, ""), 0);
    EXPECT_EQ(buffer[0], '\0');
    str->close(str);
}

TEST(StreamsGeneric, SlotsClaimingMoreThanOfferedCannotOverrun) {
    // A broken back end says more than it was asked or offered: the byte
    // loops end with the count asked and never index past the buffer; the
    // copy fails.
    struct Liar {
        static int32_t Read(HalvIO *, void *buffer, uint32_t count) {
            std::memset(buffer, 'L', count);
            return static_cast<int32_t>(count) + 40;
        }
        static int32_t Write(HalvIO *, const void *, uint32_t count) {
            return static_cast<int32_t>(count) + 1;
        }
    };
    HalvIO liar = {};
    liar.read = Liar::Read;
    liar.write = Liar::Write;
    char buffer[11] = {};
    EXPECT_EQ(HalvIOReadBytes(&liar, buffer, 10), 10);
    EXPECT_EQ(std::string(buffer), std::string(10, 'L'));
    HalvIO *mem = MemOver("some bytes");
    EXPECT_EQ(HalvIOCopyBytes(mem, &liar, 10), -1);
    EXPECT_EQ(HalvIOCopyBytes(&liar, mem, 10), -1);
    mem->close(mem);
}

TEST(StreamsGeneric, ReadOnlyRecordWorksWithReadingOperations) {
    // A record laid out in local storage with only read filled, as a header
    // reader gets it: every reading operation uses read alone, and those that
    // need another slot report failure instead of calling through null.
    scripted::Script s;
    s.source = "line one\nline two\n";
    HalvIO *inner = scripted::Open(s);
    struct PassThrough {
        HalvIO io;
        HalvIO *inner;
        static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
            HalvIO *in = reinterpret_cast<PassThrough *>(io)->inner;
            return in->read(in, buffer, count);
        }
    } record = {};
    record.io.read = PassThrough::Read;
    record.inner = inner;
    HalvIO *io = &record.io;
    char line[32];
    EXPECT_EQ(HalvIOReadString(io, line, 31), 9);
    EXPECT_STREQ(line, "line one");
    EXPECT_EQ(HalvIOSkipBytes(io, 5), 5);
    char *data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 1);
    EXPECT_STREQ(data, "two\n");
    EXPECT_EQ(size, 4u);
    halv_internal_free(data);
    EXPECT_EQ(HalvIOWriteBytes(io, "x", 1), -1);
    EXPECT_EQ(HalvIOWriteString(io, "x"), -1);
    EXPECT_EQ(HalvIOCopyBytes(io, io, 0), -1);
    for (const scripted::Call &call : s.calls)
        EXPECT_EQ(call.slot, 'r');
    inner->close(inner);
}

// HalvIOReadString drops CR, ends at LF and counts both, limited by max bytes
// consumed; HalvIOGets keeps LF, drops CR without counting it against max,
// and gives whether anything was stored.  Both read one byte per call.
TEST(StreamsLines, ReadStringAndGetsSplitTrimAndLimit) {
    struct Step {
        int32_t max, result;
        const char *text;
        size_t position = SIZE_MAX; // where the source stands after the call
    };
    const struct {
        bool gets;
        std::string source;
        std::vector<Step> steps;
        size_t reads = SIZE_MAX; // read calls in all, when it matters
    } rows[] = {
        // 4 bytes, and the end seen by two calls.
        {false, "a\r\nb", {{63, 3, "a"}, {63, 1, "b"}, {63, 0, ""}}, 6},
        // An empty line consumes its LF and gives 1; a lone CR is dropped
        // and counted.
        {false, "\nx\ry\n", {{63, 1, ""}, {63, 4, "xy"}}},
        {false, "ab\r\r\ncd\n", {{3, 3, "ab"}, {3, 2, ""}, {2, 2, "cd", 7}, {2, 1, "", 8}}},
        {false, "abc", {{0, 0, "", 0}, {-1, 0, "", 0}, {INT32_MIN, 0, "", 0}}}, // max < 1 reads nothing
        {true, "a\r\nb", {{63, 1, "a\n"}, {63, 1, "b"}, {63, 0, ""}}},
        {true, "\r", {{63, 0, "", 1}}}, // a CR alone: nothing stored, but consumed
        // The CR behind b is not touched once max bytes are stored.
        {true, "a\r\rb\rc\nd", {{2, 1, "ab", 4}, {2, 1, "c\n"}, {1, 1, "d"}, {0, 0, "", 8}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.source));
        scripted::Script s;
        s.source = row.source;
        HalvIO *io = scripted::Open(s);
        for (const Step &step : row.steps) {
            char buffer[64] = "q";
            int32_t got = row.gets ? HalvIOGets(io, buffer, static_cast<uint32_t>(step.max))
                                   : HalvIOReadString(io, buffer, step.max);
            EXPECT_EQ(got, step.result) << step.max;
            EXPECT_STREQ(buffer, step.text);
            EXPECT_TRUE(step.position == SIZE_MAX || s.position == step.position) << s.position;
        }
        for (uint32_t count : s.Counts('r'))
            EXPECT_EQ(count, 1u);
        EXPECT_TRUE(row.reads == SIZE_MAX || s.Counts('r').size() == row.reads);
        io->close(io);
    }

    // A failure ends ReadString with -1 and the line so far; would-block is
    // passed on for the caller to wait and retry.  For Gets any answer but 1
    // ends the line like the end.
    scripted::Script s;
    s.source = "abcdefgh";
    HalvIO *io = scripted::Open(s);
    char buffer[16];
    for (int32_t answer : {-1, -7}) {
        s.readPlan = {1, 1, answer};
        EXPECT_EQ(HalvIOReadString(io, buffer, 15), -1);
        EXPECT_EQ(std::string(buffer), s.source.substr(s.position - 2, 2));
    }
    s.readPlan = {-2};
    EXPECT_EQ(HalvIOReadString(io, buffer, 15), -2);
    EXPECT_STREQ(buffer, "");
    for (int32_t answer : {0, -1, -2}) {
        s.position = 0;
        s.readPlan = {1, answer};
        EXPECT_EQ(HalvIOGets(io, buffer, 15), 1) << answer;
        EXPECT_STREQ(buffer, "a");
        s.readPlan = {answer};
        EXPECT_EQ(HalvIOGets(io, buffer, 15), 0) << answer;
        EXPECT_STREQ(buffer, "");
    }
    io->close(io);
}

// The in-memory fast path must give what one-byte reads give: the same
// buffer, the same result and the same position after every call.
TEST(StreamsLines, InMemoryStreamsMatchByteByByteReading) {
    std::mt19937 random(20240611);
    const char alphabet[] = {'a', 'b', '\r', '\n', '\r', 'c', '\n', 'x'};
    for (int round = 0; round < 400; round++) {
        std::string text;
        for (size_t i = 0, length = random() % 60; i < length; i++)
            text += alphabet[random() % sizeof alphabet];
        int32_t max = static_cast<int32_t>(random() % 12);
        bool gets = (round & 1) != 0;
        auto line = [&](HalvIO *io, char *buffer) {
            return gets ? HalvIOGets(io, buffer, static_cast<uint32_t>(max))
                        : HalvIOReadString(io, buffer, max);
        };
        scripted::Script s;
        s.source = text;
        HalvIO *slow = scripted::Open(s), *mem = MemOver(text);
        // A sized string stream over zero bytes has nothing to compare.
        HalvIO *str = text.empty() ? nullptr : HalvIO_Str(text.data(), static_cast<uint32_t>(text.size()));
        for (int call = 0; call < 80; call++) {
            char expected[16], got[16];
            int32_t want = line(slow, expected);
            ASSERT_EQ(line(mem, got), want) << "round " << round << " call " << call;
            ASSERT_STREQ(got, expected);
            ASSERT_EQ(mem->seek(mem, 0, 1), static_cast<int64_t>(s.position));
            if (str != nullptr) {
                ASSERT_EQ(line(str, got), want);
                ASSERT_STREQ(got, expected);
            }
        }
        for (HalvIO *io : {slow, mem, str})
            if (io != nullptr)
                io->close(io);
    }

    // An unsized string stream stops at the text's NUL.
    char text[32] = "one\r\ntwo";
    std::memcpy(text + 9, "hidden", 7);
    HalvIO *io = HalvIO_Str(text, 0);
    char buffer[32];
    EXPECT_EQ(HalvIOReadString(io, buffer, 31), 5);
    EXPECT_STREQ(buffer, "one");
    EXPECT_EQ(HalvIOGets(io, buffer, 31), 1);
    EXPECT_STREQ(buffer, "two");
    EXPECT_EQ(HalvIOGets(io, buffer, 31), 0);
    io->close(io);

    // Long lines in memory are cut at the limit.
    io = MemOver(std::string(10000, 'x') + "\r\nend\n");
    std::vector<char> line(4097);
    EXPECT_EQ(HalvIOReadString(io, line.data(), 4096), 4096);
    EXPECT_EQ(std::strlen(line.data()), 4096u);
    EXPECT_EQ(HalvIOGets(io, line.data(), 4096), 1);
    EXPECT_EQ(std::strlen(line.data()), 4096u);
    EXPECT_EQ(HalvIOReadString(io, line.data(), 4096), 1808 + 2);
    EXPECT_EQ(std::strlen(line.data()), 1808u);
    EXPECT_EQ(HalvIOGets(io, line.data(), 4096), 1);
    EXPECT_STREQ(line.data(), "end\n");
    io->close(io);
}

TEST(StreamsCopyBytes, PassesOfAtMost4096ShortAnswersAndFailures) {
    const struct {
        size_t length;
        int64_t count, result;
        std::deque<int32_t> readPlan, writePlan;
        Counts reads, writes;
    } rows[] = {
        {10000, 5000, 5000, {}, {}, {4096, 904}, {4096, 904}},
        // Count 0: until the end, which the read after the last bytes reports.
        {4096, 0, 4096, {}, {}, {4096, 4096}, {4096}},
        {4096, 1 << 20, 4096, {}, {}, {4096, 4096}, {4096}}, // a count beyond the end
        // Each pass is written in as many calls as it takes, each for the rest.
        {6000, 0, 6000, {100, 7}, {60, 30, 10, 5}, {4096, 4096, 4096, 4096, 4096},
         {100, 40, 10, 7, 2, 4096, 1797}},
        // Failures of either side give -1 (a destination that takes nothing
        // fails too); a negative count makes no call.
        {9000, 0, -1, {4096, -1}, {}, {4096, 4096}, {4096}},
        {9000, 0, -1, {4096, -7}, {}, {4096, 4096}, {4096}},
        {9000, 0, -1, {}, {10, -1}, {4096}, {4096, 4086}},
        {9000, 0, -1, {}, {10, -5}, {4096}, {4096, 4086}},
        {9000, 0, -1, {}, {10, 0}, {4096}, {4096, 4086}},
        {9000, -1, -1, {}, {}, {}, {}},
        {9000, INT64_MIN, -1, {}, {}, {}, {}},
    };
    for (const auto &row : rows) {
        scripted::Script src, dst;
        src.source = Pattern(row.length);
        src.readPlan = row.readPlan;
        dst.writePlan = row.writePlan;
        HalvIO *in = scripted::Open(src), *out = scripted::Open(dst);
        EXPECT_EQ(HalvIOCopyBytes(out, in, row.count), row.result);
        EXPECT_EQ(src.Counts('r'), row.reads);
        EXPECT_EQ(dst.Counts('w'), row.writes);
        if (row.result >= 0) {
            EXPECT_EQ(dst.sink, src.source.substr(0, static_cast<size_t>(row.result)));
        }
        in->close(in);
        out->close(out);
    }
}

TEST(StreamsCopyBytes, InMemoryStreamsCopyLikeAnyOther) {
    std::string bytes = Pattern(100000);
    HalvIO *src = MemOver(bytes);
    // Into a memory stream the copy leaves the capacity that writes of 4096
    // bytes each would, from any starting capacity and position.
    for (uint32_t initial : {0u, 10u, 4096u, 5000u})
        for (uint32_t at : {0u, 7u, 4096u})
            for (uint32_t length : {1u, 4096u, 20000u, 100000u}) {
                SCOPED_TRACE(std::to_string(initial) + " " + std::to_string(at) + " " +
                             std::to_string(length));
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
    src->close(src);

    // From a string stream, and within one memory stream: each pass is read
    // before it is written, so the copy sees the bytes as they were.
    str->seek(str, 0, 0);
    HalvIO *mem = HalvIO_Mem(4);
    EXPECT_EQ(HalvIOCopyBytes(mem, str, 0), 100); // a sized stream reads to its capacity
    EXPECT_EQ(MemBytes(mem), small);
    mem->close(mem);
    str->close(str);
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
}

// A back end over one end of a pipe in non-blocking mode: EAGAIN is -2.
struct PipeStream {
    HalvIO io;
    int32_t fd;
    std::atomic<int> *wouldBlocks;

    static int FdOf(HalvIO *io) { return reinterpret_cast<PipeStream *>(io)->fd; }
    static int32_t Answer(ssize_t result, HalvIO *io) {
        if (result < 0 && errno == EAGAIN)
            reinterpret_cast<PipeStream *>(io)->wouldBlocks->fetch_add(1);
        return result >= 0 ? static_cast<int32_t>(result) : errno == EAGAIN ? -2 : -1;
    }
    static HalvIO *Open(int fd, std::atomic<int> *wouldBlocks) {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        auto *p = static_cast<PipeStream *>(halv_internal_calloc(1, sizeof(PipeStream)));
        p->io.read = [](HalvIO *io, void *b, uint32_t n) { return Answer(::read(FdOf(io), b, n), io); };
        p->io.write = [](HalvIO *io, const void *b, uint32_t n) {
            return Answer(::write(FdOf(io), b, n), io);
        };
        p->io.close = [](HalvIO *io) { halv_internal_free(io); };
        p->fd = fd;
        p->wouldBlocks = wouldBlocks;
        return &p->io;
    }
};

TEST(StreamsCopyBytes, WouldBlockWaitsForTheSourceOrTheDestination) {
    // The other end starts only once the copy has met would-block, so the
    // wait happens however fast that thread would have been.
    auto awaitWouldBlock = [](std::atomic<int> &count) {
        for (int i = 0; i < 10000 && count.load() == 0; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    for (bool sourceWaits : {true, false}) {
        SCOPED_TRACE(sourceWaits ? "source" : "destination");
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        std::atomic<int> wouldBlocks{0};
        std::string bytes = Pattern(300000), received; // several times a pipe's capacity
        HalvIO *pipeEnd = PipeStream::Open(fds[sourceWaits ? 0 : 1], &wouldBlocks);
        HalvIO *mem = sourceWaits ? HalvIO_Mem(0) : MemOver(bytes);
        std::thread other([&] {
            awaitWouldBlock(wouldBlocks);
            if (sourceWaits) {
                for (size_t at = 0; at < bytes.size();) {
                    ssize_t put =
                        ::write(fds[1], bytes.data() + at, std::min<size_t>(7000, bytes.size() - at));
                    at += put > 0 ? static_cast<size_t>(put) : 0;
                }
                close(fds[1]);
                return;
            }
            char buffer[3000];
            for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) != 0;)
                if (got > 0)
                    received.append(buffer, static_cast<size_t>(got));
        });
        EXPECT_EQ(sourceWaits ? HalvIOCopyBytes(mem, pipeEnd, 0) : HalvIOCopyBytes(pipeEnd, mem, 0), 300000);
        if (!sourceWaits)
            close(fds[1]);
        other.join();
        EXPECT_GT(wouldBlocks.load(), 0);
        EXPECT_TRUE((sourceWaits ? MemBytes(mem) : received) == bytes);
        mem->close(mem);
        pipeEnd->close(pipeEnd);
        close(fds[0]);
    }

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
        HalvIO *in = scripted::Open(src, fd), *out = scripted::Open(dst, fd);
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

TEST(StreamsSkipBytes, SeekSettlesItAndWithoutSeekItReadsInPassesOf1024) {
    scripted::Script s;
    s.source = Pattern(3000);
    s.seekable = true;
    s.position = 3;
    HalvIO *io = scripted::Open(s);
    EXPECT_EQ(HalvIOSkipBytes(io, 2), 2); // whatever position the seek reports
    EXPECT_EQ(s.position, 5u);
    ASSERT_EQ(s.calls.size(), 1u);
    EXPECT_TRUE(s.calls[0].slot == 's' && s.calls[0].offset == 2 && s.calls[0].whence == 1);

    s.seekable = false;
    const struct {
        size_t from;
        int64_t count, result;
        std::deque<int32_t> plan;
        Counts reads;
    } rows[] = {
        {0, 2500, 2500, {}, {1024, 1024, 452}},
        {1500, 5000, 1500, {}, {1024, 1024, 548}}, // shorter than the count: the stream's length
        {0, 0, 0, {}, {}},
        {0, -3, 0, {}, {}},
        {0, 5000, -1, {1024, -1}, {1024, 1024}},
        {0, 5000, -1, {1024, -7}, {1024, 1024}},
        {0, 5000, -2, {1024, -2}, {1024, 1024}}, // would-block is passed on
    };
    for (const auto &row : rows) {
        s.position = row.from;
        s.readPlan = row.plan;
        s.calls.clear();
        EXPECT_EQ(HalvIOSkipBytes(io, row.count), row.result) << row.count;
        EXPECT_EQ(s.Counts('r'), row.reads);
    }
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

// HalvIOReadBlock's result, and the text it gives (NUL behind the bytes), or
// null when it fails.
std::string Block(HalvIO *io, int32_t result = 1) {
    char *data = reinterpret_cast<char *>(&result);
    uint32_t size = 77;
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), result);
    if (result != 1) {
        EXPECT_EQ(data, nullptr);
        return "<failed>";
    }
    EXPECT_EQ(data[size], '\0');
    std::string bytes(data, size);
    halv_internal_free(data);
    return bytes;
}

TEST(StreamsReadBlock, SeekableStreamsWholeFromTheStartOthersFromWhereTheyStand) {
    std::string bytes = Pattern(5000);
    HalvIO *mem = MemOver(bytes);
    mem->seek(mem, 2000, 0);
    EXPECT_EQ(Block(mem), bytes);
    mem->close(mem);
    mem = HalvIO_Mem(0);
    EXPECT_EQ(Block(mem), ""); // a buffer that holds a NUL
    mem->close(mem);

    // A short read or a failure frees the buffer: data null, result 0.
    scripted::Script s;
    s.source = "0123456789";
    s.seekable = true;
    HalvIO *io = scripted::Open(s);
    for (int32_t answer : {0, -1}) {
        s.readPlan = {5, answer};
        Block(io, 0);
    }
    // Null out pointers are refused with no call.
    s.calls.clear();
    uint32_t size;
    char *data;
    EXPECT_EQ(HalvIOReadBlock(io, nullptr, &size), 0);
    EXPECT_EQ(HalvIOReadBlock(io, &data, nullptr), 0);
    EXPECT_TRUE(s.calls.empty());

    // Without seek: capacities 1024, 2048, 4096, each pass reading the rest
    // of the capacity; exactly filling one goes on to find the end.
    s = {};
    s.source = "xx" + Pattern(3000);
    s.position = 2;
    EXPECT_EQ(Block(io), Pattern(3000));
    EXPECT_EQ(s.Counts('r'), (Counts{1024, 1024, 2048, 1096}));
    s.source = Pattern(1024);
    s.position = 0;
    s.calls.clear();
    EXPECT_EQ(Block(io), s.source);
    EXPECT_EQ(s.Counts('r'), (Counts{1024, 1024}));
    EXPECT_EQ(Block(io), "");
    for (int32_t answer : {-1, -2}) { // failures and would-block
        s.position = 0;
        s.readPlan = {100, answer};
        Block(io, 0);
    }
    // A seek answer that is negative but not -1 is no length either.
    s.position = 0;
    s.source = "odd";
    io->seek = [](HalvIO *, int64_t, int32_t) -> int64_t { return -3; };
    EXPECT_EQ(Block(io), "odd");
    // A length beyond the limit is refused, the out values untouched.
    io->seek = [](HalvIO *, int64_t, int32_t) -> int64_t { return 0x7FFFFFFF; };
    data = reinterpret_cast<char *>(&size);
    size = 77;
    EXPECT_EQ(HalvIOReadBlock(io, &data, &size), 0);
    EXPECT_EQ(data, reinterpret_cast<char *>(&size));
    EXPECT_EQ(size, 77u);
    io->close(io);

    // A sized string stream refuses to seek to its end: read from the
    // position it stands on.
    char text[] = "hello world";
    HalvIO *str = HalvIO_Str(text, 11);
    str->seek(str, 6, 0);
    EXPECT_EQ(Block(str), "world");
    str->close(str);
}

} // namespace
