/*
 * modules/shared_object.cpp - the thin layer over the dynamic loader.
 *
 * Library base names map to files by one rule: "<name>.so", unless the
 * name already ends in ".so" or holds a '/', when it is taken as it stands.
 * A name without '/' is looked for beside the executable first, so a host
 * finds the bundles installed next to it; then the loader searches
 * LD_LIBRARY_PATH, this library's RUNPATH and the system directories.
 */
#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>

#include <cstring>
#include <initializer_list>

#include <algorithm>

#include "halv_env.h"
#include "halv_text.h"
#include "modules/internal.h"

namespace {

constexpr char kBundlePrefix[] = "dpk_";
constexpr char kSuffix[] = ".so";
constexpr size_t kPathSize = 4096;

bool EndsWith(const char *text, size_t length, const char *tail) noexcept {
    size_t tailLength = std::strlen(tail);
    return length >= tailLength && std::memcmp(text + length - tailLength, tail, tailLength) == 0;
}

/* Joins up to three pieces into buffer; false when they don't fit. */
bool Join(char *buffer, size_t size, const char *a, const char *b, const char *c) noexcept {
    size_t used = 0;
    for (const char *piece : {a, b, c}) {
        size_t length = std::strlen(piece);
        if (used + length >= size)
            return false;
        std::memcpy(buffer + used, piece, length);
        used += length;
    }
    buffer[used] = '\0';
    return true;
}

/* Loads file; a failure adds the loader's own text to why ("<file>: cannot
 * open shared object file: ...", "... undefined symbol: ...", "... wrong
 * ELF class: ..."). */
void *Load(const char *file, halv::Why *why) noexcept {
    void *handle = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char *error = dlerror();
        halv::Explain(why, "%s%s", why != nullptr && why->length > 0 ? "; " : "",
                      error != nullptr ? error : file);
    }
    return handle;
}

/* The file beside the executable, when it is there. */
void *LoadBesideExecutable(const char *file, halv::Why *why) noexcept {
    const char *directory = HalvGetExecutablePath();
    char path[kPathSize];
    if (directory == nullptr || !Join(path, sizeof path, directory, "/", file))
        return nullptr;
    if (access(path, F_OK) != 0) {
        halv::Explain(why, "%s does not exist", path);
        return nullptr;
    }
    return Load(path, why);
}

} // namespace

namespace halv {

void Explain(Why *why, const char *format, ...) noexcept {
    if (why == nullptr || why->length + 1 >= sizeof why->text)
        return;
    va_list args;
    va_start(args, format);
    int32_t written = HalvVSNPrintf(why->text + why->length, sizeof why->text - why->length, format, args);
    va_end(args);
    if (written > 0)
        why->length = std::min<uint32_t>(why->length + (uint32_t)written, sizeof why->text - 1);
}

void *OpenSharedObject(const char *baseName, Why *why) noexcept {
    if (std::strchr(baseName, '/') != nullptr)
        return Load(baseName, why);
    size_t length = std::strlen(baseName);
    char file[kLibraryNameSize + sizeof kSuffix];
    if (!Join(file, sizeof file, baseName, EndsWith(baseName, length, kSuffix) ? "" : kSuffix, "")) {
        Explain(why, "the name %s is too long", baseName);
        return nullptr;
    }
    void *handle = LoadBesideExecutable(file, why);
    if (handle == nullptr)
        handle = Load(file, why);
    if (handle != nullptr && why != nullptr)
        *why = Why{}; /* a place that failed before the one that worked is no reason */
    return handle;
}

int OpenBundle(const char *name, void **handle, Why *why) noexcept {
    if (name == nullptr || handle == nullptr)
        return 0;
    char prefixed[kLibraryNameSize];
    if (!Join(prefixed, sizeof prefixed, kBundlePrefix, name, "")) {
        Explain(why, "the name is too long");
        return 0;
    }
    *handle = OpenSharedObject(prefixed, why);
    return *handle != nullptr ? 1 : 0;
}

} // namespace halv

extern "C" {

HALV_API int HalvDLOpen(const char *name, void **handle) noexcept { return halv::OpenBundle(name, handle, nullptr); }

HALV_API int HalvDLClose(void *handle) noexcept {
    if (handle == nullptr)
        return 0;
    return dlclose(handle) == 0 ? 1 : -1;
}

HALV_API int HalvDLSymbolLookup(void *handle, const char *symbol, void **out) noexcept {
    if (handle == nullptr || symbol == nullptr || out == nullptr)
        return 0;
    *out = dlsym(handle, symbol);
    return *out != nullptr ? 1 : -1;
}

} // extern "C"
