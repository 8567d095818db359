/*
 * core/chunk.cpp - chunk records, addressed in an array or by pointer, the
 * state's chunk queue, and owned duplicates.
 *
 * Nothing here copies image bytes except HalvDupChunk: chunk records are
 * reused from pass to pass and only their fields change.
 */
#include <cstring>

#include "halv_core.h"

namespace {

HalvChunk *ChunkAt(HalvChunk **array, uint32_t index) noexcept {
    return static_cast<HalvChunk *>(HalvGetArrayItem(array, index));
}

bool IsFreeQueueSlot(const HalvChunk *chunk) noexcept {
    return chunk->data == nullptr && chunk->capacity == 0 && chunk->flags == 0;
}

void FillQueueSlot(HalvChunk *slot, const HalvChunk *chunk) noexcept {
    if (chunk != nullptr)
        *slot = *chunk;
    else
        std::memset(slot, 0, sizeof *slot);
}

} // namespace

extern "C" {

HALV_API int HalvSetChunk(HalvChunk **array, uint32_t index, void *data, uint32_t bytes, uint32_t lines) noexcept {
    HalvChunk *chunk = ChunkAt(array, index);
    if (chunk == nullptr)
        return 0;
    chunk->data = data;
    chunk->bytes = bytes;
    chunk->lines = lines;
    return 1;
}

HALV_API int HalvGetChunk(HalvChunk **array, uint32_t index, void **data, uint32_t *bytes, uint32_t *lines) noexcept {
    HalvChunk *chunk = ChunkAt(array, index);
    if (chunk == nullptr)
        return 0;
    if (data != nullptr)
        *data = chunk->data;
    if (bytes != nullptr)
        *bytes = chunk->bytes;
    if (lines != nullptr)
        *lines = chunk->lines;
    return 1;
}

HALV_API int HalvSetChunkFlags(HalvChunk **array, uint32_t index, uint32_t flags) noexcept {
    HalvChunk *chunk = ChunkAt(array, index);
    if (chunk == nullptr)
        return 0;
    chunk->flags = flags;
    return 1;
}

HALV_API int HalvGetChunkFlags(HalvChunk **array, uint32_t index, uint32_t *flags) noexcept {
    HalvChunk *chunk = ChunkAt(array, index);
    if (chunk == nullptr)
        return 0;
    if (flags != nullptr)
        *flags = chunk->flags;
    return 1;
}

HALV_API int HalvMarkChunkFlags(HalvChunk **array, uint32_t index, uint32_t bits) noexcept {
    return HalvChunkMarkFlags(ChunkAt(array, index), bits);
}

HALV_API int HalvClearChunkFlags(HalvChunk **array, uint32_t index, uint32_t bits) noexcept {
    return HalvChunkClearFlags(ChunkAt(array, index), bits);
}

HALV_API int HalvChunkMarkFlags(HalvChunk *chunk, uint32_t bits) noexcept {
    if (chunk == nullptr)
        return 0;
    chunk->flags |= bits;
    return 1;
}

HALV_API int HalvChunkClearFlags(HalvChunk *chunk, uint32_t bits) noexcept {
    if (chunk == nullptr)
        return 0;
    chunk->flags &= ~bits;
    return 1;
}

HALV_API int HalvResetChunks(HalvChunk **array) noexcept {
    for (uint32_t i = 0; array[i] != nullptr; ++i) {
        array[i]->bytes = 0;
        array[i]->lines = 0;
    }
    return 1;
}

HALV_API int HalvEnqueueChunk(HalvState *state, const HalvChunk *chunk, uint32_t *index) noexcept {
    if (state == nullptr)
        return 0;
    uint32_t slot = 0;
    if (state->queue != nullptr) {
        for (; state->queue[slot] != nullptr; ++slot) {
            if (IsFreeQueueSlot(state->queue[slot]))
                break;
        }
    }
    if (state->queue == nullptr || state->queue[slot] == nullptr) {
        state->queueLength += 4;
        if (HalvReallocArray(&state->queue, state->queueLength, (uint32_t)sizeof(HalvChunk)) != 1)
            return 0;
    }
    FillQueueSlot(state->queue[slot], chunk);
    if (index != nullptr)
        *index = slot;
    return 1;
}

HALV_API int HalvDupChunk(HalvChunk **out, const HalvChunk *source) noexcept {
    if (out == nullptr)
        return 0;
    *out = nullptr;
    if (source == nullptr)
        return 1;
    if (source->bytes == 0)
        return 0;
    auto *copy = static_cast<HalvChunk *>(halv_internal_calloc(1, sizeof(HalvChunk)));
    void *data = halv_internal_malloc(source->bytes);
    if (copy == nullptr || data == nullptr) {
        halv_internal_free(copy);
        halv_internal_free(data);
        return 0;
    }
    copy->flags = source->flags;
    copy->lines = source->lines;
    copy->bytes = source->bytes;
    copy->capacity = source->capacity;
    copy->reservedWord = source->reservedWord;
    std::memcpy(data, source->data, source->bytes);
    copy->data = data;
    *out = copy;
    return 1;
}

} // extern "C"
