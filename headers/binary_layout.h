/*
 * headers/binary_layout.h - the flat 'B' 'H' block of a header, shared by
 * its writer and its reader.
 *
 * Fixed part (all words unsigned 32-bit, in the order byte 2 names):
 *
 *     0  'B' 'H', block order 'L'/'B', pixel order 'L'/'B'
 *     4  managerType        8  dimCount         12  dims[32]
 *   140  parts[3]         152  bitsPerSample[32]
 *   280  bytesPerSep[32]  408  sample kind[32] (2 for 32-bit samples)
 *   536  interleave       540  alignment        544  minimumChunk
 *   548  preferredChunk   552  tree length      556  the tree
 *
 * The tree is sections, each holding keys, each holding values; every
 * element starts with a length word of what follows it.  Names are a
 * length byte, the bytes and zeros up to a multiple of 4 (at least one
 * zero); values are a length word, the bytes and zeros likewise.
 */
#ifndef HALV_HEADERS_BINARY_LAYOUT_H
#define HALV_HEADERS_BINARY_LAYOUT_H

#include <cstdint>

namespace halv::binary {

constexpr uint32_t kMagicOffset = 0;
constexpr uint32_t kBlockOrderOffset = 2;
constexpr uint32_t kPixelOrderOffset = 3;
constexpr uint32_t kManagerTypeOffset = 4;
constexpr uint32_t kDimCountOffset = 8;
constexpr uint32_t kDimsOffset = 12;
constexpr uint32_t kPartsOffset = 140;
constexpr uint32_t kBitsOffset = 152;
constexpr uint32_t kBytesOffset = 280;
constexpr uint32_t kKindOffset = 408;
constexpr uint32_t kInterleaveOffset = 536;
constexpr uint32_t kAlignmentOffset = 540;
constexpr uint32_t kMinimumChunkOffset = 544;
constexpr uint32_t kPreferredChunkOffset = 548;
constexpr uint32_t kTreeLengthOffset = 552;
constexpr uint32_t kFixedBytes = 556;

/* Places of the block's tables, and the most dims a record holds. */
constexpr uint32_t kTablePlaces = 32;
constexpr uint32_t kMaxDims = 10;
/* The manager type whose tables have one entry whatever parts says. */
constexpr int32_t kInfoManagerType = 10;
/* The sample kind of a 32-bit separation. */
constexpr uint32_t kKind32Bit = 2;

constexpr char kLittle = 'L';
constexpr char kBig = 'B';

/* Bytes of a name field: the length byte, the name, and zeros to a
 * multiple of 4, at least one. */
constexpr uint32_t NameFieldBytes(uint32_t length) { return (length + 5) & ~3u; }
/* Bytes of a value's text and its zeros, behind its length word. */
constexpr uint32_t ValueTextBytes(uint32_t length) { return (length + 4) & ~3u; }

/* Separations the tables describe: one for an info header, else the sum
 * of parts. */
inline uint64_t TableEntries(int32_t managerType, const uint32_t *parts) {
    return managerType == kInfoManagerType ? 1 : (uint64_t)parts[0] + parts[1] + parts[2];
}

} // namespace halv::binary

#endif
