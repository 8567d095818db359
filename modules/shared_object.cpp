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

#include <cstring>
#include <initializer_list>

#include "halv_env.h"
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

void *Load(const char *file) noexcept { return dlopen(file, RTLD_NOW | RTLD_LOCAL); }

/* The file beside the executable, when it is there. */
void *LoadBesideExecutable(const char *file) noexcept {
    const char *directory = HalvGetExecutablePath();
    char path[kPathSize];
    if (directory == nullptr || !Join(path, sizeof path, directory, "/", file) || access(path, F_OK) != 0)
        return nullptr;
    return Load(path);
}

} // namespace

namespace halv {

void *OpenSharedObject(const char *baseName) noexcept {
    if (std::strchr(baseName, '/') != nullptr)
        return Load(baseName);
    size_t length = std::strlen(baseName);
    char file[kLibraryNameSize + sizeof kSuffix];
    if (!Join(file, sizeof file, baseName, EndsWith(baseName, length, kSuffix) ? "" : kSuffix, ""))
        return nullptr;
    if (void *handle = LoadBesideExecutable(file))
        return handle;
    return Load(file);
}

} // namespace halv

extern "C" {

/* Opens dpk_<name>: 1 and the handle; 0 and null when the loader fails; 0
 * and nothing stored for null arguments or an over-long name. */
HALV_API int HalvDLOpen(const char *name, void **handle) noexcept {
    if (name == nullptr || handle == nullptr)
        return 0;
    char prefixed[halv::kLibraryNameSize];
    if (!Join(prefixed, sizeof prefixed, kBundlePrefix, name, ""))
        return 0;
    *handle = halv::OpenSharedObject(prefixed);
    return *handle != nullptr ? 1 : 0;
}

/* 1 when the loader closed the handle, -1 when it refused, 0 for null. */
HALV_API int HalvDLClose(void *handle) noexcept {
    if (handle == nullptr)
        return 0;
    return dlclose(handle) == 0 ? 1 : -1;
}

/* 1 and the address, -1 and null when missing, 0 for null arguments. */
HALV_API int HalvDLSymbolLookup(void *handle, const char *symbol, void **out) noexcept {
    if (handle == nullptr || symbol == nullptr || out == nullptr)
        return 0;
    *out = dlsym(handle, symbol);
    return *out != nullptr ? 1 : -1;
}

} // extern "C"
