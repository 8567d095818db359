/*
 * modules/library.cpp - the list of open bundles and the descriptions they
 * give.
 *
 * One HalvLibrary for each open bundle, newest first, under lock key LIBR.
 * A bundle opened a second time hands out the same entry points, which is
 * how the list recognises it and counts a registration instead.
 */

#include "halv_text.h"
#include "halv_util.h"
#include "modules/internal.h"
#include "core/internal.h"

namespace {

constinit HalvLibrary *libraries = nullptr;

using LibraryLock = halv::ScopedKeyLock<HALV_LOCK_LIBR>;

/* Symbol names are built in 64 bytes: a bundle name has at most 39. */
constexpr size_t kSymbolNameSize = 64;

/* Looks up "<format with name>" in handle; false when missing or cut. */
template <typename Fn>
bool LookUpEntry(void *handle, const char *format, const char *name, Fn *out, halv::Why *why) noexcept {
    char symbol[kSymbolNameSize];
    int32_t length = HalvSNPrintf(symbol, sizeof symbol, format, name);
    void *address = nullptr;
    if (length < 0 || (size_t)length >= sizeof symbol) {
        halv::Explain(why, "its name is longer than the %d characters an entry point name leaves room for",
                      (int)(kSymbolNameSize - sizeof "HalvernBundleGetVersion_"));
        return false;
    }
    if (HalvDLSymbolLookup(handle, symbol, &address) != 1) {
        halv::Explain(why, "it lacks the entry point %s", symbol);
        return false;
    }
    *out = reinterpret_cast<Fn>(address);
    return true;
}

int Reject(HalvLibrary *record) noexcept {
    HalvDLClose(record->handle);
    halv_internal_free(record);
    return -1;
}

bool SameBundle(const HalvLibrary *a, const HalvLibrary *b) noexcept {
    return a->getList == b->getList && a->getModule == b->getModule && a->getVersion == b->getVersion;
}

uint32_t ModuleCount(const HalvLibrary *library) noexcept {
    const char *const *names = library->getList != nullptr ? library->getList() : nullptr;
    uint32_t count = 0;
    while (names != nullptr && names[count] != nullptr)
        ++count;
    return count;
}

/* Appends a description of each module of library at *next; false out of
 * memory.  Names the bundle lists but doesn't give are passed over. */
bool AppendDescriptions(const HalvLibrary *library, HalvFuncDesc **&next) noexcept {
    const char *const *names = library->getList != nullptr ? library->getList() : nullptr;
    for (uint32_t i = 0; names != nullptr && names[i] != nullptr; ++i) {
        const HalvBundleModule *module = library->getModule(names[i]);
        if (module == nullptr)
            continue;
        HalvFuncDesc *desc = HalvAllocFuncDesc();
        if (desc == nullptr)
            return false;
        *next++ = desc; /* in the array before filling, so a failure frees it */
        if (!halv::FillFuncDescFromModule(desc, module))
            return false;
    }
    return true;
}

/* The module called name in the first registered bundle that has one, or null.
 * The caller holds the LIBR lock. */
const HalvBundleModule *FindModule(const char *name) noexcept {
    for (const HalvLibrary *library = libraries; library != nullptr; library = library->next)
        if (library->getModule != nullptr)
            if (const HalvBundleModule *module = library->getModule(name))
                return module;
    return nullptr;
}

/* A new array with room for count descriptions and the terminator. */
HalvFuncDesc **NewDescriptionArray(uint32_t count) noexcept {
    return static_cast<HalvFuncDesc **>(halv_internal_calloc((size_t)count + 1, sizeof(HalvFuncDesc *)));
}

void ReplaceText(char **field, const char *text, bool &ok) noexcept {
    halv_internal_free(*field);
    *field = text != nullptr ? HalvStrDup(text) : nullptr;
    ok = ok && (text == nullptr || *field != nullptr);
}

void ReplaceArray(char ***field, const char *const *source, bool &ok) noexcept {
    HalvFreeArray(*field);
    ok = halv::CopyStringArray(source, field) && ok;
}

} // namespace

namespace halv {

bool FillFuncDescFromModule(HalvFuncDesc *desc, const HalvBundleModule *module) noexcept {
    bool ok = true;
    ReplaceText(&desc->name, module->name, ok);
    ReplaceText(&desc->description, module->description, ok);
    ReplaceText(&desc->documentation, module->documentation, ok);
    ReplaceArray(&desc->args, module->args, ok);
    ReplaceArray(&desc->formats, module->formats, ok);
    ReplaceArray(&desc->tests, module->tests, ok);
    ReplaceArray(&desc->categories, module->categories, ok);
    desc->inputs = (int32_t)module->inputs;
    desc->outputs = (int32_t)module->outputs;
    desc->initPoint = module->init;
    return ok;
}

int RegisterLibrary(const char *name, HalvLibrary **library, Why *why) noexcept {
    if (library == nullptr)
        return 0;
    *library = nullptr;
    if (name == nullptr)
        return 0;
    auto *record = static_cast<HalvLibrary *>(halv_internal_calloc(1, sizeof(HalvLibrary)));
    if (record == nullptr) {
        Explain(why, "no memory to register it");
        return 0;
    }
    if (OpenBundle(name, &record->handle, why) != 1) {
        HalvDebug("Failed to open shared library<%s>.\n", name);
        halv_internal_free(record);
        return -1;
    }
    record->refCount = 1;
    if (!LookUpEntry(record->handle, "HalvernBundleGetVersion_%s", name, &record->getVersion, why))
        return Reject(record);
    const HalvBundleVersion *version = record->getVersion();
    if (version == nullptr) {
        Explain(why, "HalvernBundleGetVersion_%s gave no version record", name);
        return Reject(record);
    }
    if (version->major != HALV_BUNDLE_MAJOR) {
        HalvDebug("Library bundle '%s' opened with a different Halvern major version %d.", name, version->major);
        Explain(why, "it was built for major version %d; this engine takes %d", version->major,
                HALV_BUNDLE_MAJOR);
        return Reject(record);
    }
    if (!LookUpEntry(record->handle, "HalvernBundleGetList_%s", name, &record->getList, why) ||
        !LookUpEntry(record->handle, "HalvernBundleGetModule_%s", name, &record->getModule, why))
        return Reject(record);

    HalvLibrary *known = nullptr;
    {
        LibraryLock lock;
        for (HalvLibrary *entry = libraries; entry != nullptr && known == nullptr; entry = entry->next)
            if (SameBundle(entry, record))
                known = entry;
        if (known != nullptr) {
            ++known->refCount;
        } else {
            record->next = libraries;
            libraries = record;
        }
    }
    if (known != nullptr) {
        HalvDLClose(record->handle);
        halv_internal_free(record);
        record = known;
    }
    *library = record;
    return 1;
}

} // namespace halv

extern "C" {

HALV_API int HalvRegisterLibrary(const char *name, HalvLibrary **library) noexcept {
    return halv::RegisterLibrary(name, library, nullptr);
}

HALV_API int HalvUnregisterLibrary(HalvLibrary *library) noexcept {
    if (library == nullptr)
        return 0;
    {
        LibraryLock lock;
        HalvLibrary **link = &libraries;
        while (*link != nullptr && *link != library)
            link = &(*link)->next;
        if (*link == nullptr)
            return 0;
        if (--library->refCount >= 1)
            return 1;
        *link = library->next;
    }
    HalvDLClose(library->handle);
    halv_internal_free(library);
    return 1;
}

HALV_API const HalvBundleVersion *HalvGetLibraryVersion(HalvLibrary *library) noexcept {
    if (library == nullptr || library->getVersion == nullptr)
        return nullptr;
    return library->getVersion();
}

HALV_API int HalvGetAllLibraryFuncDesc(HalvLibrary *library, HalvFuncDesc ***array) noexcept {
    if (array == nullptr)
        return 0;
    *array = nullptr;
    if (library == nullptr)
        return 0;
    HalvFuncDesc **descriptions = NewDescriptionArray(ModuleCount(library));
    if (descriptions == nullptr)
        return 0;
    HalvFuncDesc **next = descriptions;
    if (!AppendDescriptions(library, next)) {
        HalvFreeSmartArray(descriptions);
        return 0;
    }
    *array = descriptions;
    return 1;
}

HALV_API int HalvFindAllFuncDesc(HalvFuncDesc ***array) noexcept {
    if (array == nullptr)
        return 0;
    *array = nullptr;
    LibraryLock lock;
    uint32_t count = 0;
    for (const HalvLibrary *library = libraries; library != nullptr; library = library->next)
        count += ModuleCount(library);
    HalvFuncDesc **descriptions = NewDescriptionArray(count);
    if (descriptions == nullptr)
        return 0;
    HalvFuncDesc **next = descriptions;
    for (const HalvLibrary *library = libraries; library != nullptr; library = library->next) {
        if (!AppendDescriptions(library, next)) {
            HalvFreeSmartArray(descriptions);
            return 0;
        }
    }
    *array = descriptions;
    return 1;
}

HALV_API int HalvFindAndReadFuncDesc(const char *name, HalvFuncDesc *desc) noexcept {
    if (name == nullptr || desc == nullptr)
        return 0;
    LibraryLock lock;
    const HalvBundleModule *module = FindModule(name);
    if (module == nullptr)
        return -1;
    return halv::FillFuncDescFromModule(desc, module) ? 1 : 0;
}

/* Only the module's own init point is read: a bundle module never carries
 * an init retrieval text, so there is no description to build. */
HALV_API int HalvLoadInitPointByName(const char *name, HalvInitPoint *out) noexcept {
    if (name == nullptr || out == nullptr)
        return 0;
    HalvInitPoint init = nullptr;
    {
        LibraryLock lock;
        if (const HalvBundleModule *module = FindModule(name))
            init = module->init;
    }
    if (init == nullptr)
        return 0;
    *out = init;
    return 1;
}

} // extern "C"
