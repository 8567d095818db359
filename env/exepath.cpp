/*
 * env/exepath.cpp - the directory of the running executable.
 *
 * Read once from /proc/self/exe and kept for the life of the process,
 * failure included: the shared-object loader and the release directory both
 * ask for it, and the answer can't change.  pthread_once makes the one read
 * safe before HalvernInit too, when the SHRD lock doesn't exist yet.
 */
#include <pthread.h>
#include <unistd.h>

#include <cstring>

#include "env/environment_internal.h"

namespace {

constexpr size_t kPathSize = 1024;

struct ExecutablePath {
    char directory[kPathSize];
    bool failed;
};

constinit ExecutablePath executable = {};
pthread_once_t executableOnce = PTHREAD_ONCE_INIT;

/* Fills executable.directory; false when the path can't be read whole. */
bool ReadExecutableDirectory() noexcept {
    ssize_t length = readlink("/proc/self/exe", executable.directory, kPathSize - 1);
    if (length <= 0 || (size_t)length >= kPathSize - 1)
        return false; /* a full buffer may be a cut path */
    executable.directory[length] = '\0';
    char *slash = std::strrchr(executable.directory, '/');
    if (slash == nullptr)
        return false;
    slash[slash == executable.directory ? 1 : 0] = '\0';
    return true;
}

void ComputeExecutableDirectory() noexcept { executable.failed = !ReadExecutableDirectory(); }

} // namespace

extern "C" {

HALV_API const char *HalvGetExecutablePath(void) noexcept {
    pthread_once(&executableOnce, ComputeExecutableDirectory);
    return executable.failed ? nullptr : executable.directory;
}

} // extern "C"
