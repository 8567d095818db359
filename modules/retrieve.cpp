/*
 * modules/retrieve.cpp - from "lib1,lib2!symbol" to an address.
 *
 * Every library of a retrieval text is loaded through the cache; the symbol
 * is looked up in the first.  A library that fails at the '!' is replaced by
 * the default library, one that fails at a ',' ends the retrieval.
 */
#include <cstring>

#include "modules/internal.h"

namespace {

constexpr char kBundlePrefix[] = "dpk_";
constexpr size_t kSymbolSize = 1023; /* symbol text, terminator included */

/* Loads the libraries before the '!' of retrieval text.  The first handle,
 * or null when a library (and, at the '!', the default) can't be loaded;
 * *symbol points behind the '!'. */
void *LoadListedLibraries(const char *retrieval, const char *defaultLibrary, const char **symbol) noexcept {
    char name[halv::kLibraryNameSize];
    size_t used = 0;
    void *first = nullptr;
    for (const char *p = retrieval;; ++p) {
        if (*p != ',' && *p != '!') {
            if (used + 1 >= sizeof name)
                return nullptr;
            name[used++] = *p;
            continue;
        }
        name[used] = '\0';
        void *handle = halv::CachedLoad(name);
        if (handle == nullptr && *p == '!' && defaultLibrary != nullptr)
            handle = halv::CachedLoad(defaultLibrary);
        if (handle == nullptr)
            return nullptr;
        if (first == nullptr)
            first = handle;
        if (*p == '!') {
            *symbol = p + 1;
            return first;
        }
        used = 0;
    }
}

/* dpk_<defaultLibrary>, else <defaultLibrary>, else null. */
void *LoadDefaultLibrary(const char *defaultLibrary) noexcept {
    if (defaultLibrary == nullptr)
        return nullptr;
    char prefixed[halv::kLibraryNameSize];
    size_t length = std::strlen(defaultLibrary);
    if (sizeof kBundlePrefix - 1 + length < sizeof prefixed) {
        std::memcpy(prefixed, kBundlePrefix, sizeof kBundlePrefix - 1);
        std::memcpy(prefixed + sizeof kBundlePrefix - 1, defaultLibrary, length + 1);
        if (void *handle = halv::CachedLoad(prefixed))
            return handle;
    }
    return halv::CachedLoad(defaultLibrary);
}

/* The symbol as written, else with a leading underscore. */
int LookUp(void *handle, const char *symbol, void **out) noexcept {
    if (HalvDLSymbolLookup(handle, symbol, out) == 1)
        return 1;
    char underscored[kSymbolSize + 1];
    size_t length = std::strlen(symbol);
    if (length + 1 >= sizeof underscored) {
        *out = nullptr;
        return 0;
    }
    underscored[0] = '_';
    std::memcpy(underscored + 1, symbol, length + 1);
    HalvDLSymbolLookup(handle, underscored, out);
    return *out != nullptr ? 1 : 0;
}

} // namespace

extern "C" {

HALV_API int HalvRetrieveFunc(const char *retrieval, const char *defaultLibrary, void **out) noexcept {
    if (out == nullptr)
        return 0;
    *out = nullptr;
    if (retrieval == nullptr)
        return 0;
    const char *symbol = retrieval;
    void *handle = std::strchr(retrieval, '!') != nullptr
                       ? LoadListedLibraries(retrieval, defaultLibrary, &symbol)
                       : LoadDefaultLibrary(defaultLibrary);
    if (handle == nullptr)
        return -1;
    return LookUp(handle, symbol, out);
}

HALV_API int HalvRetrieveInit(const char *retrieval, HalvInitPoint *out) noexcept {
    if (out == nullptr)
        return 0;
    void *address = nullptr;
    int result = HalvRetrieveFunc(retrieval, "halv", &address);
    *out = reinterpret_cast<HalvInitPoint>(address);
    return result;
}

} // extern "C"
