/*
 * env/path_copy.cpp - HalvCopyFile and the file copy that renames across
 * file systems also use.
 *
 * The kernel copies in place where it can (copy_file_range); a plain read
 * and write loop takes over where it can't.  The destination gets the
 * source's permission bits and times, as a copy made by the file manager
 * would.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "env/path_internal.h"
#include "halv_env.h"
#include "streams/file_internal.h"

namespace halv {
namespace {

constexpr size_t kCopyChunk = 1 << 20;

bool CopyByReading(int to, int from) noexcept {
    static constexpr size_t kBufferSize = 64 * 1024;
    char buffer[kBufferSize];
    for (;;) {
        ssize_t n = ReadRetrying(from, buffer, sizeof buffer);
        if (n == 0)
            return true;
        if (n < 0)
            return false;
        for (ssize_t done = 0; done < n;) {
            ssize_t w = WriteRetrying(to, buffer + done, static_cast<size_t>(n - done));
            if (w <= 0)
                return false;
            done += w;
        }
    }
}

bool CopyContent(int to, int from) noexcept {
    for (bool first = true;; first = false) {
        ssize_t n = copy_file_range(from, nullptr, to, nullptr, kCopyChunk, 0);
        if (n == 0)
            return true;
        if (n > 0)
            continue;
        if (errno == EINTR)
            continue;
        /* Only before any byte moved may the slow path start over. */
        if (first && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP))
            return CopyByReading(to, from);
        return false;
    }
}

bool SameFile(const struct stat &a, const char *path) noexcept {
    struct stat b;
    return stat(path, &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

bool CopyRegularFile(const char *destination, const char *source, bool overwrite) noexcept {
    int from = open(source, O_RDONLY | O_CLOEXEC);
    if (from < 0)
        return false;
    struct stat info;
    /* A directory has no bytes to copy, and truncating a file onto itself
     * would lose it. */
    if (fstat(from, &info) != 0 || S_ISDIR(info.st_mode) || SameFile(info, destination)) {
        close(from);
        return false;
    }
    int to = open(destination, O_WRONLY | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL), 0600);
    if (to < 0) {
        close(from);
        return false;
    }
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    bool done = CopyContent(to, from) && fchmod(to, info.st_mode & 07777) == 0 && futimens(to, times) == 0;
    done = close(to) == 0 && done;
    close(from);
    if (!done)
        unlink(destination);
    return done;
}

} // namespace halv

extern "C" {

HALV_API int HalvCopyFile(const char *destination, const char *source, int overwrite) noexcept {
    if (destination == nullptr || source == nullptr)
        return 0;
    return halv::CopyRegularFile(destination, source, overwrite != 0) ? 1 : -1;
}

} // extern "C"
