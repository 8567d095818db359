/*
 * streams/temp_file.cpp - HalvMktemp and HalvIO_Mktemp.
 *
 * Both make the file through CreateTempFile.  The stream form removes the
 * name at once and keeps only the descriptor, so the file's bytes go away
 * with the stream, or with the process if it dies first.
 */
#include <unistd.h>

#include "halv_core.h"
#include "streams/file_internal.h"

extern "C" {

HALV_API char *HalvMktemp(const char *templ) noexcept {
    char *name = nullptr;
    int fd = halv::CreateTempFile(templ, &name);
    if (fd < 0)
        return nullptr;
    close(fd);
    HalvDebug("temp file <%s>\n", name);
    return name;
}

HALV_API HalvIO *HalvIO_Mktemp(const char *templ) noexcept {
    char *name = nullptr;
    int fd = halv::CreateTempFile(templ, &name);
    if (fd < 0)
        return nullptr;
    unlink(name);
    halv_internal_free(name);
    HalvIO *io = HalvIO_HANDLE(fd);
    if (io == nullptr) {
        close(fd);
        return nullptr;
    }
    io->setAutoClose(io, 1);
    return io;
}

} // extern "C"
