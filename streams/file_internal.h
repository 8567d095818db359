/*
 * streams/file_internal.h - what the file back ends, the temporary files,
 * the smart buffers and the file search share without exporting it:
 * descriptor calls that survive signals, opening names of any length, the
 * handle stream record, the temporary-file maker and the door to the URL
 * stream.
 */
#ifndef HALV_STREAMS_FILE_INTERNAL_H
#define HALV_STREAMS_FILE_INTERNAL_H

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "halv_streams.h"

namespace halv {

/* One read or write on a descriptor moves at most this many bytes, as
 * Linux itself does, so that every result fits a slot's signed 32 bits. */
constexpr uint32_t kFileIoMax = 0x7FFFF000;

inline uint32_t ClampFileCount(uint32_t count) noexcept { return count < kFileIoMax ? count : kFileIoMax; }

/* The lseek origin for whence 0, 1 or 2; -1 for any other whence. */
inline int SeekOrigin(int32_t whence) noexcept {
    static constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    return whence >= 0 && whence <= 2 ? kOrigins[whence] : -1;
}

/* True when fd refers to a regular file, which is what makes a descriptor
 * or FILE* stream seekable. */
bool IsRegularFile(int fd) noexcept;

/* read and write that are retried when a signal interrupts them. */
ssize_t ReadRetrying(int fd, void *buffer, size_t count) noexcept;
ssize_t WriteRetrying(int fd, const void *bytes, size_t count) noexcept;

/* open(name, flags | O_CLOEXEC, mode) for a name of any length: one longer
 * than the kernel takes is opened directory by directory.  The descriptor,
 * or -1 with errno set. */
int OpenAnyLength(const char *name, int flags, mode_t mode) noexcept;

/* The stream of a platform handle, which is a descriptor here. */
struct HandleStream {
    HalvIO io;
    intptr_t handle;
    int32_t seekable;
    int32_t append;
    int32_t autoClose;
};

/* Creates a new empty temporary file in the directory that templ selects
 * and returns its descriptor, open for reading and writing, with its new
 * name in *name (the caller frees it); -1 with *name null on failure, after
 * the error messages about the directory. */
int CreateTempFile(const char *templ, char **name) noexcept;

} // namespace halv

#endif
