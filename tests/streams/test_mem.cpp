// Memory streams (growth, the shared cursor, seeks past the end), string streams over a
// caller's buffer (sized and unsized, the NUL a write leaves, reset, ownership) and
// multiplex streams (moving on between components, retried failures, selection).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/support.h"

namespace {

using scripted::ExpectSeeks;
using scripted::MemBytes;
using scripted::MemOver;

TEST(StreamsMem, GrowsToTheLargerOfNeedAndTwiceTheCapacity) {
    HalvIO *io = HalvIO_Mem(0);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(HalvIOMemBuffer(io), nullptr);
    const std::string big(100, 'B');
    for (auto [count, capacity] : {std::pair{0u, 0u}, {10u, 10u}, {1u, 20u}, {100u, 111u}}) {
        EXPECT_EQ(io->write(io, big.data(), count), static_cast<int32_t>(count));
        EXPECT_EQ(HalvIOMemCapacity(io), capacity);
    }
    EXPECT_EQ(MemBytes(io), std::string(111, 'B'));
    // Writing its own bytes: the source lies in the buffer this write moves.
    EXPECT_EQ(io->write(io, HalvIOMemBuffer(io), 111), 111);
    EXPECT_EQ(MemBytes(io), std::string(222, 'B'));
    io->close(io);

    io = HalvIO_Mem(64);
    EXPECT_NE(HalvIOMemBuffer(io), nullptr);
    EXPECT_EQ(HalvIOMemLength(io), 0u);
    EXPECT_EQ(io->write(io, big.data(), 64), 64);
    EXPECT_EQ(HalvIOMemCapacity(io), 64u);
    io->close(io);

    // A zero-count write still makes room for the cursor.
    io = HalvIO_Mem(4);
    EXPECT_EQ(io->write(io, "ab", 0), 0);
    EXPECT_EQ(HalvIOMemCapacity(io), 4u);
    io->seek(io, 50, 0);
    EXPECT_EQ(io->write(io, "ab", 0), 0);
    EXPECT_EQ(HalvIOMemCapacity(io), 50u);
    EXPECT_EQ(HalvIOMemLength(io), 0u);
    io->close(io);

    // The accessors answer only for memory streams.
    char text[] = "abc";
    HalvIO *str = HalvIO_Str(text, 3);
    for (HalvIO *other : {str, static_cast<HalvIO *>(nullptr)}) {
        EXPECT_EQ(HalvIOMemBuffer(other), nullptr);
        EXPECT_EQ(HalvIOMemLength(other), 0u);
        EXPECT_EQ(HalvIOMemCapacity(other), 0u);
    }
    str->close(str);
}

TEST(StreamsMem, OneCursorSeeksPastTheEndAndWritesThereFillTheGap) {
    HalvIO *io = HalvIO_Mem(0);
    char out[16] = {};
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    EXPECT_EQ(io->read(io, out, 10), 0); // just written: at the end
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(io->read(io, out, 10), 3);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(io->seek(io, 1, 0), 1);
    EXPECT_EQ(io->write(io, "X", 1), 1); // overwrite in the middle
    EXPECT_EQ(HalvIOMemLength(io), 3u);
    EXPECT_EQ(io->read(io, out, 0xFFFFFFFFu), 1); // hostile count: what is left
    EXPECT_EQ(out[0], 'c');
    EXPECT_EQ(io->read(io, out, 0), 0);
    HalvIOWriteBytes(io, "def", 3);

    ExpectSeeks(io, {{100, 0, 100}});
    EXPECT_EQ(io->read(io, out, 8), 0);
    ExpectSeeks(io, {{2, 1, 102}, {-2, 2, 4}, {10, 2, 16}});
    EXPECT_EQ(io->write(io, "Z", 1), 1);
    EXPECT_EQ(MemBytes(io), std::string("aXcdef") + std::string(10, '\0') + "Z");
    // Refused seeks leave the cursor; only the low 32 bits of the offset
    // count; positions are 32-bit: one beyond 4 GiB is refused, not wrapped.
    ExpectSeeks(io, {{-18, 2, -1}, {-1, 0, -1}, {0, 3, -1}, {0, 1, 17}, {(int64_t{5} << 32) + 3, 0, 3},
                     {int64_t{0xFFFFFFFF}, 1, 2}, {0x7FFFFFFF, 0, 0x7FFFFFFF},
                     {0x7FFFFFFF, 1, int64_t{0xFFFFFFFE}}, {2, 1, -1}});
    EXPECT_EQ(io->read(io, out, 8), 0);
    EXPECT_EQ(HalvIOMemCapacity(io), 17u);
    io->close(io);
}

TEST(StreamsStr, SizedWriteTakesWhatFitsAndTerminatesWhenRoomIsLeft) {
    char buffer[6] = {'.', '.', '.', '.', '#', '#'};
    HalvIO *io = HalvIO_Str(buffer, 4);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "abcdef", 6), 4);
    EXPECT_EQ(std::string(buffer, 6), "abcd##"); // cut: no NUL, nothing beyond
    EXPECT_EQ(io->write(io, "x", 1), 0);
    EXPECT_EQ(HalvIOWriteBytes(io, "x", 1), 0);
    io->close(io);

    char text[8];
    std::memset(text, 'z', sizeof text);
    io = HalvIO_Str(text, sizeof text);
    EXPECT_EQ(io->write(io, "abc", 3), 3);
    EXPECT_STREQ(text, "abc");
    HalvIOStrReset(io);
    EXPECT_EQ(io->write(io, "x", 1), 1);
    EXPECT_STREQ(text, "x");
    EXPECT_EQ(text[2], 'c'); // reset clears nothing
    // A write that exactly fills the rest stores no NUL.
    EXPECT_EQ(io->write(io, "1234567", 7), 7);
    EXPECT_EQ(std::string(text, 8), "x1234567");
    io->close(io);

    // Reading runs to the capacity, past a NUL; the write pointer is apart.
    char bytes[5] = {'a', 'b', '\0', 'c', 'd'};
    io = HalvIO_Str(bytes, 5);
    char out[16];
    EXPECT_EQ(io->read(io, out, 2), 2);
    EXPECT_EQ(io->read(io, out, 0xFFFFFFFFu), 3); // hostile count: what is left
    EXPECT_EQ(std::string(out, 3), std::string("\0cd", 3));
    EXPECT_EQ(io->read(io, out, 16), 0);
    EXPECT_EQ(io->write(io, "Q", 1), 1);
    EXPECT_EQ(std::string(bytes, 2), std::string("Q\0", 2));
    io->close(io);

    // Reset touches only string streams.
    HalvIO *mem = HalvIO_Mem(0);
    HalvIOWriteBytes(mem, "abc", 3);
    HalvIOStrReset(mem);
    EXPECT_EQ(mem->seek(mem, 0, 1), 3);
    mem->close(mem);
    HalvIOStrReset(nullptr);
}

TEST(StreamsStr, SizedSeekRefusesTheEndAndMovesBothPointers) {
    char buffer[] = "0123456789";
    HalvIO *io = HalvIO_Str(buffer, 10);
    ExpectSeeks(io, {{10, 0, -1}, {0, 2, -1}, {9, 0, 9}});
    char c;
    EXPECT_EQ(io->read(io, &c, 1), 1);
    EXPECT_EQ(c, '9');
    EXPECT_EQ(io->write(io, "X", 1), 1);
    EXPECT_EQ(buffer[9], 'X');
    // Whence 1 counts from the read pointer, 2 from the size; only the low
    // 32 bits of the offset count.
    ExpectSeeks(io, {{2, 0, 2}});
    EXPECT_EQ(io->read(io, &c, 1), 1);
    ExpectSeeks(io, {{4, 1, 7}, {-3, 2, 7}, {-8, 1, -1}, {-11, 2, -1}, {0, 3, -1}, {0, -1, -1},
                     {(int64_t{1} << 32) + 4, 0, 4}, {int64_t{0xFFFFFFFF}, 2, 9}});
    io->close(io);
}

TEST(StreamsStr, UnsizedStreamsFollowTheText) {
    char buffer[16] = "hello";
    std::memcpy(buffer + 6, "tail", 5);
    HalvIO *io = HalvIO_Str(buffer, 0);
    char out[16] = {};
    ExpectSeeks(io, {{0, 2, 5}});
    EXPECT_EQ(io->read(io, out, 16), 0);
    ExpectSeeks(io, {{1, 0, 1}});
    EXPECT_EQ(io->read(io, out, 3), 3);
    EXPECT_STREQ(out, "ell");
    EXPECT_EQ(io->read(io, out, 16), 1); // stops at the NUL, stays on it
    EXPECT_EQ(io->read(io, out, 16), 0);
    // No bound on seeks forward, and writes are taken whole with no NUL.
    ExpectSeeks(io, {{-1, 0, -1}, {12, 0, 12}});
    HalvIOStrReset(io);
    EXPECT_EQ(io->write(io, "HEL", 3), 3);
    EXPECT_EQ(std::string(buffer, 11), std::string("HELlo\0tail", 11));
    EXPECT_EQ(HalvIOWriteBytes(io, "LO!", 3), 3);
    EXPECT_STREQ(buffer, "HELLO!tail");
    io->close(io);
}

TEST(StreamsStr, AutoCloseHandsTheBufferOver) {
    // Owned: close frees it (the sanitizer build's leak check would report
    // the buffer otherwise).
    HalvIO *io = HalvIO_Str(static_cast<char *>(halv_internal_malloc(32)), 32);
    EXPECT_EQ(io->setAutoClose(io, 1), 1);
    io->close(io);
    // Not owned, or ownership taken back: the buffer stays the caller's.
    auto *kept = static_cast<char *>(halv_internal_malloc(32));
    io = HalvIO_Str(kept, 32);
    EXPECT_EQ(io->setAutoClose(io, 7), 7);
    EXPECT_EQ(io->setAutoClose(io, 0), 0);
    EXPECT_EQ(io->write(io, "still mine", 10), 10);
    io->close(io);
    EXPECT_STREQ(kept, "still mine");
    halv_internal_free(kept);
    EXPECT_EQ(HalvIO_Str(nullptr, 10), nullptr);
    EXPECT_EQ(HalvIO_Str(nullptr, 0), nullptr);
}

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
    ExpectSeeks(io, {{0, 2, 0}});
    EXPECT_EQ(Read(io, 8), "ab");
    ExpectSeeks(io, {{2, 7, 2}, {3, 0, -1}, {-1, 0, -1}});
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
    ExpectSeeks(io, {{0, 0, 0}, {1, 0, -1}});
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
    EXPECT_EQ(HalvIOCopyBytes(exact, io, static_cast<int64_t>(expected.size())),
              static_cast<int64_t>(expected.size()));
    EXPECT_EQ(MemBytes(exact), expected);
    for (HalvIO *stream : {io, exact, out, parts[0], parts[1], parts[2]})
        stream->close(stream);
}

} // namespace
