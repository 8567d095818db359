/*
 * streams/smartbuffer_internal.h - the block bookkeeping that the smart
 * buffer's writing and reading halves share.
 *
 * Invariants: available is the sum of the unread memory bytes and unread
 * file bytes of all blocks, inMemory the sum of the unread memory bytes.  A
 * block's memory part is read before its file part.  A block with neither
 * an allocation nor a file part is unlinked at once, and a block with a
 * file name always has a file on disk with fileSize bytes in it.
 */
#ifndef HALV_STREAMS_SMARTBUFFER_INTERNAL_H
#define HALV_STREAMS_SMARTBUFFER_INTERNAL_H

#include <cstdint>

#include "halv_streams.h"

namespace halv {

/* The name every spill file is asked for with: no '/', so the directory is
 * the configured temporary one. */
constexpr char kSpillTemplate[] = "__SmartBuffer";

inline uint32_t UnreadInMemory(const HalvSmartBufferBlock *block) noexcept {
    return block->readPtr != nullptr ? static_cast<uint32_t>(block->writePtr - block->readPtr) : 0;
}

inline int64_t UnreadInFile(const HalvSmartBufferBlock *block) noexcept {
    return block->fileName != nullptr ? block->fileSize - block->fileOffset : 0;
}

/* Releases the memory part and clears its fields. */
void DropMemoryPart(HalvSmartBufferBlock *block) noexcept;

/* Deletes the file of the file part, frees its name and clears its fields. */
void DropFilePart(HalvSmartBufferBlock *block) noexcept;

/* Drops both parts and frees the block, which is no longer linked. */
void FreeBlock(HalvSmartBufferBlock *block) noexcept;

} // namespace halv

#endif
