/*
 * streams/file_name.cpp - HalvIO_FileName, the stream over a file by name,
 * which is how the library opens every file it reads or writes.
 *
 * The mode is read by looking for letters anywhere in it, so "rb", "br" and
 * "r+b" mean what they say and "b" or "t" change nothing.  Names with the
 * "http://" scheme go to the URL stream instead.
 */
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "halv_core.h"
#include "streams/file_internal.h"

namespace halv {
namespace {

/* Access letters, looked for in this order: the first one present wins. */
struct AccessRule {
    char letter;
    int flags;
};
constexpr AccessRule kAccessRules[] = {
    {'r', O_RDONLY},
    {'w', O_WRONLY | O_CREAT | O_TRUNC},
    {'a', O_WRONLY | O_CREAT | O_APPEND},
};

/* The open flags for mode, or -1 when it holds none of the access letters. */
int OpenFlags(const char *mode) noexcept {
    for (const AccessRule &rule : kAccessRules) {
        if (std::strchr(mode, rule.letter) == nullptr)
            continue;
        int flags = rule.flags;
        if (std::strchr(mode, '+') != nullptr)
            flags = (flags & ~O_ACCMODE) | O_RDWR;
        return flags;
    }
    return -1;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvIO *HalvIO_FileName(const char *name, const char *mode) noexcept {
    using namespace halv;
    if (name == nullptr || mode == nullptr)
        return nullptr;
    if (HalvIsURL(name))
        return HalvIO_URL(name, mode);
    int flags = OpenFlags(mode);
    if (flags < 0)
        return nullptr;
    int fd = OpenAnyLength(name, flags, 0666);
    if (fd < 0) {
        HalvDebug("CreateFileW failed with code %d for file %s\n", errno, name);
        return nullptr;
    }
    HalvIO *io = HalvIO_HANDLE(fd);
    if (io == nullptr) {
        close(fd);
        return nullptr;
    }
    reinterpret_cast<HandleStream *>(io)->append = std::strchr(mode, 'a') != nullptr;
    io->setAutoClose(io, 1);
    return io;
}

} // extern "C"
