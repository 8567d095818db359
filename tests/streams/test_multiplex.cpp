// Multiplex streams over a sequence of streams: moving on at the end of a
// component, the end of the sequence as -1, retried failures and the limit
// on them, writes, flush, seek and selection, and ownership of components.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/support.h"

namespace {

using scripted::MemBytes;
using scripted::MemOver;

// Two string streams over "ab" and "cd", the caller's to close.
struct TwoParts {
    char a[3] = "ab", b[3] = "cd";
    HalvIO *parts[2] = {HalvIO_Str(a, 2), HalvIO_Str(b, 2)};
    ~TwoParts() {
        for (HalvIO *part : parts)
            part->close(part);
    }
    void Rewind() {
        for (HalvIO *part : parts)
            part->seek(part, 0, 0);
    }
};

std::string Read(HalvIO *io, uint32_t count) {
    char buffer[100];
    int32_t got = io->read(io, buffer, count);
    return got >= 0 ? std::string(buffer, static_cast<size_t>(got)) : "<" + std::to_string(got) + ">";
}

TEST(StreamsMultiplex, ReadsComponentAfterComponentThenMinusOne) {
    for (uint32_t ask : {1u, 2u, 3u, 100u}) {
        TwoParts two;
        HalvIO *io = HalvIO_Multiplex(two.parts, 2);
        ASSERT_NE(io, nullptr);
        std::string got, piece;
        for (int calls = 0; calls < 10 && (piece = Read(io, ask))[0] != '<'; calls++)
            got += piece;
        EXPECT_EQ(piece, "<-1>") << ask; // the end of the sequence reads as failure
        EXPECT_EQ(got, "abcd") << ask;
        EXPECT_EQ(Read(io, ask), "<-1>");
        io->close(io);
        // The components stay open and the caller's.
        EXPECT_EQ(two.parts[0]->seek(two.parts[0], 0, 0), 0);
    }
    // Reading bytes that run out gives -1.
    TwoParts two;
    HalvIO *io = HalvIO_Multiplex(two.parts, 2);
    char buffer[4];
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 3), 3);
    EXPECT_EQ(HalvIOReadBytes(io, buffer, 4), -1);
    io->close(io);
}

TEST(StreamsMultiplex, SetAndSeekSelectAComponentOrThePlaceBehindTheLast) {
    TwoParts two;
    HalvIO *io = HalvIO_Multiplex(two.parts, 2);
    EXPECT_EQ(HalvIOMultiplexSet(io, 1), 1);
    EXPECT_EQ(Read(io, 8), "cd");
    EXPECT_EQ(HalvIOMultiplexSet(io, 3), 0); // above the count: nothing changes
    EXPECT_EQ(HalvIOMultiplexSet(io, 0), 1);
    EXPECT_EQ(Read(io, 8), "ab");
    EXPECT_EQ(HalvIOMultiplexSet(io, 2), 1);
    EXPECT_EQ(Read(io, 8), "<-1>");
    // seek selects as well, whatever the whence; it gives the index.
    two.Rewind();
    scripted::ExpectSeeks(io, {{0, 2, 0}});
    EXPECT_EQ(Read(io, 8), "ab");
    scripted::ExpectSeeks(io, {{2, 7, 2}, {3, 0, -1}, {-1, 0, -1}});
    EXPECT_EQ(Read(io, 8), "<-1>"); // still behind the last
    // Not a multiplex stream.
    EXPECT_EQ(HalvIOMultiplexSet(two.parts[0], 0), 0);
    EXPECT_EQ(HalvIOMultiplexSet(nullptr, 0), 0);
    io->close(io);
}

TEST(StreamsMultiplex, NegativeAnswersAreRetriedUpToALimitAndWritesMoveOnAtZero) {
    scripted::Script first, second;
    first.source = "xyz";
    first.readPlan = {-1, -2, -1};
    second.source = "2nd";
    HalvIO *parts[] = {scripted::Open(first), scripted::Open(second)};
    HalvIO *io = HalvIO_Multiplex(parts, 2);
    EXPECT_EQ(Read(io, 8), "xyz");
    EXPECT_EQ(first.Counts('r').size(), 4u);
    // A component that fails for good is given up after 100 answers in a
    // row; the multiplex stays on it.
    first.readPlan = std::deque<int32_t>(100, -1);
    first.calls.clear();
    EXPECT_EQ(Read(io, 8), "<-1>");
    EXPECT_EQ(first.Counts('r').size(), 100u);
    EXPECT_EQ(Read(io, 8), "2nd"); // first ends, second delivers
    // Writes retry the same way, then report the count asked for.
    HalvIOMultiplexSet(io, 0);
    first.writePlan = std::deque<int32_t>(100, -1);
    first.calls.clear();
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    EXPECT_EQ(first.Counts('w').size(), 100u);
    EXPECT_EQ(first.sink, "");

    // A 0 moves on to the next component; the count asked is reported
    // whether or not anything took the bytes.
    HalvIOMultiplexSet(io, 0);
    first.writePlan = {2, 0};
    second.writePlan = {-1, 4, 0};
    EXPECT_EQ(io->write(io, "hello", 5), 5); // first takes 2
    EXPECT_EQ(io->write(io, "world", 5), 5); // first full, second fails, then takes 4
    EXPECT_EQ(io->write(io, "lost", 4), 4);  // second full: nowhere to go
    EXPECT_EQ(HalvIOWriteBytes(io, "abc", 3), 3);
    EXPECT_EQ(first.sink, "he");
    EXPECT_EQ(second.sink, "worl");
    // flush reaches every component, whichever is current.
    first.calls.clear();
    second.calls.clear();
    io->flush(io);
    ASSERT_EQ(first.calls.size(), 1u);
    EXPECT_EQ(first.calls[0].slot, 'f');
    EXPECT_EQ(second.calls.size(), 1u);
    io->close(io);
    EXPECT_EQ(first.closes + second.closes, 0);
    for (HalvIO *part : parts)
        part->close(part);
}

TEST(StreamsMultiplex, TheArrayIsCopiedAndOddArraysAreSafe) {
    TwoParts two;
    HalvIO *io = HalvIO_Multiplex(two.parts, 2);
    std::swap(two.parts[0], two.parts[1]); // the stream's copy doesn't change
    EXPECT_EQ(Read(io, 8), "ab");
    io->close(io);

    // No components: the end at once; writes go nowhere.
    io = HalvIO_Multiplex(nullptr, 0);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(Read(io, 8), "<-1>");
    EXPECT_EQ(io->write(io, "x", 1), 1);
    io->flush(io);
    scripted::ExpectSeeks(io, {{0, 0, 0}, {1, 0, -1}});
    io->close(io);
    EXPECT_EQ(HalvIO_Multiplex(nullptr, 3), nullptr);

    // A null entry counts as a finished component.
    two.Rewind();
    HalvIO *holes[] = {nullptr, two.parts[0], nullptr};
    io = HalvIO_Multiplex(holes, 3);
    EXPECT_EQ(Read(io, 8), "cd");
    EXPECT_EQ(Read(io, 8), "<-1>");
    io->flush(io);
    io->close(io);

    // Zero-count reads make every component look finished.
    two.Rewind();
    io = HalvIO_Multiplex(two.parts, 2);
    EXPECT_EQ(Read(io, 0), "<-1>");
    EXPECT_EQ(Read(io, 8), "<-1>");
    io->close(io);
}

TEST(StreamsMultiplex, CopyFromASequenceGathersEveryComponent) {
    HalvIO *parts[3];
    std::string expected;
    for (int i = 0; i < 3; i++) {
        std::string piece(3000 + 1000 * i, static_cast<char>('A' + i));
        parts[i] = MemOver(piece);
        expected += piece;
    }
    HalvIO *io = HalvIO_Multiplex(parts, 3);
    HalvIO *out = HalvIO_Mem(0), *exact = HalvIO_Mem(0);
    // Copying until the end: the -1 of the sequence's end is a failed read.
    EXPECT_EQ(HalvIOCopyBytes(out, io, 0), -1);
    EXPECT_EQ(MemBytes(out), expected);
    for (HalvIO *part : parts)
        part->seek(part, 0, 0);
    HalvIOMultiplexSet(io, 0);
    EXPECT_EQ(HalvIOCopyBytes(exact, io, static_cast<int64_t>(expected.size())), static_cast<int64_t>(expected.size()));
    EXPECT_EQ(MemBytes(exact), expected);
    for (HalvIO *stream : {io, exact, out, parts[0], parts[1], parts[2]})
        stream->close(stream);
}

} // namespace
