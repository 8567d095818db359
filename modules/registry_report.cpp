/*
 * modules/registry_report.cpp - what the registry step did, kept for hosts.
 *
 * The registry step's traces show only with debugging on, yet a host whose
 * engine did not start must be able to say why.  So the step also notes
 * here which registry file it read, what in it was skipped, and for every
 * bundle it tried the outcome: the file loaded and its version, or the
 * loader's own reason.  The notes live from the step to the last
 * HalvernEnd, under lock key LIBR; HalvGetRegistryReport hands out a copy.
 *
 * The notes are best effort: out of memory, a note is dropped, never the
 * start-up it describes.
 */
#include <dlfcn.h>
#include <link.h>

#include <cstdarg>
#include <cstring>
#include <initializer_list>

#include "halv_text.h"
#include "halv_util.h"
#include "modules/internal.h"
#include "core/internal.h"

namespace {

/* Lines of problems kept about the file itself; more are only counted. */
constexpr uint32_t kMaxProblemLines = 8;

struct BundleNote {
    char *name;
    int32_t optional;
    int32_t loaded;
    char *path;
    char *version;
    char *timestamp;
    char *reason;
};

struct Notes {
    bool taken; /* a registry step ran since the engine started */
    int32_t state;
    char *path;
    char *problems; /* lines, each ended by '\n' */
    uint32_t problemLines;
    uint32_t problemsDropped;
    BundleNote *bundles;
    uint32_t count;
    uint32_t capacity;
};

constinit Notes notes = {};

using NotesLock = halv::ScopedKeyLock<HALV_LOCK_LIBR>;

char *Dup(const char *text) noexcept { return text != nullptr ? HalvStrDup(text) : nullptr; }

void FreeBundle(BundleNote &note) noexcept {
    for (char *text : {note.name, note.path, note.version, note.timestamp, note.reason})
        halv_internal_free(text);
}

void Clear() noexcept {
    for (uint32_t i = 0; i < notes.count; ++i)
        FreeBundle(notes.bundles[i]);
    halv_internal_free(notes.bundles);
    halv_internal_free(notes.path);
    halv_internal_free(notes.problems);
    notes = Notes{};
}

/* The file the loader mapped for handle, or null. */
const char *LoadedPath(void *handle) noexcept {
    struct link_map *map = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr)
        return nullptr;
    return map->l_name;
}

/* Room for one more bundle note; null out of memory. */
BundleNote *NewBundleNote() noexcept {
    if (notes.count == notes.capacity) {
        uint32_t capacity = notes.capacity == 0 ? 4 : notes.capacity * 2;
        void *grown = halv_internal_realloc(notes.bundles, capacity * sizeof(BundleNote));
        if (grown == nullptr)
            return nullptr;
        notes.bundles = static_cast<BundleNote *>(grown);
        notes.capacity = capacity;
    }
    BundleNote *note = &notes.bundles[notes.count++];
    *note = BundleNote{};
    return note;
}

/* Bytes a text takes in the copy, terminator included; 0 for null. */
size_t TextSize(const char *text) noexcept { return text != nullptr ? std::strlen(text) + 1 : 0; }

/* Copies text to *cursor and moves it on; null stays null. */
const char *Place(char *&cursor, const char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    size_t size = std::strlen(text) + 1;
    std::memcpy(cursor, text, size);
    const char *placed = cursor;
    cursor += size;
    return placed;
}

} // namespace

namespace halv {

void ReportBegin() noexcept {
    NotesLock lock;
    Clear();
    notes.taken = true;
}

void ReportRegistryFile(int32_t state, const char *path) noexcept {
    NotesLock lock;
    notes.state = state;
    halv_internal_free(notes.path);
    notes.path = Dup(path);
}

void ReportProblem(const char *format, ...) noexcept {
    char line[640];
    va_list args;
    va_start(args, format);
    int32_t length = HalvVSNPrintf(line, sizeof line - 1, format, args);
    va_end(args);
    if (length < 0)
        return;
    length = HalvStrLen(line);
    line[length++] = '\n';
    line[length] = '\0';
    NotesLock lock;
    if (notes.problemLines == kMaxProblemLines) {
        ++notes.problemsDropped;
        return;
    }
    size_t old = notes.problems != nullptr ? std::strlen(notes.problems) : 0;
    auto *grown = static_cast<char *>(halv_internal_realloc(notes.problems, old + (size_t)length + 1));
    if (grown == nullptr)
        return;
    std::memcpy(grown + old, line, (size_t)length + 1);
    notes.problems = grown;
    ++notes.problemLines;
}

void ReportBundle(const char *name, bool optional, HalvLibrary *library, const char *reason) noexcept {
    NotesLock lock;
    BundleNote *note = NewBundleNote();
    if (note == nullptr)
        return;
    note->name = Dup(name);
    note->optional = optional ? 1 : 0;
    note->loaded = library != nullptr ? 1 : 0;
    if (library != nullptr) {
        note->path = Dup(LoadedPath(library->handle));
        if (const HalvBundleVersion *version = HalvGetLibraryVersion(library)) {
            note->version = Dup(version->version);
            note->timestamp = Dup(version->timestamp);
        }
    } else {
        note->reason = Dup(reason != nullptr && reason[0] != '\0' ? reason : "no reason given");
    }
}

void ReportEnd() noexcept {
    NotesLock lock;
    Clear();
}

} // namespace halv

extern "C" {

HALV_API HalvRegistryReport *HalvGetRegistryReport(void) noexcept {
    NotesLock lock;
    if (!notes.taken)
        return nullptr;
    char dropped[64] = "";
    if (notes.problemsDropped > 0)
        HalvSNPrintf(dropped, sizeof dropped, "... and %u more\n", notes.problemsDropped);
    size_t problemsSize = notes.problems != nullptr ? std::strlen(notes.problems) + std::strlen(dropped) + 1 : 0;
    size_t size = sizeof(HalvRegistryReport) + notes.count * sizeof(HalvBundleReport) + TextSize(notes.path) +
                  problemsSize;
    for (uint32_t i = 0; i < notes.count; ++i) {
        const BundleNote &note = notes.bundles[i];
        for (const char *text : {note.name, note.path, note.version, note.timestamp, note.reason})
            size += TextSize(text);
    }
    auto *report = static_cast<HalvRegistryReport *>(halv_internal_calloc(1, size));
    if (report == nullptr)
        return nullptr;
    auto *bundles = reinterpret_cast<HalvBundleReport *>(report + 1);
    char *cursor = reinterpret_cast<char *>(bundles + notes.count);
    report->state = notes.state;
    report->path = Place(cursor, notes.path);
    if (notes.problems != nullptr) {
        size_t kept = std::strlen(notes.problems), more = std::strlen(dropped);
        std::memcpy(cursor, notes.problems, kept);
        std::memcpy(cursor + kept, dropped, more + 1);
        report->problems = cursor;
        cursor += kept + more + 1;
    }
    report->bundleCount = notes.count;
    report->bundles = bundles;
    for (uint32_t i = 0; i < notes.count; ++i) {
        const BundleNote &note = notes.bundles[i];
        HalvBundleReport &out = bundles[i];
        out.name = Place(cursor, note.name);
        out.optional = note.optional;
        out.loaded = note.loaded;
        out.path = Place(cursor, note.path);
        out.version = Place(cursor, note.version);
        out.timestamp = Place(cursor, note.timestamp);
        out.reason = Place(cursor, note.reason);
    }
    return report;
}

} // extern "C"
