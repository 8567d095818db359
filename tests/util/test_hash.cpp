// The three small hashes and MD5 at the exported interface.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

std::string Hex(const unsigned char *bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < 16; ++i)
        text += std::string{digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    return text;
}

/* The digest of length bytes, handed to Update in pieces of piece bytes. */
std::string Md5(const void *bytes, size_t length, size_t piece = SIZE_MAX) {
    HalvMD5Context context;
    HalvMD5Init(&context);
    for (size_t at = 0; at < length; at += piece)
        HalvMD5Update(&context, static_cast<const char *>(bytes) + at, (uint32_t)std::min(piece, length - at));
    unsigned char digest[16];
    HalvMD5Final(digest, &context);
    return Hex(digest);
}

std::string Md5Text(const char *text) { return Md5(text, std::strlen(text)); }

} // namespace

TEST(UtilHash, SmallHashes) {
    EXPECT_EQ(HalvHashBytes("abc", 3), 501u);
    EXPECT_EQ(HalvHashBytes("abc", 0), 0u);
    EXPECT_EQ(HalvHashBytes(nullptr, 5), 0u);
    // The multiplier wraps to 1 after 253: the 128th byte weighs 1 again.
    std::vector<unsigned char> probe(200, 0);
    EXPECT_EQ(HalvHashBytes(probe.data(), 200), 21458u);
    const uint32_t base = HalvHashBytes(probe.data(), 128);
    probe[127] = 5;
    EXPECT_EQ(HalvHashBytes(probe.data(), 128), base - 1 + 11);
    // A sum of 80620 wraps at 16 bits.
    std::vector<unsigned char> ones(600, 0xFF), ramp(768);
    EXPECT_EQ(HalvHashBytes(ones.data(), 600), 80620u & 0xFFFFu);
    for (size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = (unsigned char)i;
    EXPECT_EQ(HalvHashBytes(ramp.data(), 768), 33354u);
    for (size_t length = 0; length < ramp.size(); length += 37)
        EXPECT_LE(HalvHashBytes(ramp.data(), (uint32_t)length), 0xFFFFu);
    // The string hash takes bytes as signed and wraps modulo 2^32.
    const struct {
        const char *text;
        uint32_t hash;
    } strings[] = {{"abc", 193485963u},          {"", 5381u},   {"\x80", 177445u}, {"\xff\xfe", 5859874u},
                   {"Hello, world", 2457368813u}, {"ab\0cd", 5863208u}, {nullptr, 5381u}};
    for (const auto &s : strings)
        EXPECT_EQ(HalvHashString(s.text), s.hash) << (s.text ? s.text : "(null)");
    // FNV multiplies before the xor; chained calls hash the concatenation.
    EXPECT_EQ(HalvFNVHashBytes("abc", 3, 0), 0x84F09160u);
    EXPECT_EQ(HalvFNVHashBytes("abc", 3, 2166136261u), 0x439C2F4Bu);
    EXPECT_EQ(HalvFNVHashBytes("\x00\xff", 2, 7), 0x0A115820u);
    EXPECT_EQ(HalvFNVHashBytes("abc", 0, 12345), 12345u);
    EXPECT_EQ(HalvFNVHashBytes(nullptr, 3, 99), 99u);
    EXPECT_EQ(HalvFNVHashBytes("c", 1, HalvFNVHashBytes("ab", 2, 0)), 0x84F09160u);
}

TEST(UtilHash, Md5DigestsWholeAndInPieces) {
    const struct {
        const char *text;
        const char *digest;
    } rfc[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},    {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"}, {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"1234567890123456789012345678901234567890"
         "1234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto &r : rfc)
        EXPECT_EQ(Md5Text(r.text), r.digest) << r.text;
    std::vector<unsigned char> data(256 * 1000);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = (unsigned char)i;
    EXPECT_EQ(Md5(data.data(), data.size()), "1da708a75e25110b1341d16814feb52d");
    // Byte by byte, and in odd pieces that straddle block edges.
    for (size_t piece : {1, 3, 55, 63, 64, 65, 1000})
        EXPECT_EQ(Md5(data.data(), data.size(), piece), "1da708a75e25110b1341d16814feb52d") << piece;
    const std::string million(1000000, 'a');
    EXPECT_EQ(Md5(million.data(), million.size(), 10000), "7707d6ae4e027c70eea2a935c2296f21");
    // Lengths around the padding edge (55, 56 and 64 bytes and one block on).
    const char *text = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
                       "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
    const struct {
        uint32_t length;
        const char *digest;
    } edges[] = {
        {55, "d8ea71eb4d2af27f59a5316c971065e6"},  {56, "a68f061e81239660f6305195739ba7f0"},
        {57, "e5d5a4d0b3ccbea0dcd2de36fd8b45b1"},  {63, "c3725f9ff3277e098c83525a7aba8dd5"},
        {64, "fe3a1ff59f3b89b2ad3d33f08984874b"},  {119, "8004c5d116412742d7f923e221680379"},
        {120, "de406e75ee81715f5ceb9cc2a09ad579"}, {128, "4fe130598d47f17c19a7c493b4ce0cf1"},
    };
    for (const auto &edge : edges)
        EXPECT_EQ(Md5(text, edge.length), edge.digest) << "length " << edge.length;
}

TEST(UtilHash, Md5ContextLayoutWipingAndNullArguments) {
    EXPECT_EQ(sizeof(HalvMD5Context), 88u);
    EXPECT_EQ(offsetof(HalvMD5Context, count), 16u);
    EXPECT_EQ(offsetof(HalvMD5Context, buffer), 24u);
    HalvMD5Context context;
    HalvMD5Init(&context);
    EXPECT_EQ(context.state[0], 0x67452301u);
    HalvMD5Update(&context, "abcdefghij", 10);
    EXPECT_EQ(context.count[0], 80u); // bits, low word first
    EXPECT_EQ(context.count[1], 0u);
    EXPECT_EQ(std::memcmp(context.buffer, "abcdefghij", 10), 0);
    HalvMD5Init(nullptr);
    HalvMD5Update(nullptr, "x", 1);
    HalvMD5Update(&context, nullptr, 5); // adds nothing
    HalvMD5Final(nullptr, &context);     // untouched without a digest
    EXPECT_EQ(context.count[0], 80u);
    unsigned char digest[16];
    HalvMD5Final(digest, nullptr);
    HalvMD5Final(digest, &context);
    EXPECT_EQ(Hex(digest), Md5Text("abcdefghij"));
    // Final wipes the context; a wiped context is not a fresh one.
    HalvMD5Context zero;
    std::memset(&zero, 0, sizeof zero);
    EXPECT_EQ(std::memcmp(&context, &zero, sizeof zero), 0);
    HalvMD5Update(&context, "abc", 3);
    HalvMD5Final(digest, &context);
    EXPECT_NE(Hex(digest), "900150983cd24fb0d6963f7d28e17f72");
    // 2^29 bytes are 2^32 bits: the low word wraps and the high word counts.
    HalvMD5Init(&context);
    context.count[0] = 0xFFFFFFF8u;
    HalvMD5Update(&context, "ab", 2);
    EXPECT_EQ(context.count[0], 8u);
    EXPECT_EQ(context.count[1], 1u);
}
