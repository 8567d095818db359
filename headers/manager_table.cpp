/*
 * headers/manager_table.cpp - the table of header managers: twelve entries
 * of format name, version, type code and nine slots, fixed in the library's
 * data, looked up by name and version or by type code.
 *
 * The table is constant-initialised writable data, so its built-in entries
 * exist from load on without any code running, and an entry's address is a
 * handle that stays valid for the life of the library.  Every access holds
 * the HDRM lock and copies slots in or out under it, so callers always work
 * on a whole copy that a concurrent unregistration can't tear.
 */
#include <cstddef>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"
#include "core/internal.h"

struct HVHdrManagerEntry {
    char format[HVHDR_NAME_BYTES];
    char version[HVHDR_NAME_BYTES];
    int32_t type;
    HVHdrManager manager;
};

namespace {

constexpr HVHdrManagerEntry FreeEntry() { return HVHdrManagerEntry{{}, {}, -1, {}}; }

/*
 * Built-in formats.  Each stored format plugs its entry in here, in this
 * order, as {"name", "version", type code, {nine slots}}, with the slot
 * functions declared in headers/formats/formats.h:
 *
 *   0  "internal"     "2.1"         0   raster
 *   1  "internal"     "2.0"        -1   raster: own toHeader, rest as 0;
 *                                       read only, written back as 2.1
 *   2  "pixelstream"  "1.0-ascii"   1
 *   3  "info"         "1.0"        10
 *   4  "image-ext"    "1.0"        11   raster
 *   5  "pixr"         "1.0"        12   emitChunk shared with image-ext
 *   6  "spectral"     "1.0-ascii"   9
 *   7  "spectral"     "1.0-binary"  9   toHeader, createHeader as entry 6
 *   8 to 11 free for HVHdrRegisterManager
 *
 * An entry whose format isn't built yet stays free: empty name and
 * version, so registrations may take it.
 */
constexpr HVHdrManager kInternal = {nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    halv::InternalToHeader,
                                    halv::InternalLoadChunk,
                                    halv::InternalFromHeader,
                                    halv::InternalEmitChunk,
                                    halv::InternalCreateHeader};

constexpr HVHdrManager WithToHeader(HVHdrManager manager, HVHdrToHeaderFn toHeader) {
    manager.toHeader = toHeader;
    return manager;
}

constexpr HVHdrManager kImageExt = {nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    halv::ImageExtToHeader,
                                    halv::ImageExtLoadChunk,
                                    halv::ImageExtFromHeader,
                                    halv::ImageExtEmitChunk,
                                    halv::ImageExtCreateHeader};

constexpr HVHdrManager kPixelStream = {nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       __HVHdrPixelStreamToHeader_10_ascii,
                                       __HVHdrPixelStreamLoadChunk_10_ascii,
                                       __HVHdrPixelStreamFromHeader_10_ascii,
                                       __HVHdrPixelStreamEmitChunk_10_ascii,
                                       __HVHdrPixelStreamCreateHeader_10_ascii};

/* pixr writes its chunks with image-ext's emitChunk. */
constexpr HVHdrManager kPixr = {nullptr,
                                nullptr,
                                nullptr,
                                nullptr,
                                halv::PixrToHeader,
                                halv::PixrLoadChunk,
                                halv::PixrFromHeader,
                                halv::ImageExtEmitChunk,
                                halv::PixrCreateHeader};

constexpr HVHdrManager kInfo = {nullptr,
                                nullptr,
                                nullptr,
                                nullptr,
                                halv::InfoToHeader,
                                halv::InfoLoadChunk,
                                halv::InfoFromHeader,
                                halv::InfoEmitChunk,
                                halv::InfoCreateHeader};

/* The two versions of "spectral" share toHeader and createHeader. */
constexpr HVHdrManager kSpectralAscii = {nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         __HVHdrSpectralToHeader_10,
                                         __HVHdrSpectralLoadChunk_A10,
                                         __HVHdrSpectralFromHeader_A10,
                                         __HVHdrSpectralEmitChunk_A10,
                                         __HVHdrSpectralCreateHeader_A10};

constexpr HVHdrManager kSpectralBinary = {nullptr,
                                          nullptr,
                                          nullptr,
                                          nullptr,
                                          __HVHdrSpectralToHeader_10,
                                          __HVHdrSpectralLoadChunk_B10,
                                          __HVHdrSpectralFromHeader_B10,
                                          __HVHdrSpectralEmitChunk_B10,
                                          __HVHdrSpectralCreateHeader_A10};

constinit HVHdrManagerEntry gManagers[HVHDR_MANAGER_ENTRIES] = {
    {"internal", "2.1", HALV_HDR_INTERNAL, kInternal},
    {"internal", "2.0", -1, WithToHeader(kInternal, halv::InternalToHeaderOld)},
    {"pixelstream", "1.0-ascii", HALV_HDR_PIXELSTREAM, kPixelStream},
    {"info", "1.0", HALV_HDR_INFO, kInfo},
    {"image-ext", "1.0", HALV_HDR_IMAGE_EXT, kImageExt},
    {"pixr", "1.0", HALV_HDR_PIXR, kPixr},
    {"spectral", "1.0-ascii", HALV_HDR_SPECTRAL, kSpectralAscii},
    {"spectral", "1.0-binary", HALV_HDR_SPECTRAL, kSpectralBinary},
    FreeEntry(),
    FreeEntry(),
    FreeEntry(),
    FreeEntry(),
};
constinit uint32_t gManagerCount = HVHDR_MANAGER_ENTRIES;

using TableLock = halv::ScopedKeyLock<HALV_LOCK_HDRM>;

bool IsFree(const HVHdrManagerEntry &entry) { return entry.format[0] == '\0' && entry.version[0] == '\0'; }

/* A stored name has no terminator when it filled all 32 bytes, so the
 * comparison never reads past them. */
bool SameName(const char (&stored)[HVHDR_NAME_BYTES], const char *name) {
    return HalvStrNCaseCmp(stored, name, HVHDR_NAME_BYTES) == 0;
}

HVHdrManagerEntry *FindByName(const char *format, const char *version) {
    for (uint32_t i = 0; i < gManagerCount; ++i) {
        HVHdrManagerEntry &entry = gManagers[i];
        if (!IsFree(entry) && SameName(entry.format, format) && SameName(entry.version, version))
            return &entry;
    }
    return nullptr;
}

HVHdrManagerEntry *FirstFree() {
    for (uint32_t i = 0; i < gManagerCount; ++i)
        if (IsFree(gManagers[i]))
            return &gManagers[i];
    return nullptr;
}

/* NUL padding up to 32 bytes; a name of 32 bytes or more keeps no
 * terminator. */
void StoreName(char (&stored)[HVHDR_NAME_BYTES], const char *name) {
    size_t i = 0;
    for (; i < HVHDR_NAME_BYTES && name[i] != '\0'; ++i)
        stored[i] = name[i];
    for (; i < HVHDR_NAME_BYTES; ++i)
        stored[i] = '\0';
}

} // namespace

extern "C" {

HALV_API int HVHdrRegisterManager(const char *format, const char *version, const HVHdrManager *manager,
                                  HVHdrManagerEntry **handle) noexcept {
    if (format == nullptr || version == nullptr || manager == nullptr || handle == nullptr)
        return 0;
    TableLock lock;
    HVHdrManagerEntry *target = FindByName(format, version);
    if (target == nullptr)
        target = FirstFree();
    if (target == nullptr)
        return 0;
    StoreName(target->format, format);
    StoreName(target->version, version);
    target->type = -1;
    target->manager = *manager;
    *handle = target;
    return 1;
}

HALV_API int HVHdrUnregisterManager(HVHdrManagerEntry *handle) noexcept {
    if (handle == nullptr)
        return 0;
    TableLock lock;
    *handle = FreeEntry();
    return 1;
}

HALV_API int HVHdrGetManager_Str(const char *format, const char *version, HVHdrManager *manager) noexcept {
    if (format == nullptr || version == nullptr || manager == nullptr)
        return 0;
    TableLock lock;
    const HVHdrManagerEntry *entry = FindByName(format, version);
    if (entry == nullptr)
        return 0;
    *manager = entry->manager;
    return 1;
}

HALV_API int HVHdrGetManager_Type(int32_t type, HVHdrManager *manager) noexcept {
    // -1 is no type at all: registered managers carry it, and they are
    // found by name only.
    if (manager == nullptr || type == -1)
        return 0;
    TableLock lock;
    for (uint32_t i = 0; i < gManagerCount; ++i) {
        const HVHdrManagerEntry &entry = gManagers[i];
        if (entry.type == type) {
            *manager = entry.manager;
            return 1;
        }
    }
    return 0;
}

HALV_API const char *HVHdrGetFormatName_Type(int32_t type) noexcept {
    if (type == -1)
        return nullptr;
    TableLock lock;
    for (uint32_t i = 0; i < gManagerCount; ++i)
        if (gManagers[i].type == type)
            return gManagers[i].format;
    return nullptr;
}

HALV_API int HVHdrGetManager(HalvUserCMData *tree, HVHdrManager *manager) noexcept {
    const char *format = HVHdrGetHeaderParam(tree, "ID", "format");
    if (format == nullptr)
        return 0;
    return HVHdrGetManager_Str(format, HVHdrGetHeaderParam(tree, "ID", "version"), manager);
}

} // extern "C"
