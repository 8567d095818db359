// String streams over a caller's buffer: sized and unsized reads, writes
// and seeks, the NUL a sized write leaves, reset, ownership of the buffer,
// and hostile counts and offsets.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "dpk_hvsup.h"

namespace {

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
}

TEST(StreamsStr, SizedReadRunsToTheCapacityIgnoringNulAndWritePointer) {
    char buffer[5] = {'a', 'b', '\0', 'c', 'd'};
    HalvIO *io = HalvIO_Str(buffer, 5);
    char out[16];
    EXPECT_EQ(io->read(io, out, 2), 2);
    EXPECT_EQ(io->read(io, out, 0xFFFFFFFFu), 3); // hostile count: what is left
    EXPECT_EQ(std::string(out, 3), std::string("\0cd", 3));
    EXPECT_EQ(io->read(io, out, 16), 0);
    // The write pointer is separate: it still stands at the start.
    EXPECT_EQ(io->write(io, "Q", 1), 1);
    EXPECT_EQ(buffer[0], 'Q');
    EXPECT_EQ(buffer[1], '\0');
    io->close(io);
}

TEST(StreamsStr, SizedSeekRefusesTheEndAndMovesBothPointers) {
    char buffer[] = "0123456789";
    HalvIO *io = HalvIO_Str(buffer, 10);
    EXPECT_EQ(io->seek(io, 10, 0), -1);
    EXPECT_EQ(io->seek(io, 0, 2), -1);
    EXPECT_EQ(io->seek(io, 9, 0), 9);
    char c;
    EXPECT_EQ(io->read(io, &c, 1), 1);
    EXPECT_EQ(c, '9');
    EXPECT_EQ(io->write(io, "X", 1), 1);
    EXPECT_EQ(buffer[9], 'X');

    // Whence 1 counts from the read pointer, 2 from the size.
    EXPECT_EQ(io->seek(io, 2, 0), 2);
    EXPECT_EQ(io->read(io, &c, 1), 1);
    EXPECT_EQ(io->seek(io, 4, 1), 7);
    EXPECT_EQ(io->seek(io, -3, 2), 7);
    EXPECT_EQ(io->seek(io, -8, 1), -1);
    EXPECT_EQ(io->seek(io, -11, 2), -1);
    EXPECT_EQ(io->seek(io, 0, 3), -1);
    EXPECT_EQ(io->seek(io, 0, -1), -1);
    // Only the low 32 bits of the offset count.
    EXPECT_EQ(io->seek(io, (int64_t{1} << 32) + 4, 0), 4);
    EXPECT_EQ(io->seek(io, int64_t{0xFFFFFFFF}, 2), 9); // low bits: -1
    io->close(io);
}

TEST(StreamsStr, UnsizedStreamsFollowTheText) {
    char buffer[16] = "hello";
    std::memcpy(buffer + 6, "tail", 5);
    HalvIO *io = HalvIO_Str(buffer, 0);
    char out[16] = {};
    EXPECT_EQ(io->seek(io, 0, 2), 5);
    EXPECT_EQ(io->read(io, out, 16), 0);
    EXPECT_EQ(io->seek(io, 1, 0), 1);
    EXPECT_EQ(io->read(io, out, 3), 3);
    EXPECT_STREQ(out, "ell");
    EXPECT_EQ(io->read(io, out, 16), 1); // stops at the NUL, stays on it
    EXPECT_EQ(io->read(io, out, 16), 0);
    EXPECT_EQ(io->seek(io, -1, 0), -1);

    // No bound on seeks, and writes are taken whole with no NUL.
    EXPECT_EQ(io->seek(io, 12, 0), 12);
    HalvIOStrReset(io);
    EXPECT_EQ(io->write(io, "HEL", 3), 3);
    EXPECT_EQ(std::string(buffer, 11), std::string("HELlo\0tail", 11));
    EXPECT_EQ(HalvIOWriteBytes(io, "LO!", 3), 3);
    EXPECT_STREQ(buffer, "HELLO!tail");
    io->close(io);
}

TEST(StreamsStr, AutoCloseHandsTheBufferOver) {
    // Owned: close frees it (the leak checker of the sanitizer build would
    // report the buffer otherwise).
    auto *owned = static_cast<char *>(halv_internal_malloc(32));
    HalvIO *io = HalvIO_Str(owned, 32);
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

TEST(StreamsStr, ResetTouchesOnlyStringStreams) {
    HalvIO *mem = HalvIO_Mem(0);
    HalvIOWriteBytes(mem, "abc", 3);
    HalvIOStrReset(mem);
    EXPECT_EQ(mem->seek(mem, 0, 1), 3);
    mem->close(mem);
    HalvIOStrReset(nullptr);
}

} // namespace
