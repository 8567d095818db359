/*
 * core/state.cpp - the processing state and the call protocol.
 *
 * A processing function is driven through one HalvState: an init point builds
 * it, processPoint runs once per pass, endPoint takes it down.  The wrappers
 * here add the status bookkeeping and the single-input / single-output
 * shortcuts; nothing on the data path copies bytes.
 */
#include <cstdarg>
#include <cstring>

#include "core/internal.h"
#include "halv_headers.h"
#include "halv_util.h"

namespace {

/* ---- default slots ---------------------------------------------------- */

int DefaultProcess(HalvState *state) {
    if (state == nullptr)
        return 0;
    if (state->inputChunks == nullptr) {
        HalvSetError(state, 1, "Default process requires input");
        return 0;
    }
    state->outputChunks = state->inputChunks;
    return 1;
}

int DefaultEnd(HalvState *state) { return HalvFreeState(state); }

const char *DefaultErrorMessage(HalvState *state) { return state->errorMessage; }

int DefaultOutputCount(HalvState *state) {
    if (state->flags & HALV_STATE_OUTPUTS_UNKNOWN)
        return -1;
    if (state->outputCount == 0 && state->outputHeaderFn(state, 0) != nullptr) {
        do
            ++state->outputCount;
        while (state->outputHeaderFn(state, state->outputCount) != nullptr);
    }
    return state->outputCount;
}

struct HalvHeaderStruct *DefaultOutputHeader(HalvState *state, int32_t index) {
    if (state->headers == nullptr)
        return nullptr;
    return static_cast<struct HalvHeaderStruct *>(HalvGetArrayItem(state->headers, (uint32_t)index));
}

/* An output header as a flat block in the machine's order: its size for a
 * null buffer, else the block written into buffer (-1 when size is too
 * small); 0 when there is no header at index. */
int32_t DefaultOutputBinHeader(HalvState *state, int32_t index, void *buffer, uintptr_t size) {
    const HalvHeaderStruct *header = DefaultOutputHeader(state, index);
    if (header == nullptr)
        return 0;
    /* The block's capacity is a 32-bit count; larger buffers are more than
     * any block needs. */
    uint32_t capacity = size > 0x7FFFFFFF ? 0x7FFFFFFF : (uint32_t)size;
    return HalvBinHdrFromHdr(header, HalvIdentifyEndian(), buffer != nullptr ? &buffer : nullptr, capacity);
}

HalvChunk *DefaultInputChunk(HalvState *state, int32_t index) {
    return state->inputChunks == nullptr ? nullptr
                                         : static_cast<HalvChunk *>(HalvGetArrayItem(state->inputChunks, (uint32_t)index));
}

HalvChunk *DefaultOutputChunk(HalvState *state, int32_t index) {
    return state->outputChunks == nullptr ? nullptr
                                          : static_cast<HalvChunk *>(HalvGetArrayItem(state->outputChunks, (uint32_t)index));
}

HalvChunk *DefaultQueueChunk(HalvState *state) {
    for (uint32_t i = 0; i < state->queueLength; ++i) {
        auto *chunk = static_cast<HalvChunk *>(HalvGetArrayItem(state->queue, i));
        if (chunk == nullptr)
            break;
        if (chunk->flags & HALV_CHUNK_READY)
            return chunk;
    }
    return nullptr;
}

/* ---- call helpers ----------------------------------------------------- */

/* Runs processPoint and records its result; the caller has checked state. */
int RunProcessPoint(HalvState *state) noexcept {
    if (state->processPoint == nullptr)
        return HalvSetError(state, -1, "No processPoint entry point defined");
    return HalvSetStatus(state, state->processPoint(state));
}

/* The output step of the SO shortcuts: chunk 0 into the out arguments. */
int ReadFirstOutput(HalvState *state, int result, void **data, uint32_t *bytes, uint32_t *lines) noexcept {
    if (result != 1 && result != 2)
        return result;
    return HalvGetChunk(state->outputChunks, 0, data, bytes, lines) == 1 ? result : 0;
}

/* One end step: release the error text, then hand the state to endPoint. */
int EndOnce(HalvState *state) noexcept {
    if (state->endPoint == nullptr)
        return HalvSetError(state, 0, "No endPoint entry point defined");
    halv_internal_free(state->errorMessage);
    state->errorMessage = nullptr;
    return state->endPoint(state);
}

int FinishInit(int result, HalvState **out) noexcept {
    if (*out != nullptr)
        HalvSetStatus(*out, result);
    return result;
}

} // namespace

extern "C" {

HALV_API int HalvAllocState(HalvState **out, int32_t size) noexcept {
    if (out == nullptr || size < (int32_t)sizeof(HalvState))
        return 0;
    auto *state = static_cast<HalvState *>(halv_internal_calloc(1, (size_t)size));
    if (state == nullptr)
        return 0;
    *out = state;
    HalvSetError(state, 0, nullptr);
    state->processPoint = DefaultProcess;
    state->endPoint = DefaultEnd;
    state->errorMessageFn = DefaultErrorMessage;
    state->outputCountFn = DefaultOutputCount;
    state->outputHeaderFn = DefaultOutputHeader;
    state->outputBinHeaderFn = DefaultOutputBinHeader;
    state->inputChunkFn = DefaultInputChunk;
    state->outputChunkFn = DefaultOutputChunk;
    state->queueChunkFn = DefaultQueueChunk;
    return 1;
}

HALV_API int HalvFreeState(HalvState *state) noexcept {
    if (state == nullptr)
        return 0;
    if (state->name != nullptr)
        HalvDebug("Free State: %s\n", state->name);
    halv_internal_free(state);
    return 1;
}

HALV_API int HalvGetStateFlags(HalvState *state, uint32_t *flags) noexcept {
    if (state == nullptr || flags == nullptr)
        return 0;
    *flags = state->flags;
    return 1;
}

HALV_API int HalvGetStateOutputCount(HalvState *state, uint32_t *count) noexcept {
    if (state == nullptr || count == nullptr)
        return 0;
    int outputs = state->outputCountFn != nullptr ? state->outputCountFn(state) : 0;
    *count = outputs == -1 ? 0u : (uint32_t)outputs;
    return 1;
}

HALV_API int HalvGetStateQueueLength(HalvState *state, uint32_t *length) noexcept {
    if (state == nullptr || length == nullptr)
        return 0;
    *length = state->queueLength;
    return 1;
}

HALV_API int32_t HalvGetOutputFlags(HalvState *state, int32_t index) noexcept {
    if (state == nullptr || index >= state->outputCount || index < 0 || state->outputFlags == nullptr)
        return 0;
    return state->outputFlags[index];
}

HALV_API int HalvCallInit(HalvInitPoint init, intptr_t *args, HalvState **out) noexcept {
    if (init == nullptr || args == nullptr || out == nullptr)
        return 0;
    return FinishInit(init(args, out), out);
}

HALV_API int HalvCallInitArgs(HalvInitPoint init, ...) noexcept {
    va_list args;
    va_start(args, init);
    size_t words = 0;
    va_list count;
    va_copy(count, args);
    while (va_arg(count, intptr_t) != 1)
        ++words;
    auto **out = va_arg(count, HalvState **);
    va_end(count);
    ++words;
    if (init == nullptr || out == nullptr) {
        va_end(args);
        return 0;
    }
    auto *list = static_cast<intptr_t *>(halv_internal_calloc(words, sizeof(intptr_t)));
    if (list == nullptr) {
        va_end(args);
        return 0;
    }
    for (size_t i = 0; i < words; ++i)
        list[i] = va_arg(args, intptr_t);
    va_end(args);
    int result = FinishInit(init(list, out), out);
    halv_internal_free(list);
    return result;
}

HALV_API int HalvCallProcess(HalvState *state) noexcept {
    if (state == nullptr)
        return 0;
    return RunProcessPoint(state);
}

HALV_API int HalvProcessSI(HalvState *state, void *data, uint32_t bytes, uint32_t lines) noexcept {
    if (HalvSetChunk(state->inputChunks, 0, data, bytes, lines) != 1)
        return 0;
    return RunProcessPoint(state);
}

HALV_API int HalvProcessSO(HalvState *state, void **data, uint32_t *bytes, uint32_t *lines) noexcept {
    if (state == nullptr)
        return 0;
    return ReadFirstOutput(state, RunProcessPoint(state), data, bytes, lines);
}

HALV_API int HalvProcessSISO(HalvState *state, void *data, uint32_t bytes, uint32_t lines, void **outData,
                             uint32_t *outBytes, uint32_t *outLines) noexcept {
    return ReadFirstOutput(state, HalvProcessSI(state, data, bytes, lines), outData, outBytes, outLines);
}

HALV_API int HalvCallEnd(HalvState *state) noexcept {
    if (state == nullptr)
        return 0;
    return EndOnce(state);
}

HALV_API int HalvAbsoluteCallEnd(HalvState *state) noexcept {
    if (state == nullptr || state->endPoint == nullptr)
        return 0;
    int result = EndOnce(state);
    if (result == 1)
        return 1;
    while (result == -1)
        result = EndOnce(state);
    return result == 1 ? -1 : 0;
}

} // extern "C"
