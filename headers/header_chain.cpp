/*
 * headers/header_chain.cpp - from a stream to a header or structure and
 * back: read the text, pick the manager by the ID section, build; or build
 * the tree and write it.
 */
#include "halv_userdata.h"
#include "headers/internal.h"

namespace {

/* The reader of the header text: plain, or one that keeps a copy of every
 * byte it took. */
struct TextReader {
    void **bytes;
    uint32_t *count;

    int Read(HalvIO *in, HalvUserCMData **tree) const {
        return bytes == nullptr ? HVHdrRead(in, tree) : HVHdrNonDestructiveRead(in, tree, bytes, count);
    }
};

/* Builds from the tree through the manager found; the tree is freed on
 * every way out. */
template <typename Build>
int ReadThenBuild(HalvIO *in, const TextReader &reader, HVHdrManager *manager, bool speak, Build build) {
    HalvUserCMData *tree = nullptr;
    int result = reader.Read(in, &tree);
    if (result != 1) {
        if (speak)
            HalvDebug("HVHdrRead_Header: Failed call HVHdrRead()\n");
        HVHdrFree(tree);
        return result;
    }
    result = HVHdrGetManager(tree, manager);
    if (result != 1) {
        if (speak)
            HalvDebug("HVHdrRead_Header: Failed call HVHdrGetManager()\n");
        HVHdrFree(tree);
        return result;
    }
    result = build(tree);
    HVHdrFree(tree);
    return result;
}

/* Bytes and count are cleared first whenever their pointers are given. */
void ClearCapture(void **bytes, uint32_t *count) {
    if (bytes != nullptr)
        *bytes = nullptr;
    if (count != nullptr)
        *count = 0;
}

template <typename Build> int WriteBuilt(HalvIO *out, Build build) {
    HalvUserCMData *tree = nullptr;
    int result = build(&tree);
    if (result != 1) {
        HVHdrFree(tree);
        return result;
    }
    result = HVHdrWrite(tree, out);
    HVHdrFree(tree);
    return result;
}

} // namespace

extern "C" {

HALV_API int HVHdrRead_Header(HalvIO *in, HVHdrManager *manager, HalvHeaderStruct **header) noexcept {
    if (in == nullptr || manager == nullptr || header == nullptr)
        return 0;
    return ReadThenBuild(in, TextReader{nullptr, nullptr}, manager, true,
                         [&](HalvUserCMData *tree) { return HVHdrToHeader(*manager, tree, header); });
}

HALV_API int HVHdrNonDestructivRead_Header(HalvIO *in, void **bytes, uint32_t *count, HVHdrManager *manager,
                                           HalvHeaderStruct **header) noexcept {
    ClearCapture(bytes, count);
    if (in == nullptr || bytes == nullptr || count == nullptr || manager == nullptr || header == nullptr)
        return 0;
    return ReadThenBuild(in, TextReader{bytes, count}, manager, false,
                         [&](HalvUserCMData *tree) { return HVHdrToHeader(*manager, tree, header); });
}

HALV_API int HVHdrRead_Struct(HalvIO *in, HVHdrManager *manager, void *structure) noexcept {
    if (in == nullptr || manager == nullptr || structure == nullptr)
        return 0;
    return ReadThenBuild(in, TextReader{nullptr, nullptr}, manager, false,
                         [&](HalvUserCMData *tree) { return HVHdrToStruct(*manager, tree, structure); });
}

HALV_API int HVHdrNonDestructivRead_Struct(HalvIO *in, void **bytes, uint32_t *count, HVHdrManager *manager,
                                           void *structure) noexcept {
    ClearCapture(bytes, count);
    if (in == nullptr || bytes == nullptr || count == nullptr || manager == nullptr || structure == nullptr)
        return 0;
    return ReadThenBuild(in, TextReader{bytes, count}, manager, false,
                         [&](HalvUserCMData *tree) { return HVHdrToStruct(*manager, tree, structure); });
}

HALV_API int HVHdrWrite_Header(HalvHeaderStruct *header, HVHdrManager *manager, HalvIO *out) noexcept {
    if (header == nullptr || manager == nullptr || out == nullptr)
        return 0;
    return WriteBuilt(out, [&](HalvUserCMData **tree) { return HVHdrFromHeader(*manager, header, tree); });
}

HALV_API int HVHdrWrite_Struct(void *structure, HVHdrManager *manager, HalvIO *out) noexcept {
    if (structure == nullptr || manager == nullptr || out == nullptr)
        return 0;
    return WriteBuilt(out, [&](HalvUserCMData **tree) { return HVHdrFromStruct(*manager, structure, tree); });
}

} // extern "C"
