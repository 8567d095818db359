/*
 * streams/file_syscalls.cpp - descriptor calls shared by the file back
 * ends: reads and writes that a signal doesn't cut short, and opening
 * names longer than the kernel's path limit.
 */
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "streams/file_internal.h"

namespace halv {

bool IsRegularFile(int fd) noexcept {
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

ssize_t ReadRetrying(int fd, void *buffer, size_t count) noexcept {
    ssize_t n;
    do
        n = read(fd, buffer, count);
    while (n < 0 && errno == EINTR);
    return n;
}

ssize_t WriteRetrying(int fd, const void *bytes, size_t count) noexcept {
    ssize_t n;
    do
        n = write(fd, bytes, count);
    while (n < 0 && errno == EINTR);
    return n;
}

namespace {

/* A directory prefix of at most this many bytes is handed to the kernel. */
constexpr size_t kPieceMax = PATH_MAX - 1;

/* The position of the last '/' within the first kPieceMax bytes of text
 * that leaves a non-empty rest behind it, or -1 when there is none. */
ptrdiff_t LastCutWithin(const char *text) noexcept {
    for (ptrdiff_t i = static_cast<ptrdiff_t>(kPieceMax) - 1; i >= 0; --i)
        if (text[i] == '/' && text[i + 1] != '\0')
            return i;
    return -1;
}

/* Opens the directory text[0, length) relative to base; "" is the root. */
int OpenDirectoryPiece(int base, const char *text, size_t length) noexcept {
    char piece[PATH_MAX];
    if (length == 0) {
        piece[0] = '/';
        piece[1] = '\0';
    } else {
        std::memcpy(piece, text, length);
        piece[length] = '\0';
    }
    return openat(base, piece, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

} // namespace

int OpenAnyLength(const char *name, int flags, mode_t mode) noexcept {
    flags |= O_CLOEXEC;
    if (strnlen(name, kPieceMax + 1) <= kPieceMax)
        return open(name, flags, mode);
    /* Walk down: each step opens a prefix short enough for the kernel and
     * goes on from that directory with the rest of the name. */
    int base = AT_FDCWD;
    const char *rest = name;
    while (strnlen(rest, kPieceMax + 1) > kPieceMax) {
        ptrdiff_t cut = LastCutWithin(rest);
        int next = cut < 0 ? -1 : OpenDirectoryPiece(base, rest, static_cast<size_t>(cut));
        int saved = cut < 0 ? ENAMETOOLONG : errno;
        if (base != AT_FDCWD)
            close(base);
        if (next < 0) {
            errno = saved;
            return -1;
        }
        base = next;
        rest += cut + 1;
        while (*rest == '/') /* "a//b" is "a/b", and the rest stays relative */
            ++rest;
    }
    int fd = openat(base, rest, flags, mode);
    int saved = errno;
    close(base);
    errno = saved;
    return fd;
}

} // namespace halv
