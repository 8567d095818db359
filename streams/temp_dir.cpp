/*
 * streams/temp_dir.cpp - where temporary files go, and the file maker.
 *
 * A template with a '/' names the directory itself.  Otherwise HALV_TEMP
 * is a comma list, and the entry with the most space free wins; the first
 * wins a tie, and one with no space, or whose space can't be found out,
 * never wins.  The chosen directory must exist, be a directory and be
 * writable, or "." is tried in the same way.
 */
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstring>

#include "halv_core.h"
#include "halv_env.h"
#include "streams/file_internal.h"

namespace halv {
namespace {

constexpr char kDefaultDirectory[] = "/tmp";
constexpr char kFallbackDirectory[] = ".";
/* The system's name maker used the first three letters of "_halv". */
constexpr char kNamePattern[] = "_haXXXXXX.tmp";
constexpr int kNameSuffixLength = 4; /* ".tmp" */

char *CopyOf(const char *text, size_t length) noexcept {
    char *copy = static_cast<char *>(halv_internal_malloc(length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

/* Free space for the caller in units of 1024 bytes, saturated at 32 bits;
 * 0 when it can't be found out. */
uint32_t FreeKibibytes(const char *directory) noexcept {
    struct statvfs info;
    if (statvfs(directory, &info) != 0)
        return 0;
    unsigned __int128 kib = static_cast<unsigned __int128>(info.f_bavail) * info.f_frsize / 1024;
    return kib > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(kib);
}

/* The entry of the HALV_TEMP list with the most free space, or null. */
char *RoomiestListed(const char *list) noexcept {
    char *best = nullptr;
    uint32_t bestSpace = 0;
    for (const char *entry = list;;) {
        const char *comma = std::strchr(entry, ',');
        size_t length = comma != nullptr ? static_cast<size_t>(comma - entry) : std::strlen(entry);
        char *raw = CopyOf(entry, length);
        char *expanded = raw != nullptr ? HalvExpandString(raw) : nullptr;
        halv_internal_free(raw);
        uint32_t space = expanded != nullptr ? FreeKibibytes(expanded) : 0;
        if (space > bestSpace) {
            halv_internal_free(best);
            best = expanded;
            bestSpace = space;
        } else {
            halv_internal_free(expanded);
        }
        if (comma == nullptr)
            return best;
        entry = comma + 1;
    }
}

/* The directory templ selects, as a new string; null when memory runs out. */
char *SelectedDirectory(const char *templ) noexcept {
    const char *slash = templ != nullptr ? std::strrchr(templ, '/') : nullptr;
    if (slash != nullptr)
        return slash == templ ? CopyOf("/", 1) : CopyOf(templ, static_cast<size_t>(slash - templ));
    const char *list = HalvGetenv("HALV_TEMP");
    char *best = list != nullptr ? RoomiestListed(list) : nullptr;
    return best != nullptr ? best : CopyOf(kDefaultDirectory, sizeof kDefaultDirectory - 1);
}

/* True when files can be made in directory; says why not for the first
 * two checks. */
bool UsableDirectory(const char *directory) noexcept {
    struct stat info;
    if (stat(directory, &info) != 0) {
        HalvError("Error: Cannot get attributes of \"%s\".\n", directory);
        return false;
    }
    if (!S_ISDIR(info.st_mode)) {
        HalvError("Error: \"%s\" is not a directory.\n", directory);
        return false;
    }
    return access(directory, W_OK | X_OK) == 0;
}

/* "<directory>/_haXXXXXX.tmp" as a new string, or null. */
char *NamePattern(const char *directory) noexcept {
    size_t length = std::strlen(directory);
    bool needsSlash = length == 0 || directory[length - 1] != '/';
    char *pattern = static_cast<char *>(halv_internal_malloc(length + 1 + sizeof kNamePattern));
    if (pattern == nullptr)
        return nullptr;
    std::memcpy(pattern, directory, length);
    if (needsSlash)
        pattern[length++] = '/';
    std::memcpy(pattern + length, kNamePattern, sizeof kNamePattern);
    return pattern;
}

} // namespace

int CreateTempFile(const char *templ, char **name) noexcept {
    *name = nullptr;
    char *selected = SelectedDirectory(templ);
    if (selected == nullptr)
        return -1;
    const char *directory = selected;
    if (!UsableDirectory(directory)) {
        directory = kFallbackDirectory;
        if (!UsableDirectory(directory)) {
            halv_internal_free(selected);
            HalvError("Error: Attempt to create a temporary file failed.Set your enviroment so that temp files "
                      "are created in a directory with read/write permissions.");
            return -1;
        }
    }
    char *pattern = NamePattern(directory);
    halv_internal_free(selected);
    if (pattern == nullptr)
        return -1;
    int fd = mkostemps(pattern, kNameSuffixLength, O_CLOEXEC);
    if (fd < 0) {
        halv_internal_free(pattern);
        return -1;
    }
    *name = pattern;
    return fd;
}

} // namespace halv
