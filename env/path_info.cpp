/*
 * env/path_info.cpp - HalvIdentifyFile and HalvGetFileAttributes.
 *
 * Links are followed: what counts is what a program opening the name gets.
 */
#include <sys/stat.h>

#include "halv_env.h"

namespace {

/* Milliseconds since 1970 of a file time, computed signed. */
uint64_t Milliseconds(const struct timespec &time) noexcept {
    return static_cast<uint64_t>(static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000);
}

} // namespace

extern "C" {

HALV_API int HalvIdentifyFile(const char *path) noexcept {
    struct stat info;
    if (path == nullptr || stat(path, &info) != 0)
        return 2;
    return S_ISDIR(info.st_mode) ? 1 : 0;
}

HALV_API int HalvGetFileAttributes(const char *path, int what, uint64_t *value) noexcept {
    if (path == nullptr || value == nullptr || what < 0 || what > 2)
        return 0;
    struct stat info;
    if (stat(path, &info) != 0)
        return -1;
    switch (what) {
    case 0: *value = Milliseconds(info.st_atim); break;
    case 1: *value = Milliseconds(info.st_mtim); break;
    default: *value = S_ISDIR(info.st_mode) ? 0 : static_cast<uint64_t>(info.st_size); break;
    }
    return 1;
}

} // extern "C"
