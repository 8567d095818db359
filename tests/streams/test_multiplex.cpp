// Multiplex streams over a sequence of streams: moving on at the end of a
// component, the end of the sequence as -1, retried failures and the limit
// on them, writes, flush, seek and selection, and ownership of components.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/scripted_stream.h"

namespace {

using Counts = std::vector<uint32_t>;

TEST(StreamsMultiplex, ReadsComponentAfterComponentThenMinusOne) {
    for (uint32_t ask : {1u, 2u, 3u, 100u}) {
        char a[] = "ab", b[] = "cd";
        HalvIO *parts[] = {HalvIO_Str(a, 2), HalvIO_Str(b, 2)};
        HalvIO *io = HalvIO_Multiplex(parts, 2);
        ASSERT_NE(io, nullptr);
        std::string got;
        char buffer[100];
        int32_t n;
        int calls = 0;
        while ((n = io->read(io, buffer, ask)) > 0 && ++calls < 10)
            got.append(buffer, static_cast<size_t>(n));
        EXPECT_EQ(n, -1) << ask; // the end of the sequence reads as failure
        EXPECT_EQ(got, "abcd") << ask;
        EXPECT_EQ(io->read(io, buffer, ask), -1);
        io->close(io);
        // The components stay open and the caller's.
        EXPECT_EQ(parts[0]->seek(parts[0], 0, 0), 0);
        parts[0]->close(parts[0]);
        parts[1]->close(parts[1]);
    }
}

TEST(StreamsMultiplex, ReadBytesThatRunsOutGivesMinusOne) {
    char a[] = "abc", b[] = "de";
    HalvIO *parts[] = {HalvIO_Str(a, 3), HalvIO_Str(b, 2)};
    HalvIO *io = HalvIO_Multiplex(parts, 2);
    char buffer[16];
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 4), -1);
    io->close(io);
    parts[0]->close(parts[0]);
    parts[1]->close(parts[1]);
}

TEST(StreamsMultiplex, SetSelectsAComponentOrThePlaceBehindTheLast) {
    char a[] = "ab", b[] = "cd";
    HalvIO *parts[] = {HalvIO_Str(a, 2), HalvIO_Str(b, 2)};
    HalvIO *io = HalvIO_Multiplex(parts, 2);
    char buffer[8];
    EXPECT_EQ(HalvIOMultiplexSet(io, 1), 1);
    EXPECT_EQ(io->read(io, buffer, 8), 2);
    EXPECT_EQ(std::string(buffer, 2), "cd");
    EXPECT_EQ(HalvIOMultiplexSet(io, 3), 0); // above the count: nothing changes
    EXPECT_EQ(HalvIOMultiplexSet(io, 0), 1);
    EXPECT_EQ(io->read(io, buffer, 8), 2);
    EXPECT_EQ(std::string(buffer, 2), "ab");
    EXPECT_EQ(HalvIOMultiplexSet(io, 2), 1);
    EXPECT_EQ(io->read(io, buffer, 8), -1);

    // seek selects as well, whatever the whence; it gives the index.
    parts[0]->seek(parts[0], 0, 0);
    EXPECT_EQ(io->seek(io, 0, 2), 0);
    EXPECT_EQ(io->read(io, buffer, 8), 2);
    EXPECT_EQ(io->seek(io, 2, 7), 2);
    EXPECT_EQ(io->seek(io, 3, 0), -1);
    EXPECT_EQ(io->seek(io, -1, 0), -1);
    EXPECT_EQ(io->read(io, buffer, 8), -1); // still behind the last

    // Not a multiplex stream.
    EXPECT_EQ(HalvIOMultiplexSet(parts[0], 0), 0);
    EXPECT_EQ(HalvIOMultiplexSet(nullptr, 0), 0);
    io->close(io);
    parts[0]->close(parts[0]);
    parts[1]->close(parts[1]);
}

TEST(StreamsMultiplex, NegativeAnswersAreRetriedUpToALimit) {
    scripted::Script first, second;
    first.source = "xyz";
    first.readPlan = {-1, -2, -1};
    second.source = "2nd";
    HalvIO *parts[] = {scripted::Open(first), scripted::Open(second)};
    HalvIO *io = HalvIO_Multiplex(parts, 2);
    char buffer[8];
    EXPECT_EQ(io->read(io, buffer, 8), 3);
    EXPECT_EQ(std::string(buffer, 3), "xyz");
    EXPECT_EQ(first.Counts('r').size(), 4u);

    // A component that fails for good is given up after 100 answers in a
    // row; the multiplex stays on it.
    first.readPlan = std::deque<int32_t>(100, -1);
    first.calls.clear();
    EXPECT_EQ(io->read(io, buffer, 8), -1);
    EXPECT_EQ(first.Counts('r').size(), 100u);
    EXPECT_EQ(io->read(io, buffer, 8), 3); // first ends, second delivers
    EXPECT_EQ(std::string(buffer, 3), "2nd");

    // Writes retry the same way, then report the count asked for.
    HalvIOMultiplexSet(io, 0);
    first.writePlan = std::deque<int32_t>(100, -1);
    first.calls.clear();
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    EXPECT_EQ(first.Counts('w').size(), 100u);
    EXPECT_EQ(first.sink, "");
    io->close(io);
    parts[0]->close(parts[0]);
    parts[1]->close(parts[1]);
}

TEST(StreamsMultiplex, WritesMoveOnAtZeroAndAlwaysReportTheCount) {
    scripted::Script first, second;
    first.writePlan = {2, 0};
    second.writePlan = {-1, 4, 0};
    HalvIO *parts[] = {scripted::Open(first), scripted::Open(second)};
    HalvIO *io = HalvIO_Multiplex(parts, 2);
    EXPECT_EQ(io->write(io, "hello", 5), 5); // first takes 2
    EXPECT_EQ(io->write(io, "world", 5), 5); // first full, second fails, then takes 4
    EXPECT_EQ(first.sink, "he");
    EXPECT_EQ(second.sink, "worl");
    EXPECT_EQ(io->write(io, "lost", 4), 4); // second full: nowhere to go
    EXPECT_EQ(io->write(io, "lost", 4), 4);
    EXPECT_EQ(HalvIOWriteBytes(io, "abc", 3), 3);
    EXPECT_EQ(second.sink, "worl");

    // flush reaches every component, whichever is current.
    first.calls.clear();
    second.calls.clear();
    io->flush(io);
    EXPECT_EQ(first.calls.size(), 1u);
    EXPECT_EQ(first.calls[0].slot, 'f');
    EXPECT_EQ(second.calls.size(), 1u);
    io->close(io);
    EXPECT_EQ(first.closes, 0);
    EXPECT_EQ(second.closes, 0);
    parts[0]->close(parts[0]);
    parts[1]->close(parts[1]);
}

TEST(StreamsMultiplex, TheArrayIsCopiedAndOddArraysAreSafe) {
    char a[] = "ab", b[] = "cd";
    HalvIO *sa = HalvIO_Str(a, 2), *sb = HalvIO_Str(b, 2);
    HalvIO *parts[] = {sa, sb};
    HalvIO *io = HalvIO_Multiplex(parts, 2);
    parts[0] = sb; // the caller's array changes; the stream's copy doesn't
    char buffer[8];
    EXPECT_EQ(io->read(io, buffer, 8), 2);
    EXPECT_EQ(std::string(buffer, 2), "ab");
    io->close(io);

    // No components: the end at once; writes go nowhere.
    io = HalvIO_Multiplex(nullptr, 0);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->read(io, buffer, 8), -1);
    EXPECT_EQ(io->write(io, "x", 1), 1);
    io->flush(io);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(io->seek(io, 1, 0), -1);
    io->close(io);
    EXPECT_EQ(HalvIO_Multiplex(nullptr, 3), nullptr);

    // A null entry counts as a finished component.
    sb->seek(sb, 0, 0);
    HalvIO *holes[] = {nullptr, sb, nullptr};
    io = HalvIO_Multiplex(holes, 3);
    EXPECT_EQ(io->read(io, buffer, 8), 2);
    EXPECT_EQ(io->read(io, buffer, 8), -1);
    io->flush(io);
    io->close(io);

    // Zero-count reads make every component look finished.
    sa->seek(sa, 0, 0);
    io = HalvIO_Multiplex(parts, 2);
    EXPECT_EQ(io->read(io, buffer, 0), -1);
    EXPECT_EQ(io->read(io, buffer, 8), -1);
    io->close(io);
    sa->close(sa);
    sb->close(sb);
}

TEST(StreamsMultiplex, CopyFromASequenceGathersEveryComponent) {
    HalvIO *parts[3];
    std::string expected;
    for (int i = 0; i < 3; i++) {
        parts[i] = HalvIO_Mem(0);
        std::string piece(3000 + 1000 * i, static_cast<char>('A' + i));
        HalvIOWriteBytes(parts[i], piece.data(), static_cast<uint32_t>(piece.size()));
        parts[i]->seek(parts[i], 0, 0);
        expected += piece;
    }
    HalvIO *io = HalvIO_Multiplex(parts, 3);
    HalvIO *out = HalvIO_Mem(0);
    // Copying until the end: the -1 of the sequence's end is a failed read.
    EXPECT_EQ(HalvIOCopyBytes(out, io, 0), -1);
    EXPECT_EQ(std::string(static_cast<const char *>(HalvIOMemBuffer(out)), HalvIOMemLength(out)), expected);
    for (HalvIO *part : parts)
        part->seek(part, 0, 0);
    HalvIOMultiplexSet(io, 0);
    HalvIO *exact = HalvIO_Mem(0);
    EXPECT_EQ(HalvIOCopyBytes(exact, io, static_cast<int64_t>(expected.size())),
              static_cast<int64_t>(expected.size()));
    io->close(io);
    exact->close(exact);
    out->close(out);
    for (HalvIO *part : parts)
        part->close(part);
}

} // namespace
