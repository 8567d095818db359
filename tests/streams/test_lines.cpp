// The two line readers, HalvIOReadString and HalvIOGets: their limits, CR/LF
// rules and results, one read call per byte on a back end of the caller's,
// and the same lines, results and positions on the library's own in-memory
// streams, where the bytes are scanned in place.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/scripted_stream.h"

namespace {

using Counts = std::vector<uint32_t>;

HalvIO *MemOver(const std::string &bytes) {
    HalvIO *io = HalvIO_Mem(0);
    EXPECT_EQ(HalvIOWriteBytes(io, bytes.data(), static_cast<uint32_t>(bytes.size())),
              static_cast<int32_t>(bytes.size()));
    io->seek(io, 0, 0);
    return io;
}

TEST(StreamsReadString, SplitsOnLfDropsCrAndCountsBoth) {
    scripted::Script s;
    s.source = "a\r\nb";
    HalvIO *io = scripted::Open(s);
    char buffer[64];
    EXPECT_EQ(HalvIOReadString(io, buffer, 63), 3);
    EXPECT_STREQ(buffer, "a");
    EXPECT_EQ(HalvIOReadString(io, buffer, 63), 1);
    EXPECT_STREQ(buffer, "b");
    EXPECT_EQ(HalvIOReadString(io, buffer, 63), 0);
    EXPECT_STREQ(buffer, "");
    // One byte per read call, never more.
    for (uint32_t count : s.Counts('r'))
        EXPECT_EQ(count, 1u);
    EXPECT_EQ(s.Counts('r').size(), 6u); // 4 bytes, and the end seen by two calls
    io->close(io);

    // An empty line consumes its LF and gives 1; a CR alone in the middle
    // of a line is dropped and counted.
    s = {};
    s.source = "\nx\ry\n";
    io = scripted::Open(s);
    EXPECT_EQ(HalvIOReadString(io, buffer, 63), 1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(HalvIOReadString(io, buffer, 63), 4);
    EXPECT_STREQ(buffer, "xy");
    io->close(io);
}

TEST(StreamsReadString, MaxLimitsBytesConsumedCrAndLfIncluded) {
    scripted::Script s;
    s.source = "ab\r\r\ncd\n";
    HalvIO *io = scripted::Open(s);
    char buffer[8];
    EXPECT_EQ(HalvIOReadString(io, buffer, 3), 3); // a, b, CR
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(HalvIOReadString(io, buffer, 3), 2); // CR, LF
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(HalvIOReadString(io, buffer, 2), 2); // c, d: the LF stays
    EXPECT_STREQ(buffer, "cd");
    EXPECT_EQ(HalvIOReadString(io, buffer, 2), 1);
    EXPECT_EQ(s.position, s.source.size());

    // max < 1: an empty buffer, result 0, nothing read.
    s.calls.clear();
    s.position = 0;
    for (int32_t max : {0, -1, INT32_MIN}) {
        buffer[0] = 'q';
        EXPECT_EQ(HalvIOReadString(io, buffer, max), 0);
        EXPECT_EQ(buffer[0], '\0');
    }
    EXPECT_TRUE(s.calls.empty());
    io->close(io);
}

TEST(StreamsReadString, FailureEndsTheLineWithItsResultAndATerminator) {
    scripted::Script s;
    s.source = "abcdef";
    HalvIO *io = scripted::Open(s);
    char buffer[16];
    for (int32_t answer : {-1, -7}) {
        s.readPlan = {1, 1, answer};
        std::memset(buffer, 'z', sizeof buffer);
        EXPECT_EQ(HalvIOReadString(io, buffer, 15), -1);
        EXPECT_EQ(std::string(buffer), s.source.substr(s.position - 2, 2));
    }
    // Would-block is passed on unchanged, for the caller to wait and retry.
    s.readPlan = {-2};
    EXPECT_EQ(HalvIOReadString(io, buffer, 15), -2);
    EXPECT_STREQ(buffer, "");
    io->close(io);
}

TEST(StreamsGets, KeepsLfDropsCrResultIsWhetherAnythingWasStored) {
    scripted::Script s;
    s.source = "a\r\nb";
    HalvIO *io = scripted::Open(s);
    char buffer[64];
    EXPECT_EQ(HalvIOGets(io, buffer, 63), 1);
    EXPECT_STREQ(buffer, "a\n");
    EXPECT_EQ(HalvIOGets(io, buffer, 63), 1);
    EXPECT_STREQ(buffer, "b");
    EXPECT_EQ(HalvIOGets(io, buffer, 63), 0);
    EXPECT_STREQ(buffer, "");
    for (uint32_t count : s.Counts('r'))
        EXPECT_EQ(count, 1u);
    io->close(io);

    // A CR alone gives 0 and an empty buffer, having consumed it.
    s = {};
    s.source = "\r";
    io = scripted::Open(s);
    EXPECT_EQ(HalvIOGets(io, buffer, 63), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(s.position, 1u);
    io->close(io);
}

TEST(StreamsGets, MaxLimitsBytesStoredCrNotCounted) {
    scripted::Script s;
    s.source = "a\r\rb\rc\nd";
    HalvIO *io = scripted::Open(s);
    char buffer[8];
    EXPECT_EQ(HalvIOGets(io, buffer, 2), 1);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(s.position, 4u); // the CR behind b is not touched
    EXPECT_EQ(HalvIOGets(io, buffer, 2), 1);
    EXPECT_STREQ(buffer, "c\n");
    EXPECT_EQ(HalvIOGets(io, buffer, 1), 1);
    EXPECT_STREQ(buffer, "d");

    s.calls.clear();
    buffer[0] = 'q';
    EXPECT_EQ(HalvIOGets(io, buffer, 0), 0);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_TRUE(s.calls.empty());
    io->close(io);
}

TEST(StreamsGets, AnyAnswerButOneEndsTheLineLikeTheEnd) {
    scripted::Script s;
    s.source = "abcdefgh";
    HalvIO *io = scripted::Open(s);
    char buffer[16];
    for (int32_t answer : {0, -1, -2}) {
        s.readPlan = {1, answer};
        std::memset(buffer, 'z', sizeof buffer);
        EXPECT_EQ(HalvIOGets(io, buffer, 15), 1) << answer;
        EXPECT_EQ(std::strlen(buffer), 1u);
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
        size_t length = random() % 60;
        for (size_t i = 0; i < length; i++)
            text += alphabet[random() % sizeof alphabet];
        int32_t max = static_cast<int32_t>(random() % 12);
        bool gets = (round & 1) != 0;

        scripted::Script s;
        s.source = text;
        HalvIO *slow = scripted::Open(s);
        HalvIO *mem = MemOver(text);
        std::string sized = text;
        HalvIO *str = HalvIO_Str(sized.data(), static_cast<uint32_t>(sized.size()));
        if (text.empty()) {
            str->close(str); // a stream over zero bytes has nothing to compare
            str = nullptr;
        }
        for (int call = 0; call < 80; call++) {
            char expected[16], fromMem[16], fromStr[16];
            int32_t want = gets ? HalvIOGets(slow, expected, static_cast<uint32_t>(max))
                                : HalvIOReadString(slow, expected, max);
            int32_t got = gets ? HalvIOGets(mem, fromMem, static_cast<uint32_t>(max))
                               : HalvIOReadString(mem, fromMem, max);
            ASSERT_EQ(got, want) << "round " << round << " call " << call;
            ASSERT_STREQ(fromMem, expected);
            ASSERT_EQ(mem->seek(mem, 0, 1), static_cast<int64_t>(s.position));
            if (str != nullptr) {
                got = gets ? HalvIOGets(str, fromStr, static_cast<uint32_t>(max))
                           : HalvIOReadString(str, fromStr, max);
                ASSERT_EQ(got, want);
                ASSERT_STREQ(fromStr, expected);
            }
        }
        slow->close(slow);
        mem->close(mem);
        if (str != nullptr)
            str->close(str);
    }
}

TEST(StreamsLines, UnsizedStringStreamStopsAtTheTextsEnd) {
    char text[32] = "one\r\ntwo";
    std::memcpy(text + 9, "hidden", 7); // behind the NUL: never read
    HalvIO *io = HalvIO_Str(text, 0);
    char buffer[32];
    EXPECT_EQ(HalvIOReadString(io, buffer, 31), 5);
    EXPECT_STREQ(buffer, "one");
    EXPECT_EQ(HalvIOGets(io, buffer, 31), 1);
    EXPECT_STREQ(buffer, "two");
    EXPECT_EQ(HalvIOGets(io, buffer, 31), 0);
    io->close(io);
}

TEST(StreamsLines, LongLinesInMemoryAreCutAtTheLimit) {
    std::string text(10000, 'x');
    text += "\r\nend\n";
    HalvIO *io = MemOver(text);
    std::vector<char> buffer(4097);
    EXPECT_EQ(HalvIOReadString(io, buffer.data(), 4096), 4096);
    EXPECT_EQ(std::strlen(buffer.data()), 4096u);
    EXPECT_EQ(HalvIOGets(io, buffer.data(), 4096), 1);
    EXPECT_EQ(std::strlen(buffer.data()), 4096u);
    EXPECT_EQ(HalvIOReadString(io, buffer.data(), 4096), 1808 + 2);
    EXPECT_EQ(std::strlen(buffer.data()), 1808u);
    EXPECT_EQ(HalvIOGets(io, buffer.data(), 4096), 1);
    EXPECT_STREQ(buffer.data(), "end\n");
    io->close(io);
}

} // namespace
