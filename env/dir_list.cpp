/*
 * env/dir_list.cpp - HalvListDir and the HalvDirEntry smart record.
 *
 * Two passes over the directory: the first counts, so the array is
 * allocated once at its final size, the second fills it.  An entry that
 * appears between the passes is left out; one that disappears shortens the
 * list.
 */
#include <dirent.h>
#include <sys/stat.h>

#include <cstring>

#include "env/environment_internal.h"
#include "env/path_internal.h"
#include "halv_env.h"

namespace halv {
namespace {

bool IsDotEntry(const char *name) noexcept {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

void FreeEntry(void *record) noexcept {
    auto *entry = static_cast<HalvDirEntry *>(record);
    halv_internal_free(entry->name);
    halv_internal_free(entry);
}

HalvDirEntry *NewEntry(const char *name, int32_t isDirectory) noexcept;

void *CopyEntry(void *record) noexcept {
    auto *entry = static_cast<const HalvDirEntry *>(record);
    return NewEntry(entry->name, entry->isDirectory);
}

HalvDirEntry *NewEntry(const char *name, int32_t isDirectory) noexcept {
    auto *entry = static_cast<HalvDirEntry *>(halv_internal_calloc(1, sizeof(HalvDirEntry)));
    if (entry == nullptr)
        return nullptr;
    entry->name = CopyEnvText(name);
    if (entry->name == nullptr) {
        halv_internal_free(entry);
        return nullptr;
    }
    entry->copy = CopyEntry;
    entry->free = FreeEntry;
    entry->isDirectory = isDirectory;
    return entry;
}

/* From the entry's type where the directory tells it, else from stat, which
 * follows links. */
int32_t IsDirectory(const char *path, const struct dirent *entry) noexcept {
    if (entry->d_type != DT_UNKNOWN && entry->d_type != DT_LNK)
        return entry->d_type == DT_DIR ? 1 : 0;
    const char *pieces[] = {path, "/", entry->d_name};
    char *full = JoinTexts(pieces, 3);
    struct stat info;
    int32_t result = full != nullptr && stat(full, &info) == 0 && S_ISDIR(info.st_mode) ? 1 : 0;
    halv_internal_free(full);
    return result;
}

uint32_t CountEntries(DIR *handle) noexcept {
    uint32_t count = 0;
    while (const struct dirent *entry = readdir(handle))
        if (!IsDotEntry(entry->d_name))
            ++count;
    return count;
}

/* Fills up to count slots; the number filled, or -1 when memory ran out. */
int64_t FillEntries(DIR *handle, const char *path, HalvDirEntry **slots, uint32_t count) noexcept {
    uint32_t filled = 0;
    while (filled < count) {
        const struct dirent *entry = readdir(handle);
        if (entry == nullptr)
            break;
        if (IsDotEntry(entry->d_name))
            continue;
        if ((slots[filled] = NewEntry(entry->d_name, IsDirectory(path, entry))) == nullptr)
            return -1;
        ++filled;
    }
    return filled;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API int HalvListDir(const char *path, uint32_t *count, HalvDirEntry ***entries) noexcept {
    using namespace halv;
    if (entries != nullptr)
        *entries = nullptr;
    if (path == nullptr || count == nullptr || entries == nullptr)
        return 0;
    DIR *handle = opendir(path);
    if (handle == nullptr)
        return 0;
    uint32_t expected = CountEntries(handle);
    auto **slots = static_cast<HalvDirEntry **>(halv_internal_calloc((size_t)expected + 1, sizeof(HalvDirEntry *)));
    if (slots == nullptr) {
        closedir(handle);
        return 0;
    }
    rewinddir(handle);
    int64_t filled = FillEntries(handle, path, slots, expected);
    closedir(handle);
    if (filled < 0) {
        HalvFreeSmartArray(slots);
        return 0;
    }
    *count = static_cast<uint32_t>(filled);
    *entries = slots;
    return 1;
}

} // extern "C"
