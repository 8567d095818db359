/*
 * core/scratch.cpp - zeroed memory for tables that live within one call of
 * the library and never cross the interface.
 *
 * Why not simply the heap: glibc answers any request of 1 KiB or more by
 * first merging every small block freed since (malloc_consolidate).  A
 * reader that builds thousands of small nodes, and grows a lookup table now
 * and then while it does, would make the heap merge the blocks of the tree
 * freed before it and then carve each new node out of the merged memory the
 * slow way.  Measured on a 10 MiB tree that was a third of the read.  Large
 * scratch blocks therefore get pages of their own, which the heap never
 * sees; small ones stay on the heap, where a mapping per block would cost
 * more than it saves.
 *
 * Each block carries a header in front of it that says how large it is and
 * where it came from, so ScratchFree needs nothing but the pointer.
 */
#include <sys/mman.h>

#include <cstdint>
#include <cstring>

#include "core/internal.h"

namespace halv {
namespace {

/* The request size from which glibc consolidates its small blocks. */
constexpr size_t kPageBackedFrom = 1024;

struct alignas(16) ScratchHeader {
    size_t bytes;  /* the whole block, header included */
    bool mapped;   /* pages of its own, else a heap block */
};

} // namespace

void *ScratchAlloc(size_t bytes) noexcept {
    if (bytes > SIZE_MAX / 2)
        return nullptr;
    const size_t whole = bytes + sizeof(ScratchHeader);
    ScratchHeader *header;
    if (bytes < kPageBackedFrom) {
        /* Not calloc: glibc's calloc bypasses the per-thread cache that
         * free fills, so a calloc'd block freed once the cache is full
         * goes back the slow way, and merging it into the top of the heap
         * consolidates all the same. */
        header = static_cast<ScratchHeader *>(halv_internal_malloc(whole));
        if (header == nullptr)
            return nullptr;
        std::memset(header, 0, whole);
        header->mapped = false;
    } else {
        /* Fresh anonymous pages read as zeros. */
        void *pages = mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            return nullptr;
        header = static_cast<ScratchHeader *>(pages);
        header->mapped = true;
    }
    header->bytes = whole;
    return header + 1;
}

void ScratchFree(void *block) noexcept {
    if (block == nullptr)
        return;
    ScratchHeader *header = static_cast<ScratchHeader *>(block) - 1;
    if (header->mapped)
        munmap(header, header->bytes);
    else
        halv_internal_free(header);
}

} // namespace halv
