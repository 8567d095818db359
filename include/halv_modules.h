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

#define HALV_BUNDLE_MAJOR 3 /* the major version every bundle must report */

/* The version record a bundle hands out and owns. */
typedef struct HalvBundleVersion {
    int32_t major;         /* HALV_BUNDLE_MAJOR, or the bundle is refused */
    const char *version;   /* the bundle's version text */
    const char *timestamp; /* when it was built, as text */
} HalvBundleVersion;

/* One processing function of a bundle, a record the bundle hands out and
 * owns: twelve machine words.  The string arrays are null-terminated, and
 * any of them may be null. */
typedef struct HalvBundleModule {
    const char *name;              /* the function's name */
    uintptr_t reserved1;           /* not read */
    const char *const *args;       /* argument descriptions, one string each */
    intptr_t inputs;               /* number of inputs */
    intptr_t outputs;              /* number of outputs */
    const char *const *formats;    /* format texts */
    const char *const *tests;      /* test texts */
    const char *const *categories; /* category words */
    const char *description;       /* short text */
    const char *documentation;     /* long text */
    uintptr_t reserved2;           /* not read */
    HalvInitPoint init;            /* the init point, or null */
} HalvBundleModule;

/* HalvernBundleGetVersion_N: the bundle's version record, never null. */
typedef const HalvBundleVersion *(*HalvBundleGetVersionFn)(void);

/* HalvernBundleGetList_N: the null-terminated array of the bundle's module
 * names, never null. */
typedef const char *const *(*HalvBundleGetListFn)(void);

/* HalvernBundleGetModule_N: the module called name, or null when the
 * bundle has none. */
typedef const HalvBundleModule *(*HalvBundleGetModuleFn)(const char *name);

/* One open bundle, in the process-wide library list (lock key LIBR). */
typedef struct HalvLibrary {
    HalvBundleGetListFn getList;       /* the bundle's HalvernBundleGetList_N */
    HalvBundleGetModuleFn getModule;   /* its HalvernBundleGetModule_N */
    HalvBundleGetVersionFn getVersion; /* its HalvernBundleGetVersion_N */
    void *handle;                      /* the shared object, from HalvDLOpen */
    uint32_t refCount;                 /* registrations; the last one closes the bundle */
    struct HalvLibrary *next;          /* the bundle opened before this one */
} HalvLibrary;

/* One bundle registered by the registry file, in the boot list that the
 * last HalvernEnd unregisters. */
typedef struct HalvBootLibrary {
    HalvLibrary *library;         /* the registered library */
    int32_t optional;             /* 1 for an optional bundle */
    char name[64];                /* the bundle name, cut to 63 bytes */
    struct HalvBootLibrary *next; /* the bundle registered before this one */
} HalvBootLibrary;

/* ------------------------------------------------------------------------
 * Function descriptions
 * ------------------------------------------------------------------------ */

#define HALV_INTERLEAVE_SCANLINE 1    /* interleave bit: scanline */
#define HALV_INTERLEAVE_PIXEL 2       /* interleave bit: pixel */
#define HALV_INTERLEAVE_FRAME 4       /* interleave bit: frame */
#define HALV_INTERLEAVE_COMPRESSION 8 /* interleave bit: compression */
#define HALV_INTERLEAVE_ANY 15        /* all four interleave bits */

/* A smart record describing one processing function: from a bundle's
 * module record, or from a description file.  Strings and arrays are
 * owned by the record and released with it (HalvFreeFuncDesc, or the free
 * slot); string arrays are null-terminated. */
typedef struct HalvFuncDesc {
    HalvCopyFn copy;          /* HalvCopyFuncDesc */
    uintptr_t reservedWord;   /* not used: 0 */
    HalvFreeFn free;          /* HalvFreeFuncDesc */
    char *name;               /* the function's name */
    char *init;               /* where the init point is: a retrieval text for HalvRetrieveInit */
    HalvInitPoint initPoint;  /* the init point itself, where a bundle gave it */
    char **args;              /* argument descriptions, one for each arg line, not interpreted */
    char **cspaces;           /* colour spaces accepted; null means any */
    int32_t *bits;            /* bit depths accepted, ended by -1; null means any */
    int32_t inputs;           /* number of inputs */
    int32_t outputs;          /* number of outputs */
    int32_t synchronous;      /* 1 unless the description says otherwise, else 0 */
    int32_t interleave;       /* HALV_INTERLEAVE_ bits accepted */
    char **tests;             /* one string for each test line */
    char **formats;           /* one string for each format line */
    char *description;        /* short text */
    char *documentation;      /* long text */
    char **categories;        /* category words */
} HalvFuncDesc;

/* A new description with its copy and free slots set, inputs and outputs
 * 0, synchronous 1, interleave HALV_INTERLEAVE_ANY and every other field
 * null.  The caller releases it with HalvFreeFuncDesc.  Null when memory
 * runs out. */
HALV_API HalvFuncDesc *HalvAllocFuncDesc(void) HALV_NOEXCEPT;

/* Releases name, init, bits, description and documentation with
 * halv_internal_free, the string arrays with HalvFreeArray, then the
 * record.  Null does nothing. */
HALV_API void HalvFreeFuncDesc(HalvFuncDesc *desc) HALV_NOEXCEPT;

/* A new record with a deep copy of every field (bits up to and with its
 * -1; initPoint, inputs, outputs, synchronous and interleave as they
 * stand), which the caller releases with HalvFreeFuncDesc.  Null for null
 * or when memory runs out. */
HALV_API HalvFuncDesc *HalvCopyFuncDesc(const HalvFuncDesc *desc) HALV_NOEXCEPT;

/* Searches the description file name.dot with HalvFindFile along
 * ".,${HOME}/.hvdata/halv,${HV_RELEASE}/data/halv,${HVTOP}/data/halv".
 * A new string the caller releases with halv_internal_free, or null when
 * none is found and for a null name. */
HALV_API char *HalvFuncDescFileName(const char *name) HALV_NOEXCEPT;

/* Reads one description from stream (only its read slot is used) into
 * desc, which must be new: inputs, outputs and synchronous are set to 1,
 * interleave to HALV_INTERLEAVE_ANY and every owned field to null without
 * releasing anything; initPoint stays.  The text is one section: its name
 * in brackets is the function's name, and a second section name ends the
 * description.  Its labels, compared with regard to case, a trailing '*'
 * meaning any label that begins so:
 *   init, description, documentation   text; the first line wins
 *   arg, test, format                  args, tests, formats: lines add up
 *   cspace*                            a word list; "any..." leaves null
 *   categories, category               a word list
 *   bit*                               decimal numbers, then -1; "any..."
 *                                      leaves null
 *   interleave*                        scanline pixel frame compression,
 *                                      up to the first other word;
 *                                      "any..." gives HALV_INTERLEAVE_ANY
 *   input, output                      a decimal number (0 when it isn't
 *                                      one); the first line wins
 *   synchronous                        1 when the value begins with Y, y,
 *                                      T, t or 1, else 0
 * Word lists split at white space, and of them the last line wins; an
 * empty one leaves the field alone.  Other labels are passed over.  Labels
 * need no section before them: without one the name stays null.  Labels
 * are read up to 511 bytes and values up to 2047; longer ones are cut.
 * The caller releases what was read with HalvFreeFuncDesc, also after a
 * failure.  1; 0 for a null argument, out of memory, or a label without a
 * value at the end of the input. */
HALV_API int HalvReadFuncDesc(HalvIO *stream, HalvFuncDesc *desc) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Shared objects and retrieval
 * ------------------------------------------------------------------------ */

/* Opens the bundle file dpk_<name>.so, beside the executable first, then
 * along the dynamic loader's search (LD_LIBRARY_PATH, the library's own
 * directory, the system's).  This doesn't use the cache of HalvRetrieveFunc, and the handle is the
 * caller's to close with HalvDLClose.  1 with the handle stored; 0 with
 * null stored when it can't be loaded; 0 with nothing stored for a null
 * argument or when "dpk_" and name have 1024 bytes or more. */
HALV_API int HalvDLOpen(const char *name, void **handle) HALV_NOEXCEPT;

/* Closes a handle from HalvDLOpen.  1; -1 if the loader refuses; 0 for
 * null. */
HALV_API int HalvDLClose(void *handle) HALV_NOEXCEPT;

/* Looks symbol up in handle: 1 with its address stored in *out, -1 with
 * null stored when it is missing, 0 with nothing stored for a null handle,
 * symbol or out. */
HALV_API int HalvDLSymbolLookup(void *handle, const char *symbol, void **out) HALV_NOEXCEPT;

/* Resolves a retrieval text: "symbol", "lib!symbol" or "lib1,lib2!symbol".
 * Every library named is loaded, as <lib>.so (a name holding '/' as a
 * path), and the symbol is looked up in the first; a library that fails
 * at the '!' is replaced by defaultLibrary, one that fails at a ',' ends
 * the retrieval.  A plain symbol is looked up in dpk_<defaultLibrary>, or
 * in <defaultLibrary> when that doesn't load.  A symbol missing as written
 * is tried with a leading underscore.  Libraries are loaded once, through a
 * cache of 32 entries that lives until the last HalvernEnd; a 33rd distinct
 * library can't be loaded.  1 with *out set; -1 with *out null when a
 * library can't be loaded (or defaultLibrary is needed and null); 0 with
 * *out null when the symbol is missing or retrieval is null; 0 for a null
 * out. */
HALV_API int HalvRetrieveFunc(const char *retrieval, const char *defaultLibrary, void **out) HALV_NOEXCEPT;

/* HalvRetrieveFunc with the default library "halv", giving an init point:
 * the usual way from a description's init text to what HalvCallInit
 * takes. */
HALV_API int HalvRetrieveInit(const char *retrieval, HalvInitPoint *out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The library registry
 *
 * The bundles of the registry file, and those a host registers itself,
 * stand in one list, newest first, guarded by the lock key LIBR; bundle
 * entry points run with it held during the searches below, and may call
 * back into the library on the same thread.
 * ------------------------------------------------------------------------ */

/* Opens bundle name with HalvDLOpen, checks its three entry points and its
 * major version (HALV_BUNDLE_MAJOR), and enters it in the library list; a
 * bundle already there (the same entry points) gains a registration
 * instead.  *library is set to null at once and to the record on success.
 * A host that registers a bundle unregisters it itself.  1; -1 if the
 * bundle can't be opened, lacks an entry point or has another major
 * version; 0 for a null argument or out of memory. */
HALV_API int HalvRegisterLibrary(const char *name, HalvLibrary **library) HALV_NOEXCEPT;

/* Drops one registration of library; the last one unlinks it, closes the
 * bundle and frees the record.  1; 0 for null or a record that isn't in
 * the list. */
HALV_API int HalvUnregisterLibrary(HalvLibrary *library) HALV_NOEXCEPT;

/* The bundle's version record, which the bundle owns and keeps while it is
 * loaded; null for a null library or version entry. */
HALV_API const HalvBundleVersion *HalvGetLibraryVersion(HalvLibrary *library) HALV_NOEXCEPT;

/* Stores in *array a new null-terminated array with one description for
 * each module of the bundle, in its list order (names the bundle lists but
 * doesn't give are passed over), which the caller releases with
 * HalvFreeSmartArray.  init, cspaces, bits, synchronous and interleave keep
 * the values of HalvAllocFuncDesc.  Takes no lock: the caller keeps the
 * bundle registered meanwhile.  1 (an empty array for an empty bundle); 0
 * for a null argument or out of memory, with *array null. */
HALV_API int HalvGetAllLibraryFuncDesc(HalvLibrary *library, HalvFuncDesc ***array) HALV_NOEXCEPT;

/* HalvGetAllLibraryFuncDesc over all registered bundles, newest first,
 * under the LIBR lock; the caller releases the array with
 * HalvFreeSmartArray.  1 (an empty array without bundles); 0 for a null
 * argument or out of memory, with *array null. */
HALV_API int HalvFindAllFuncDesc(HalvFuncDesc ***array) HALV_NOEXCEPT;

/* Fills desc from the module name of the first registered bundle that has
 * one, under the LIBR lock: name, description, documentation and the
 * string arrays are copied, releasing what those fields held (desc must be
 * a description, from HalvAllocFuncDesc for one), and inputs, outputs and
 * initPoint are set.  1; -1 when no bundle has it (desc untouched); 0 for
 * a null argument or out of memory. */
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

#define HALV_REGISTRY_READ 1        /* report state: the registry file at path was read */
#define HALV_REGISTRY_DEFAULT 2     /* report state: none along HV_DATA_PATH; "halv" was tried, optional */
#define HALV_REGISTRY_UNREADABLE -1 /* report state: found at path but not readable; problems says why */

/* One bundle the registry step tried. */
typedef struct HalvBundleReport {
    const char *name;      /* the bundle name as the registry gave it */
    int32_t optional;      /* 1 for an optional bundle (the default bundle too) */
    int32_t loaded;        /* 1 registered, 0 failed */
    const char *path;      /* the file loaded; null when it failed */
    const char *version;   /* the bundle's version texts; null when it failed or gave none */
    const char *timestamp; /* when it was built; null as version */
    const char *reason;    /* why it failed, one line without a line end; null when loaded:
                              the places tried and the loader's text ("cannot open shared
                              object file", "undefined symbol: ...", "wrong ELF class"), a
                              missing entry point by name, or the major version it gave */
} HalvBundleReport;

/* What the registry step did, from HalvGetRegistryReport. */
typedef struct HalvRegistryReport {
    int32_t state;                    /* HALV_REGISTRY_READ, _DEFAULT or _UNREADABLE */
    const char *path;                 /* the registry file found; null with HALV_REGISTRY_DEFAULT */
    const char *problems;             /* about the file itself, lines each ended by '\n': why it
                                         can't be read, what in it was skipped; null when none */
    uint32_t bundleCount;             /* entries of bundles */
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
    HalvCopyFn copy;        /* new record with its own copy of name; null out of memory */
    uintptr_t reservedWord; /* the smart record's word without use: 0 */
    HalvFreeFn free;        /* releases name and the record */
    char *name;             /* the field's name, owned by the record */
    char type;              /* HALV_INFO_INT, HALV_INFO_DOUBLE or HALV_INFO_CHAR */
    int32_t count;          /* values in the field */
    int32_t size;           /* count x the type's width in bytes; 0 marks a field that is no good */
    int32_t offset;         /* bytes from the start of the record */
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

/* Reads value index of an i field of the record that starts at record
 * into *value; index counts values within the field, and the value lies at
 * offset + index x 4.  Values are moved as bytes, so the record needs no
 * alignment; nothing checks that the record is as long as the field says.
 * 1; 0 for a null field, record or value pointer; -1 when the field has
 * another type, or index is negative or not below count (nothing is moved
 * then). */
HALV_API int HalvGetInfoFieldInt(const HalvInfoField *field, const void *record, int32_t index,
                                 int32_t *value) HALV_NOEXCEPT;

/* Stores value as value index of an i field, moved as bytes like
 * HalvGetInfoFieldInt.  1; 0 for a null field or record; -1 for another
 * type or an index outside the field (nothing is stored then). */
HALV_API int HalvSetInfoFieldInt(const HalvInfoField *field, void *record, int32_t index,
                                 int32_t value) HALV_NOEXCEPT;

/* Reads value index of an f field into *value, with the results of
 * HalvGetInfoFieldInt. */
HALV_API int HalvGetInfoFieldDouble(const HalvInfoField *field, const void *record, int32_t index,
                                    double *value) HALV_NOEXCEPT;

/* Stores value as value index of an f field, with the results of
 * HalvSetInfoFieldInt. */
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
