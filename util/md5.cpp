/*
 * util/md5.cpp - MD5 (RFC 1321) over a context the caller holds.
 *
 * Whole 64-byte blocks are compressed straight from the caller's bytes; only
 * a block that an Update leaves incomplete goes through the context's buffer.
 * The 64 steps are spelled out so that the compiler keeps the four chaining
 * words and the sixteen message words in registers.
 */
#include <bit>
#include <cstring>

#include "halv_util.h"

namespace {

constexpr uint32_t kBlockBytes = 64;
constexpr uint32_t kLengthOffset = 56; /* the bit count fills the last 8 bytes */

uint32_t LoadLittleEndian(const unsigned char *p) noexcept {
    uint32_t word;
    std::memcpy(&word, p, sizeof word);
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap32(word);
    return word;
}

void StoreLittleEndian(unsigned char *p, uint32_t word) noexcept {
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap32(word);
    std::memcpy(p, &word, sizeof word);
}

/* The four round functions, written so that the part that doesn't depend
 * on x (the word the previous step produced) can be computed early.  G's
 * two terms share no bits, so their sum is their union. */
inline uint32_t F(uint32_t x, uint32_t y, uint32_t z) noexcept { return z ^ (x & (y ^ z)); }
inline uint32_t G(uint32_t x, uint32_t y, uint32_t z) noexcept { return (y & ~z) + (x & z); }
inline uint32_t H(uint32_t x, uint32_t y, uint32_t z) noexcept { return x ^ (y ^ z); }
inline uint32_t I(uint32_t x, uint32_t y, uint32_t z) noexcept { return y ^ (x | ~z); }

/* a + word + constant doesn't wait for b, so it is summed first. */
template <uint32_t (*Fn)(uint32_t, uint32_t, uint32_t), int Shift>
inline void Step(uint32_t &a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, uint32_t constant) noexcept {
    a = b + std::rotl(Fn(b, c, d) + (a + word + constant), Shift);
}

void Compress(uint32_t state[4], const unsigned char *block) noexcept {
    uint32_t x[16];
    for (int i = 0; i < 16; ++i)
        x[i] = LoadLittleEndian(block + 4 * i);
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];

    Step<F, 7>(a, b, c, d, x[0], 0xd76aa478);
    Step<F, 12>(d, a, b, c, x[1], 0xe8c7b756);
    Step<F, 17>(c, d, a, b, x[2], 0x242070db);
    Step<F, 22>(b, c, d, a, x[3], 0xc1bdceee);
    Step<F, 7>(a, b, c, d, x[4], 0xf57c0faf);
    Step<F, 12>(d, a, b, c, x[5], 0x4787c62a);
    Step<F, 17>(c, d, a, b, x[6], 0xa8304613);
    Step<F, 22>(b, c, d, a, x[7], 0xfd469501);
    Step<F, 7>(a, b, c, d, x[8], 0x698098d8);
    Step<F, 12>(d, a, b, c, x[9], 0x8b44f7af);
    Step<F, 17>(c, d, a, b, x[10], 0xffff5bb1);
    Step<F, 22>(b, c, d, a, x[11], 0x895cd7be);
    Step<F, 7>(a, b, c, d, x[12], 0x6b901122);
    Step<F, 12>(d, a, b, c, x[13], 0xfd987193);
    Step<F, 17>(c, d, a, b, x[14], 0xa679438e);
    Step<F, 22>(b, c, d, a, x[15], 0x49b40821);

    Step<G, 5>(a, b, c, d, x[1], 0xf61e2562);
    Step<G, 9>(d, a, b, c, x[6], 0xc040b340);
    Step<G, 14>(c, d, a, b, x[11], 0x265e5a51);
    Step<G, 20>(b, c, d, a, x[0], 0xe9b6c7aa);
    Step<G, 5>(a, b, c, d, x[5], 0xd62f105d);
    Step<G, 9>(d, a, b, c, x[10], 0x02441453);
    Step<G, 14>(c, d, a, b, x[15], 0xd8a1e681);
    Step<G, 20>(b, c, d, a, x[4], 0xe7d3fbc8);
    Step<G, 5>(a, b, c, d, x[9], 0x21e1cde6);
    Step<G, 9>(d, a, b, c, x[14], 0xc33707d6);
    Step<G, 14>(c, d, a, b, x[3], 0xf4d50d87);
    Step<G, 20>(b, c, d, a, x[8], 0x455a14ed);
    Step<G, 5>(a, b, c, d, x[13], 0xa9e3e905);
    Step<G, 9>(d, a, b, c, x[2], 0xfcefa3f8);
    Step<G, 14>(c, d, a, b, x[7], 0x676f02d9);
    Step<G, 20>(b, c, d, a, x[12], 0x8d2a4c8a);

    Step<H, 4>(a, b, c, d, x[5], 0xfffa3942);
    Step<H, 11>(d, a, b, c, x[8], 0x8771f681);
    Step<H, 16>(c, d, a, b, x[11], 0x6d9d6122);
    Step<H, 23>(b, c, d, a, x[14], 0xfde5380c);
    Step<H, 4>(a, b, c, d, x[1], 0xa4beea44);
    Step<H, 11>(d, a, b, c, x[4], 0x4bdecfa9);
    Step<H, 16>(c, d, a, b, x[7], 0xf6bb4b60);
    Step<H, 23>(b, c, d, a, x[10], 0xbebfbc70);
    Step<H, 4>(a, b, c, d, x[13], 0x289b7ec6);
    Step<H, 11>(d, a, b, c, x[0], 0xeaa127fa);
    Step<H, 16>(c, d, a, b, x[3], 0xd4ef3085);
    Step<H, 23>(b, c, d, a, x[6], 0x04881d05);
    Step<H, 4>(a, b, c, d, x[9], 0xd9d4d039);
    Step<H, 11>(d, a, b, c, x[12], 0xe6db99e5);
    Step<H, 16>(c, d, a, b, x[15], 0x1fa27cf8);
    Step<H, 23>(b, c, d, a, x[2], 0xc4ac5665);

    Step<I, 6>(a, b, c, d, x[0], 0xf4292244);
    Step<I, 10>(d, a, b, c, x[7], 0x432aff97);
    Step<I, 15>(c, d, a, b, x[14], 0xab9423a7);
    Step<I, 21>(b, c, d, a, x[5], 0xfc93a039);
    Step<I, 6>(a, b, c, d, x[12], 0x655b59c3);
    Step<I, 10>(d, a, b, c, x[3], 0x8f0ccc92);
    Step<I, 15>(c, d, a, b, x[10], 0xffeff47d);
    Step<I, 21>(b, c, d, a, x[1], 0x85845dd1);
    Step<I, 6>(a, b, c, d, x[8], 0x6fa87e4f);
    Step<I, 10>(d, a, b, c, x[15], 0xfe2ce6e0);
    Step<I, 15>(c, d, a, b, x[6], 0xa3014314);
    Step<I, 21>(b, c, d, a, x[13], 0x4e0811a1);
    Step<I, 6>(a, b, c, d, x[4], 0xf7537e82);
    Step<I, 10>(d, a, b, c, x[11], 0xbd3af235);
    Step<I, 15>(c, d, a, b, x[2], 0x2ad7d2bb);
    Step<I, 21>(b, c, d, a, x[9], 0xeb86d391);

    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

/* Bytes already waiting in the context's buffer. */
uint32_t BufferedBytes(const HalvMD5Context *context) noexcept { return (context->count[0] >> 3) & (kBlockBytes - 1); }

} // namespace

extern "C" {

HALV_API void HalvMD5Init(HalvMD5Context *context) noexcept {
    if (context == nullptr)
        return;
    context->state[0] = 0x67452301;
    context->state[1] = 0xefcdab89;
    context->state[2] = 0x98badcfe;
    context->state[3] = 0x10325476;
    context->count[0] = 0;
    context->count[1] = 0;
}

HALV_API void HalvMD5Update(HalvMD5Context *context, const void *bytes, uint32_t length) noexcept {
    if (context == nullptr || bytes == nullptr || length == 0)
        return;
    const auto *input = static_cast<const unsigned char *>(bytes);
    uint32_t buffered = BufferedBytes(context);

    /* The bit count is 64 bits in two words: a wrap of the low word
     * carries into the high one. */
    uint32_t lowBits = context->count[0] + (length << 3);
    if (lowBits < context->count[0])
        context->count[1]++;
    context->count[0] = lowBits;
    context->count[1] += length >> 29;

    if (buffered != 0) {
        uint32_t room = kBlockBytes - buffered;
        if (length < room) {
            std::memcpy(context->buffer + buffered, input, length);
            return;
        }
        std::memcpy(context->buffer + buffered, input, room);
        Compress(context->state, context->buffer);
        input += room;
        length -= room;
    }
    for (; length >= kBlockBytes; input += kBlockBytes, length -= kBlockBytes)
        Compress(context->state, input);
    std::memcpy(context->buffer, input, length);
}

/* Pads with 0x80 and zeros to 56 bytes of a block, appends the bit count,
 * writes the chaining words as the digest and zeroes the context. */
HALV_API void HalvMD5Final(unsigned char digest[16], HalvMD5Context *context) noexcept {
    if (digest == nullptr || context == nullptr)
        return;
    unsigned char lengthBytes[8];
    StoreLittleEndian(lengthBytes, context->count[0]);
    StoreLittleEndian(lengthBytes + 4, context->count[1]);

    static constexpr unsigned char kPadding[kBlockBytes] = {0x80};
    uint32_t buffered = BufferedBytes(context);
    uint32_t padding = buffered < kLengthOffset ? kLengthOffset - buffered : kBlockBytes + kLengthOffset - buffered;
    HalvMD5Update(context, kPadding, padding);
    HalvMD5Update(context, lengthBytes, sizeof lengthBytes);

    for (int i = 0; i < 4; ++i)
        StoreLittleEndian(digest + 4 * i, context->state[i]);
    std::memset(context, 0, sizeof *context);
}

} // extern "C"
