/*
 * env/dir_walk.cpp - walking a directory one entry at a time.
 *
 * HalvOpenDir reads the first entry at once, so that a directory that can't
 * be read fails there; HalvNextDir hands that entry out first.  The
 * directory closes itself when the walk reaches its end.
 */
#include <dirent.h>

#include "env/environment_internal.h"
#include "halv_env.h"

namespace halv {
namespace {

DIR *HandleOf(const HalvDir *dir) noexcept { return static_cast<DIR *>(dir->handle); }

void CloseHandle(HalvDir *dir) noexcept {
    if (dir->handle != nullptr)
        closedir(HandleOf(dir));
    dir->handle = nullptr;
    dir->entry = nullptr;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvDir *HalvOpenDir(const char *path) noexcept {
    if (path == nullptr)
        return nullptr;
    auto *dir = static_cast<HalvDir *>(halv_internal_calloc(1, sizeof(HalvDir)));
    if (dir == nullptr)
        return nullptr;
    DIR *handle = opendir(path);
    struct dirent *first = handle != nullptr ? readdir(handle) : nullptr;
    if (first == nullptr) {
        if (handle != nullptr)
            closedir(handle);
        halv_internal_free(dir);
        return nullptr;
    }
    dir->handle = handle;
    dir->entry = first;
    return dir;
}

HALV_API char *HalvNextDir(HalvDir *dir) noexcept {
    using namespace halv;
    if (dir == nullptr || dir->handle == nullptr)
        return nullptr;
    if (!dir->firstGiven) {
        dir->firstGiven = 1;
    } else if ((dir->entry = readdir(HandleOf(dir))) == nullptr) {
        CloseHandle(dir);
        return nullptr;
    }
    return CopyEnvText(static_cast<struct dirent *>(dir->entry)->d_name);
}

HALV_API int HalvCloseDir(HalvDir *dir) noexcept {
    if (dir == nullptr)
        return 0;
    halv::CloseHandle(dir);
    halv_internal_free(dir);
    return 1;
}

} // extern "C"
