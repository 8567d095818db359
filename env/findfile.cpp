/*
 * env/findfile.cpp - HalvFindFile: a data file by name along a search path.
 *
 * Each element of the comma-separated path is tried with two suffixes, the
 * value of HV_OS first and then none, so that a site can keep one data file
 * per operating system beside a common one.  Every piece of a candidate is
 * expanded, so elements may refer to variables (${HOME}/data).  With HV_OS
 * empty, its default, both candidates are the same text and the test runs
 * twice; that is cheap next to the clarity of one rule.
 */
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "core/internal.h"
#include "env/environment_internal.h"
#include "env/path_internal.h"
#include "halv_env.h"
#include "halv_streams.h"

namespace halv {
namespace {

constexpr const char *kSuffixes[] = {"${HV_OS}", ""};

/* The candidate for one element and one suffix, or null (no memory). */
char *BuildCandidate(const char *element, const char *name, const char *suffix, const char *extension) noexcept {
    char *parts[4] = {HalvExpandString(element), HalvExpandString(name), HalvExpandString(suffix),
                      extension != nullptr ? HalvExpandString(extension) : nullptr};
    /* An empty expansion is null, and leaves its separator out too. */
    const char *pieces[] = {parts[0], parts[0] != nullptr ? "/" : nullptr, parts[1],
                            parts[2] != nullptr ? "." : nullptr, parts[2],
                            parts[3] != nullptr ? "." : nullptr, parts[3]};
    char *candidate = JoinTexts(pieces, sizeof pieces / sizeof pieces[0]);
    for (char *part : parts)
        halv_internal_free(part);
    return candidate;
}

bool ExistsAsFile(const char *candidate) noexcept {
    struct stat info;
    return stat(candidate, &info) == 0 && !S_ISDIR(info.st_mode);
}

bool ReachableUrl(const char *candidate) noexcept {
    if (!HalvIsURL(candidate))
        return false; /* the URL stream takes nothing else */
    HalvIO *io = HalvIO_URL(candidate, "rb");
    if (io == nullptr)
        return false;
    io->close(io);
    return true;
}

/* "//" starts the name of a network path, whose lookup may hang. */
bool IsNetworkPath(const char *candidate) noexcept {
    return (candidate[0] == '/' && candidate[1] == '/') || (candidate[0] == '\\' && candidate[1] == '\\');
}

bool Found(const char *candidate) noexcept {
    bool debug = EngineFindFileDebug() != 0;
    if (debug)
        std::fprintf(stderr, "HalvFindFile: checking <%s> -- ", candidate);
    bool found = !IsNetworkPath(candidate) && (ExistsAsFile(candidate) || ReachableUrl(candidate));
    if (debug)
        std::fputs(found ? "(found)\n" : "(not)\n", stderr);
    return found;
}

/* The first candidate found along the elements of list, which is cut into
 * pieces in place. */
char *SearchList(char *list, const char *name, const char *extension) noexcept {
    for (char *element = list; element != nullptr;) {
        char *comma = std::strchr(element, ',');
        if (comma != nullptr)
            *comma = '\0';
        for (const char *suffix : kSuffixes) {
            char *candidate = BuildCandidate(element, name, suffix, extension);
            if (candidate == nullptr)
                continue;
            if (Found(candidate))
                return candidate;
            halv_internal_free(candidate);
        }
        element = comma != nullptr ? comma + 1 : nullptr;
    }
    return nullptr;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API char *HalvFindFile(const char *name, const char *extension, const char *path) noexcept {
    using namespace halv;
    if (name == nullptr)
        return nullptr;
    if (name[0] == '/')
        return CopyEnvText(name);
    if (path == nullptr && (path = HalvGetenv("HV_DATA_PATH")) == nullptr)
        return nullptr;
    char *list = CopyEnvText(path);
    if (list == nullptr)
        return nullptr;
    char *found = SearchList(list, name, extension);
    halv_internal_free(list);
    return found;
}

} // extern "C"
