/*
 * streams/smartbuffer_append.cpp - HalvSBAppend: bytes go to memory up to
 * the limit and the rest to temporary files.
 *
 * Small appends fill the tail block's allocation and allocate again only
 * every blockSize bytes.  A file part is written by opening its file for
 * each append and closing it again, so a buffer holds no descriptor between
 * calls.  A block that has a file part is never added to in memory: new
 * memory bytes go to a new block behind it, which keeps the order.
 */
#include <cstring>

#include "halv_core.h"
#include "streams/file_internal.h"
#include "streams/smartbuffer_internal.h"

namespace halv {
namespace {

void LinkAtTail(HalvSmartBuffer *sb, HalvSmartBufferBlock *block) noexcept {
    if (sb->tail != nullptr)
        sb->tail->next = block;
    else
        sb->head = block;
    sb->tail = block;
}

uint32_t RoomInTail(const HalvSmartBuffer *sb) noexcept {
    const HalvSmartBufferBlock *tail = sb->tail;
    if (tail == nullptr || tail->fileName != nullptr || tail->allocation == nullptr)
        return 0;
    return static_cast<uint32_t>(tail->allocation + tail->capacity - tail->writePtr);
}

uint32_t AppendToMemory(HalvSmartBuffer *sb, const char *bytes, uint32_t count) noexcept {
    uint32_t stored = 0;
    if (uint32_t room = RoomInTail(sb); room != 0) {
        stored = count < room ? count : room;
        std::memcpy(sb->tail->writePtr, bytes, stored);
        sb->tail->writePtr += stored;
    }
    if (stored < count) {
        uint32_t remaining = count - stored;
        uint32_t capacity = remaining > sb->blockSize ? remaining : sb->blockSize;
        auto *block = static_cast<HalvSmartBufferBlock *>(halv_internal_calloc(1, sizeof(HalvSmartBufferBlock)));
        auto *allocation = static_cast<char *>(halv_internal_malloc(capacity));
        if (block == nullptr || allocation == nullptr) {
            halv_internal_free(block);
            halv_internal_free(allocation);
        } else {
            /* The whole allocation starts zeroed; only the room behind the
             * bytes needs clearing, the bytes themselves overwrite the rest. */
            std::memcpy(allocation, bytes + stored, remaining);
            std::memset(allocation + remaining, 0, capacity - remaining);
            block->allocation = block->readPtr = allocation;
            block->writePtr = allocation + remaining;
            block->capacity = capacity;
            LinkAtTail(sb, block);
            stored = count;
        }
    }
    sb->available += stored;
    sb->inMemory += stored;
    return stored;
}

/* Opens the block's file with mode, writes count bytes and counts what was
 * stored.  The bytes stored, or -1 when the file doesn't open. */
int64_t WriteFilePart(HalvSmartBuffer *sb, HalvSmartBufferBlock *block, const char *mode, const char *bytes,
                      uint32_t count) noexcept {
    HalvIO *io = HalvIO_FileName(block->fileName, mode);
    if (io == nullptr)
        return -1;
    int32_t written = count != 0 ? HalvIOWriteBytes(io, bytes, count) : 0;
    if (written < 0)
        written = 0;
    io->flush(io);
    io->close(io);
    block->fileSize += written;
    sb->available += written;
    return written;
}

uint32_t FileRoom(const HalvSmartBuffer *sb, const HalvSmartBufferBlock *block, uint32_t wanted) noexcept {
    int64_t room = sb->tempFileMax - block->fileSize;
    if (room <= 0)
        return 0;
    return room < wanted ? static_cast<uint32_t>(room) : wanted;
}

/* Continues the tail block's file, or starts one for it.  Sets *finished
 * when a write stored less than it was given (a full disk): the append
 * then ends with a short count. */
uint32_t AppendToTailFile(HalvSmartBuffer *sb, const char *bytes, uint32_t count, bool *finished) noexcept {
    HalvSmartBufferBlock *tail = sb->tail;
    uint32_t wanted = tail != nullptr ? FileRoom(sb, tail, count) : 0;
    if (wanted == 0)
        return 0;
    bool fresh = tail->fileName == nullptr;
    if (fresh && (tail->fileName = HalvMktemp(kSpillTemplate)) == nullptr)
        return 0;
    int64_t stored = WriteFilePart(sb, tail, "a+b", bytes, wanted);
    if (fresh && stored <= 0)
        DropFilePart(tail); /* leaves the block as it was: memory only */
    if (stored < 0)
        return 0; /* the file didn't open: new blocks may still do */
    *finished = static_cast<uint32_t>(stored) < wanted;
    return static_cast<uint32_t>(stored);
}

uint32_t AppendToFiles(HalvSmartBuffer *sb, const char *bytes, uint32_t count) noexcept {
    bool finished = false;
    uint32_t stored = AppendToTailFile(sb, bytes, count, &finished);
    while (!finished && stored < count) {
        auto *block = static_cast<HalvSmartBufferBlock *>(halv_internal_calloc(1, sizeof(HalvSmartBufferBlock)));
        if (block == nullptr)
            break;
        block->fileName = HalvMktemp(kSpillTemplate);
        uint32_t wanted = FileRoom(sb, block, count - stored);
        int64_t written = block->fileName != nullptr && wanted != 0
                              ? WriteFilePart(sb, block, "w+b", bytes + stored, wanted)
                              : -1;
        if (written <= 0) {
            FreeBlock(block); /* deletes the empty file */
            break;
        }
        LinkAtTail(sb, block);
        stored += static_cast<uint32_t>(written);
        finished = static_cast<uint32_t>(written) < wanted;
    }
    return stored;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API int32_t HalvSBAppend(HalvSmartBuffer *sb, const void *bytes, uint32_t count) noexcept {
    using namespace halv;
    if (sb == nullptr || bytes == nullptr || count == 0)
        return 0;
    /* The result is a signed count: one call stores at most 2^31 - 1. */
    count = count < 0x7FFFFFFFu ? count : 0x7FFFFFFFu;
    const char *text = static_cast<const char *>(bytes);
    uint32_t toMemory = count;
    if (!sb->memoryOnly && static_cast<uint64_t>(sb->inMemory) + count > sb->memoryMax) {
        uint32_t room = sb->memoryMax > sb->inMemory ? sb->memoryMax - sb->inMemory : 0;
        toMemory = count < room ? count : room;
    }
    uint32_t stored = toMemory != 0 ? AppendToMemory(sb, text, toMemory) : 0;
    if (stored == toMemory && stored < count)
        stored += AppendToFiles(sb, text + stored, count - stored);
    return static_cast<int32_t>(stored);
}

} // extern "C"
