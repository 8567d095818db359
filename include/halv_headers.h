/*
 * halv_headers.h - generic image header, header managers, stored formats, vocabulary.
 */
#ifndef HALV_HEADERS_H
#define HALV_HEADERS_H

#include "halv_base.h"
#include "halv_core.h"
#include "halv_streams.h"

HALV_BEGIN_DECLS

typedef struct HalvUserCMData HalvUserCMData;
typedef struct HalvHeaderStruct HalvHeaderStruct;

/* ------------------------------------------------------------------------
 * Header managers: nine methods that make up one stored format.  The same
 * nine slots, in the same order, sit in every HalvHeaderStruct.
 * ------------------------------------------------------------------------ */

typedef int (*HVHdrToStructFn)(HalvUserCMData *tree, void *structure);
typedef int (*HVHdrLoadAllFn)(void *first, void *second);
typedef int (*HVHdrFromStructFn)(void *structure, HalvUserCMData **tree);
typedef int (*HVHdrEmitAllFn)(void *first, void *second);
typedef int (*HVHdrToHeaderFn)(HalvUserCMData *tree, HalvHeaderStruct **header);
typedef int (*HVHdrLoadChunkFn)(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines);
typedef int (*HVHdrFromHeaderFn)(HalvHeaderStruct *header, HalvUserCMData **tree);
typedef int (*HVHdrEmitChunkFn)(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out);
typedef int (*HVHdrCreateHeaderFn)(HalvHeaderStruct **header);

typedef struct HVHdrManager {
    HVHdrToStructFn toStruct;
    HVHdrLoadAllFn loadAll;
    HVHdrFromStructFn fromStruct;
    HVHdrEmitAllFn emitAll;
    HVHdrToHeaderFn toHeader;
    HVHdrLoadChunkFn loadChunk;
    HVHdrFromHeaderFn fromHeader;
    HVHdrEmitChunkFn emitChunk;
    HVHdrCreateHeaderFn createHeader;
} HVHdrManager;

/* ------------------------------------------------------------------------
 * The generic image header.  A smart record: formats extend it behind
 * userData, so it is duplicated and released only through copy and free.
 * ------------------------------------------------------------------------ */

#define HALV_MAX_SEPARATIONS 36
#define HALV_MAX_DIMS 10

/* managerType codes */
#define HALV_HDR_INTERNAL 0
#define HALV_HDR_PIXELSTREAM 1
#define HALV_HDR_SPECTRAL 9
#define HALV_HDR_INFO 10
#define HALV_HDR_IMAGE_EXT 11
#define HALV_HDR_PIXR 12

struct HalvHeaderStruct {
    HalvHeaderStruct *(*copy)(HalvHeaderStruct *header);
    uintptr_t reservedWord;
    void (*free)(HalvHeaderStruct *header);
    HVHdrToStructFn toStruct;
    HVHdrLoadAllFn loadAll;
    HVHdrFromStructFn fromStruct;
    HVHdrEmitAllFn emitAll;
    HVHdrToHeaderFn toHeader;
    HVHdrLoadChunkFn loadChunk;
    HVHdrFromHeaderFn fromHeader;
    HVHdrEmitChunkFn emitChunk;
    HVHdrCreateHeaderFn createHeader;
    int32_t managerType;
    int32_t endian;
    uint32_t parts[3];
    uint32_t bitsPerSample[HALV_MAX_SEPARATIONS];
    uint32_t dimCount;
    uint32_t dims[HALV_MAX_DIMS];
    uint32_t alignment;
    uint32_t interleave;
    int32_t compression;
    uint32_t bytesPerSep[HALV_MAX_SEPARATIONS];
    uint32_t minimumChunk;
    uint32_t preferredChunk;
    int32_t color;
    HalvUserCMData *userData;
};

/* The raster formats' records: the generic header, then the fields that
 * their loaders keep.  swapBytes is set when the stream's data are in the
 * other byte order; chunkBuffer holds the last chunk loaded (the next load
 * overwrites it) and belongs to the header, whose free releases it. */
typedef struct HalvInternalHeader {
    HalvHeaderStruct generic;
    uint32_t swapBytes;
    uint32_t bytesPerLine; /* sum of bytesPerSep over sepCount; 0 when compressed */
    uint32_t sepCount;     /* sum of parts, 1 with pixel interleave */
    uint32_t bufferCapacity;
    uint32_t linesRead;
    void *chunkBuffer;
} HalvInternalHeader;

typedef struct HalvImageExtHeader {
    HalvHeaderStruct generic;
    uint32_t swapBytes;
    uint32_t bufferCapacity;
    void *chunkBuffer;
} HalvImageExtHeader;

/* The pixr format ("pixr" "1.0", managerType 12) keeps this same record:
 * dims[0] pixels, dims[1] scanlines, dims[2] frame, dims[3] offset and,
 * with dimCount 5, dims[4] blobs.  Its loader reverses the four words of a
 * chunk record stored in the other byte order but hands the payload on as
 * it stands on the stream, in the file's own order, while endian says this
 * machine's; a reader of other-order data reverses the samples itself. */

/* The pixel stream format's record ("pixelstream" "1.0-ascii",
 * managerType 1): samples as decimal text, one pixel after the other, with
 * no scanlines.  Generic fields: dimCount 1, dims[0] 1, interleave 1
 * (pixel), bytesPerSep[0] equal to bytesPerPixel; every sample has
 * bitsPerSample[0] bits, 8, 16 (unsigned, in this machine's order), 32 (a
 * float) or 64 (two floats, a complex value).  A chunk's lines count
 * pixels. */
typedef struct HalvPixelStreamHeader {
    HalvHeaderStruct generic;
    uint32_t initialised;    /* valuesPerPixel and bytesPerPixel are worked out */
    uint32_t valuesPerPixel; /* parts[0] + parts[1] + parts[2] */
    uint32_t bytesPerPixel;  /* (valuesPerPixel x bitsPerSample[0] + 7) >> 3 */
    uint32_t bufferCapacity; /* pixels that chunkBuffer holds */
    void *chunkBuffer;       /* the last pixels loaded; belongs to the header */
    HalvIO *stdinStream;     /* the process's standard input when the header asks for it; belongs to the header */
} HalvPixelStreamHeader;

/* The spectral format's record: spectra of reflectance, illuminants or
 * filters, each measurement a run of dims[0] samples (32-bit floats) at
 * the same wavelengths, a measurement standing for a scanline and a sample
 * for a pixel.  Generic fields: managerType 9, dimCount 2, dims[0] samples,
 * dims[1] measurements (0: not known), parts[0] 1, interleave 0, the first
 * min(samples, 36) entries of bitsPerSample 32 and of bytesPerSep 4.
 *
 * The wavelengths are either startWaveLength and samplingInterval with no
 * table, or the table (with its first entry also in startWaveLength) and
 * no interval.  HALV_SPECTRAL_NONE marks each of the three as absent; it is
 * compared for equality.  chunkBuffer holds the last measurements loaded
 * (the next load overwrites them) and belongs to the header. */
#define HALV_SPECTRAL_MAX_WAVELENGTHS 500
#define HALV_SPECTRAL_NONE (-1.0f)

/* spectrumType */
#define HALV_SPECTRUM_REFLECTANCE 0
#define HALV_SPECTRUM_ILLUMINANT 1
#define HALV_SPECTRUM_FILTER 2
#define HALV_SPECTRUM_UNKNOWN 3

typedef struct HalvSpectralHeader {
    HalvHeaderStruct generic;
    uint32_t spectrumType;        /* HALV_SPECTRUM_* */
    uint32_t bytesPerMeasurement; /* dims[0] x 4 */
    float samplingInterval;       /* distance of two samples, or HALV_SPECTRAL_NONE */
    float startWaveLength;        /* wavelength of the first sample, or HALV_SPECTRAL_NONE */
    float wavelengths[HALV_SPECTRAL_MAX_WAVELENGTHS]; /* entry 0 HALV_SPECTRAL_NONE: no table */
    uint32_t bufferCapacity;      /* measurements that chunkBuffer holds */
    uint32_t linesRead;           /* measurements loaded so far */
    void *chunkBuffer;
} HalvSpectralHeader;

/* ------------------------------------------------------------------------
 * The flat form of a header: one block of bytes, 'B' 'H', a 556-byte fixed
 * part (the record's numbers in 32-bit words, tables of 32 places) and the
 * tree's sections, keys and values, length-prefixed.  compression and
 * color travel as words in the tree; slots and format extensions don't
 * travel.
 * ------------------------------------------------------------------------ */

/* Flattens header into a block with its words in the byte order order
 * names (0 little-endian, any other value big-endian).  With buffer null
 * nothing is written and the result is the size a buffer needs (an upper
 * bound).  With *buffer null a buffer of that size is allocated with
 * halv_internal_malloc and stored in *buffer; the caller frees it.
 * Otherwise *buffer must hold capacity bytes of at least that size.  The
 * tree's sections, their keys and the keys' values travel; other nodes are
 * passed over.  A Photometry section without a name key gets one holding
 * HalvClr2Str(color), and a tree without Photometry gets the section, so
 * that the colour space always travels.  Result: the bytes of the block;
 * -1 for a null header, no memory, a capacity too small (the buffer
 * untouched), or a header the block can't hold (more than 32 table entries
 * or 10 dims). */
HALV_API int32_t HalvBinHdrFromHdr(const HalvHeaderStruct *header, int32_t order, void **buffer,
                                   uint32_t capacity) HALV_NOEXCEPT;

/* A new generic header (HalvGenericHeaderCopy and HalvGenericHeaderFree in
 * its slots, its manager slots null) from a block of either byte order.
 * size is the block's size; 0 means the caller vouches for the block and
 * only the lengths inside it are checked, each against the one around it.
 * With borrow nonzero the tree's texts point into the block instead of
 * being copied: the block must outlive the header and stay unchanged, and
 * freeing the header leaves it untouched.  color comes back from
 * Photometry/name (a known name is taken out of the tree) and compression
 * from Compression/compressors.  Result: the header, or null for a size
 * from 1 to 555 or smaller than the block says, a wrong magic or order
 * byte, more than 32 table entries or 10 dims, a length that runs past the
 * one around it, a borrowed text without its zero byte, or no memory. */
HALV_API HalvHeaderStruct *HalvBinHdrToHdr(const void *block, uint32_t size, int32_t borrow) HALV_NOEXCEPT;

/* The layout of one stored scanline, as the raster formats read and write
 * it: hosts that walk scanlines use these rather than working it out. */

/* Separations that lie side by side in one scanline, each with its own
 * bytesPerSep entry: 1 with pixel interleave, else parts[0] + parts[1] +
 * parts[2], at most 36 (HALV_MAX_SEPARATIONS).  0 for null. */
HALV_API uint32_t HalvHeaderSepCount(const HalvHeaderStruct *header) HALV_NOEXCEPT;
/* Bytes of one scanline: the sum of bytesPerSep over HalvHeaderSepCount
 * separations, exact (the formats keep its low 32 bits, as byte counts
 * wrap; a host can tell a header whose sum doesn't fit).  0 for null. */
HALV_API uint64_t HalvHeaderLineBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;
/* Reverses, in place, the bytes of every sample wider than 8 bits in lines
 * scanlines at data, separation by separation (16-bit samples by twos,
 * wider ones by fours, as bitsPerSample says), never touching bytes at or
 * past size: a short last line is done as far as it goes.  This is how the
 * formats turn samples stored in the other byte order around.  A null
 * header or data does nothing. */
HALV_API void HalvHeaderReverseLines(const HalvHeaderStruct *header, void *data, uint32_t size,
                                     uint32_t lines) HALV_NOEXCEPT;

/* Byte counts of scanlines.  All arithmetic is unsigned 32-bit and wraps. */

/* Bytes of one scanline of one separation: whole bytes up to 8 bits, whole
 * 16-bit words up to 16 bits, whole 32-bit words above. */
HALV_API uint32_t HalvCalcBytesPerSep(uint32_t bits, uint32_t pixels) HALV_NOEXCEPT;
/* One scanline with natural alignment: each separation starts on a boundary
 * fit for its sample width, the padding going to the separation before. */
HALV_API uint32_t HalvCalcBytesArray(uint32_t *out, uint32_t count, const uint32_t *bits, uint32_t pixels) HALV_NOEXCEPT;
/* Interleave 0 as HalvCalcBytesArray, 1 as one pixel-interleaved line in
 * out[0]; 0 and out untouched for other interleaves. */
HALV_API uint32_t HalvCalcInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t count, const uint32_t *bits,
                                               uint32_t pixels) HALV_NOEXCEPT;
/* Each separation's bytes rounded up to alignment (0: natural alignment). */
HALV_API uint32_t HalvCalcAlignedBytesArray(uint32_t *out, uint32_t alignment, int32_t count, const uint32_t *bits,
                                            uint32_t pixels) HALV_NOEXCEPT;
HALV_API uint32_t HalvCalcAlignedInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t alignment,
                                                      int32_t count, const uint32_t *bits, uint32_t pixels) HALV_NOEXCEPT;
/* Fills bytesPerSep, minimumChunk and preferredChunk; the bytes of a line. */
HALV_API uint32_t HalvHeaderFillInBytes(HalvHeaderStruct *header) HALV_NOEXCEPT;
/* Bytes of one unit of data: an info entry, 1024 when compressed, else a line. */
HALV_API uint32_t HalvHeaderGetTotalBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;
HALV_API uint32_t HalvHeaderGetPreferredBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;

/* Windows: a pixel window is x, y, width, height as 32-bit integers; a
 * fractional one the same four as fractions of the image's size. */
HALV_API int HalvFWinToWin(int32_t width, int32_t height, const double *fwin, int32_t *win) HALV_NOEXCEPT;
HALV_API int HalvWinToFWin(int32_t width, int32_t height, const int32_t *win, double *fwin) HALV_NOEXCEPT;
/* Crops win to the image: 1 unchanged, 2 cropped, 0 for an empty image. */
HALV_API int HalvCropWin(int32_t width, uint32_t height, int32_t *win) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The generic header record
 * ------------------------------------------------------------------------ */

/* Sets copy and free to the generic ones and endian to the machine's order;
 * touches nothing else.  1, or 0 for null. */
HALV_API int HalvInitGenericHeader(HalvHeaderStruct *header) HALV_NOEXCEPT;
/* HalvAllocArray of count items of itemSize bytes, each item that exists
 * then prepared as by HalvInitGenericHeader.  1, or 0 when the array can't
 * be made. */
HALV_API int HalvAllocHeaders(HalvHeaderStruct ***array, int32_t count, uint32_t itemSize) HALV_NOEXCEPT;
/* New generic record with the same numbers and slots and a duplicate of
 * userData; null when memory runs out (nothing is left behind). */
HALV_API HalvHeaderStruct *HalvGenericHeaderCopy(HalvHeaderStruct *header) HALV_NOEXCEPT;
/* Frees userData and the record; null does nothing. */
HALV_API void HalvGenericHeaderFree(HalvHeaderStruct *header) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The manager table: twelve entries of format name, version, type code and
 * the nine slots.  Lookups fold ASCII case; all table work holds the HDRM
 * lock and hands out copies of the slots.
 * ------------------------------------------------------------------------ */

#define HVHDR_MANAGER_ENTRIES 12
#define HVHDR_NAME_BYTES 32

/* A table entry; its address stays valid for the life of the library. */
typedef struct HVHdrManagerEntry HVHdrManagerEntry;

/* Stores manager under format and version: in the entry that already has
 * them (case ignored), else in the first free one.  The entry's type code
 * becomes -1, so it is found by name alone.  Names are cut to 32 bytes.
 * 1 with *handle set, or 0 for a null argument or a full table. */
HALV_API int HVHdrRegisterManager(const char *format, const char *version, const HVHdrManager *manager,
                                  HVHdrManagerEntry **handle) HALV_NOEXCEPT;
/* Empties the entry; 1, or 0 for null. */
HALV_API int HVHdrUnregisterManager(HVHdrManagerEntry *handle) HALV_NOEXCEPT;
/* Copies out the slots of the first entry with format and version (case
 * ignored, no fallback to another version).  1, or 0 when none has them. */
HALV_API int HVHdrGetManager_Str(const char *format, const char *version, HVHdrManager *manager) HALV_NOEXCEPT;
/* The same for the first entry with type code type. */
HALV_API int HVHdrGetManager_Type(int32_t type, HVHdrManager *manager) HALV_NOEXCEPT;
/* The format name of the first entry with type code type ("internal" for
 * 0, "image-ext" for 11): the word a header's managerType stands for.  The
 * text lives in the table, valid for the library's life; an entry that a
 * registration takes over loses its code.  Null for -1 or a code no entry
 * has. */
HALV_API const char *HVHdrGetFormatName_Type(int32_t type) HALV_NOEXCEPT;
/* HVHdrGetManager_Str with ID/format and ID/version of tree; 0 without a
 * format. */
HALV_API int HVHdrGetManager(HalvUserCMData *tree, HVHdrManager *manager) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Calls through a manager.  A header's own loadChunk, fromHeader and
 * emitChunk go before the manager's, so a header stays in its format.
 * ------------------------------------------------------------------------ */

/* toHeader(tree, header); on 1 the manager's slots are bound to the new
 * header.  0 for a null toHeader, tree or pointer, else toHeader's result. */
HALV_API int HVHdrToHeader(HVHdrManager manager, HalvUserCMData *tree, HalvHeaderStruct **header) HALV_NOEXCEPT;
/* createHeader(header), binding the slots on 1.  0 (with a debug message)
 * for a manager without toHeader or a null pointer; else the method's. */
HALV_API int HVHdrCreateHeader(HVHdrManager manager, HalvHeaderStruct **header) HALV_NOEXCEPT;
/* *tree becomes a duplicate of header's userData; the header's or the
 * manager's fromHeader adds to it, then HVHdrArrange orders it.  The
 * method's result; 0 with no method, a null argument or no memory. */
HALV_API int HVHdrFromHeader(HVHdrManager manager, HalvHeaderStruct *header, HalvUserCMData **tree) HALV_NOEXCEPT;
/* The next chunk through loadChunk (lines 0: the format's default): 1, 2
 * for fewer lines than asked; 0 for null arguments or no method. */
HALV_API int HVHdrToChunkLines(HVHdrManager manager, HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                               uint32_t lines) HALV_NOEXCEPT;
HALV_API int HVHdrToChunk(HVHdrManager manager, HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk) HALV_NOEXCEPT;
/* One chunk out through emitChunk; 0 for null arguments or no method. */
HALV_API int HVHdrFromChunk(HVHdrManager manager, HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) HALV_NOEXCEPT;
/* The four structure slots: 0 for a null slot or argument, else the
 * method's result.  HVHdrFromStruct also orders the tree it made. */
HALV_API int HVHdrToStruct(HVHdrManager manager, HalvUserCMData *tree, void *structure) HALV_NOEXCEPT;
HALV_API int HVHdrLoadAll(HVHdrManager manager, void *first, void *second) HALV_NOEXCEPT;
HALV_API int HVHdrFromStruct(HVHdrManager manager, void *structure, HalvUserCMData **tree) HALV_NOEXCEPT;
HALV_API int HVHdrEmitAll(HVHdrManager manager, void *first, void *second) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Header text on streams: a tree whose first section is ID and last End,
 * then the bytes 0x0C 0x0A, then the format's data.
 * ------------------------------------------------------------------------ */

/* Reads the header text into *tree (which should hold null), then skips to
 * a form feed and on to a line feed, so the stream stands at the data.
 * 1 ok, 0 not a header (no tree), -1 failure. */
HALV_API int HVHdrRead(HalvIO *in, HalvUserCMData **tree) HALV_NOEXCEPT;
/* HVHdrRead that also hands back, in a new buffer the caller frees, every
 * byte it took from the stream.  A stream that gave nothing gives -1. */
HALV_API int HVHdrNonDestructiveRead(HalvIO *in, HalvUserCMData **tree, void **bytes, uint32_t *count) HALV_NOEXCEPT;
/* Writes tree, then 0x0C 0x0A when that worked, then flushes.  The result
 * of writing the tree: 1, 0 for a null stream, -1 for a short write. */
HALV_API int HVHdrWrite(HalvUserCMData *tree, HalvIO *out) HALV_NOEXCEPT;
/* Reads a header's text, picks its manager (copied into *manager) and
 * builds *header.  0 for a null argument, else the first failing step's
 * result. */
HALV_API int HVHdrRead_Header(HalvIO *in, HVHdrManager *manager, HalvHeaderStruct **header) HALV_NOEXCEPT;
HALV_API int HVHdrNonDestructivRead_Header(HalvIO *in, void **bytes, uint32_t *count, HVHdrManager *manager,
                                           HalvHeaderStruct **header) HALV_NOEXCEPT;
/* Tree of the header through fromHeader, written with HVHdrWrite. */
HALV_API int HVHdrWrite_Header(HalvHeaderStruct *header, HVHdrManager *manager, HalvIO *out) HALV_NOEXCEPT;
HALV_API int HVHdrRead_Struct(HalvIO *in, HVHdrManager *manager, void *structure) HALV_NOEXCEPT;
HALV_API int HVHdrNonDestructivRead_Struct(HalvIO *in, void **bytes, uint32_t *count, HVHdrManager *manager,
                                           void *structure) HALV_NOEXCEPT;
HALV_API int HVHdrWrite_Struct(void *structure, HVHdrManager *manager, HalvIO *out) HALV_NOEXCEPT;
/* Moves a top-level ID to the head and each End that isn't last to the
 * tail; all else keeps its order.  The new first node. */
HALV_API HalvUserCMData *HVHdrArrange(HalvUserCMData *tree) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Header trees by section and key.  Functions that give a tree give the
 * possibly new root, which the caller keeps.
 * ------------------------------------------------------------------------ */

/* The first value's text, or null. */
HALV_API char *HVHdrGetHeaderParam(HalvUserCMData *tree, const char *section, const char *key) HALV_NOEXCEPT;
HALV_API int HVHdrCheckHeaderParam(HalvUserCMData *tree, const char *section, const char *key) HALV_NOEXCEPT;
/* 1 when the first value is binary data, with its bytes and length. */
HALV_API int HVHdrGetHeaderData(HalvUserCMData *tree, const char *section, const char *key, void **data,
                                uint32_t *length) HALV_NOEXCEPT;
/* Count of the values and a new null-terminated list of their texts. */
HALV_API int HVHdrGetHeaderList(HalvUserCMData *tree, const char *section, const char *key,
                                char ***list) HALV_NOEXCEPT;
/* Replaces the key's values by length bytes of value text. */
HALV_API HalvUserCMData *HVHdrSetHeaderField(HalvUserCMData *tree, const char *section, const char *key,
                                             const char *bytes, uint32_t length) HALV_NOEXCEPT;
/* The same with a NUL-terminated text (null: no value); with null key and
 * text it only makes sure the section exists. */
HALV_API HalvUserCMData *HVHdrSetHeaderParam(HalvUserCMData *tree, const char *section, const char *key,
                                             const char *text) HALV_NOEXCEPT;
HALV_API HalvUserCMData *HVHdrSetHeaderString(HalvUserCMData *tree, const char *section, const char *key,
                                              const char *text) HALV_NOEXCEPT;
HALV_API HalvUserCMData *HVHdrSetHeaderData(HalvUserCMData *tree, const char *section, const char *key,
                                            const void *bytes, uint32_t length) HALV_NOEXCEPT;
HALV_API HalvUserCMData *HVHdrDeleteHeaderField(HalvUserCMData *tree, const char *section,
                                                const char *key) HALV_NOEXCEPT;
HALV_API HalvUserCMData *HVHdrDeleteHeaderSection(HalvUserCMData *tree, const char *section) HALV_NOEXCEPT;
/* Free a tree, a list; both give 1. */
HALV_API int HVHdrFree(HalvUserCMData *tree) HALV_NOEXCEPT;
HALV_API int HVHdrFreeList(char ***list) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Keys as arrays of numbers.  Numbers are written and read in the C
 * locale, whatever locale the host set.
 * ------------------------------------------------------------------------ */

/* Stores count numbers ("%d", or "%f" for both floating types), a line
 * feed behind every perLine-th and a blank behind the others, as the key's
 * text.  The tree, unchanged when memory runs out. */
HALV_API HalvUserCMData *HVHdrSetHeaderInts(HalvUserCMData *tree, const char *section, const char *key,
                                            const int32_t *values, uint32_t count, uint32_t perLine) HALV_NOEXCEPT;
HALV_API HalvUserCMData *HVHdrSetHeaderDoubles(HalvUserCMData *tree, const char *section, const char *key,
                                               const double *values, uint32_t count, uint32_t perLine) HALV_NOEXCEPT;
HALV_API HalvUserCMData *HVHdrSetHeaderFloats(HalvUserCMData *tree, const char *section, const char *key,
                                              const float *values, uint32_t count, uint32_t perLine) HALV_NOEXCEPT;
/* Scans the key's first value line token by token into values, at most
 * *count of them; *count becomes the tokens taken (a token that is no
 * number keeps its entry and still counts).  1, or 0 with everything
 * untouched when the key has no value. */
HALV_API int HVHdrGetHeaderInts(HalvUserCMData *tree, const char *section, const char *key, int32_t *values,
                                uint32_t *count) HALV_NOEXCEPT;
HALV_API int HVHdrGetHeaderDoubles(HalvUserCMData *tree, const char *section, const char *key, double *values,
                                   uint32_t *count) HALV_NOEXCEPT;
HALV_API int HVHdrGetHeaderFloats(HalvUserCMData *tree, const char *section, const char *key, float *values,
                                  uint32_t *count) HALV_NOEXCEPT;
/* A table: one row for each value line, as many columns as the first line
 * has tokens.  *values is a new zeroed array of lines x *perLine entries
 * (null when empty) that the caller frees with halv_internal_free.  The
 * number of lines. */
HALV_API int HVHdrGetHeaderIntsList(HalvUserCMData *tree, const char *section, const char *key, int32_t **values,
                                    uint32_t *perLine) HALV_NOEXCEPT;
HALV_API int HVHdrGetHeaderDoublesList(HalvUserCMData *tree, const char *section, const char *key, double **values,
                                       uint32_t *perLine) HALV_NOEXCEPT;
HALV_API int HVHdrGetHeaderFloatsList(HalvUserCMData *tree, const char *section, const char *key, float **values,
                                      uint32_t *perLine) HALV_NOEXCEPT;

/* Resolution and units, kept in section Origin of the header's tree. */

/* first from Origin/resolution (1.0 when absent), second the same divided
 * by a positive Origin/aspect.  1 with resolution, 2 with aspect alone, 0
 * with neither (or a null argument). */
HALV_API int HalvHeaderGetResolution(const HalvHeaderStruct *header, double *first, double *second) HALV_NOEXCEPT;
/* Stores first (only above 1.0, with second not 0) and first / second (only
 * with second not 0), deleting what isn't stored.  1, or 0 for null. */
HALV_API int HalvHeaderSetResolution(HalvHeaderStruct *header, double first, double second) HALV_NOEXCEPT;
/* The tree's text of Origin/units, or null. */
HALV_API const char *HalvHeaderGetUnits(const HalvHeaderStruct *header) HALV_NOEXCEPT;
HALV_API int HalvHeaderSetUnits(HalvHeaderStruct *header, const char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * ASCII sample codecs: each number written with one blank in front, read
 * back token by token.  8- and 16-bit samples as " %u", 32-bit floats as
 * " %g", 64-bit as a pair of floats.
 * ------------------------------------------------------------------------ */

/* One token: 0 ok, 1 the token is no number (or too long), -1 end of
 * stream (a failed read, 0xFF or 0x04 before the token). */
HALV_API int __HVHdrReadAsciiInt(HalvIO *in, uint32_t *value) HALV_NOEXCEPT;
HALV_API int __HVHdrReadAsciiFloat(HalvIO *in, float *value) HALV_NOEXCEPT;
/* Two floats; the second is read only when the first gave 0. */
HALV_API int __HVHdrReadAsciiComplex(HalvIO *in, float *pair) HALV_NOEXCEPT;
/* 0 ok, -1 not all bytes written. */
HALV_API int __HVHdrWriteAsciiInt(HalvIO *out, const uint32_t *value) HALV_NOEXCEPT;
HALV_API int __HVHdrWriteAsciiFloat(HalvIO *out, const float *value) HALV_NOEXCEPT;
HALV_API int __HVHdrWriteAsciiComplex(HalvIO *out, const float *pair) HALV_NOEXCEPT;

/* Reads count values into the chunk (allocating data when null) as one
 * line: 1 ok, also for a stream that ends before the first value (an empty
 * chunk with flags 1); 0 for bad arguments, a token that is no number or a
 * stream that ends part way. */
HALV_API int HVHdrLoadChunk_Ascii_8(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;
HALV_API int HVHdrLoadChunk_Ascii_16(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;
HALV_API int HVHdrLoadChunk_Ascii_32(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;
HALV_API int HVHdrLoadChunk_Ascii_64(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;
/* Writes the chunk's whole values and a line feed.  1 ok, 0 for bad
 * arguments (number 0 included) or a short write, -1 when bytes is no
 * multiple of the width (no line feed then). */
HALV_API int HVHdrEmitChunk_Ascii_8(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;
HALV_API int HVHdrEmitChunk_Ascii_16(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;
HALV_API int HVHdrEmitChunk_Ascii_32(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;
HALV_API int HVHdrEmitChunk_Ascii_64(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;

/* count groups of parts values, part j of bits[j] bits, at *cursor, which
 * moves on; *read counts values read (the caller starts it).  1 ok, 0 a
 * width other than 8, 16, 32, 64 (or a null argument), -1 a failed read or
 * write.  Writing puts a line feed behind each value with flag set, else
 * behind each group. */
HALV_API int __HVHdrReadAsciiValues(HalvIO *in, const uint32_t *bits, uint32_t count, uint32_t parts, void **cursor,
                                    uint32_t *read) HALV_NOEXCEPT;
HALV_API int __HVHdrWriteAsciiValues(HalvIO *out, const uint32_t *bits, uint32_t count, uint32_t parts,
                                     void **cursor, int32_t flag) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The spectral format, "spectral" versions "1.0-ascii" (one number a line,
 * " %g") and "1.0-binary" (the raw floats in this machine's byte order),
 * manager type 9.  Its header is section Spectral: numberOfSamples,
 * numberOfMeasurements, startWaveLength and samplingInterval or a table
 * (read from key "wavelengths", written to key "wavelength"), and
 * spectrumType.  These are the slots of its two manager entries, which
 * share toHeader and createHeader; a lookup by type code 9 finds the ASCII
 * one.
 * ------------------------------------------------------------------------ */

/* toHeader of both versions: a new HalvSpectralHeader in *header from
 * tree, which is left as it is; the header holds a duplicate of tree
 * without the six keys of Spectral it took (ID and End stay).  A table of
 * wavelengths (key "wavelengths") must have numberOfSamples entries, at
 * most 500, rising, the first not -1.0 and equal to startWaveLength when
 * that is given.  A table of even steps gives way to start and interval
 * when samplingInterval equals its step; an uneven one wins over
 * samplingInterval, which becomes none.  1, or 0 (nothing left behind) for
 * a null pointer, no memory, a table that breaks those rules, an even
 * table whose step differs from samplingInterval, no table and not both of
 * startWaveLength and samplingInterval (-1.0 counts as missing), or a
 * numberOfSamples above 0x3FFFFFFF, whose bytes don't fit
 * bytesPerMeasurement. */
HALV_API int __HVHdrSpectralToHeader_10(HalvUserCMData *tree, HalvHeaderStruct **header) HALV_NOEXCEPT;
/* createHeader of both versions: a zeroed HalvSpectralHeader with copy,
 * free, managerType 9, dimCount 2, spectrumType 0 (reflectance).  The
 * caller sets parts[0] (1), dims, bitsPerSample, bytesPerMeasurement and the
 * wavelengths: as wavelengths[0] is 0.0, a header for start and interval
 * needs it set to HALV_SPECTRAL_NONE.  1, or 0 for null or no memory. */
HALV_API int __HVHdrSpectralCreateHeader_A10(HalvHeaderStruct **header) HALV_NOEXCEPT;
/* fromHeader: releases *tree and stores a new one that holds only the
 * format's keys (ID format, version, for "1.0-binary" also binary as four
 * zero bytes before it; Spectral numberOfSamples, numberOfMeasurements,
 * then "wavelength" with the first min(dims[0], 500) table entries on one
 * line, or startWaveLength and samplingInterval; spectrumType; End).
 * Floats go out with "%f".  1, or 0 for a null argument. */
HALV_API int __HVHdrSpectralFromHeader_A10(HalvHeaderStruct *header, HalvUserCMData **tree) HALV_NOEXCEPT;
HALV_API int __HVHdrSpectralFromHeader_B10(HalvHeaderStruct *header, HalvUserCMData **tree) HALV_NOEXCEPT;
/* loadChunk of "1.0-ascii": the next measurements (0 means 1; with
 * numberOfMeasurements 0 always 1; never past numberOfMeasurements) read
 * as text into the header's buffer, which the chunk's data point at.
 * Only whole measurements count: the chunk's lines and bytes tell them,
 * and flags are 1 when fewer came than were asked for, which a stream that
 * ends (or a token that is no number) causes; after the last measurement a
 * load gives an empty chunk with flags 1.  No memory for the buffer, or a
 * buffer above 256 MiB, reads nothing and gives that empty chunk.  1; -1
 * for parts[0] 0 or above 36, dims[0] 0, samples wider than
 * bytesPerMeasurement holds, or values that stop inside a group of parts;
 * 0 for a null argument. */
HALV_API int __HVHdrSpectralLoadChunk_A10(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                                          uint32_t measurements) HALV_NOEXCEPT;
/* loadChunk of "1.0-binary": the next measurements (0 means 5; with
 * numberOfMeasurements 0 always 1; never past numberOfMeasurements) read
 * raw into the header's buffer.  A read that gives any bytes gives whole
 * measurements, the part that didn't come zeroed; one that gives none
 * ends the data (an empty chunk with flags 1), and so does reaching
 * numberOfMeasurements (flags 1 on the chunk that reaches it).  When a
 * larger buffer can't be had (no memory, above 256 MiB) the load takes as
 * many measurements as the buffer it has holds and gives 2, or gives 0 and
 * an empty chunk with flags 1 when it has none.  A header with
 * bytesPerMeasurement 0 gives 1 and leaves the chunk alone.  1, 2 or 0; 0
 * for a null argument. */
HALV_API int __HVHdrSpectralLoadChunk_B10(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                                          uint32_t measurements) HALV_NOEXCEPT;
/* emitChunk of "1.0-ascii": dims[0] x lines samples of the chunk, each
 * part as bitsPerSample says, as " %g" (or " %u") and a line feed each.
 * A chunk with a nonzero auxWord writes nothing and gives 1.  1 ok, -1 a
 * failed write, 0 a width other than 8, 16, 32, 64, parts summing above
 * 36, a chunk whose bytes don't hold its lines, or a null argument. */
HALV_API int __HVHdrSpectralEmitChunk_A10(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) HALV_NOEXCEPT;
/* emitChunk of "1.0-binary": the chunk's bytes as they are.  1 whether or
 * not the write worked; 0 for a null argument or data null with bytes. */
HALV_API int __HVHdrSpectralEmitChunk_B10(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) HALV_NOEXCEPT;

/* The spectrum type of a name: the index of "reflectance", "illuminant",
 * "filter", "unknown" that text equals, ASCII case ignored (blanks count:
 * " filter" is no name); 3 for null or any other text. */
HALV_API int32_t ctkStr2SpecType(const char *text) HALV_NOEXCEPT;
/* The name of a spectrum type, static text; "unknown" from 3 up. */
HALV_API const char *__HVHdrSpectralTypeName(uint32_t type) HALV_NOEXCEPT;
/* The wavelength of sample index of a spectral header (managerType 9):
 * the table's entry, or startWaveLength + index x samplingInterval worked
 * out in double precision and rounded to float.  HALV_SPECTRAL_NONE for a
 * null or other header, an index of dims[0] or above (500 or above with a
 * table), or a header without wavelengths. */
HALV_API float __HVHdrSpectralWavelength(const HalvHeaderStruct *header, uint32_t index) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The pixel stream format, "pixelstream" "1.0-ascii", manager type 1: its
 * five manager methods under their own names (HalvPixelStreamHeader
 * above).  Keys: ID format and version; Encoding useStdin (read only: a
 * text whose first character is t, T or 1 switches the data source to the
 * process's standard input), imageParts (3 numbers), bits/sample (one
 * number written), bytes/sl (written, never read); Photometry name.  The
 * data: each pixel one line of numbers, each behind a blank; read back
 * token by token, lines meaning nothing, a byte 0x04 ending the data as
 * the stream's end does.
 * ------------------------------------------------------------------------ */

/* toHeader: a new HalvPixelStreamHeader in *header from tree, which is
 * left as it is; the header holds a duplicate of tree without the keys
 * useStdin, imageParts and bits/sample of Encoding (ID, End and bytes/sl
 * stay).  With useStdin the header owns a stream over stdin (HalvIO_FP)
 * that its free closes without closing stdin.  A known colour name is
 * taken out of the tree as the raster formats do.  1, or 0 (nothing left
 * behind) for a null pointer or no memory. */
HALV_API int __HVHdrPixelStreamToHeader_10_ascii(HalvUserCMData *tree, HalvHeaderStruct **header) HALV_NOEXCEPT;
/* createHeader: a zeroed HalvPixelStreamHeader with copy, free,
 * managerType 1, dimCount 1, interleave 1, dims[0] 1, endian 0 and
 * initialised 0, so that the first use works valuesPerPixel and
 * bytesPerPixel out of parts and bitsPerSample[0].  1, or 0 for null or no
 * memory. */
HALV_API int __HVHdrPixelStreamCreateHeader_10_ascii(HalvHeaderStruct **header) HALV_NOEXCEPT;
/* loadChunk: the next pixels (0 means 1) read as text into the header's
 * buffer, which grows to pixels x bytesPerPixel bytes and which the
 * chunk's data point at; from the header's stdinStream when it has one,
 * the stream argument then being ignored.  Every value of pixels x
 * valuesPerPixel is tried: a token that is no number is skipped and costs
 * its value.  The load stops at the end of the text: the stream's end, or
 * a byte 0x04 or 0xFF before or right behind a value (a later load reads
 * on behind it).  The chunk gets the whole pixels read as lines, their
 * bytes, auxWord 0, and flags 1 when fewer came than were asked for.  A buffer
 * that can't be had (no memory, above 256 MiB) reads nothing and gives
 * that empty chunk with flags 1; so does a width other than 8, 16, 32, 64.
 * On a stream that can seek, text is read in blocks and what wasn't used
 * is given back, so the stream stands behind the last byte a value took
 * either way.  1; -1 when the values read stop inside a pixel, for
 * valuesPerPixel 0 or a bytesPerPixel that doesn't hold a pixel's values;
 * 0 for a null header or chunk, or a null stream where the header reads
 * its own. */
HALV_API int __HVHdrPixelStreamLoadChunk_10_ascii(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                                                  uint32_t pixels) HALV_NOEXCEPT;
/* fromHeader: adds to *tree (null: a new tree) ID format "pixelstream",
 * version "1.0-ascii"; Encoding imageParts (3 numbers), bits/sample
 * (bitsPerSample[0]), bytes/sl (bytesPerPixel); Photometry name as the
 * raster formats write it; End.  Works valuesPerPixel out first when
 * initialised is 0.  1, or 0 for a null argument. */
HALV_API int __HVHdrPixelStreamFromHeader_10_ascii(HalvHeaderStruct *header, HalvUserCMData **tree) HALV_NOEXCEPT;
/* emitChunk: the chunk's lines pixels, each as valuesPerPixel numbers
 * (" %u" or " %g") and a line feed.  A chunk with a nonzero auxWord writes
 * nothing and gives 1, and so does one with no lines.  1 ok; -1 a failed
 * write (the rest is still tried); 0 a width other than 8, 16, 32, 64
 * (line feeds are still written), valuesPerPixel above 36, a chunk whose
 * bytes don't hold its lines' values, or a null argument. */
HALV_API int __HVHdrPixelStreamEmitChunk_10_ascii(HalvHeaderStruct *header, HalvChunk *chunk,
                                                  HalvIO *out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Image vocabulary: codes and words of colour spaces, compressions,
 * interleaves, orientations and scan directions.  Words given back are
 * static text; all comparing folds ASCII case.
 * ------------------------------------------------------------------------ */

/* Colour class bits for HalvColorQuery. */
#define HALV_COLOR_UNKNOWN 0x01u
#define HALV_COLOR_RGB 0x02u
#define HALV_COLOR_GRAY 0x04u
#define HALV_COLOR_PLAIN 0x08u /* all but unknown, hue spaces, maps, MultiPart, Spectral */
#define HALV_COLOR_HUE 0x10u
#define HALV_COLOR_DEVICE 0x20u
#define HALV_COLOR_INDEPENDENT 0x40u
#define HALV_COLOR_MAP 0x80u

/* Colour code of a word, matched by its beginning in a fixed order; 0 for
 * null or no match. */
HALV_API int32_t HalvStr2Clr(const char *text) HALV_NOEXCEPT;
/* The written word of a colour code; "Unknown" for codes not in the table. */
HALV_API const char *HalvClr2Str(int32_t code) HALV_NOEXCEPT;
HALV_API int HalvValidColor(int32_t code) HALV_NOEXCEPT;
/* 1 for 1 part, 2 for 3 parts, 6 for 4 parts, else 0. */
HALV_API int32_t HalvGetDefaultColor(int32_t parts) HALV_NOEXCEPT;
/* Separations of a colour space; -1 for no fixed number or no such space. */
HALV_API int32_t HalvGetImageParts(int32_t code) HALV_NOEXCEPT;
HALV_API int32_t HalvCompareColor(int32_t a, int32_t b) HALV_NOEXCEPT;
/* 1 if the space's class shares a bit with mask. */
HALV_API int HalvColorQuery(int32_t code, uint32_t mask) HALV_NOEXCEPT;

/* Compression code of a whole word ("hex" reads as base16); -1 otherwise. */
HALV_API int32_t HalvStr2Comp(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvComp2Str(int32_t code) HALV_NOEXCEPT;
/* Interleave code of a whole word; 0 (scanline) for null or no match. */
HALV_API int32_t HalvStr2Interleave(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvInterleave2Str(int32_t code) HALV_NOEXCEPT;
/* 0 for null, "TB" or "LRTB"; 1 for "BT" or "LRBT"; -1 otherwise. */
HALV_API int32_t HalvStr2Orient(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvOrient2Str(int32_t code) HALV_NOEXCEPT;
/* Scan direction code of a whole word; 0 for null, -1 for no match. */
HALV_API int32_t HalvStr2ScanDir(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvScanDir2Str(int32_t code) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The info format: a table of packed entries of bytesPerSep[0] bytes each,
 * dims[1] of them (0: not known), described by the field list in section
 * Info of userData (halv_modules.h).  Behind the header, chunks with the
 * 16-byte record of image-ext, whose words are written in this machine's
 * order.  When the stream is in the other byte order, swapTable says what
 * each entry holds to reverse: one row for each integer or double field,
 * in field order (characters need none), built from the field list when
 * the header was read; a list that doesn't parse gives no table, and the
 * data then come as stored.
 * ------------------------------------------------------------------------ */

/* One row of the swap table: count values of width bytes (4 or 8; 2 is
 * also understood) from byte offset of every entry on. */
typedef struct HalvInfoSwapEntry {
    uint32_t width;
    uint32_t count;
    uint32_t offset;
} HalvInfoSwapEntry;

typedef struct HalvInfoHeader {
    HalvHeaderStruct generic;
    uint32_t swapBytes;
    HalvInfoSwapEntry *swapTable; /* swapCount rows, owned; null for none */
    uint32_t swapCount;
    uint32_t bufferCapacity;
    void *chunkBuffer;
} HalvInfoHeader;

HALV_END_DECLS

#endif /* HALV_HEADERS_H */
