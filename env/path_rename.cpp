/*
 * env/path_rename.cpp - HalvRenameFile, which never replaces an existing
 * destination.
 *
 * The kernel's no-replace rename does it in one step.  File systems without
 * it get a hard link and unlink for files (atomic too) and a check before
 * the rename for directories.  Across file systems a file is copied and the
 * original removed.
 */
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "env/path_internal.h"
#include "halv_env.h"

namespace {

bool RenameWithoutNoReplace(const char *oldPath, const char *newPath) noexcept {
    struct stat info;
    if (lstat(oldPath, &info) != 0)
        return false;
    if (!S_ISDIR(info.st_mode))
        return link(oldPath, newPath) == 0 && unlink(oldPath) == 0;
    if (lstat(newPath, &info) == 0 || errno != ENOENT)
        return false;
    return rename(oldPath, newPath) == 0;
}

bool MoveAcrossFileSystems(const char *oldPath, const char *newPath) noexcept {
    struct stat info;
    if (lstat(oldPath, &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    if (!halv::CopyRegularFile(newPath, oldPath, false))
        return false;
    if (unlink(oldPath) != 0) {
        unlink(newPath); /* leave one file, not two */
        return false;
    }
    return true;
}

} // namespace

extern "C" {

HALV_API int HalvRenameFile(const char *oldPath, const char *newPath) noexcept {
    if (oldPath == nullptr || newPath == nullptr)
        return 0;
    if (renameat2(AT_FDCWD, oldPath, AT_FDCWD, newPath, RENAME_NOREPLACE) == 0)
        return 1;
    switch (errno) {
    case EINVAL:
    case ENOSYS: return RenameWithoutNoReplace(oldPath, newPath) ? 1 : -1;
    case EXDEV: return MoveAcrossFileSystems(oldPath, newPath) ? 1 : -1;
    default: return -1;
    }
}

} // extern "C"
