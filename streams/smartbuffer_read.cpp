/*
 * streams/smartbuffer_read.cpp - peeking at, advancing over and reading a
 * smart buffer.
 *
 * A file part is read with pread straight into the caller's buffer, with
 * no read buffer; the file is opened, read and closed within one block's
 * step.  Advancing frees memory
 * blocks and deletes files as soon as they are used up.
 */
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "halv_core.h"
#include "streams/smartbuffer_internal.h"

namespace halv {
namespace {

/* Copies count bytes at position of the file name into destination.  False
 * when the file can't be opened or holds fewer bytes there.
 *
 * The bytes go from the page cache straight into the caller's buffer with
 * pread: no read buffer of our own, as with a mapping, but without the cost
 * of building and tearing down a mapping on every read, which made a
 * spilled buffer half as fast as a plain file.  The file is opened and
 * closed within the call, so no descriptor outlives it. */
bool CopyFromFile(const char *name, int64_t position, char *destination, uint32_t count) noexcept {
    int fd = open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    posix_fadvise(fd, static_cast<off_t>(position), static_cast<off_t>(count), POSIX_FADV_SEQUENTIAL);
    uint32_t done = 0;
    while (done < count) {
        ssize_t got = pread(fd, destination + done, count - done, static_cast<off_t>(position + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break; /* a file cut short behind our back */
        done += static_cast<uint32_t>(got);
    }
    close(fd);
    return done == count;
}

/* Passes over a part of `unread` bytes: uses up *offset first, then copies
 * from it through copy(from, n).  False when the copy failed. */
template <typename Copy>
bool PeekPart(int64_t unread, int64_t *offset, uint32_t count, uint32_t *copied, Copy copy) noexcept {
    if (unread <= 0)
        return true;
    if (*offset >= unread) {
        *offset -= unread;
        return true;
    }
    int64_t n = unread - *offset;
    uint32_t take = n < count - *copied ? static_cast<uint32_t>(n) : count - *copied;
    if (!copy(*offset, take))
        return false;
    *copied += take;
    *offset = 0;
    return true;
}

void UnlinkHead(HalvSmartBuffer *sb) noexcept {
    HalvSmartBufferBlock *block = sb->head;
    sb->head = block->next;
    if (sb->tail == block)
        sb->tail = nullptr;
    FreeBlock(block);
}

} // namespace
} // namespace halv

extern "C" {

HALV_API uint32_t HalvSBPeek(HalvSmartBuffer *sb, int64_t offset, void *buffer, uint32_t count) noexcept {
    using namespace halv;
    if (sb == nullptr || buffer == nullptr || offset < 0)
        return 0;
    char *out = static_cast<char *>(buffer);
    uint32_t copied = 0;
    for (HalvSmartBufferBlock *block = sb->head; block != nullptr && copied < count; block = block->next) {
        PeekPart(UnreadInMemory(block), &offset, count, &copied, [&](int64_t from, uint32_t n) {
            std::memcpy(out + copied, block->readPtr + from, n);
            return true;
        });
        if (copied == count)
            break;
        bool ok = PeekPart(UnreadInFile(block), &offset, count, &copied, [&](int64_t from, uint32_t n) {
            return CopyFromFile(block->fileName, block->fileOffset + from, out + copied, n);
        });
        if (!ok)
            break;
    }
    return copied;
}

HALV_API int64_t HalvSBAdvance(HalvSmartBuffer *sb, int64_t count) noexcept {
    using namespace halv;
    if (sb == nullptr || count <= 0)
        return 0;
    int64_t left = count;
    while (left > 0 && sb->head != nullptr) {
        HalvSmartBufferBlock *block = sb->head;
        uint32_t inMemory = UnreadInMemory(block);
        if (block->allocation != nullptr) {
            uint32_t n = left < inMemory ? static_cast<uint32_t>(left) : inMemory;
            if (n < inMemory)
                block->readPtr += n;
            else
                DropMemoryPart(block);
            left -= n;
            sb->available -= n;
            sb->inMemory -= n;
        }
        int64_t inFile = UnreadInFile(block);
        if (left > 0 && block->fileName != nullptr) {
            int64_t n = left < inFile ? left : inFile;
            if (n < inFile)
                block->fileOffset += n;
            else
                DropFilePart(block);
            left -= n;
            sb->available -= n;
        }
        if (block->capacity != 0 || block->fileName != nullptr)
            break; /* the block keeps unread bytes */
        UnlinkHead(sb);
    }
    return count - left;
}

HALV_API uint32_t HalvSBRead(HalvSmartBuffer *sb, void *buffer, uint32_t count) noexcept {
    uint32_t copied = HalvSBPeek(sb, 0, buffer, count);
    if (copied != 0)
        HalvSBAdvance(sb, copied);
    return copied;
}

} // extern "C"
