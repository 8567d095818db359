// Growing memory streams: growth, the shared cursor, seeks past the end and
// the gap they leave, the accessors, and hostile counts and offsets.
#include <gtest/gtest.h>

#include <string>

#include "dpk_hvsup.h"

namespace {

std::string Bytes(HalvIO *io) {
    return std::string(static_cast<const char *>(HalvIOMemBuffer(io)), HalvIOMemLength(io));
}

TEST(StreamsMem, GrowsToTheLargerOfNeedAndTwiceTheCapacity) {
    HalvIO *io = HalvIO_Mem(0);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(HalvIOMemBuffer(io), nullptr);
    EXPECT_EQ(HalvIOMemCapacity(io), 0u);
    EXPECT_EQ(io->write(io, "0123456789", 10), 10);
    EXPECT_EQ(HalvIOMemCapacity(io), 10u);
    EXPECT_EQ(io->write(io, "a", 1), 1);
    EXPECT_EQ(HalvIOMemCapacity(io), 20u);
    std::string big(100, 'B');
    EXPECT_EQ(io->write(io, big.data(), 100), 100);
    EXPECT_EQ(HalvIOMemCapacity(io), 111u);
    EXPECT_EQ(HalvIOMemLength(io), 111u);
    EXPECT_EQ(Bytes(io), "0123456789a" + big);
    io->close(io);

    io = HalvIO_Mem(64);
    EXPECT_NE(HalvIOMemBuffer(io), nullptr);
    EXPECT_EQ(HalvIOMemCapacity(io), 64u);
    EXPECT_EQ(HalvIOMemLength(io), 0u);
    EXPECT_EQ(io->write(io, big.data(), 64), 64);
    EXPECT_EQ(HalvIOMemCapacity(io), 64u);
    io->close(io);
}

TEST(StreamsMem, ReadingAndWritingShareOneCursor) {
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
    EXPECT_EQ(Bytes(io), "aXc");
    EXPECT_EQ(io->read(io, out, 0), 0);
    io->close(io);
}

TEST(StreamsMem, SeeksMayPassTheEndAndWritesThereFillTheGap) {
    HalvIO *io = HalvIO_Mem(0);
    HalvIOWriteBytes(io, "abcdef", 6);
    char out[8];
    EXPECT_EQ(io->seek(io, 100, 0), 100);
    EXPECT_EQ(io->read(io, out, 8), 0);
    EXPECT_EQ(io->seek(io, 2, 1), 102);
    EXPECT_EQ(io->seek(io, -2, 2), 4);
    EXPECT_EQ(io->seek(io, 10, 2), 16);
    EXPECT_EQ(io->write(io, "Z", 1), 1);
    EXPECT_EQ(HalvIOMemLength(io), 17u);
    EXPECT_EQ(Bytes(io), std::string("abcdef") + std::string(10, '\0') + "Z");

    EXPECT_EQ(io->seek(io, -18, 2), -1);
    EXPECT_EQ(io->seek(io, -1, 0), -1);
    EXPECT_EQ(io->seek(io, 0, 3), -1);
    EXPECT_EQ(io->seek(io, 0, 1), 17); // refused seeks leave the cursor
    // Only the low 32 bits of the offset count.
    EXPECT_EQ(io->seek(io, (int64_t{5} << 32) + 3, 0), 3);
    EXPECT_EQ(io->seek(io, int64_t{0xFFFFFFFF}, 1), 2);
    // Positions are 32-bit: one beyond 4 GiB is refused, not wrapped.
    EXPECT_EQ(io->seek(io, 0x7FFFFFFF, 0), 0x7FFFFFFF);
    EXPECT_EQ(io->seek(io, 0x7FFFFFFF, 1), int64_t{0xFFFFFFFE});
    EXPECT_EQ(io->seek(io, 2, 1), -1);
    EXPECT_EQ(io->read(io, out, 8), 0);
    EXPECT_EQ(HalvIOMemCapacity(io), 17u);
    io->close(io);
}

TEST(StreamsMem, ZeroCountWriteStillMakesRoomForTheCursor) {
    HalvIO *io = HalvIO_Mem(4);
    EXPECT_EQ(io->write(io, "ab", 0), 0);
    EXPECT_EQ(HalvIOMemCapacity(io), 4u);
    io->seek(io, 50, 0);
    EXPECT_EQ(io->write(io, "ab", 0), 0);
    EXPECT_EQ(HalvIOMemCapacity(io), 50u);
    EXPECT_EQ(HalvIOMemLength(io), 0u);
    io->close(io);
}

TEST(StreamsMem, WritingItsOwnBytesSurvivesGrowth) {
    HalvIO *io = HalvIO_Mem(0);
    HalvIOWriteBytes(io, "0123456789", 10);
    // The source lies in the buffer that this write moves.
    EXPECT_EQ(io->write(io, HalvIOMemBuffer(io), 10), 10);
    EXPECT_EQ(Bytes(io), "01234567890123456789");
    io->close(io);
}

TEST(StreamsMem, AccessorsAnswerOnlyForMemoryStreams) {
    char text[] = "abc";
    HalvIO *str = HalvIO_Str(text, 3);
    EXPECT_EQ(HalvIOMemBuffer(str), nullptr);
    EXPECT_EQ(HalvIOMemLength(str), 0u);
    EXPECT_EQ(HalvIOMemCapacity(str), 0u);
    str->close(str);
    EXPECT_EQ(HalvIOMemBuffer(nullptr), nullptr);
    EXPECT_EQ(HalvIOMemLength(nullptr), 0u);
    EXPECT_EQ(HalvIOMemCapacity(nullptr), 0u);
}

TEST(StreamsMem, ManySmallWritesReadBackInOrder) {
    HalvIO *io = HalvIO_Mem(1);
    std::string expected;
    for (int i = 0; i < 5000; i++) {
        std::string piece = std::to_string(i) + ",";
        ASSERT_EQ(HalvIOWriteString(io, piece.c_str()), static_cast<int32_t>(piece.size()));
        expected += piece;
    }
    io->seek(io, 0, 0);
    std::string back(expected.size() + 100, '\0');
    EXPECT_EQ(HalvIOReadBytes(io, back.data(), static_cast<uint32_t>(back.size())),
              static_cast<int32_t>(expected.size()));
    EXPECT_EQ(back.substr(0, expected.size()), expected);
    io->close(io);
}

} // namespace
