/*
 * env/environment_builtin.cpp - values the process computes for itself when
 * nothing else answers: the release directory, and the last resorts for
 * HOME, TEMP and PWD.
 *
 * Both are computed once per process, through pthread_once since lookups
 * run before HalvernInit too, when no engine lock exists yet.  They live in
 * static buffers that outlive HalvernEnd: the executable doesn't move, and
 * a directory that a caller got must stay valid.
 */
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "env/environment_internal.h"

namespace {

constexpr size_t kBufferSize = 1024;
constexpr char kSeparator = '/';

struct ReleaseState {
    char directory[kBufferSize];
    bool failed;
};

struct LastResortState {
    char temp[kBufferSize];
    char pwd[kBufferSize];
};

constinit ReleaseState release = {};
constinit LastResortState lastResorts = {};
pthread_once_t releaseOnce = PTHREAD_ONCE_INIT;
pthread_once_t lastResortsOnce = PTHREAD_ONCE_INIT;

/* Copies text into a buffer of kBufferSize bytes, cut to fit. */
void CopyBounded(char *buffer, const char *text) noexcept {
    size_t length = std::strlen(text);
    if (length > kBufferSize - 1)
        length = kBufferSize - 1;
    std::memcpy(buffer, text, length);
    buffer[length] = '\0';
}

/* A release tree keeps its programs one level down in one of these; any
 * other directory name is taken for the release itself. */
constexpr const char *kProgramDirectories[] = {"bin", "lib", "output"};

bool IsProgramDirectory(const char *name) noexcept {
    for (const char *candidate : kProgramDirectories)
        if (std::strcmp(name, candidate) == 0)
            return true;
    return false;
}

/* R/bin/X, R/lib/X, R/output/X and R/X all give R: drop the executable's own
 * directory, then one program directory above it. */
void DeriveReleaseDirectory(char *path) noexcept {
    size_t length = std::strlen(path);
    if (length > 0 && path[length - 1] == kSeparator)
        path[length - 1] = '\0';
    char *last = std::strrchr(path, kSeparator);
    if (last == nullptr)
        return;
    *last = '\0';
    last = std::strrchr(path, kSeparator);
    if (last != nullptr && IsProgramDirectory(last + 1))
        *last = '\0';
}

void ComputeLastResorts() noexcept {
    const char *tmpdir = std::getenv("TMPDIR");
    CopyBounded(lastResorts.temp, tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp");
    if (getcwd(lastResorts.pwd, kBufferSize) == nullptr)
        CopyBounded(lastResorts.pwd, ".");
}

void ComputeReleaseDirectory() noexcept {
    const char *executableDirectory = HalvGetExecutablePath();
    if (executableDirectory == nullptr) {
        release.failed = true;
        return;
    }
    CopyBounded(release.directory, executableDirectory);
    DeriveReleaseDirectory(release.directory);
}

} // namespace

namespace halv {

const char *ReleaseDirectory() noexcept {
    pthread_once(&releaseOnce, ComputeReleaseDirectory);
    return release.failed ? nullptr : release.directory;
}

const char *LastResort(const char *name) noexcept {
    pthread_once(&lastResortsOnce, ComputeLastResorts);
    const struct {
        const char *name;
        const char *value;
    } table[] = {
        {"HOME", "."},
        {"TEMP", lastResorts.temp},
        {"PWD", lastResorts.pwd},
    };
    for (const auto &row : table)
        if (std::strcmp(row.name, name) == 0)
            return row.value;
    return nullptr;
}

} // namespace halv
