/*
 * env/path_delete.cpp - HalvDeleteFile.
 *
 * A link is removed itself, also when it points to a directory.  A path
 * whose attributes can't be read is treated as a directory, so the removal
 * reports the failure.
 */
#include <sys/stat.h>
#include <unistd.h>

#include "halv_env.h"

extern "C" {

HALV_API int HalvDeleteFile(const char *path) noexcept {
    if (path == nullptr)
        return 0;
    struct stat info;
    bool directory = lstat(path, &info) != 0 || S_ISDIR(info.st_mode);
    int status = directory ? rmdir(path) : unlink(path);
    return status == 0 ? 1 : -1;
}

} // extern "C"
