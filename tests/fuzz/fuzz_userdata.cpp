// Fuzz target for the user data language.
//
// Every input goes through the token reader in both dialects and through
// the tree reader, strict and not, from a hand-built stream (read a byte per
// call) and from a library memory stream (scanned in place): both must give
// the same tokens, the same trees, and leave the stream at the same place.
// A tree that the reader accepts must print, copy, and, when it is one the
// writer can render faithfully, read back from its own text as the very
// same tree that prints the very same text.
#include "fuzz/support.h"
#include "userdata/faithful.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;
using fuzz::OpenBytes;
using fuzz::Position;

/* Tokens to the end of the input: each token but the final 101 consumes at
 * least one byte, so the count is bounded. */
void ReadAllTokens(const uint8_t *data, size_t size, bool old) {
    auto readToken = old ? HalvReadOldUserCM : HalvReadUserCM;
    std::string sink, librarySink;
    fuzz::ByteStream in = fuzz::OpenByteStream(data, size);
    HalvIO *library = OpenBytes(data, size);
    for (size_t tokens = 0;; ++tokens) {
        FailIf(tokens > size + 1, "token reader makes no progress");
        fuzz::ByteStream out = fuzz::OpenByteStream(nullptr, 0, &sink),
                         libraryOut = fuzz::OpenByteStream(nullptr, 0, &librarySink);
        sink.clear();
        librarySink.clear();
        const int32_t code = readToken(&in.io, &out.io);
        if (readToken(library, &libraryOut.io) != code || librarySink != sink || Position(library) != in.at)
            Fail("a memory stream reads another token");
        if ((code == HALV_UCM_TOKEN_END || code == HALV_UCM_TOKEN_ERROR) && in.at == size)
            break;
    }
    library->close(library);
}

std::string Write(const HalvUserCMData *tree) {
    std::string text;
    fuzz::ByteStream out = fuzz::OpenByteStream(nullptr, 0, &text);
    FailIf(HalvWriteUserCMData(tree, &out.io) != 1, "writing an accepted tree failed");
    return text;
}

int32_t Read(const void *bytes, size_t size, HalvUserCMData **tree, int32_t strict) {
    fuzz::ByteStream in = fuzz::OpenByteStream(bytes, size);
    return HalvReadUserCMData(&in.io, tree, strict);
}

void CheckRoundTrip(const HalvUserCMData *tree) {
    const std::string text = Write(tree);
    HalvUserCMData *copy = HalvUserCMDupData(tree);
    FailIf(!ucm_test::SameTree(tree, copy), "copy differs");
    HalvFreeUserCMData(copy);

    HalvUserCMData *again = nullptr;
    const int32_t result = Read(text.data(), text.size(), &again, 0);
    if (ucm_test::Faithful(tree)) {
        FailIf(result != 1 || !ucm_test::SameTree(tree, again), "read -> write -> read changed the tree");
        FailIf(Write(again) != text, "the tree read back prints differently");
    }
    HalvFreeUserCMData(again);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ReadAllTokens(data, size, false);
    ReadAllTokens(data, size, true);

    for (int32_t strict = 0; strict <= 1; ++strict) {
        HalvUserCMData *tree = nullptr;
        fuzz::ByteStream in = fuzz::OpenByteStream(data, size);
        const int32_t result = HalvReadUserCMData(&in.io, &tree, strict);
        FailIf(result == 0 && tree != nullptr, "a rejected read left a tree");
        HalvUserCMData *libraryTree = nullptr;
        HalvIO *library = OpenBytes(data, size);
        if (HalvReadUserCMData(library, &libraryTree, strict) != result || !ucm_test::SameTree(tree, libraryTree) ||
            Position(library) != in.at)
            Fail("a memory stream reads another tree");
        library->close(library);
        HalvFreeUserCMData(libraryTree);
        if (result == 1)
            CheckRoundTrip(tree);
        HalvFreeUserCMData(tree);
    }
    return 0;
}
