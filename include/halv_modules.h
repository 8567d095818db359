/*
 * halv_modules.h - plug-in modules: the registry of bundles, shared objects
 * and function retrieval, function descriptions.
 *
 * A bundle N is the shared object dpk_N.so.  It exports three functions,
 * HalvernBundleGetVersion_N, HalvernBundleGetList_N and
 * HalvernBundleGetModule_N, which hand out records the bundle owns and keeps
 * valid while it is loaded.  The registry file hvregistry.dot, read by the
 * first HalvernInit, names the bundles a process loads.
 */
#ifndef HALV_MODULES_H
#define HALV_MODULES_H

#include "halv_base.h"
#include "halv_core.h"
#include "halv_streams.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Records a bundle hands out
 * ------------------------------------------------------------------------ */

/* The major version every bundle must report. */
#define HALV_BUNDLE_MAJOR 3

typedef struct HalvBundleVersion {
    int32_t major;
    const char *version;
    const char *timestamp;
} HalvBundleVersion;

/* One processing function of a bundle: twelve machine words.  The string
 * arrays are null-terminated, and any of them may be null. */
typedef struct HalvBundleModule {
    const char *name;
    uintptr_t reserved1;
    const char *const *args;
    intptr_t inputs;
    intptr_t outputs;
    const char *const *formats;
    const char *const *tests;
    const char *const *categories;
    const char *description;
    const char *documentation;
    uintptr_t reserved2;
    HalvInitPoint init;
} HalvBundleModule;

typedef const HalvBundleVersion *(*HalvBundleGetVersionFn)(void);
typedef const char *const *(*HalvBundleGetListFn)(void);
typedef const HalvBundleModule *(*HalvBundleGetModuleFn)(const char *name);

/* One open bundle, in the process-wide library list (lock key LIBR). */
typedef struct HalvLibrary {
    HalvBundleGetListFn getList;
    HalvBundleGetModuleFn getModule;
    HalvBundleGetVersionFn getVersion;
    void *handle;
    uint32_t refCount;
    struct HalvLibrary *next;
} HalvLibrary;

/* One bundle registered by the registry file, in the boot list. */
typedef struct HalvBootLibrary {
    HalvLibrary *library;
    int32_t optional;
    char name[64];
    struct HalvBootLibrary *next;
} HalvBootLibrary;

/* ------------------------------------------------------------------------
 * Function descriptions
 * ------------------------------------------------------------------------ */

/* Bits of HalvFuncDesc.interleave. */
#define HALV_INTERLEAVE_SCANLINE 1
#define HALV_INTERLEAVE_PIXEL 2
#define HALV_INTERLEAVE_FRAME 4
#define HALV_INTERLEAVE_COMPRESSION 8
#define HALV_INTERLEAVE_ANY 15

/* A smart record describing one processing function.  Strings and arrays
 * are owned by the record; cspaces and bits are null for "any"; bits ends
 * with -1. */
typedef struct HalvFuncDesc {
    HalvCopyFn copy;
    uintptr_t reservedWord;
    HalvFreeFn free;
    char *name;
    char *init;
    HalvInitPoint initPoint;
    char **args;
    char **cspaces;
    int32_t *bits;
    int32_t inputs;
    int32_t outputs;
    int32_t synchronous;
    int32_t interleave;
    char **tests;
    char **formats;
    char *description;
    char *documentation;
    char **categories;
} HalvFuncDesc;

/* A new description: copy and free slots set, inputs and outputs 0,
 * synchronous 1, interleave 15, everything else null.  Null out of memory. */
HALV_API HalvFuncDesc *HalvAllocFuncDesc(void) HALV_NOEXCEPT;

/* Releases a description with everything it owns.  Null does nothing. */
HALV_API void HalvFreeFuncDesc(HalvFuncDesc *desc) HALV_NOEXCEPT;

/* A deep copy of a description, or null out of memory (or for null). */
HALV_API HalvFuncDesc *HalvCopyFuncDesc(const HalvFuncDesc *desc) HALV_NOEXCEPT;

/* Searches the description file name.dot along
 * ".,${HOME}/.hvdata/halv,${HV_RELEASE}/data/halv,${HVTOP}/data/halv".
 * A new string the caller releases, or null when none is found. */
HALV_API char *HalvFuncDescFileName(const char *name) HALV_NOEXCEPT;

/* Reads one description from stream into desc, which must be new (its
 * owned fields are overwritten, not released).  The first section name is
 * the function name; a second one ends the description.  1; 0 for a null
 * argument, out of memory, or a label without a value at the end. */
HALV_API int HalvReadFuncDesc(HalvIO *stream, HalvFuncDesc *desc) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Shared objects and retrieval
 * ------------------------------------------------------------------------ */

/* Opens the bundle file dpk_<name>.so, beside the executable first, then
 * along the dynamic loader's search.  1 with the handle stored; 0 with null
 * stored when it can't be loaded; 0 with nothing stored for a null argument
 * or when dpk_<name> has 1024 bytes or more.  Handles are the caller's to close. */
HALV_API int HalvDLOpen(const char *name, void **handle) HALV_NOEXCEPT;

/* Closes a handle from HalvDLOpen.  1; -1 if the loader refuses; 0 for
 * null. */
HALV_API int HalvDLClose(void *handle) HALV_NOEXCEPT;

/* Looks a symbol up in handle: 1 with its address stored, -1 with null
 * stored when it is missing, 0 with nothing stored for a null handle or
 * symbol. */
HALV_API int HalvDLSymbolLookup(void *handle, const char *symbol, void **out) HALV_NOEXCEPT;

/* Resolves "symbol", "lib!symbol" or "lib1,lib2!symbol".  Libraries are
 * loaded once through a 32-entry cache that lives until the last
 * HalvernEnd; a plain symbol is looked up in dpk_<defaultLibrary>, or in
 * <defaultLibrary> when that doesn't load.  A symbol missing as written is
 * tried with a leading underscore.  1 with *out set; -1 with *out null when
 * a library can't be loaded; 0 with *out null when the symbol is missing. */
HALV_API int HalvRetrieveFunc(const char *retrieval, const char *defaultLibrary, void **out) HALV_NOEXCEPT;

/* HalvRetrieveFunc with the default library "halv". */
HALV_API int HalvRetrieveInit(const char *retrieval, HalvInitPoint *out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The library registry
 * ------------------------------------------------------------------------ */

/* Opens bundle name, checks its entry points and major version, and enters
 * it in the library list (a bundle already there gains a registration).
 * *library is set to null at once and to the record on success.  1; -1 if
 * the bundle can't be opened, lacks an entry point or has the wrong major
 * version; 0 for a null argument or out of memory. */
HALV_API int HalvRegisterLibrary(const char *name, HalvLibrary **library) HALV_NOEXCEPT;

/* Drops one registration; the last one closes the bundle.  1; 0 for null or
 * a record that isn't in the list. */
HALV_API int HalvUnregisterLibrary(HalvLibrary *library) HALV_NOEXCEPT;

/* The bundle's version record, or null. */
HALV_API const HalvBundleVersion *HalvGetLibraryVersion(HalvLibrary *library) HALV_NOEXCEPT;

/* A new null-terminated array with one description for each module of the
 * bundle, in its list order.  1; 0 for a null argument or out of memory.
 * Takes no lock: the caller keeps the bundle registered meanwhile. */
HALV_API int HalvGetAllLibraryFuncDesc(HalvLibrary *library, HalvFuncDesc ***array) HALV_NOEXCEPT;

/* The same over all registered bundles, newest first.  1; 0 for a null
 * argument or out of memory.  Release with HalvFreeSmartArray. */
HALV_API int HalvFindAllFuncDesc(HalvFuncDesc ***array) HALV_NOEXCEPT;

/* Fills desc from the first registered bundle that has a module name.  1;
 * -1 when none has (desc untouched); 0 for a null argument or out of
 * memory. */
HALV_API int HalvFindAndReadFuncDesc(const char *name, HalvFuncDesc *desc) HALV_NOEXCEPT;

/* The init point of function name: that of the module name of the first
 * registered bundle that has one, read under the LIBR lock without
 * building a description.  1 with *out set; 0 for a null argument, a name
 * no bundle has, or a module without an init point, *out untouched. */
HALV_API int HalvLoadInitPointByName(const char *name, HalvInitPoint *out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Calls by name and from flat data
 * ------------------------------------------------------------------------ */

/* Calls the init point that HalvLoadInitPointByName finds for name with
 * args, as HalvCallInit does: the init point's result, stored as the status
 * of a state it left in *out.  0, calling nothing, when no bundle gives an
 * init point for name or args or out is null. */
HALV_API int HalvCallInitByName(const char *name, intptr_t *args, HalvState **out) HALV_NOEXCEPT;

/* Calls module's init point with an argument list made from count binary
 * arguments (HalvBinArgToArgs, 8 spare words), as HalvCallInit does.  With
 * headers non-null, the headerCount 'B' 'H' blocks it points to become
 * headers that borrow their text from the blocks (HalvBinHdrToHdr, borrow
 * on; a block that doesn't read is left out), passed as "input:h", a
 * null-terminated header array.  The list and those headers live only for
 * the init call: an init point that keeps a header copies it through its
 * copy slot, and the blocks must stay unchanged meanwhile.  unused is not
 * read.  The init point's result; 0 when the list can't be built (no
 * memory), module or its init is null, or out is null, with the list and
 * headers released on every path. */
HALV_API int HalvCallInitBin(const HalvBundleModule *module, int32_t count, const HalvBinArg *args,
                             int32_t headerCount, void *const *headers, intptr_t unused,
                             HalvState **out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * What the registry step did
 *
 * The registry step's traces go through HalvDebug and show only with
 * debugging on.  Whatever the switches, the step also keeps an account of
 * itself, so that a host can say why the engine did not start, or what it
 * loaded: which registry file it read, what in that file it skipped, and
 * for every bundle it tried, in order, the file loaded and its version, or
 * the loader's own reason for the failure.  The account lives from the
 * first HalvernInit's registry step to the last HalvernEnd.
 * ------------------------------------------------------------------------ */

/* HalvRegistryReport.state: how the registry file was found and read. */
#define HALV_REGISTRY_READ 1        /* the file at path was read */
#define HALV_REGISTRY_DEFAULT 2     /* none along HV_DATA_PATH: the bundle "halv" was tried, optional */
#define HALV_REGISTRY_UNREADABLE -1 /* found at path but not readable; problems says why */

/* One bundle the registry step tried. */
typedef struct HalvBundleReport {
    const char *name;      /* the bundle name as the registry gave it */
    int32_t optional;      /* 1 for an optional bundle (the default bundle too) */
    int32_t loaded;        /* 1 registered, 0 failed */
    const char *path;      /* the file loaded; null when it failed */
    const char *version;   /* the bundle's version texts; null when it failed or gave none */
    const char *timestamp;
    const char *reason;    /* why it failed, one line without a line end; null when loaded:
                              the places tried and the loader's text ("cannot open shared
                              object file", "undefined symbol: ...", "wrong ELF class"), a
                              missing entry point by name, or the major version it gave */
} HalvBundleReport;

typedef struct HalvRegistryReport {
    int32_t state;                    /* HALV_REGISTRY_READ, _DEFAULT or _UNREADABLE */
    const char *path;                 /* the registry file found; null with HALV_REGISTRY_DEFAULT */
    const char *problems;             /* about the file itself, lines each ended by '\n': why it
                                         can't be read, what in it was skipped; null when none */
    uint32_t bundleCount;
    const HalvBundleReport *bundles;  /* bundleCount entries, in the order tried */
} HalvRegistryReport;

/* A copy of what the last registry step did.  The record, its bundle array
 * and all their texts are one block, which the caller releases with
 * halv_internal_free; it stays valid after HalvernEnd.  Null when no
 * registry step has run since the engine started (the engine is stopped,
 * or HalvernDisableRegistryLoad turned the step off) and out of memory.
 * Bundles that a host registers itself with HalvRegisterLibrary are not in
 * it.  Safe from any thread while the engine runs. */
HALV_API HalvRegistryReport *HalvGetRegistryReport(void) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Info fields: the layout of a fixed binary record, named field by field.
 *
 * A field has a name, a type and a count of values; in a list each field
 * lies at the sum of the sizes of the fields before it, with no gaps, so
 * a record is packed and its values need not be aligned.  The text form
 * of a field is "name:[multiplier]letters", such as "x:1i", "weight:2f" or
 * "label:8c"; a header carries its list as the keys field-0, field-1, ...
 * of section Info.  A field list is a null-terminated array of field
 * records (a smart array): release it with HalvFreeSmartArray.  Lists
 * belong to their caller and take no lock.
 * ------------------------------------------------------------------------ */

/* Field types and the bytes of one value. */
#define HALV_INFO_INT 'i'    /* signed 32-bit integer, 4 bytes */
#define HALV_INFO_DOUBLE 'f' /* double, 8 bytes */
#define HALV_INFO_CHAR 'c'   /* character, 1 byte */

/* Longest text form this library writes ("%s:%d%c"), without the NUL. */
#define HALV_INFO_FIELD_TEXT_MAX 255

/* One field, a smart record: copy gives a new record with its own copy of
 * name (null out of memory), free releases name and the record.  size is
 * count values of the type's width (0 for a type other than the three);
 * offset the sum of the sizes before it in its list. */
typedef struct HalvInfoField {
    HalvCopyFn copy;
    uintptr_t reservedWord;
    HalvFreeFn free;
    char *name;
    char type;
    int32_t count;
    int32_t size;
    int32_t offset;
} HalvInfoField;

/* Splits one text form: the name is the text before the first colon, then
 * an optional decimal multiplier (1 when absent or below 1), then the type
 * letter; count is the multiplier times the run of that letter from there
 * on, and the text behind the run isn't looked at.  A text that ends at
 * the type has type '\0' and count 0, and so has one whose count doesn't
 * fit a signed 32-bit number.  1 with *name a new string the caller
 * releases with halv_internal_free; 0 for a null argument or no memory;
 * -1 when text has no colon (nothing is stored then). */
HALV_API int HalvParseInfoField(const char *text, char **name, char *type, int32_t *count) HALV_NOEXCEPT;

/* A new field list from strings, a null-terminated array of text forms,
 * with sizes and offsets.  1; 0 for a null argument, no memory, a text
 * that doesn't parse, a field whose size comes out 0 (a type other than
 * i, f and c, a text that ends at the type) or a record that would be
 * longer than 0x7FFFFFFF bytes.  On 0 *fields holds the part that was
 * built (or null), which the caller releases. */
HALV_API int HalvParseInfoFields(const char *const *strings, HalvInfoField ***fields) HALV_NOEXCEPT;

/* The same from the keys field-0, field-1, ... of section Info of the
 * header's userData, up to the first number that is missing or has no
 * value.  A header without them gives 1 and an empty list (an array of
 * just the terminator). */
HALV_API int HalvParseInfoFieldsFromHdr(const struct HalvHeaderStruct *header,
                                        HalvInfoField ***fields) HALV_NOEXCEPT;

/* Replaces section Info of the header's userData by one quoted key
 * field-N for each field, "%s:%d%c" of name, count and type, the name cut
 * so that the text has at most 255 characters.  Other keys of Info go
 * with the old section; an empty list leaves no section.  1; 0 for a null
 * argument. */
HALV_API int HalvWriteInfoFieldsToHdr(struct HalvHeaderStruct *header, HalvInfoField **fields) HALV_NOEXCEPT;

/* The index of the first field named name, ASCII case ignored; -1 when
 * there is none or for a null argument. */
HALV_API int32_t HalvFindInfoField(HalvInfoField **fields, const char *name) HALV_NOEXCEPT;

/* Appends a field of name, type and count to *fields (null is the empty
 * list), with all offsets worked out anew, and gives its index.  -1 for a
 * null fields or name, or when memory runs out (the list stays as it
 * was); -1 also when the type isn't i, f or c, count is below 1 or the
 * record would pass 0x7FFFFFFF bytes: the field then stays in the list
 * with size 0. */
HALV_API int32_t HalvAddInfoField(HalvInfoField ***fields, const char *name, char type,
                                  int32_t count) HALV_NOEXCEPT;

/* Frees the field at index through its free slot, closes the gap and works
 * out all offsets anew.  1; 0 for a null list or an index that isn't in
 * it (-1, the result of a failed HalvFindInfoField, among them). */
HALV_API int HalvRemoveInfoField(HalvInfoField **fields, int32_t index) HALV_NOEXCEPT;

/* The sum of all sizes, the bytes of one record; 0 for a null or empty
 * list. */
HALV_API int32_t HalvGetInfoFieldsTotal(HalvInfoField **fields) HALV_NOEXCEPT;

/* One value of field in the record that starts at record; index counts
 * values within the field.  Values are moved as bytes, so the record needs
 * no alignment.  1; 0 for a null field, record or value pointer; -1 when
 * the field has another type, or index is negative or not below count
 * (nothing is moved then). */
HALV_API int HalvGetInfoFieldInt(const HalvInfoField *field, const void *record, int32_t index,
                                 int32_t *value) HALV_NOEXCEPT;
HALV_API int HalvSetInfoFieldInt(const HalvInfoField *field, void *record, int32_t index,
                                 int32_t value) HALV_NOEXCEPT;
HALV_API int HalvGetInfoFieldDouble(const HalvInfoField *field, const void *record, int32_t index,
                                    double *value) HALV_NOEXCEPT;
HALV_API int HalvSetInfoFieldDouble(const HalvInfoField *field, void *record, int32_t index,
                                    double value) HALV_NOEXCEPT;

/* The count bytes of a c field as a new string of count + 1 bytes, the
 * last a NUL (a NUL among them stays); the caller releases it with
 * halv_internal_free.  1; 0 for a null argument, a negative count or no
 * memory (*text null); -1 for a field of another type. */
HALV_API int HalvGetInfoFieldStr(const HalvInfoField *field, const void *record, char **text) HALV_NOEXCEPT;

/* Copies text into a c field, at most count bytes, and a NUL behind it
 * only when text is shorter than count; bytes behind that stay as they
 * were.  1; 0 for a null argument; -1 for a field of another type. */
HALV_API int HalvSetInfoFieldStr(const HalvInfoField *field, void *record, const char *text) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_MODULES_H */
