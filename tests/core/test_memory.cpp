// Allocators, arrays, smart arrays and chunks at the C interface.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <tuple>

#include "dpk_hvsup.h"

namespace {

uint32_t DistanceWord(void *block) {
    uint32_t distance;
    std::memcpy(&distance, static_cast<unsigned char *>(block) - 4, 4);
    return distance;
}

TEST(Allocators, AlignedBlocksHonourAlignmentAndCarryTheirDistance) {
    for (size_t alignment : {1u, 2u, 4u, 8u, 16u, 64u, 4096u}) {
        void *block = halv_internal_aligned_malloc(100, alignment);
        ASSERT_NE(block, nullptr);
        size_t effective = alignment < 4 ? 4 : alignment;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % effective, 0u) << alignment;
        uint32_t distance = DistanceWord(block);
        EXPECT_GE(distance, 4u);
        EXPECT_LE(distance, effective);
        std::memset(block, 0xAB, 100); // the whole block is usable
        halv_internal_aligned_free(block);
    }
    auto *zeroed = static_cast<unsigned char *>(halv_internal_aligned_alloc(257, 32));
    ASSERT_NE(zeroed, nullptr);
    for (int i = 0; i < 257; ++i)
        ASSERT_EQ(zeroed[i], 0);
    halv_internal_aligned_free(zeroed);
    halv_internal_aligned_free(nullptr);
    EXPECT_EQ(halv_internal_aligned_malloc(16, 24), nullptr); // not a power of two
    EXPECT_EQ(halv_internal_aligned_malloc(SIZE_MAX - 8, 64), nullptr);

    void *block = halv_internal_malloc(0);
    halv_internal_free(block);
    halv_internal_free(nullptr);
    void *grown = halv_internal_realloc(nullptr, 10);
    ASSERT_NE(grown, nullptr);
    halv_internal_free(grown);
}

TEST(Arrays, AllocWithItemsAndWithMarkers) {
    int **items = nullptr;
    ASSERT_EQ(HalvAllocArray(&items, 3, sizeof(int)), 1);
    EXPECT_EQ(HalvGetArraySize(items), 3u);
    for (uint32_t i = 0; i < 3; ++i) {
        ASSERT_NE(items[i], nullptr);
        EXPECT_EQ(*items[i], 0);
        EXPECT_EQ(HalvGetArrayItem(items, i), items[i]);
    }
    EXPECT_EQ(std::tuple((void *)items[3], HalvGetArrayItem(items, 3), HalvGetArrayItem(items, 10)),
              std::tuple(nullptr, nullptr, nullptr));
    EXPECT_EQ(HalvFreeArray(items), 1);

    char **markers = nullptr;
    ASSERT_EQ(HalvAllocArray(&markers, 3, 0), 1);
    EXPECT_EQ(HalvGetArraySize(markers), 3u);
    EXPECT_EQ(HalvGetArrayItem(markers, 1), HalvArrayEmptySlot());
    EXPECT_EQ(HalvFreeArray(markers), 1); // only the pointer array goes

    void **empty = nullptr;
    ASSERT_EQ(HalvAllocArray(&empty, 0, 8), 1);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(std::tuple(HalvGetArraySize(empty), HalvGetArrayItem(empty, 0)), std::tuple(0u, nullptr));
    HalvFreeArray(empty);

    void **overflow = reinterpret_cast<void **>(&empty);
    EXPECT_EQ(HalvAllocArray(&overflow, UINT32_MAX, 4), 0);
    EXPECT_EQ(overflow, nullptr);
    EXPECT_EQ(HalvAllocArray(nullptr, 1, 4), 0);

    EXPECT_EQ(std::tuple(HalvGetArraySize(nullptr), HalvGetArrayItem(nullptr, 0), HalvFreeArray(nullptr),
                         HalvFreeSmartArray(nullptr)),
              std::tuple(0u, nullptr, 0, 0));
}

TEST(Arrays, ReallocShrinksGrowsAndStartsFromNull) {
    int **items = nullptr;
    ASSERT_EQ(HalvReallocArray(&items, 2, sizeof(int)), 1); // like HalvAllocArray
    EXPECT_EQ(HalvGetArraySize(items), 2u);
    *items[0] = 11;
    *items[1] = 22;
    ASSERT_EQ(HalvReallocArray(&items, 5, sizeof(int)), 1);
    EXPECT_EQ(HalvGetArraySize(items), 5u);
    EXPECT_EQ(std::tuple(*items[0], *items[1], *items[4]), std::tuple(11, 22, 0));
    ASSERT_EQ(HalvReallocArray(&items, 2, sizeof(int)), 1); // releases three (ASan checks)
    EXPECT_EQ(HalvGetArraySize(items), 2u);
    EXPECT_EQ(*items[1], 22);
    HalvFreeArray(items);

    // Strings grown with item size 0: old strings stay, new slots hold markers.
    char **strings = nullptr;
    ASSERT_EQ(HalvAllocArray(&strings, 1, 0), 1);
    strings[0] = static_cast<char *>(halv_internal_malloc(4));
    std::strcpy(strings[0], "abc");
    ASSERT_EQ(HalvReallocArray(&strings, 3, 0), 1);
    EXPECT_STREQ(strings[0], "abc");
    EXPECT_EQ(std::tuple(HalvGetArrayItem(strings, 1), HalvGetArrayItem(strings, 2), (void *)strings[3]),
              std::tuple(HalvArrayEmptySlot(), HalvArrayEmptySlot(), nullptr));
    HalvFreeArray(strings);

    EXPECT_EQ(HalvReallocArray(nullptr, 3, 4), 0);
}

struct SmartItem {
    void *(*copy)(void *);
    uintptr_t unused;
    void (*freeFn)(void *);
    int *freed;
};

void FreeSmartItem(void *record) {
    auto *item = static_cast<SmartItem *>(record);
    ++*item->freed;
    halv_internal_free(item);
}

TEST(Arrays, SmartArrayCallsEachItemsOwnFree) {
    int freed = 0;
    SmartItem untouched{};
    SmartItem **items = nullptr;
    ASSERT_EQ(HalvAllocArray(&items, 4, 0), 1);
    for (int i = 0; i < 2; ++i) {
        items[i] = static_cast<SmartItem *>(halv_internal_calloc(1, sizeof(SmartItem)));
        items[i]->freeFn = FreeSmartItem;
        items[i]->freed = &freed;
    }
    items[2] = &untouched; // no free function: left alone
    // items[3] keeps its marker, which is skipped
    EXPECT_EQ(HalvFreeSmartArray(items), 1);
    EXPECT_EQ(freed, 2);
}

TEST(Chunks, ArrayAccessFlagsAndReset) {
    HalvChunk **chunks = nullptr;
    ASSERT_EQ(HalvAllocArray(&chunks, 2, sizeof(HalvChunk)), 1);
    char data[] = "abcdef";
    chunks[1]->flags = 32;
    chunks[1]->capacity = 64;
    EXPECT_EQ(HalvSetChunk(chunks, 1, data, 6, 2), 1);
    void *got = nullptr;
    uint32_t bytes = 0, lines = 0, flags = 0;
    EXPECT_EQ(HalvGetChunk(chunks, 1, &got, &bytes, &lines), 1);
    // The flags are untouched by HalvSetChunk.
    EXPECT_EQ(std::tuple(got, bytes, lines, chunks[1]->flags), std::tuple((void *)data, 6u, 2u, 32u));

    EXPECT_EQ(HalvSetChunk(chunks, 2, data, 1, 1), 0);
    EXPECT_EQ(HalvSetChunk(nullptr, 0, data, 1, 1), 0);
    EXPECT_EQ(HalvGetChunk(chunks, 5, &got, &bytes, &lines), 0);

    EXPECT_EQ(HalvSetChunkFlags(chunks, 0, 5), 1);
    EXPECT_EQ(HalvMarkChunkFlags(chunks, 0, 32), 1);
    EXPECT_EQ(HalvClearChunkFlags(chunks, 0, 4), 1);
    EXPECT_EQ(HalvGetChunkFlags(chunks, 0, &flags), 1);
    EXPECT_EQ(flags, 33u);
    EXPECT_EQ(HalvMarkChunkFlags(chunks, 9, 1), 0);
    EXPECT_EQ(HalvChunkMarkFlags(nullptr, 1), 0);
    EXPECT_EQ(HalvChunkClearFlags(nullptr, 1), 0);
    EXPECT_EQ(HalvChunkMarkFlags(chunks[1], 1), 1);
    EXPECT_EQ(chunks[1]->flags, 33u);

    EXPECT_EQ(HalvResetChunks(chunks), 1);
    const HalvChunk &reset = *chunks[1];
    EXPECT_EQ(std::tuple(reset.bytes, reset.lines, reset.data, reset.capacity),
              std::tuple(0u, 0u, (void *)data, 64u));
    HalvFreeArray(chunks);

    HalvChunk **none = nullptr;
    ASSERT_EQ(HalvAllocArray(&none, 0, sizeof(HalvChunk)), 1);
    EXPECT_EQ(HalvResetChunks(none), 1);
    HalvFreeArray(none);
}

TEST(Chunks, QueueGrowsByFourAndReusesFreeSlots) {
    HalvState *state = nullptr;
    ASSERT_EQ(HalvAllocState(&state, sizeof(HalvState)), 1);
    char data[5][4];
    for (uint32_t i = 0; i < 5; ++i) {
        HalvChunk chunk{};
        chunk.data = data[i];
        chunk.bytes = 4;
        chunk.flags = i == 3 ? HALV_CHUNK_READY : 0;
        uint32_t index = 99;
        ASSERT_EQ(HalvEnqueueChunk(state, &chunk, &index), 1);
        EXPECT_EQ(index, i);
    }
    uint32_t length = 0;
    ASSERT_EQ(HalvGetStateQueueLength(state, &length), 1);
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(std::tuple(state->queueChunkFn(state), state->queue[3]->data),
              std::tuple(state->queue[3], data[3]));

    // A null chunk takes a slot that stays free: the next enqueue gets it again.
    uint32_t first = 0, second = 0;
    ASSERT_EQ(HalvEnqueueChunk(state, nullptr, &first), 1);
    HalvChunk chunk{};
    chunk.data = data[0];
    ASSERT_EQ(HalvEnqueueChunk(state, &chunk, &second), 1);
    EXPECT_EQ(std::tuple(first, second), std::tuple(5u, 5u));

    // Freeing slot 1 makes it the next one used.
    state->queue[1]->data = nullptr;
    state->queue[1]->flags = 0;
    ASSERT_EQ(HalvEnqueueChunk(state, &chunk, &second), 1);
    EXPECT_EQ(second, 1u);
    EXPECT_EQ(HalvEnqueueChunk(nullptr, &chunk, nullptr), 0);
    EXPECT_EQ(HalvEnqueueChunk(state, &chunk, nullptr), 1);

    HalvFreeArray(state->queue);
    EXPECT_EQ(HalvCallEnd(state), 1);
}

TEST(Chunks, DuplicateOwnsItsBytes) {
    char data[] = "0123456789";
    HalvChunk source{};
    source.flags = 33, source.auxWord = 7, source.lines = 2, source.bytes = 10;
    source.capacity = 11, source.reservedWord = 9, source.data = data;
    HalvChunk *copy = nullptr;
    ASSERT_EQ(HalvDupChunk(&copy, &source), 1);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->data, source.data);
    EXPECT_EQ(std::memcmp(copy->data, data, 10), 0);
    // Everything but the auxiliary word is copied.
    EXPECT_EQ(std::tuple(copy->flags, copy->auxWord, copy->lines, copy->capacity, copy->reservedWord),
              std::tuple(33u, 0u, 2u, 11u, 9u));
    halv_internal_free(copy->data);
    halv_internal_free(copy);

    HalvChunk *none = reinterpret_cast<HalvChunk *>(&source);
    EXPECT_EQ(HalvDupChunk(&none, nullptr), 1);
    EXPECT_EQ(none, nullptr);
    source.bytes = 0;
    none = reinterpret_cast<HalvChunk *>(&source);
    EXPECT_EQ(HalvDupChunk(&none, &source), 0);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(HalvDupChunk(nullptr, &source), 0);
}

} // namespace
