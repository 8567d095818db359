// Fuzz target for the user data language.
//
// Every input goes through the token reader in both dialects and through the
// tree reader, strict and not, from a hand-built stream (read a byte per
// call) and from a library memory stream (scanned in place): both must give
// the same tokens, the same trees, and leave the stream at the same place.  A tree that the reader accepts must print,
// copy, and, when it is one the writer can render faithfully, read back from
// its own text as the very same tree that prints the very same text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dpk_hvsup.h"
#include "userdata/faithful.h"

namespace {

/* A memory stream: reads from a byte range, writes append to a string. */
struct MemoryStream {
    HalvIO io;
    const uint8_t *bytes;
    size_t size;
    size_t position;
    std::string *written;
};

int32_t MemoryRead(HalvIO *io, void *buffer, uint32_t count) {
    auto *stream = reinterpret_cast<MemoryStream *>(io);
    size_t take = stream->size - stream->position;
    if (take > count)
        take = count;
    if (take != 0)
        std::memcpy(buffer, stream->bytes + stream->position, take);
    stream->position += take;
    return (int32_t)take;
}

int32_t MemoryWrite(HalvIO *io, const void *bytes, uint32_t count) {
    auto *stream = reinterpret_cast<MemoryStream *>(io);
    stream->written->append(static_cast<const char *>(bytes), count);
    return (int32_t)count;
}

MemoryStream Open(const void *bytes, size_t size, std::string *written) {
    MemoryStream stream{};
    stream.io.read = MemoryRead;
    stream.io.write = MemoryWrite;
    stream.bytes = static_cast<const uint8_t *>(bytes);
    stream.size = size;
    stream.written = written;
    return stream;
}

[[noreturn]] void Fail(const char *what) {
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

/* A library memory stream holding the bytes, read from the start. */
HalvIO *OpenLibrary(const void *bytes, size_t size) {
    HalvIO *io = HalvIO_Mem(0);
    if (io == nullptr || (size != 0 && io->write(io, bytes, (uint32_t)size) != (int32_t)size) ||
        io->seek(io, 0, 0) != 0)
        Fail("memory stream");
    return io;
}

size_t Position(HalvIO *io) { return (size_t)io->seek(io, 0, 1); }

/* Tokens to the end of the input: each token but the final 101 consumes at
 * least one byte, so the count is bounded. */
void ReadAllTokens(const uint8_t *data, size_t size, bool old) {
    auto readToken = old ? HalvReadOldUserCM : HalvReadUserCM;
    std::string sink, librarySink;
    MemoryStream in = Open(data, size, nullptr);
    HalvIO *library = OpenLibrary(data, size);
    for (size_t tokens = 0;; ++tokens) {
        if (tokens > size + 1)
            Fail("token reader makes no progress");
        MemoryStream out = Open(nullptr, 0, &sink), libraryOut = Open(nullptr, 0, &librarySink);
        sink.clear();
        librarySink.clear();
        const int32_t code = readToken(&in.io, &out.io);
        if (readToken(library, &libraryOut.io) != code || librarySink != sink || Position(library) != in.position)
            Fail("a memory stream reads another token");
        if ((code == HALV_UCM_TOKEN_END || code == HALV_UCM_TOKEN_ERROR) && in.position == size)
            break;
    }
    library->close(library);
}

std::string Write(const HalvUserCMData *tree) {
    std::string text;
    MemoryStream out = Open(nullptr, 0, &text);
    if (HalvWriteUserCMData(tree, &out.io) != 1)
        Fail("writing an accepted tree failed");
    return text;
}

int32_t Read(const void *bytes, size_t size, HalvUserCMData **tree, int32_t strict) {
    MemoryStream in = Open(bytes, size, nullptr);
    return HalvReadUserCMData(&in.io, tree, strict);
}

void CheckRoundTrip(const HalvUserCMData *tree) {
    const std::string text = Write(tree);
    HalvUserCMData *copy = HalvUserCMDupData(tree);
    if (!ucm_test::SameTree(tree, copy))
        Fail("copy differs");
    HalvFreeUserCMData(copy);

    HalvUserCMData *again = nullptr;
    const int32_t result = Read(text.data(), text.size(), &again, 0);
    if (ucm_test::Faithful(tree)) {
        if (result != 1 || !ucm_test::SameTree(tree, again))
            Fail("read -> write -> read changed the tree");
        if (Write(again) != text)
            Fail("the tree read back prints differently");
    }
    HalvFreeUserCMData(again);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ReadAllTokens(data, size, false);
    ReadAllTokens(data, size, true);

    for (int32_t strict = 0; strict <= 1; ++strict) {
        HalvUserCMData *tree = nullptr;
        MemoryStream in = Open(data, size, nullptr);
        const int32_t result = HalvReadUserCMData(&in.io, &tree, strict);
        if (result == 0 && tree != nullptr)
            Fail("a rejected read left a tree");
        HalvUserCMData *libraryTree = nullptr;
        HalvIO *library = OpenLibrary(data, size);
        if (HalvReadUserCMData(library, &libraryTree, strict) != result || !ucm_test::SameTree(tree, libraryTree) ||
            Position(library) != in.position)
            Fail("a memory stream reads another tree");
        library->close(library);
        HalvFreeUserCMData(libraryTree);
        if (result == 1)
            CheckRoundTrip(tree);
        HalvFreeUserCMData(tree);
    }
    return 0;
}
