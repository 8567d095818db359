// Whole transfers over any back end: HalvIOReadBytes, HalvIOWriteBytes and
// HalvIOWriteString against every answer a slot can give, on a back end that
// the test builds itself.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/scripted_stream.h"

namespace {

using Counts = std::vector<uint32_t>;

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
    HalvIO *str = HalvIO_Str(text, sizeof text);
    HalvIO *mem = HalvIO_Mem(0);
    HalvIO *multi = HalvIO_Multiplex(&str, 1);
    for (HalvIO *io : {str, mem, multi}) {
        ASSERT_NE(io, nullptr);
        EXPECT_EQ(io->copy, nullptr);
        EXPECT_EQ(io->reservedWord, 0u);
        EXPECT_NE(io->close, nullptr);
        EXPECT_NE(io->read, nullptr);
        EXPECT_NE(io->write, nullptr);
        EXPECT_NE(io->flush, nullptr);
        EXPECT_NE(io->seek, nullptr);
    }
    EXPECT_NE(str->setAutoClose, nullptr);
    EXPECT_EQ(mem->setAutoClose, nullptr);
    EXPECT_EQ(multi->setAutoClose, nullptr);
    multi->close(multi);
    mem->close(mem);
    str->close(str);
}

TEST(StreamsReadBytes, LoopsOverShortReadsUntilCountOrEnd) {
    scripted::Script s;
    s.source = "0123456789";
    s.readPlan = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    HalvIO *io = scripted::Open(s);
    char buffer[16] = {};
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 10), 10);
    EXPECT_EQ(std::string(buffer, 10), "0123456789");
    EXPECT_EQ(s.Counts('r'), (Counts{10, 9, 8, 7, 6, 5, 4, 3, 2, 1}));

    // Short answers of varying size, then the end of the source.
    s.source = "abcdefgh";
    s.position = 0;
    s.calls.clear();
    s.readPlan = {3, 2};
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 12), 8);
    EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
    EXPECT_EQ(s.Counts('r'), (Counts{12, 9, 7, 4}));

    // A 0 in the middle ends the loop with what came before.
    s.position = 0;
    s.calls.clear();
    s.readPlan = {2, 0, 5};
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 8), 2);
    EXPECT_EQ(s.Counts('r'), (Counts{8, 6}));
    io->close(io);
}

TEST(StreamsReadBytes, NegativeAnswersWinOverEarlierBytes) {
    scripted::Script s;
    s.source = std::string(100, 'x');
    HalvIO *io = scripted::Open(s);
    char buffer[100];
    for (int32_t answer : {-1, -2, -7}) {
        s.position = 0;
        s.calls.clear();
        s.readPlan = {4, answer, 4};
        EXPECT_EQ(HalvIOReadBytes(io, buffer, 50), answer);
        EXPECT_EQ(s.Counts('r'), (Counts{50, 46})) << answer;
    }
    // First call negative as well.
    s.readPlan = {-1};
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 5), -1);
    io->close(io);
}

TEST(StreamsReadBytes, CountZeroMakesNoCall) {
    scripted::Script s;
    s.source = "abc";
    s.readPlan = {-1};
    HalvIO *io = scripted::Open(s);
    char buffer[4];
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 0), 0);
    EXPECT_EQ(HalvIOWriteBytes(io, "abc", 0), 0);
    EXPECT_TRUE(s.calls.empty());
    io->close(io);
}

TEST(StreamsReadBytes, SlotClaimingMoreThanOfferedCannotOverrun) {
    // A broken back end says 50 where 10 were asked: the loop ends with the
    // count asked and never indexes past the buffer.
    struct Liar {
        static int32_t Read(HalvIO *, void *buffer, uint32_t count) {
            std::memset(buffer, 'L', count);
            return 50;
        }
    };
    HalvIO io = {};
    io.read = Liar::Read;
    char buffer[11] = {};
    EXPECT_EQ(HalvIOReadBytes(&io, buffer, 10), 10);
    EXPECT_EQ(std::string(buffer), std::string(10, 'L'));
}

TEST(StreamsWriteBytes, LoopsOverShortWritesAndStopsOnZero) {
    scripted::Script s;
    HalvIO *io = scripted::Open(s);
    s.writePlan = {3, 1, 2};
    EXPECT_EQ(HalvIOWriteBytes(io, "abcdefghij", 10), 10);
    EXPECT_EQ(s.sink, "abcdefghij");
    EXPECT_EQ(s.Counts('w'), (Counts{10, 7, 6, 4}));

    // 0: nothing accepted ends the loop with the short count.
    s.sink.clear();
    s.calls.clear();
    s.writePlan = {4, 0, 5};
    EXPECT_EQ(HalvIOWriteBytes(io, "abcdefghij", 10), 4);
    EXPECT_EQ(s.sink, "abcd");
    EXPECT_EQ(s.Counts('w'), (Counts{10, 6}));

    // Negative answers are the result, the bytes before are not reported.
    for (int32_t answer : {-1, -2}) {
        s.writePlan = {4, answer};
        EXPECT_EQ(HalvIOWriteBytes(io, "abcdefghij", 10), answer);
    }
    io->close(io);
}

TEST(StreamsWriteString, OneCallWithTheWholeTextNoLoop) {
    scripted::Script s;
    HalvIO *io = scripted::Open(s);
    s.writePlan = {3};
    EXPECT_EQ(HalvIOWriteString(io, "hello"), 3);
    EXPECT_EQ(s.sink, "hel");
    EXPECT_EQ(s.Counts('w'), (Counts{5}));
    for (int32_t answer : {0, -1, -2}) {
        s.writePlan = {answer};
        EXPECT_EQ(HalvIOWriteString(io, "hello"), answer);
    }
    s.calls.clear();
    EXPECT_EQ(HalvIOWriteString(io, "all of it"), 9);
    EXPECT_EQ(HalvIOWriteString(io, nullptr), 0);
    EXPECT_EQ(s.Counts('w'), (Counts{9}));
    io->close(io);

    // The empty text is one call with count 0, which a sized string stream
    // answers by terminating its buffer.
    char buffer[8] = "zzzzzzz";
    HalvIO *str = HalvIO_Str(buffer, sizeof buffer);
    EXPECT_EQ(HalvIOWriteString(str, ""), 0);
    EXPECT_EQ(buffer[0], '\0');
    str->close(str);
}

TEST(StreamsHandBuilt, ReadOnlyRecordWorksWithReadingOperations) {
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

} // namespace
