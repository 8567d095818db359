/*
 * env/dir_make.cpp - HalvMkDir and HalvGetSystemRoots.
 *
 * A recursive creation climbs by cutting the path at its last '/' until a
 * creation succeeds, then goes down again restoring one cut at a time.
 */
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "env/environment_internal.h"
#include "halv_env.h"

namespace halv {
namespace {

enum class MakeResult { Created, Exists, ParentMissing, Failed };

MakeResult MakeOne(const char *path) noexcept {
    if (mkdir(path, 0777) == 0)
        return MakeResult::Created;
    switch (errno) {
    case EEXIST: return MakeResult::Exists;
    case ENOENT: return MakeResult::ParentMissing;
    default: return MakeResult::Failed;
    }
}

/* Creates the missing ancestors of work and then work itself.  work is cut
 * and restored in place; the cuts are the '/' bytes turned into NUL. */
int MakeWithParents(char *work) noexcept {
    int levels = 0;
    for (;;) {
        char *cut = std::strrchr(work, '/');
        if (cut == nullptr)
            return 0;
        *cut = '\0';
        ++levels;
        MakeResult result = MakeOne(work);
        if (result == MakeResult::Created)
            break;
        if (result != MakeResult::ParentMissing)
            return 0;
    }
    /* Going down: the next cut to restore is the first NUL in the text. */
    for (; levels > 0; --levels) {
        work[std::strlen(work)] = '/';
        if (MakeOne(work) != MakeResult::Created)
            return 0;
    }
    return 1;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API int HalvMkDir(const char *path, int recursive) noexcept {
    using namespace halv;
    if (path == nullptr)
        return 0;
    switch (MakeOne(path)) {
    case MakeResult::Created: return 1;
    case MakeResult::Exists: return -1;
    case MakeResult::ParentMissing: break;
    case MakeResult::Failed: return 0;
    }
    if (!recursive)
        return 0;
    char *work = CopyEnvText(path);
    if (work == nullptr)
        return 0;
    /* A trailing '/' names the same directory: without it the first cut
     * climbs a real level. */
    for (size_t n = std::strlen(work); n > 1 && work[n - 1] == '/'; --n)
        work[n - 1] = '\0';
    int result = MakeWithParents(work);
    halv_internal_free(work);
    return result;
}

HALV_API char **HalvGetSystemRoots(void) noexcept {
    auto **roots = static_cast<char **>(halv_internal_calloc(2, sizeof(char *)));
    if (roots == nullptr)
        return nullptr;
    roots[0] = halv::CopyEnvText("/");
    if (roots[0] == nullptr) {
        halv_internal_free(roots);
        return nullptr;
    }
    return roots;
}

} // extern "C"
