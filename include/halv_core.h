/*
 * halv_core.h - the engine core: start and stop, logging and status, the
 * processing state and its call protocol, allocators, arrays, chunks and
 * argument lists.
 *
 * Results follow one convention throughout: 1 success, 0 refused (a null
 * argument, no memory, a precondition unmet), -1 attempted and failed or not
 * found, 2 done with something more to say.
 */
#ifndef HALV_CORE_H
#define HALV_CORE_H

#include "halv_base.h"

HALV_BEGIN_DECLS

struct HalvHeaderStruct;
struct HalvBundleModule;

/* ------------------------------------------------------------------------
 * Engine lifecycle
 * ------------------------------------------------------------------------ */

/* Lock keys: four letters, most significant byte first.  HalvernLock hashes a
 * key onto one of eight recursive locks: ((key >> 16) + key) & 7. */
#define HALV_LOCK_ENVV 0x454E5656u /* environment override list     (lock 4) */
#define HALV_LOCK_SHRD 0x53485244u /* shared-object cache, exe path (lock 4) */
#define HALV_LOCK_LIBR 0x4C494252u /* registered libraries          (lock 3) */
#define HALV_LOCK_LOCL 0x4C4F434Cu /* user locale                   (lock 3) */
#define HALV_LOCK_HDRM 0x4844524Du /* header manager list           (lock 1) */
#define HALV_LOCK_WSAK 0x5753414Bu /* socket layer start-up         (lock 6) */
#define HALV_LOCK_WKPL 0x574B504Cu /* global worker pool            (lock 7) */

/* A cleanup function returns 1 when done, 0 when it failed and its entry is
 * to be dropped, anything else when it failed and must be called again. */
typedef int32_t (*HalvCleanupFn)(intptr_t arg);

typedef struct HalvCleanupEntry {
    HalvCleanupFn fn;
    intptr_t arg;
    struct HalvCleanupEntry *next;
} HalvCleanupEntry;

HALV_API int HalvernInit(void) HALV_NOEXCEPT;
HALV_API int HalvernEnd(void) HALV_NOEXCEPT;
HALV_API int HalvernAbsoluteEnd(void) HALV_NOEXCEPT;
HALV_API int HalvernDisableRegistryLoad(int disable) HALV_NOEXCEPT;
HALV_API int HalvernLock(uint32_t key) HALV_NOEXCEPT;
HALV_API int HalvernUnlock(uint32_t key) HALV_NOEXCEPT;
HALV_API int HalvernRegisterCleanupFunc(HalvCleanupFn fn, intptr_t arg) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Chunks: a run of scanlines moving between host, plug-in and file format
 * ------------------------------------------------------------------------ */

#define HALV_CHUNK_END 1u    /* last chunk of its image; may be empty */
#define HALV_CHUNK_READY 4u  /* ready in the state's queue */
#define HALV_CHUNK_STORED 32u /* kept with the chunk by chunked formats */

typedef struct HalvChunk {
    uint32_t flags;
    uint32_t auxWord;
    uint32_t lines;
    uint32_t bytes;
    uint32_t capacity;
    uint32_t reservedWord;
    void *data;
} HalvChunk;

/* ------------------------------------------------------------------------
 * The processing state
 * ------------------------------------------------------------------------ */

#define HALV_STATE_OUTPUTS_UNKNOWN 4u /* flags bit: number of outputs unknown */

typedef struct HalvState HalvState;

typedef int (*HalvInitPoint)(intptr_t *args, HalvState **out);

struct HalvState {
    uint32_t flags;
    int (*processPoint)(HalvState *state);
    int (*endPoint)(HalvState *state);
    const char *(*errorMessageFn)(HalvState *state);
    int (*outputCountFn)(HalvState *state);
    struct HalvHeaderStruct *(*outputHeaderFn)(HalvState *state, int32_t index);
    int32_t (*outputBinHeaderFn)(HalvState *state, int32_t index, void *buffer, uintptr_t size);
    HalvChunk *(*inputChunkFn)(HalvState *state, int32_t index);
    HalvChunk *(*outputChunkFn)(HalvState *state, int32_t index);
    HalvChunk *(*queueChunkFn)(HalvState *state);
    int32_t status;
    char *errorMessage;
    const char *name;
    struct HalvHeaderStruct **headers;
    int32_t *outputFlags;
    int32_t outputCount;
    int32_t reservedWord;
    HalvChunk **inputChunks;
    HalvChunk **outputChunks;
    HalvChunk **queue;
    uint32_t queueLength;
};

HALV_API int HalvAllocState(HalvState **out, int32_t size) HALV_NOEXCEPT;
HALV_API int HalvFreeState(HalvState *state) HALV_NOEXCEPT;
HALV_API int HalvGetStateFlags(HalvState *state, uint32_t *flags) HALV_NOEXCEPT;
HALV_API int HalvGetStateOutputCount(HalvState *state, uint32_t *count) HALV_NOEXCEPT;
HALV_API int HalvGetStateQueueLength(HalvState *state, uint32_t *length) HALV_NOEXCEPT;
HALV_API int32_t HalvGetOutputFlags(HalvState *state, int32_t index) HALV_NOEXCEPT;

/* Init forms: the init point's result is stored as the status when it left
 * a state in *out, and is returned.  HalvCallInitArgs takes the words of an
 * argument list (pointer-sized, see HALV_ARG) up to and including the
 * terminator, then the HalvState ** out pointer. */
HALV_API int HalvCallInit(HalvInitPoint init, intptr_t *args, HalvState **out) HALV_NOEXCEPT;
HALV_API int HalvCallInitArgs(HalvInitPoint init, ...) HALV_NOEXCEPT;
HALV_API int HalvCallProcess(HalvState *state) HALV_NOEXCEPT;
HALV_API int HalvProcessSI(HalvState *state, void *data, uint32_t bytes, uint32_t lines) HALV_NOEXCEPT;
HALV_API int HalvProcessSO(HalvState *state, void **data, uint32_t *bytes, uint32_t *lines) HALV_NOEXCEPT;
HALV_API int HalvProcessSISO(HalvState *state, void *data, uint32_t bytes, uint32_t lines,
                             void **outData, uint32_t *outBytes, uint32_t *outLines) HALV_NOEXCEPT;
HALV_API int HalvCallEnd(HalvState *state) HALV_NOEXCEPT;
HALV_API int HalvAbsoluteCallEnd(HalvState *state) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Status, errors and logging
 * ------------------------------------------------------------------------ */

#define HALV_LOG_ERROR 0
#define HALV_LOG_DEBUG 1
#define HALV_LOG_PRINT 2

/* Receives every message that passes the funnel: the finished text (valid
 * only during the call), its kind (HALV_LOG_*) and the user word. */
typedef void (*HalvLogCallback)(const char *text, int kind, intptr_t userWord);

HALV_API void HalvDebug(const char *format, ...) HALV_NOEXCEPT;
HALV_API int HalvError(const char *format, ...) HALV_NOEXCEPT;
HALV_API void HalvPrintf(const char *format, ...) HALV_NOEXCEPT;
#if defined(__GNUC__)
__attribute__((noreturn))
#endif
HALV_API void HalvAbort(const char *format, ...) HALV_NOEXCEPT;
HALV_API void HalvSetDebug(int enabled) HALV_NOEXCEPT;
HALV_API void HalvSetDebugLevel(int level) HALV_NOEXCEPT;
HALV_API int HalvIsDebug(void) HALV_NOEXCEPT;
HALV_API int HalvGetDebugLevel(void) HALV_NOEXCEPT;
HALV_API void HalvSetLoggingCallback(HalvLogCallback fn, intptr_t userWord) HALV_NOEXCEPT;

HALV_API int32_t HalvGetStatus(HalvState *state) HALV_NOEXCEPT;
HALV_API int32_t HalvSetStatus(HalvState *state, int32_t value) HALV_NOEXCEPT;
HALV_API int32_t HalvSetError(HalvState *state, int32_t status, const char *format, ...) HALV_NOEXCEPT;
HALV_API const char *HalvGetErrorMsg(HalvState *state) HALV_NOEXCEPT;
HALV_API int HalvGetErrorCode(HalvState *state) HALV_NOEXCEPT;
HALV_API int HalvParseErrorCode(const char *text) HALV_NOEXCEPT;
HALV_API int HalvReportError(HalvState *state) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Allocators
 * ------------------------------------------------------------------------ */

HALV_API void *halv_internal_malloc(size_t size) HALV_NOEXCEPT;
HALV_API void *halv_internal_calloc(size_t count, size_t size) HALV_NOEXCEPT;
HALV_API void *halv_internal_realloc(void *ptr, size_t size) HALV_NOEXCEPT;
HALV_API void halv_internal_free(void *ptr) HALV_NOEXCEPT;
HALV_API void *halv_internal_aligned_malloc(size_t size, size_t alignment) HALV_NOEXCEPT;
HALV_API void *halv_internal_aligned_alloc(size_t size, size_t alignment) HALV_NOEXCEPT;
HALV_API void halv_internal_aligned_free(void *ptr) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Arrays: null-terminated arrays of pointers to separately allocated items.
 * An array variable is a plain pointer (HalvChunk **, char **, ...); the
 * functions that change it take its address, the readers the array itself.
 * ------------------------------------------------------------------------ */

/* The marker of a reserved slot that holds no item yet (item size 0). */
HALV_API void *HalvArrayEmptySlot(void) HALV_NOEXCEPT;

HALV_API int HalvAllocArray(void *arrayVariable, uint32_t count, uint32_t itemSize) HALV_NOEXCEPT;
HALV_API int HalvReallocArray(void *arrayVariable, uint32_t count, uint32_t itemSize) HALV_NOEXCEPT;
HALV_API int HalvFreeArray(void *array) HALV_NOEXCEPT;
HALV_API int HalvFreeSmartArray(void *array) HALV_NOEXCEPT;
HALV_API void *HalvGetArrayItem(const void *array, uint32_t index) HALV_NOEXCEPT;
HALV_API uint32_t HalvGetArraySize(const void *array) HALV_NOEXCEPT;

/* Chunks in an array; an index past the end gives 0 and changes nothing. */
HALV_API int HalvSetChunk(HalvChunk **array, uint32_t index, void *data, uint32_t bytes, uint32_t lines) HALV_NOEXCEPT;
HALV_API int HalvGetChunk(HalvChunk **array, uint32_t index, void **data, uint32_t *bytes, uint32_t *lines) HALV_NOEXCEPT;
HALV_API int HalvSetChunkFlags(HalvChunk **array, uint32_t index, uint32_t flags) HALV_NOEXCEPT;
HALV_API int HalvGetChunkFlags(HalvChunk **array, uint32_t index, uint32_t *flags) HALV_NOEXCEPT;
HALV_API int HalvMarkChunkFlags(HalvChunk **array, uint32_t index, uint32_t bits) HALV_NOEXCEPT;
HALV_API int HalvClearChunkFlags(HalvChunk **array, uint32_t index, uint32_t bits) HALV_NOEXCEPT;

/* Chunks by pointer. */
HALV_API int HalvChunkMarkFlags(HalvChunk *chunk, uint32_t bits) HALV_NOEXCEPT;
HALV_API int HalvChunkClearFlags(HalvChunk *chunk, uint32_t bits) HALV_NOEXCEPT;
HALV_API int HalvResetChunks(HalvChunk **array) HALV_NOEXCEPT;
HALV_API int HalvEnqueueChunk(HalvState *state, const HalvChunk *chunk, uint32_t *index) HALV_NOEXCEPT;
HALV_API int HalvDupChunk(HalvChunk **out, const HalvChunk *source) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Argument lists: flat arrays of machine words, entries "name:format",
 * value words and a null word, closed by the word 1.
 *
 * The variadic functions read every word as intptr_t.  Pass pointers as they
 * are and write the null word and the terminator as HALV_ARG_NULL and
 * HALV_ARG_END (a bare 0 or 1 is an int, which is narrower than a word).
 * ------------------------------------------------------------------------ */

#define HALV_ARG(value) ((intptr_t)(value))
#define HALV_ARG_NULL ((intptr_t)0)
#define HALV_ARG_END ((intptr_t)1)

typedef struct HalvBinArg {
    const char *key;
    int32_t type;
    int32_t count;
    void *data;
} HalvBinArg;

HALV_API int HalvBuildArgs(intptr_t *list, ...) HALV_NOEXCEPT;
HALV_API int HalvAppendArgs(intptr_t *list, ...) HALV_NOEXCEPT;
HALV_API int HalvRemoveArgs(intptr_t *list, ...) HALV_NOEXCEPT;
HALV_API int HalvParseArgs(const intptr_t *list, ...) HALV_NOEXCEPT;
HALV_API intptr_t *HalvBinArgToArgs(int32_t count, const HalvBinArg *args, int32_t extraWords) HALV_NOEXCEPT;
HALV_API int HalvBinArgFromArgs(const intptr_t *list, int32_t *count, HalvBinArg **args) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_CORE_H */
