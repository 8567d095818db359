/*
 * headers/manager_calls.cpp - calls through a header manager.
 *
 * A header that a manager made carries that manager's slots, and its own
 * loadChunk, fromHeader and emitChunk go before the manager a caller
 * passes: a header stays in its format whichever manager is at hand.  Only
 * a header with null slots (a generic one) takes the manager passed.
 */
#include "halv_userdata.h"
#include "headers/internal.h"

namespace halv {

void BindManager(HalvHeaderStruct *header, const HVHdrManager &manager) noexcept {
    header->toStruct = manager.toStruct;
    header->loadAll = manager.loadAll;
    header->fromStruct = manager.fromStruct;
    header->emitAll = manager.emitAll;
    header->toHeader = manager.toHeader;
    header->loadChunk = manager.loadChunk;
    header->fromHeader = manager.fromHeader;
    header->emitChunk = manager.emitChunk;
    header->createHeader = manager.createHeader;
}

} // namespace halv

namespace {

template <typename Slot> Slot HeaderFirst(Slot own, Slot passed) { return own != nullptr ? own : passed; }

/* The messages of a refused HVHdrCreateHeader, in the order tested. */
const char *CreateRefusal(const HVHdrManager &manager, HalvHeaderStruct **header) {
    bool noManager = manager.toHeader == nullptr;
    if (noManager && header == nullptr)
        return "both HVHdrManager and HalvHeaderStruct are NULL";
    if (noManager)
        return "NULL HVHdrManager";
    if (header == nullptr)
        return "NULL HalvHeaderStruct";
    return nullptr;
}

} // namespace

extern "C" {

HALV_API int HVHdrToHeader(HVHdrManager manager, HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    if (manager.toHeader == nullptr || tree == nullptr || header == nullptr)
        return 0;
    int result = manager.toHeader(tree, header);
    if (result == 1 && *header != nullptr)
        halv::BindManager(*header, manager);
    return result;
}

HALV_API int HVHdrCreateHeader(HVHdrManager manager, HalvHeaderStruct **header) noexcept {
    if (const char *refusal = CreateRefusal(manager, header)) {
        HalvDebug("HVHdrCreateHeader: %s\n", refusal);
        return 0;
    }
    // A manager with toHeader but no createHeader breaks the pairing that
    // every format keeps; it is refused like a failed method.
    int result = manager.createHeader != nullptr ? manager.createHeader(header) : 0;
    if (result != 1) {
        HalvDebug("HVHdrCreateHeader: createHeader method failed\n");
        return result;
    }
    if (*header != nullptr)
        halv::BindManager(*header, manager);
    return result;
}

/* A tree that exists but can't be duplicated is refused: writing on
 * without it would drop all that a reader didn't understand. */
HALV_API int HVHdrFromHeader(HVHdrManager manager, HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    if (header == nullptr || tree == nullptr)
        return 0;
    *tree = HalvUserCMDupData(header->userData);
    if (*tree == nullptr && header->userData != nullptr)
        return 0;
    HVHdrFromHeaderFn method = HeaderFirst(header->fromHeader, manager.fromHeader);
    int result = method != nullptr ? method(header, tree) : 0;
    *tree = HVHdrArrange(*tree);
    return result;
}

HALV_API int HVHdrToChunkLines(HVHdrManager manager, HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                               uint32_t lines) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HVHdrLoadChunkFn method = HeaderFirst(header->loadChunk, manager.loadChunk);
    return method != nullptr ? method(header, in, chunk, lines) : 0;
}

HALV_API int HVHdrToChunk(HVHdrManager manager, HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk) noexcept {
    return HVHdrToChunkLines(manager, header, in, chunk, 0);
}

HALV_API int HVHdrFromChunk(HVHdrManager manager, HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    HVHdrEmitChunkFn method = HeaderFirst(header->emitChunk, manager.emitChunk);
    return method != nullptr ? method(header, chunk, out) : 0;
}

HALV_API int HVHdrToStruct(HVHdrManager manager, HalvUserCMData *tree, void *structure) noexcept {
    if (manager.toStruct == nullptr || tree == nullptr || structure == nullptr)
        return 0;
    return manager.toStruct(tree, structure);
}

HALV_API int HVHdrLoadAll(HVHdrManager manager, void *first, void *second) noexcept {
    if (manager.loadAll == nullptr || first == nullptr || second == nullptr)
        return 0;
    return manager.loadAll(first, second);
}

HALV_API int HVHdrFromStruct(HVHdrManager manager, void *structure, HalvUserCMData **tree) noexcept {
    if (manager.fromStruct == nullptr || structure == nullptr || tree == nullptr)
        return 0;
    int result = manager.fromStruct(structure, tree);
    *tree = HVHdrArrange(*tree);
    return result;
}

HALV_API int HVHdrEmitAll(HVHdrManager manager, void *first, void *second) noexcept {
    if (manager.emitAll == nullptr || first == nullptr || second == nullptr)
        return 0;
    return manager.emitAll(first, second);
}

} // extern "C"
