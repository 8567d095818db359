/*
 * halv_core.h - the engine core: start and stop, logging and status, the
 * processing state and its call protocol, allocators, arrays, chunks and
 * argument lists.
 *
 * Results follow one convention throughout: 1 success, 0 refused (a null
 * argument, no memory, a precondition unmet), -1 attempted and failed or not
 * found, 2 done with something more to say.  Each contract below gives the
 * values of its function.
 *
 * A host owns the states it creates and the argument lists it passes; a
 * plug-in owns what hangs off its state, and its endPoint frees all of it,
 * the state last.  A state, chunk or array belongs to one thread at a time
 * and has no lock.
 */
#ifndef HALV_CORE_H
#define HALV_CORE_H

#include "halv_base.h"

HALV_BEGIN_DECLS

struct HalvHeaderStruct;
struct HalvBundleModule;

/* ------------------------------------------------------------------------
 * Engine lifecycle
 *
 * HalvernInit and HalvernEnd pair up: the first start creates eight
 * recursive hash locks and loads the registry's bundles, the last stop
 * unregisters them, runs the cleanup functions and destroys the locks.
 * Process-wide lists are guarded through HalvernLock(key): a key is four
 * letters, most significant byte first, hashed onto lock number
 * ((key >> 16) + key) & 7, so keys of unrelated parts may share a lock.
 * Lock order: the engine's master lock, then hash locks, then a worker
 * pool's mutex, then a conditional's internal lock.
 * ------------------------------------------------------------------------ */

#define HALV_LOCK_ENVV 0x454E5656u /* environment override list     (lock 4) */
#define HALV_LOCK_SHRD 0x53485244u /* shared-object cache, exe path (lock 4) */
#define HALV_LOCK_LIBR 0x4C494252u /* registered libraries          (lock 3) */
#define HALV_LOCK_LOCL 0x4C4F434Cu /* user locale                   (lock 3) */
#define HALV_LOCK_HDRM 0x4844524Du /* header manager list           (lock 1) */
#define HALV_LOCK_WSAK 0x5753414Bu /* socket layer start-up         (lock 6) */
#define HALV_LOCK_WKPL 0x574B504Cu /* global worker pool            (lock 7) */

/* A cleanup function, run with its argument by the last HalvernEnd.  It
 * returns 1 when done, 0 when it failed and its entry is to be dropped,
 * anything else when it failed and must be called again by the next end
 * pass. */
typedef int32_t (*HalvCleanupFn)(intptr_t arg);

/* One entry of the engine's cleanup list, newest first. */
typedef struct HalvCleanupEntry {
    HalvCleanupFn fn;              /* the function to run */
    intptr_t arg;                  /* its argument */
    struct HalvCleanupEntry *next; /* the entry registered before this one */
} HalvCleanupEntry;

/* Starts the engine, or counts one more start.  The first start creates
 * the hash locks, reads the switches HVENV_DEBUG, HVSHARED_DEBUG and
 * HVFINDFILE_DEBUG (on when HalvGetenv finds a value), and runs the
 * registry step: hvregistry.dot is looked for along HV_DATA_PATH, its
 * [variables] are set with HalvSetenv and its [libraries] registered, or,
 * without a file, the bundle "halv" is registered if it can be;
 * HalvernDisableRegistryLoad(1) skips the step.  A nested start does
 * nothing more.  HalvGetRegistryReport tells what the step did.
 * Result: 1; 0 when the first start's registry step failed (the file found
 * but unreadable, a required bundle that didn't register, no memory).  The
 * engine is started all the same and owes one HalvernEnd; the bundles
 * registered before the failure stay, and a further HalvernInit before that
 * end returns 1 without trying the registry again. */
HALV_API int HalvernInit(void) HALV_NOEXCEPT;

/* Counts one stop.  The stop that brings the count to 0 unregisters the
 * bundles of the registry step, then runs the cleanup functions newest
 * first, each with no hash lock held, then destroys the hash locks.
 * Result: 1 when this call did its part; 0 when the engine was not started,
 * or when a cleanup function returned 0 (its entry is dropped, the entries
 * behind it have not run); otherwise the failing value: -1 when a bundle
 * didn't unregister, or what a cleanup function returned (its entry stays).
 * After a failure the engine stays started with a count of 1, and the next
 * HalvernEnd goes on where this one stopped.  After a completed stop the
 * engine can be started again. */
HALV_API int HalvernEnd(void) HALV_NOEXCEPT;

/* Repeats HalvernEnd, with no bound, as long as it fails with a value other
 * than 0 or 1.  It doesn't force a stop past nested starts: with several
 * starts counted it is one HalvernEnd.  Result: 1 or 0, as HalvernEnd gives
 * them. */
HALV_API int HalvernAbsoluteEnd(void) HALV_NOEXCEPT;

/* With disable non-zero, the HalvernInit that starts the engine skips the
 * registry step (the debug switches are still read); with 0 it runs it.
 * The setting only matters before that start, and it stays in force across
 * later stops and starts.  Result: 1. */
HALV_API int HalvernDisableRegistryLoad(int disable) HALV_NOEXCEPT;

/* Enters the hash lock of key, blocking until the calling thread owns it.
 * The lock is recursive and shared by every key with the same number (ENVV
 * and SHRD both fall on lock 4, which also guards the cleanup list); leave
 * it with HalvernUnlock as often as it was entered.  While the engine is
 * stopped the locks don't exist and this does nothing.  Result: 1. */
HALV_API int HalvernLock(uint32_t key) HALV_NOEXCEPT;

/* Leaves the hash lock of key once.  Does nothing while the engine is
 * stopped.  Result: 1. */
HALV_API int HalvernUnlock(uint32_t key) HALV_NOEXCEPT;

/* Puts fn(arg) at the head of the cleanup list: the last HalvernEnd runs
 * it after the bundles are gone, before the hash locks go, newest first,
 * with no hash lock held.  Process-wide state registers its cleanup at its
 * first use.  Result: 1; 0, with nothing registered, when the engine is
 * stopped, fn is null or no memory. */
HALV_API int HalvernRegisterCleanupFunc(HalvCleanupFn fn, intptr_t arg) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Chunks
 *
 * A chunk is a run of scanlines moving between a host, a processing
 * function and a file format: a record of fixed shape that points to the
 * bytes without owning them.  Chunk records are reused from pass to pass;
 * only HalvDupChunk copies bytes.
 * ------------------------------------------------------------------------ */

#define HALV_CHUNK_END 1u     /* flags bit: the last chunk of its image; it may be empty */
#define HALV_CHUNK_READY 4u   /* flags bit: ready in the state's queue (queueChunkFn) */
#define HALV_CHUNK_STORED 32u /* flags bit: kept with the chunk by chunked file formats */

/* One chunk: fields of 32 bits but data, a pointer. */
typedef struct HalvChunk {
    uint32_t flags;        /* HALV_CHUNK_ bits */
    uint32_t auxWord;      /* carried from and to the file by chunked formats; 0 elsewhere */
    uint32_t lines;        /* scanlines in the chunk */
    uint32_t bytes;        /* bytes of valid data at data */
    uint32_t capacity;     /* size of the buffer at data where a loader tells it; 0 when unknown */
    uint32_t reservedWord; /* copied by HalvDupChunk, cleared by loaders, read by nobody */
    void *data;            /* the bytes; not owned by the record, except in one from HalvDupChunk */
} HalvChunk;

/* ------------------------------------------------------------------------
 * The processing state and its call protocol
 *
 * A processing function is driven through one HalvState: an init point
 * builds it from an argument list, processPoint runs once per pass over
 * the chunks, endPoint takes it down.  A host calls HalvCallInit (or a
 * form of it), then HalvCallProcess or a HalvProcess shortcut any number of
 * times, then HalvCallEnd; results and the status mean
 *   1   done (state ready; pass done, output chunk 0 may be read; ended)
 *   2   done with more to say: a pass gives output as with 1
 *   0   failed (HalvGetErrorMsg tells why)
 *   -1  processPoint missing, or the function's own failure; from
 *       endPoint: not finished yet, call again.
 * A plug-in embeds HalvState at the head of its own record and replaces the
 * slots it needs; any user may call a slot directly.
 * ------------------------------------------------------------------------ */

#define HALV_STATE_OUTPUTS_UNKNOWN 4u /* flags bit: the number of outputs is not known in advance */

typedef struct HalvState HalvState;

/* An init point of a processing function.  It parses args with
 * HalvParseArgs, makes its state with HalvAllocState (with the size of its
 * own record), replaces the slots it needs, stores the state in *out and
 * returns 1.  On failure it may leave *out null, or hand out a state with
 * its error text set.  To serve the HalvProcess shortcuts it gives
 * inputChunks and outputChunks one chunk record each at least. */
typedef int (*HalvInitPoint)(intptr_t *args, HalvState **out);

/* The record of one running processing function.  Slots take the state
 * first; HalvAllocState fills each with the default said here. */
struct HalvState {
    uint32_t flags; /* HALV_STATE_OUTPUTS_UNKNOWN; no other bit has a meaning here */
    /* One pass: reads inputChunks, writes outputChunks, returns the result.
     * Default: outputChunks = inputChunks and 1; without inputChunks the
     * text "Default process requires input" and 0. */
    int (*processPoint)(HalvState *state);
    /* Releases what the plug-in owns and, last, the state: 1 finished (the
     * state is gone), -1 not finished (call again).  Default: HalvFreeState. */
    int (*endPoint)(HalvState *state);
    /* The text HalvGetErrorMsg gives.  Default: errorMessage. */
    const char *(*errorMessageFn)(HalvState *state);
    /* The number of outputs, -1 when unknown.  Default: -1 with
     * HALV_STATE_OUTPUTS_UNKNOWN, else outputCount, counted once through
     * outputHeaderFn up to its first null while it is 0. */
    int (*outputCountFn)(HalvState *state);
    /* The generic header of output index.  Default: headers[index], null
     * past the end or without headers. */
    struct HalvHeaderStruct *(*outputHeaderFn)(HalvState *state, int32_t index);
    /* The flat 'B' 'H' block of output index's header, in this machine's
     * byte order (HalvBinHdrFromHdr).  Default: for headers[index], with a
     * null buffer the bytes a buffer needs, else the block written into
     * buffer and its size; -1 when size is too small or the header can't
     * be flattened; 0 when headers has no entry at index. */
    int32_t (*outputBinHeaderFn)(HalvState *state, int32_t index, void *buffer, uintptr_t size);
    /* Input chunk index.  Default: inputChunks[index], null past the end. */
    HalvChunk *(*inputChunkFn)(HalvState *state, int32_t index);
    /* Output chunk index.  Default: outputChunks[index], null past the end. */
    HalvChunk *(*outputChunkFn)(HalvState *state, int32_t index);
    /* The next queued chunk that is ready.  Default: the first of the first
     * queueLength slots of queue whose flags have HALV_CHUNK_READY, or null. */
    HalvChunk *(*queueChunkFn)(HalvState *state);
    int32_t status;                     /* result of the latest call; at first 0 */
    char *errorMessage;                 /* accumulated HalvSetError text, owned; null when none */
    const char *name;                   /* name for traces, not owned; at first null */
    struct HalvHeaderStruct **headers;  /* output headers, a null-terminated array; at first null */
    int32_t *outputFlags;               /* one word of flags per output; at first null */
    int32_t outputCount;                /* outputs, filled in with outputFlags; at first 0 */
    int32_t reservedWord;               /* 0; not read by the library */
    HalvChunk **inputChunks;            /* input chunk records, null-terminated; at first null */
    HalvChunk **outputChunks;           /* output chunk records, null-terminated; at first null */
    HalvChunk **queue;                  /* the chunk queue of HalvEnqueueChunk; at first null */
    uint32_t queueLength;               /* slots in queue, a multiple of 4; at first 0 */
};

/* Allocates a zeroed state of size bytes (a plug-in's record with HalvState
 * at its head), stores it in *out, sets its status to 0 with no text and
 * fills the slots with their defaults.  It is released by its endPoint,
 * through HalvCallEnd.  Result: 1; 0, with *out untouched, for a null out,
 * a size below sizeof(HalvState) or no memory. */
HALV_API int HalvAllocState(HalvState **out, int32_t size) HALV_NOEXCEPT;

/* Frees the record with halv_internal_free, after the HalvDebug trace
 * "Free State: %s\n" when name is set.  What the fields point to stays:
 * the end calls release errorMessage, the plug-in the rest.  It is the
 * default endPoint.  Result: 1; 0 for null. */
HALV_API int HalvFreeState(HalvState *state) HALV_NOEXCEPT;

/* Stores the state's flags in *flags.  Result: 1; 0 when state or flags is
 * null. */
HALV_API int HalvGetStateFlags(HalvState *state, uint32_t *flags) HALV_NOEXCEPT;

/* Stores the number of outputs that the state's outputCountFn gives in
 * *count: 0 when it gives -1 (unknown) or the slot is null.  Result: 1; 0
 * when state or count is null. */
HALV_API int HalvGetStateOutputCount(HalvState *state, uint32_t *count) HALV_NOEXCEPT;

/* Stores queueLength, the number of slots of the state's chunk queue, in
 * *length.  Result: 1; 0 when state or length is null. */
HALV_API int HalvGetStateQueueLength(HalvState *state, uint32_t *length) HALV_NOEXCEPT;

/* The flags word of output index, outputFlags[index]; 0 for a null state,
 * an index that is negative or not below outputCount, or a null
 * outputFlags. */
HALV_API int32_t HalvGetOutputFlags(HalvState *state, int32_t index) HALV_NOEXCEPT;

/* Calls init(args, out).  Set *out to null first: when the init point has
 * left a state there, its result is stored as that state's status.  args
 * stays the caller's; an init point that keeps any of it copies it.
 * Result: the init point's (1 the state is ready); 0, calling nothing, when
 * init, args or out is null. */
HALV_API int HalvCallInit(HalvInitPoint init, intptr_t *args, HalvState **out) HALV_NOEXCEPT;

/* HalvCallInit with the argument list written in place: the words that
 * follow init, up to and including the terminator HALV_ARG_END, then the
 * HalvState ** out pointer.  The words are copied into a temporary list of
 * exactly their number, released when the init point returns.  Result: the
 * init point's; 0, calling nothing, when init or out is null or no
 * memory. */
HALV_API int HalvCallInitArgs(HalvInitPoint init, ...) HALV_NOEXCEPT;

/* Runs one pass: calls processPoint and stores its result as the status.
 * Result: processPoint's (1 or 2: output chunks ready); -1, with the text
 * "No processPoint entry point defined", when the slot is null; 0 for a
 * null state. */
HALV_API int HalvCallProcess(HalvState *state) HALV_NOEXCEPT;

/* One pass with a single input: stores data, bytes and lines in input chunk
 * 0 (the bytes are not copied and stay the caller's), then runs the pass as
 * HalvCallProcess.  state must not be null.  Result: the pass's; 0, with
 * nothing called and status and text untouched, when inputChunks has no
 * chunk 0. */
HALV_API int HalvProcessSI(HalvState *state, void *data, uint32_t bytes, uint32_t lines) HALV_NOEXCEPT;

/* One pass with a single output: runs the pass as HalvCallProcess and, when
 * it gives 1 or 2, reads data, bytes and lines of output chunk 0 into the
 * out-pointers (any of them may be null).  The bytes are not copied: they
 * are the plug-in's, valid until its next pass or its end.  Result: the
 * pass's, with the out-pointers untouched unless it was 1 or 2; 0 when
 * outputChunks has no chunk 0 (the status keeps 1 or 2); 0 for a null
 * state. */
HALV_API int HalvProcessSO(HalvState *state, void **data, uint32_t *bytes, uint32_t *lines) HALV_NOEXCEPT;

/* HalvProcessSI with data, bytes and lines, then the output step of
 * HalvProcessSO into outData, outBytes and outLines.  state must not be
 * null.  Result: as those two give it; 0 with nothing called when
 * inputChunks has no chunk 0. */
HALV_API int HalvProcessSISO(HalvState *state, void *data, uint32_t bytes, uint32_t lines,
                             void **outData, uint32_t *outBytes, uint32_t *outLines) HALV_NOEXCEPT;

/* Releases errorMessage, sets it to null and calls endPoint, which frees
 * what the plug-in owns and, when it returns 1, the state itself: the
 * pointer is invalid from then on.  The status is not written afterwards.
 * Result: endPoint's (1 finished; -1 not finished, the state is still
 * valid and the host calls again; 0 failed); 0, with the text "No endPoint
 * entry point defined", when the slot is null; 0 for a null state. */
HALV_API int HalvCallEnd(HalvState *state) HALV_NOEXCEPT;

/* Ends the state, repeating the end step of HalvCallEnd as long as endPoint
 * gives -1.  Result: 1 when the first call finished; -1 when a call
 * finished after one or more -1; 0 when a call gave anything else, for a
 * null state, or when endPoint is null (nothing is called). */
HALV_API int HalvAbsoluteCallEnd(HalvState *state) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Status, errors and logging
 *
 * All text goes through one funnel with three kinds: error and debug go to
 * standard error, print to standard output, or all of them to a host's
 * callback instead.  A message is formatted by the library's print engine
 * (the directives of HalvSPrintf) into 1024 bytes at most, longer text is
 * cut, and nothing is added in front.  The funnel reads three variables of
 * the real process environment once, at the first message or query, unless
 * a setter came first: HV_DEBUG (set at all: debug messages pass, its
 * number is the level), HV_LOGFILE (every message passed is also appended
 * to that file, opened and closed each time) and HV_SILENT (set at all: no
 * output to the standard streams).  A message that nobody will see is not
 * formatted.  The funnel has no lock: configure it at the start of the
 * process, before threads log.
 * ------------------------------------------------------------------------ */

#define HALV_LOG_ERROR 0 /* kind of HalvError, HalvAbort and HalvReportError */
#define HALV_LOG_DEBUG 1 /* kind of HalvDebug */
#define HALV_LOG_PRINT 2 /* kind of HalvPrintf */

/* Receives every message that passes the funnel: the finished text (valid
 * only during the call), its kind (HALV_LOG_*) and the user word. */
typedef void (*HalvLogCallback)(const char *text, int kind, intptr_t userWord);

/* A debug message: format and its arguments through the funnel, kind
 * HALV_LOG_DEBUG, to standard error.  It passes only with debugging on
 * (HV_DEBUG, HalvSetDebug or HalvSetDebugLevel), and is not formatted
 * otherwise.  A null format does nothing. */
HALV_API void HalvDebug(const char *format, ...) HALV_NOEXCEPT;

/* An error message through the funnel, kind HALV_LOG_ERROR, to standard
 * error.  Returns -1 in every case, also for a null format, which prints
 * nothing, so that a caller can return its result. */
HALV_API int HalvError(const char *format, ...) HALV_NOEXCEPT;

/* A message of kind HALV_LOG_PRINT through the funnel, to standard output.
 * A null format does nothing. */
HALV_API void HalvPrintf(const char *format, ...) HALV_NOEXCEPT;

/* An error message as HalvError gives it, then abort() (SIGABRT); it does
 * not return, also for a null format. */
HALV_NORETURN HALV_API void HalvAbort(const char *format, ...) HALV_NOEXCEPT;

/* Lets debug messages pass (enabled non-zero) or not.  It marks the
 * configuration as set: if no message or query has read the environment
 * yet, HV_DEBUG, HV_LOGFILE and HV_SILENT are never read afterwards, so a
 * host that wants them honoured calls HalvIsDebug first. */
HALV_API void HalvSetDebug(int enabled) HALV_NOEXCEPT;

/* Lets debug messages pass and sets the level that HalvGetDebugLevel gives;
 * it marks the configuration as set, as HalvSetDebug does.  The library
 * itself doesn't look at the level. */
HALV_API void HalvSetDebugLevel(int level) HALV_NOEXCEPT;

/* Non-zero (1, or the value given to HalvSetDebug) when debug messages
 * pass, else 0.  Reads the environment first if that hasn't happened. */
HALV_API int HalvIsDebug(void) HALV_NOEXCEPT;

/* The debug level: the one HalvSetDebugLevel set, else the number in
 * HV_DEBUG read as "%d" (0 when it isn't one), else 0.  Reads the
 * environment first if that hasn't happened. */
HALV_API int HalvGetDebugLevel(void) HALV_NOEXCEPT;

/* Hands every message that passes to fn, with userWord, in place of the
 * standard streams; HV_SILENT doesn't stop it, and a log file still gets
 * its copy.  A null fn goes back to the standard streams. */
HALV_API void HalvSetLoggingCallback(HalvLogCallback fn, intptr_t userWord) HALV_NOEXCEPT;

/* The state's status: the result of its latest call or pass.  state must
 * not be null. */
HALV_API int32_t HalvGetStatus(HalvState *state) HALV_NOEXCEPT;

/* Stores value as the state's status and returns it.  state must not be
 * null. */
HALV_API int32_t HalvSetStatus(HalvState *state, int32_t value) HALV_NOEXCEPT;

/* Stores status as the state's status and, with a format, appends the text
 * it formats (the directives of HalvSPrintf) to errorMessage, behind ", "
 * when there is older text: failures accumulate, oldest first, until
 * HalvCallEnd or HalvAbsoluteCallEnd releases the text.  Without memory for
 * the longer text the older text stays as it is.  A null format changes
 * only the status, a null state nothing.  Returns status in every case, so
 * that a plug-in can return its result. */
HALV_API int32_t HalvSetError(HalvState *state, int32_t status, const char *format, ...) HALV_NOEXCEPT;

/* The state's error text through its errorMessageFn slot (by default
 * errorMessage itself, null when nothing failed); the text stays the
 * state's.  Null for a null state or a null slot. */
HALV_API const char *HalvGetErrorMsg(HalvState *state) HALV_NOEXCEPT;

/* The first error code in the state's errorMessage field, as
 * HalvParseErrorCode reads it (the field itself, not the errorMessageFn
 * text); 0 for a null state or a null text. */
HALV_API int HalvGetErrorCode(HalvState *state) HALV_NOEXCEPT;

/* The number of the first error code "HV-<digits>" in text.  The letters H,
 * V and '-' count in this order without having to stand together (an H
 * behind the V starts over), and the first digit run behind the '-' is read
 * as a decimal int: "HV-1234: no file" gives 1234, "H1V-2" gives 2.  0 when
 * there is no code, and for an empty or null text. */
HALV_API int HalvParseErrorCode(const char *text) HALV_NOEXCEPT;

/* Prints the state's errorMessage through HalvError as "\t%s\n" and
 * returns -1; returns 0, printing nothing, for a null state or a null
 * text. */
HALV_API int HalvReportError(HalvState *state) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Allocators
 *
 * Everything the library hands out as owned memory comes from these, and
 * goes back through halv_internal_free; aligned blocks have a header of
 * their own and go back through halv_internal_aligned_free.
 * ------------------------------------------------------------------------ */

/* size uninitialised bytes, as malloc gives them, or null.  Release them
 * with halv_internal_free. */
HALV_API void *halv_internal_malloc(size_t size) HALV_NOEXCEPT;

/* count times size zeroed bytes, as calloc gives them, or null (also when
 * the product overflows).  Release them with halv_internal_free. */
HALV_API void *halv_internal_calloc(size_t count, size_t size) HALV_NOEXCEPT;

/* ptr's block (a new one for null) resized to size bytes, as realloc does,
 * keeping its content up to the smaller size; the block may move.  Null
 * when that fails, with ptr unchanged and still the caller's.  A size of 0
 * with a non-null ptr releases it and gives null. */
HALV_API void *halv_internal_realloc(void *ptr, size_t size) HALV_NOEXCEPT;

/* Releases a block of halv_internal_malloc, _calloc or _realloc, and every
 * string or array the library hands over as new.  Null does nothing. */
HALV_API void halv_internal_free(void *ptr) HALV_NOEXCEPT;

/* size uninitialised bytes at an address that is a multiple of alignment,
 * a power of two (below 4 counts as 4).  The 32-bit word in front of the
 * block holds its distance from the raw allocation, so it goes back through
 * halv_internal_aligned_free only.  Null for an alignment that is no power
 * of two or above 0xFFFFFFFF, or no memory. */
HALV_API void *halv_internal_aligned_malloc(size_t size, size_t alignment) HALV_NOEXCEPT;

/* halv_internal_aligned_malloc with the size bytes zeroed. */
HALV_API void *halv_internal_aligned_alloc(size_t size, size_t alignment) HALV_NOEXCEPT;

/* Releases a block of halv_internal_aligned_malloc or _alloc.  Null does
 * nothing. */
HALV_API void halv_internal_aligned_free(void *ptr) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Arrays
 *
 * A HalvArray is a null-terminated array of pointers to separately
 * allocated items, with no header: its length is the position of the first
 * null, so every reader walks it.  An array variable is a plain pointer
 * (HalvChunk **, char ** ...): the functions that change it take its
 * address, the readers the array itself, and a null variable reads as an
 * empty array.  A slot may hold the empty-slot marker instead of an item.
 * A smart array holds smart records, each of which frees itself through
 * its third word.
 * ------------------------------------------------------------------------ */

/* The empty-slot marker: a reserved slot that holds no item yet.  It is the
 * address of one static word, the same for the whole process; arrays made
 * with item size 0 hold it in every slot, so that they count their full
 * length, and the release operations skip it.  Code that fills such an
 * array overwrites the markers it uses. */
HALV_API void *HalvArrayEmptySlot(void) HALV_NOEXCEPT;

/* Makes a new array of count items in the variable arrayVariable points to:
 * with itemSize above 0 each slot gets a new zeroed item of that size, with
 * itemSize 0 the empty-slot marker; count 0 gives an array of just the
 * terminator.  The caller releases it with HalvFreeArray, or with
 * HalvFreeSmartArray for smart records.  Result: 1; 0 for a null
 * arrayVariable (nothing stored), and 0 with the variable null and
 * everything released for a count of 0xFFFFFFFF or no memory. */
HALV_API int HalvAllocArray(void *arrayVariable, uint32_t count, uint32_t itemSize) HALV_NOEXCEPT;

/* Changes the array in the variable arrayVariable points to (null reads as
 * empty) to count items: items at index count and above are released with
 * halv_internal_free (markers skipped), the items below stay where they
 * are, new slots are filled as HalvAllocArray fills them, and the
 * terminator goes to index count.  Result: 1; 0 for a null arrayVariable;
 * 0 with the whole array released (HalvFreeArray) and the variable null for
 * a count of 0xFFFFFFFF or no memory. */
HALV_API int HalvReallocArray(void *arrayVariable, uint32_t count, uint32_t itemSize) HALV_NOEXCEPT;

/* Releases every item with halv_internal_free, skipping markers, and then
 * the array.  Result: 1; 0 for null. */
HALV_API int HalvFreeArray(void *array) HALV_NOEXCEPT;

/* Calls the free function of every item (the third word of a smart record)
 * where that word isn't null, skipping markers; items with a null free word
 * are left alone.  Then releases the array.  Result: 1; 0 for null. */
HALV_API int HalvFreeSmartArray(void *array) HALV_NOEXCEPT;

/* The item at index, walking from the front, a marker as it stands; the
 * item stays the array's.  Null for a null or empty array or an index at
 * or past the end, which is never read past. */
HALV_API void *HalvGetArrayItem(const void *array, uint32_t index) HALV_NOEXCEPT;

/* The number of slots before the terminator; 0 for null. */
HALV_API uint32_t HalvGetArraySize(const void *array) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Chunks in an array and by pointer
 *
 * The array functions address chunk index of a HalvArray of HalvChunk
 * records, walking it each time; a null array or an index at or past the
 * end changes nothing and gives 0.
 * ------------------------------------------------------------------------ */

/* Stores data, bytes and lines in chunk index; flags and the other fields
 * stay, and the bytes are not copied.  Result: 1; 0 for a null array or an
 * index past the end. */
HALV_API int HalvSetChunk(HalvChunk **array, uint32_t index, void *data, uint32_t bytes, uint32_t lines) HALV_NOEXCEPT;

/* Reads data, bytes and lines of chunk index into the out-pointers (any of
 * them may be null); the bytes stay their owner's.  Result: 1; 0, with
 * nothing stored, for a null array or an index past the end. */
HALV_API int HalvGetChunk(HalvChunk **array, uint32_t index, void **data, uint32_t *bytes, uint32_t *lines) HALV_NOEXCEPT;

/* Replaces the flags of chunk index.  Result: 1; 0 for a null array or an
 * index past the end. */
HALV_API int HalvSetChunkFlags(HalvChunk **array, uint32_t index, uint32_t flags) HALV_NOEXCEPT;

/* Stores the flags of chunk index in *flags (which may be null).  Result:
 * 1; 0 for a null array or an index past the end. */
HALV_API int HalvGetChunkFlags(HalvChunk **array, uint32_t index, uint32_t *flags) HALV_NOEXCEPT;

/* Sets bits in the flags of chunk index.  Result: 1; 0 for a null array or
 * an index past the end. */
HALV_API int HalvMarkChunkFlags(HalvChunk **array, uint32_t index, uint32_t bits) HALV_NOEXCEPT;

/* Clears bits in the flags of chunk index.  Result: 1; 0 for a null array
 * or an index past the end. */
HALV_API int HalvClearChunkFlags(HalvChunk **array, uint32_t index, uint32_t bits) HALV_NOEXCEPT;

/* Sets bits in chunk's flags.  Result: 1; 0 for a null chunk. */
HALV_API int HalvChunkMarkFlags(HalvChunk *chunk, uint32_t bits) HALV_NOEXCEPT;

/* Clears bits in chunk's flags.  Result: 1; 0 for a null chunk. */
HALV_API int HalvChunkClearFlags(HalvChunk *chunk, uint32_t bits) HALV_NOEXCEPT;

/* Sets bytes and lines of every chunk of array to 0 for the next pass,
 * keeping data, capacity and flags; no byte moves.  array must not be null;
 * an empty one is fine.  Result: 1. */
HALV_API int HalvResetChunks(HalvChunk **array) HALV_NOEXCEPT;

/* Copies *chunk by value (a cleared record for a null chunk) into the first
 * free slot of the state's queue and stores that slot's index in *index
 * (index may be null).  A slot is free when its data, capacity and flags
 * are all clear; freeing a slot is up to the code that consumed it.  With
 * no free slot the queue grows by 4 slots, queueLength with it; it never
 * shrinks.  The bytes at data are not copied and stay their owner's.
 * Result: 1; 0 for a null state; 0 when the queue can't grow, which leaves
 * it null while queueLength counts 4 more slots: the state should then be
 * ended. */
HALV_API int HalvEnqueueChunk(HalvState *state, const HalvChunk *chunk, uint32_t *index) HALV_NOEXCEPT;

/* Stores in *out a new chunk that owns a copy of source's bytes: flags,
 * lines, bytes, capacity and reservedWord are copied, auxWord is 0.  The
 * caller releases its data and then the record with halv_internal_free.
 * Result: 1; 1 with *out null for a null source; 0 with *out null when
 * source has 0 bytes or memory runs out; 0 for a null out. */
HALV_API int HalvDupChunk(HalvChunk **out, const HalvChunk *source) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Argument lists
 *
 * An argument list is a flat array of machine words (intptr_t): entries,
 * then the terminator, the word 1 (null has a job inside the list).  An
 * entry is a key word pointing to "name:format", the value words the format
 * asks for, a null word, and a second null word for an array format ('#'
 * right behind the colon).  A word is a key when it is non-null and stands
 * first or directly behind a null word; value words are never 0 or 1.  The
 * items of a format, the value words each takes in the list, and what the
 * parser stores through the caller's output pointers:
 *   i I b B      one word pointing to an int32_t; stores the int32_t
 *   f F d        one word pointing to a double; stores the double
 *   s S          one word, a string; stores a new copy (char *)
 *   h H v V      one word (h a header, v anything); stores the word
 *   p + bBiIfFd  one word pointing to a machine word; stores that word
 *   p + sSvV     one word; stores the word itself, no copy
 *   w + iI       one word pointing to 4 int32_t; stores all 16 bytes
 *   w + fFd      one word pointing to 4 doubles; stores all 32 bytes
 *   # + bBiI     every word up to the next null, each pointing to an
 *                int32_t; stores the count n (int32_t) and a new array of
 *                n int32_t
 *   # + fFd      the same with doubles
 *   # + sS       the same with strings: a new array of n copies and a null
 *   # + vV       the same with words: a new array of the n words and a null
 * Each '#' item takes two outputs, a count and an array, every other item
 * one.  Any other character takes nothing, and so does any other letter
 * behind '#' or 'p'.  New strings and arrays are the caller's, released
 * with halv_internal_free, or HalvFreeArray for an array of strings.
 *
 * The variadic functions read every word as intptr_t: pass pointers as
 * they are and write the null word and the terminator as HALV_ARG_NULL and
 * HALV_ARG_END (a bare 0 or 1 is an int, which is narrower than a word).
 * ------------------------------------------------------------------------ */

#define HALV_ARG(value) ((intptr_t)(value)) /* a value or key as a list word */
#define HALV_ARG_NULL ((intptr_t)0)         /* the null word that ends an entry */
#define HALV_ARG_END ((intptr_t)1)          /* the terminator of a list */

/* The binary form of one argument, for HalvBinArgToArgs.  Values placed in
 * the list by type:
 *   0  int32_t values: one word pointing to each, or, with a window format
 *      (a 'w' right behind the colon or behind '#'), one to each complete
 *      group of 4
 *   1  string pointers, each placed as it stands
 *   2  none
 *   3  doubles, as type 0
 *   4  pointers, each placed as it stands
 *   5  int32_t switches: with a letter behind the colon as type 0; with the
 *      key ending at its colon the entry is left out when there is no
 *      first value or it is 0, and stands with no value words otherwise
 * A type above 5 places no value words.  Types 0 and 3 point to 32-bit
 * values and doubles, so they don't serve a 'p' key, whose word must point
 * to a machine word: use type 4 with pointers to pointer variables. */
typedef struct HalvBinArg {
    const char *key; /* "name:format", placed by address, not copied */
    int32_t type;    /* 0 to 5, above */
    int32_t count;   /* number of values at data */
    void *data;      /* the values, placed by address */
} HalvBinArg;

/* Copies the words that follow list (keys, values, HALV_ARG_NULL words)
 * into list, up to and including the terminator HALV_ARG_END.  The caller
 * provides the room.  Result: 1; 0 for a null list. */
HALV_API int HalvBuildArgs(intptr_t *list, ...) HALV_NOEXCEPT;

/* Copies the words that follow list over list's terminator, up to and
 * including a new HALV_ARG_END, so that they extend it.  The caller
 * provides the room.  Result: 1; 0 for a null list. */
HALV_API int HalvAppendArgs(intptr_t *list, ...) HALV_NOEXCEPT;

/* For each key word that follows list, in order, up to HALV_ARG_END,
 * removes every entry whose key equals it as a whole ("name:format", case
 * ignored), with its value words and all the null words behind them, and
 * closes the gap in place; the list still ends with its terminator.  A key
 * that isn't there changes nothing, and a null key is passed over.
 * Result: 1; 0 for a null list. */
HALV_API int HalvRemoveArgs(intptr_t *list, ...) HALV_NOEXCEPT;

/* Pulls arguments out of list by name.  The words that follow list come in
 * groups, ended by HALV_ARG_END in the place of a key: a key "name:format",
 * a pointer to an int32_t that receives 1 for found or 0 for absent (or
 * null), and the output pointers that the format calls for.  The first
 * entry whose key has the same length and equals it ignoring case counts,
 * so name and format must both agree.  For an absent key the outputs keep
 * their values, so that callers preset defaults in them; a null output
 * takes nothing.  Value words beyond what the format takes are left
 * unread.  A string copy that fails leaves null in its output without
 * failing.  Result: 1 when every key was handled, found or not; 0 for a key
 * without a colon, a format cut short or wrong (a 'w' without i, I, f, F or
 * d), an entry with fewer value words than its format takes, a '#' integer
 * or double item over no values, or no memory; -1 when a '#' item ran into
 * the terminator, after storing the count so far.  Parsing stops at the
 * first 0 or -1; what was stored stays, and the caller releases it. */
HALV_API int HalvParseArgs(const intptr_t *list, ...) HALV_NOEXCEPT;

/* A new argument list made from count binary arguments, with room for
 * extraWords more words behind its terminator, so that HalvAppendArgs can
 * go on.  Keys and values are placed by address, not copied: they stay the
 * caller's and must outlive the list.  An argument with a null key is left
 * out.  The caller frees the list with halv_internal_free.  Null for a
 * negative count, a null args with a positive count, or no memory. */
HALV_API intptr_t *HalvBinArgToArgs(int32_t count, const HalvBinArg *args, int32_t extraWords) HALV_NOEXCEPT;

/* The way back from a list to binary arguments doesn't exist: looks at
 * nothing, stores nothing, and returns -1. */
HALV_API int HalvBinArgFromArgs(const intptr_t *list, int32_t *count, HalvBinArg **args) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_CORE_H */
