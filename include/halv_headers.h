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

/* Fills a structure of the format's own from a header tree, which stays
 * the caller's.  1 on success.  No built-in format has one. */
typedef int (*HVHdrToStructFn)(HalvUserCMData *tree, void *structure);

/* Loads all of a format's data at once; what the two arguments are is the
 * format's affair.  No built-in format has one. */
typedef int (*HVHdrLoadAllFn)(void *first, void *second);

/* Makes a header tree in *tree from a structure of the format's own.  1 on
 * success.  No built-in format has one. */
typedef int (*HVHdrFromStructFn)(void *structure, HalvUserCMData **tree);

/* Writes all of a format's data at once; the arguments are the format's
 * affair.  No built-in format has one. */
typedef int (*HVHdrEmitAllFn)(void *first, void *second);

/* Stores in *header a new header of the format built from tree, which
 * stays the caller's; the header owns a duplicate of the tree without the
 * keys it took into its fields.  1 on success, anything else a failure
 * with nothing stored. */
typedef int (*HVHdrToHeaderFn)(HalvUserCMData *tree, HalvHeaderStruct **header);

/* Reads the next chunk of up to lines scanlines (0: the format's default)
 * from in into chunk, whose data then point into a buffer the header owns
 * and the next load reuses.  1 loaded (with HALV_CHUNK_END in the flags
 * once the data end), 2 loaded fewer lines than asked for where the format
 * couldn't take more; 0 or -1 failure. */
typedef int (*HVHdrLoadChunkFn)(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines);

/* Adds to *tree the keys that describe header in the format (ID, the
 * format's sections, End), storing the possibly new root.  1 on success. */
typedef int (*HVHdrFromHeaderFn)(HalvHeaderStruct *header, HalvUserCMData **tree);

/* Writes one chunk to out as the format stores it.  1 on success. */
typedef int (*HVHdrEmitChunkFn)(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out);

/* Stores in *header a new empty header of the format, which the caller
 * fills and releases through its free slot.  1 on success. */
typedef int (*HVHdrCreateHeaderFn)(HalvHeaderStruct **header);

/* One stored format's methods; a null slot is a method the format lacks.
 * Passed and handed out by value: the table's functions give copies. */
typedef struct HVHdrManager {
    HVHdrToStructFn toStruct;         /* tree to the format's structure */
    HVHdrLoadAllFn loadAll;           /* all data at once, in */
    HVHdrFromStructFn fromStruct;     /* the format's structure to a tree */
    HVHdrEmitAllFn emitAll;           /* all data at once, out */
    HVHdrToHeaderFn toHeader;         /* tree to a new header */
    HVHdrLoadChunkFn loadChunk;       /* the next chunk from a stream */
    HVHdrFromHeaderFn fromHeader;     /* a header to its tree */
    HVHdrEmitChunkFn emitChunk;       /* one chunk to a stream */
    HVHdrCreateHeaderFn createHeader; /* a new empty header */
} HVHdrManager;

/* ------------------------------------------------------------------------
 * The generic image header.  A smart record: formats extend it behind
 * userData, so it is duplicated and released only through copy and free.
 * ------------------------------------------------------------------------ */

#define HALV_MAX_SEPARATIONS 36 /* entries of bitsPerSample and bytesPerSep */
#define HALV_MAX_DIMS 10        /* entries of dims */

/* managerType codes: the format a header is in. */
#define HALV_HDR_INTERNAL 0     /* "internal": raw scanlines */
#define HALV_HDR_PIXELSTREAM 1  /* "pixelstream"; no built-in manager has it */
#define HALV_HDR_SPECTRAL 9     /* "spectral": HalvSpectralHeader */
#define HALV_HDR_INFO 10        /* "info": HalvInfoHeader, a table of entries */
#define HALV_HDR_IMAGE_EXT 11   /* "image-ext": HalvImageExtHeader, stored chunks */
#define HALV_HDR_PIXR 12        /* "pixr"; no built-in manager has it */

/* An image's description.  A separation is one sample plane: the image has
 * parts[0] + parts[1] + parts[2] of them, each with its own entry in
 * bitsPerSample and bytesPerSep (entries past them are 0).  dims[0] is
 * pixels per scanline and dims[1] scanlines (0: not known); further
 * entries are the format's. */
struct HalvHeaderStruct {
    /* A new record of the same format with everything the header owns
     * duplicated; null when memory runs out. */
    HalvHeaderStruct *(*copy)(HalvHeaderStruct *header);
    uintptr_t reservedWord; /* the smart record's word without use */
    void (*free)(HalvHeaderStruct *header); /* releases the record and all it owns */
    HVHdrToStructFn toStruct;         /* the manager's, bound by HVHdrToHeader and HVHdrCreateHeader */
    HVHdrLoadAllFn loadAll;           /* bound as toStruct */
    HVHdrFromStructFn fromStruct;     /* bound as toStruct */
    HVHdrEmitAllFn emitAll;           /* bound as toStruct */
    HVHdrToHeaderFn toHeader;         /* bound as toStruct */
    HVHdrLoadChunkFn loadChunk;       /* bound as toStruct; goes before a manager a caller passes */
    HVHdrFromHeaderFn fromHeader;     /* bound as toStruct; goes before a manager a caller passes */
    HVHdrEmitChunkFn emitChunk;       /* bound as toStruct; goes before a manager a caller passes */
    HVHdrCreateHeaderFn createHeader; /* bound as toStruct; the nine are null in a generic header */
    int32_t managerType;  /* HALV_HDR_* of the format */
    int32_t endian;       /* byte order of the samples in memory: 0 little, 1 big, -1 not known */
    uint32_t parts[3];    /* separations: image parts, mask parts, a third group */
    uint32_t bitsPerSample[HALV_MAX_SEPARATIONS]; /* bits of one sample of each separation */
    uint32_t dimCount;    /* entries of dims that mean something */
    uint32_t dims[HALV_MAX_DIMS]; /* sizes of the dimensions, pixels first */
    uint32_t alignment;   /* bytes each separation's line is rounded up to, a power of two; 0 natural */
    uint32_t interleave;  /* 0 scanline, 1 pixel, 2 frame, 3 compression */
    int32_t compression;  /* compression code: 0 uncompressed, -1 a name not known */
    /* Bytes of one scanline of each separation; with pixel interleave entry
     * 0 holds the whole line, and for the info format one entry. */
    uint32_t bytesPerSep[HALV_MAX_SEPARATIONS];
    uint32_t minimumChunk;   /* bytes of the smallest chunk */
    uint32_t preferredChunk; /* bytes of the chunk the producer prefers */
    int32_t color;           /* colour space code, 0 unknown */
    HalvUserCMData *userData; /* what the stored header said beyond these fields; owned, may be null */
};

/* The raster formats' records: the generic header, then the fields that
 * their loaders keep.  swapBytes is set when the stream's data are in the
 * other byte order; chunkBuffer holds the last chunk loaded (the next load
 * overwrites it) and belongs to the header, whose free releases it. */
typedef struct HalvInternalHeader {
    HalvHeaderStruct generic; /* first, so a pointer to one is a pointer to the other */
    uint32_t swapBytes;       /* nonzero: the loader reverses the samples */
    uint32_t bytesPerLine; /* sum of bytesPerSep over sepCount; 0 when compressed */
    uint32_t sepCount;     /* sum of parts, 1 with pixel interleave */
    uint32_t bufferCapacity; /* bytes chunkBuffer holds, with 4 zeroed bytes behind them */
    uint32_t linesRead;      /* scanlines loaded so far; a copy starts again at 0 */
    void *chunkBuffer;       /* the last chunk loaded, or null */
} HalvInternalHeader;

/* The image-ext record: chunks stored behind 16-byte records of four
 * words (bytes, lines, auxWord, flags).  swapBytes is set when the stream
 * is in the other byte order: the loader reverses the record's words and
 * the samples.  chunkBuffer holds the last chunk's payload (the next load
 * reuses it) and belongs to the header, whose free releases it; a copy
 * starts without one. */
typedef struct HalvImageExtHeader {
    HalvHeaderStruct generic; /* first, so a pointer to one is a pointer to the other */
    uint32_t swapBytes;       /* nonzero: records and samples are reversed on load */
    uint32_t bufferCapacity;  /* bytes chunkBuffer holds */
    void *chunkBuffer;        /* the last chunk's payload, or null */
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
    HalvHeaderStruct generic; /* first, so a pointer to one is a pointer to the other */
    uint32_t initialised;    /* valuesPerPixel and bytesPerPixel are worked out */
    uint32_t valuesPerPixel; /* parts[0] + parts[1] + parts[2] */
    uint32_t bytesPerPixel;  /* (valuesPerPixel x bitsPerSample[0] + 7) >> 3 */
    uint32_t bufferCapacity; /* pixels that chunkBuffer holds */
    void *chunkBuffer;       /* the last pixels loaded; belongs to the header */
    HalvIO *stdinStream;     /* the process's standard input when the header asks for it; belongs to the header */
} HalvPixelStreamHeader;

#define HALV_SPECTRAL_MAX_WAVELENGTHS 500 /* entries of a wavelength table */
#define HALV_SPECTRAL_NONE (-1.0f)         /* a wavelength, interval or table that is absent */

/* spectrumType */
#define HALV_SPECTRUM_REFLECTANCE 0 /* "reflectance" */
#define HALV_SPECTRUM_ILLUMINANT 1  /* "illuminant" */
#define HALV_SPECTRUM_FILTER 2      /* "filter" */
#define HALV_SPECTRUM_UNKNOWN 3     /* "unknown" */

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
typedef struct HalvSpectralHeader {
    HalvHeaderStruct generic;     /* first, so a pointer to one is a pointer to the other */
    uint32_t spectrumType;        /* HALV_SPECTRUM_* */
    uint32_t bytesPerMeasurement; /* dims[0] x 4 */
    float samplingInterval;       /* distance of two samples, or HALV_SPECTRAL_NONE */
    float startWaveLength;        /* wavelength of the first sample, or HALV_SPECTRAL_NONE */
    float wavelengths[HALV_SPECTRAL_MAX_WAVELENGTHS]; /* entry 0 HALV_SPECTRAL_NONE: no table */
    uint32_t bufferCapacity;      /* measurements that chunkBuffer holds */
    uint32_t linesRead;           /* measurements loaded so far */
    void *chunkBuffer;            /* the last measurements loaded, or null */
} HalvSpectralHeader;

/* ------------------------------------------------------------------------
 * The flat form of a header: one block of bytes, 'B' 'H', a 556-byte fixed
 * part (the record's numbers in 32-bit words, tables of 32 places) and the
 * tree's sections, keys and values, length-prefixed.  compression and
 * color travel as words in the tree: color as Photometry/name, which the
 * block gains when the tree lacks it, compression only as the tree's own
 * Compression/compressors (the field alone doesn't travel).  Slots and
 * format extensions don't travel.
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
 * Photometry/name (a known name is taken out of the tree), compression
 * from Compression/compressors and endian from the block's pixel order
 * byte.  Result: the header, or null for a null block, a size
 * from 1 to 555 or smaller than the block says, a wrong magic or order
 * byte, more than 32 table entries or 10 dims, a length that runs past the
 * one around it, a borrowed text without its zero byte, or no memory. */
HALV_API HalvHeaderStruct *HalvBinHdrToHdr(const void *block, uint32_t size, int32_t borrow) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Scanline layout: one stored scanline as the raster formats read and
 * write it.  Hosts that walk scanlines use these rather than working it
 * out.
 * ------------------------------------------------------------------------ */

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

/* ------------------------------------------------------------------------
 * Byte counts of scanlines.  All arithmetic is unsigned 32-bit and wraps
 * without notice; an alignment must be a power of two.  The array
 * functions read count entries of bits and write count entries of out;
 * a null bits or out gives 0 with nothing written.
 * ------------------------------------------------------------------------ */

/* Bytes of one scanline of one separation of pixels samples of bits bits:
 * whole bytes up to 8 bits, whole 16-bit words up to 16 bits, whole 32-bit
 * words above. */
HALV_API uint32_t HalvCalcBytesPerSep(uint32_t bits, uint32_t pixels) HALV_NOEXCEPT;

/* One scanline with natural alignment: out[i] gets HalvCalcBytesPerSep of
 * bits[i], and each separation starts on a boundary fit for its sample
 * width (1, 2 or 4 bytes), the padding going to the separation before; the
 * line's end is padded to the first separation's boundary, the padding
 * going to the last.  Result: the line's bytes; 0 for count 0. */
HALV_API uint32_t HalvCalcBytesArray(uint32_t *out, uint32_t count, const uint32_t *bits, uint32_t pixels) HALV_NOEXCEPT;

/* Interleave 0 as HalvCalcBytesArray; 1 as one pixel-interleaved line of
 * bits[0] x count x pixels bits, rounded up to whole bytes, in out[0] and
 * 0 in the other entries.  0 and out untouched for other interleaves, and
 * for interleave 1 with count 0. */
HALV_API uint32_t HalvCalcInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t count, const uint32_t *bits,
                                               uint32_t pixels) HALV_NOEXCEPT;

/* With alignment 0 HalvCalcBytesArray (a negative count as 0); otherwise
 * out[i] is bits[i] x pixels rounded up to whole bytes and then to
 * alignment, with no padding moved between separations.  Result: the sum;
 * 0 for a count of 0 or below. */
HALV_API uint32_t HalvCalcAlignedBytesArray(uint32_t *out, uint32_t alignment, int32_t count, const uint32_t *bits,
                                            uint32_t pixels) HALV_NOEXCEPT;

/* Interleave 0 as HalvCalcAlignedBytesArray.  Interleave 1: with alignment
 * 0 as HalvCalcInterleaveBytesArray, else out[0] is the pixel-interleaved
 * line rounded up to alignment and the other entries 0; the result is
 * out[0].  0 and out untouched for other interleaves, and for interleave 1
 * with a count of 0 or below. */
HALV_API uint32_t HalvCalcAlignedInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t alignment,
                                                      int32_t count, const uint32_t *bits, uint32_t pixels) HALV_NOEXCEPT;

/* Fills bytesPerSep by HalvCalcAlignedInterleaveBytesArray over the sum of
 * parts, bitsPerSample and dims[0], then sets minimumChunk to one line and
 * preferredChunk to a whole number of lines: the old ratio of the two
 * (integer division) when both were nonzero and preferredChunk not below
 * minimumChunk, else 32.  Parts summing to more than HALV_MAX_SEPARATIONS
 * count as that many.  Result: the bytes of one line; 0 for an interleave
 * other than 0 and 1, and for a null header. */
HALV_API uint32_t HalvHeaderFillInBytes(HalvHeaderStruct *header) HALV_NOEXCEPT;

/* Bytes of one unit of data: bytesPerSep[0] for an info header (one
 * entry); 1024 when compressed; bytesPerSep[0] with pixel interleave; the
 * sum of bytesPerSep over the separations (at most HALV_MAX_SEPARATIONS)
 * with scanline or frame interleave; 0 for any other interleave and for
 * a null header. */
HALV_API uint32_t HalvHeaderGetTotalBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;

/* preferredChunk, or 32 x HalvHeaderGetTotalBytes when preferredChunk is
 * smaller than that; 0 for a null header. */
HALV_API uint32_t HalvHeaderGetPreferredBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Windows: a pixel window is x, y, width, height as 32-bit integers; a
 * fractional one the same four as fractions of the image's size.  Image
 * sizes, and window widths and heights, are read as unsigned.  The window
 * pointers are not checked.
 * ------------------------------------------------------------------------ */

/* The pixel window of a fractional one: a near edge is its fraction of the
 * size rounded with 0.4999 (away from zero), a far edge with 0.5, and the
 * width and height are far edge minus near edge.  1; 0 with win untouched
 * for a negative fractional width or height. */
HALV_API int HalvFWinToWin(int32_t width, int32_t height, const double *fwin, int32_t *win) HALV_NOEXCEPT;

/* The fractional window of a pixel one: each value divided by the image's
 * width or height.  1; 0 with fwin untouched for a width or height of 0. */
HALV_API int HalvWinToFWin(int32_t width, int32_t height, const int32_t *win, double *fwin) HALV_NOEXCEPT;

/* Crops win to the image, each edge clamped to 0 and the image's size and
 * a far edge never before its near edge.  1 unchanged (win not written),
 * 2 cropped, 0 for an empty image (win untouched). */
HALV_API int HalvCropWin(int32_t width, uint32_t height, int32_t *win) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The generic header record
 * ------------------------------------------------------------------------ */

/* Sets copy and free to the generic ones and endian to the machine's order;
 * touches nothing else.  1, or 0 for null. */
HALV_API int HalvInitGenericHeader(HalvHeaderStruct *header) HALV_NOEXCEPT;
/* HalvAllocArray of count items of itemSize bytes, each item then
 * prepared as by HalvInitGenericHeader; items smaller than a
 * HalvHeaderStruct (itemSize 0 gives empty-slot markers) stay as
 * HalvAllocArray leaves them.  The caller releases the array with
 * HalvFreeSmartArray.  1, or 0 when the array can't be made, with *array
 * null (a negative count among them; a null array stores nothing). */
HALV_API int HalvAllocHeaders(HalvHeaderStruct ***array, int32_t count, uint32_t itemSize) HALV_NOEXCEPT;
/* The generic copy slot: a new generic record (sizeof(HalvHeaderStruct)
 * bytes, nothing of a format's extension) with the same numbers and slots,
 * the generic copy and free, and a duplicate of userData.  Null for null,
 * and when memory runs out (nothing is left behind). */
HALV_API HalvHeaderStruct *HalvGenericHeaderCopy(HalvHeaderStruct *header) HALV_NOEXCEPT;
/* The generic free slot: frees userData and the record, and nothing of a
 * format's extension; null does nothing. */
HALV_API void HalvGenericHeaderFree(HalvHeaderStruct *header) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The manager table: twelve entries of format name, version, type code and
 * the nine slots.  Lookups fold ASCII case; all table work holds the HDRM
 * lock and hands out copies of the slots.
 * ------------------------------------------------------------------------ */

#define HVHDR_MANAGER_ENTRIES 12 /* entries of the table, built-in and free */
#define HVHDR_NAME_BYTES 32      /* bytes a format name or version keeps */

/* A table entry; its address stays valid for the life of the library. */
typedef struct HVHdrManagerEntry HVHdrManagerEntry;

/* Stores manager under format and version: in the entry that already has
 * them (case ignored), else in the first free one.  The entry's type code
 * becomes -1, so it is found by name alone.  Names are cut to 32 bytes.
 * 1 with *handle set, or 0 for a null argument or a full table. */
HALV_API int HVHdrRegisterManager(const char *format, const char *version, const HVHdrManager *manager,
                                  HVHdrManagerEntry **handle) HALV_NOEXCEPT;
/* Empties the entry, built-in or registered, so that lookups no longer
 * find it and a registration may take it; the handle stays a valid
 * address.  1, or 0 for null. */
HALV_API int HVHdrUnregisterManager(HVHdrManagerEntry *handle) HALV_NOEXCEPT;
/* Copies out the slots of the first entry with format and version (case
 * ignored, no fallback to another version) into *manager.  1, or 0 when
 * none has them or for a null argument (*manager untouched). */
HALV_API int HVHdrGetManager_Str(const char *format, const char *version, HVHdrManager *manager) HALV_NOEXCEPT;
/* Copies out the slots of the first entry with type code type into
 * *manager ("spectral" 9 finds "1.0-ascii").  1, or 0 when none has it,
 * for type -1 (registered entries are found by name alone) or a null
 * manager. */
HALV_API int HVHdrGetManager_Type(int32_t type, HVHdrManager *manager) HALV_NOEXCEPT;
/* The format name of the first entry with type code type ("internal" for
 * 0, "image-ext" for 11): the word a header's managerType stands for.  The
 * text lives in the table, valid for the library's life; an entry that a
 * registration takes over loses its code.  Null for -1 or a code no entry
 * has. */
HALV_API const char *HVHdrGetFormatName_Type(int32_t type) HALV_NOEXCEPT;
/* HVHdrGetManager_Str with ID/format and ID/version of tree; 0 without
 * either of them, or for a null tree or manager. */
HALV_API int HVHdrGetManager(HalvUserCMData *tree, HVHdrManager *manager) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Calls through a manager.  A header's own loadChunk, fromHeader and
 * emitChunk go before the manager's, so a header stays in its format.
 * ------------------------------------------------------------------------ */

/* toHeader(tree, header); on 1 with a header stored, the manager's nine
 * slots are copied into it.  tree stays the caller's.  0 for a null
 * toHeader, tree or header pointer, else toHeader's result. */
HALV_API int HVHdrToHeader(HVHdrManager manager, HalvUserCMData *tree, HalvHeaderStruct **header) HALV_NOEXCEPT;

/* createHeader(header), copying the manager's slots into the new header on
 * 1.  0 with a debug message for a manager without toHeader, a null
 * header pointer, or a manager without createHeader; else the method's
 * result (with a debug message when it isn't 1). */
HALV_API int HVHdrCreateHeader(HVHdrManager manager, HalvHeaderStruct **header) HALV_NOEXCEPT;

/* *tree becomes a new duplicate of header's userData (what it held before
 * is overwritten, not freed); the header's fromHeader, else the manager's,
 * adds the format's keys to it, then HVHdrArrange orders it.  The caller
 * frees the tree with HVHdrFree, also when the result isn't 1.  The
 * method's result; 0 with no method, for a null header or tree pointer,
 * or when userData can't be duplicated (*tree null). */
HALV_API int HVHdrFromHeader(HVHdrManager manager, HalvHeaderStruct *header, HalvUserCMData **tree) HALV_NOEXCEPT;

/* The next chunk from in through the header's loadChunk, else the
 * manager's, asking for lines scanlines (0: the format's default).  The
 * method's result (1; 2 for fewer lines than asked where the format
 * couldn't take more); 0 for a null header, stream or chunk, or no
 * method. */
HALV_API int HVHdrToChunkLines(HVHdrManager manager, HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                               uint32_t lines) HALV_NOEXCEPT;

/* HVHdrToChunkLines with lines 0: the format's default. */
HALV_API int HVHdrToChunk(HVHdrManager manager, HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk) HALV_NOEXCEPT;

/* One chunk out to out through the header's emitChunk, else the
 * manager's.  The method's result; 0 for a null header, chunk or stream,
 * or no method. */
HALV_API int HVHdrFromChunk(HVHdrManager manager, HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) HALV_NOEXCEPT;

/* The manager's toStruct(tree, structure).  0 for a null slot or
 * argument, else the method's result. */
HALV_API int HVHdrToStruct(HVHdrManager manager, HalvUserCMData *tree, void *structure) HALV_NOEXCEPT;

/* The manager's loadAll(first, second).  0 for a null slot or argument,
 * else the method's result. */
HALV_API int HVHdrLoadAll(HVHdrManager manager, void *first, void *second) HALV_NOEXCEPT;

/* The manager's fromStruct(structure, tree), then HVHdrArrange on the tree
 * it made, whatever the result.  0 for a null slot or argument (*tree
 * untouched), else the method's result. */
HALV_API int HVHdrFromStruct(HVHdrManager manager, void *structure, HalvUserCMData **tree) HALV_NOEXCEPT;

/* The manager's emitAll(first, second).  0 for a null slot or argument,
 * else the method's result. */
HALV_API int HVHdrEmitAll(HVHdrManager manager, void *first, void *second) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Header text on streams: a tree whose first section is ID and last End,
 * then the bytes 0x0C 0x0A, then the format's data.  The readers take one
 * byte at a time behind the text and read nothing ahead, so a stream
 * without positions stands at the first data byte.
 * ------------------------------------------------------------------------ */

/* Reads the header text into *tree (nodes are added to a tree it already
 * holds; normally it holds null), requiring ID as the first name, then
 * reads single bytes up to a form feed and on to a line feed; a marker cut
 * short or missing changes nothing.  1 ok; 0 for a null stream or tree
 * pointer, a malformed text or no ID first, with the whole tree freed and
 * *tree null; -1 for no memory or a node that fits nowhere, with the part
 * built in *tree for the caller to free (the marker is then not read). */
HALV_API int HVHdrRead(HalvIO *in, HalvUserCMData **tree) HALV_NOEXCEPT;

/* HVHdrRead that also hands back every byte it took from the stream, in a
 * new buffer in *bytes of *count bytes that the caller frees with
 * halv_internal_free, so that they can be handed on to another reader.
 * The stream's position moves as for HVHdrRead.  Result: HVHdrRead's; -1
 * when no copy could be made (the stream gave nothing, memory ran out),
 * with *bytes null and *count 0 and *tree as HVHdrRead left it.  0 for a
 * null argument (nothing stored), or when no buffer for the copy can be
 * had (*bytes null, *count 0, nothing read). */
HALV_API int HVHdrNonDestructiveRead(HalvIO *in, HalvUserCMData **tree, void **bytes, uint32_t *count) HALV_NOEXCEPT;

/* Writes tree as text (a null tree writes nothing), then 0x0C 0x0A when
 * that worked (a short write of the marker isn't reported), then flushes.
 * The result of writing the tree: 1, -1 for a short write; 0 for a null
 * stream. */
HALV_API int HVHdrWrite(HalvUserCMData *tree, HalvIO *out) HALV_NOEXCEPT;

/* Reads a header's text with HVHdrRead, picks its manager by ID/format and
 * ID/version (copied into *manager) and builds *header with HVHdrToHeader.
 * The tree read is freed on every way out.  0 for a null argument, else
 * the first failing step's result, with a debug message for a failed read
 * or look-up. */
HALV_API int HVHdrRead_Header(HalvIO *in, HVHdrManager *manager, HalvHeaderStruct **header) HALV_NOEXCEPT;

/* HVHdrRead_Header through HVHdrNonDestructiveRead: *bytes and *count
 * (cleared first, when given) get every byte taken from the stream, for
 * the caller to free with halv_internal_free; no debug messages.  0 for a
 * null argument. */
HALV_API int HVHdrNonDestructivRead_Header(HalvIO *in, void **bytes, uint32_t *count, HVHdrManager *manager,
                                           HalvHeaderStruct **header) HALV_NOEXCEPT;

/* The tree of the header through HVHdrFromHeader with *manager, written
 * with HVHdrWrite; the tree is freed afterwards.  0 for a null argument,
 * else HVHdrFromHeader's result when it isn't 1, else HVHdrWrite's. */
HALV_API int HVHdrWrite_Header(HalvHeaderStruct *header, HVHdrManager *manager, HalvIO *out) HALV_NOEXCEPT;

/* HVHdrRead_Header that fills structure through the manager's toStruct
 * instead of building a header; no debug messages. */
HALV_API int HVHdrRead_Struct(HalvIO *in, HVHdrManager *manager, void *structure) HALV_NOEXCEPT;

/* HVHdrNonDestructivRead_Header that fills structure through the
 * manager's toStruct. */
HALV_API int HVHdrNonDestructivRead_Struct(HalvIO *in, void **bytes, uint32_t *count, HVHdrManager *manager,
                                           void *structure) HALV_NOEXCEPT;

/* HVHdrWrite_Header with the tree made from structure by HVHdrFromStruct. */
HALV_API int HVHdrWrite_Struct(void *structure, HVHdrManager *manager, HalvIO *out) HALV_NOEXCEPT;

/* Moves every top-level ID that isn't first to the head and every End
 * that isn't last to the tail; all else keeps its order.  Names are
 * compared ignoring ASCII case.  The new first node; null for null. */
HALV_API HalvUserCMData *HVHdrArrange(HalvUserCMData *tree) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Header trees by section and key.  Functions that give a tree give the
 * possibly new root, which the caller keeps.
 * ------------------------------------------------------------------------ */

/* The text of the key's first value, pointing into the tree; null when
 * the section, the key or a value is missing. */
HALV_API char *HVHdrGetHeaderParam(HalvUserCMData *tree, const char *section, const char *key) HALV_NOEXCEPT;

/* 1 when HVHdrGetHeaderParam finds a value, else 0. */
HALV_API int HVHdrCheckHeaderParam(HalvUserCMData *tree, const char *section, const char *key) HALV_NOEXCEPT;

/* Sets *data and *length (either pointer may be null) to null and 0, then,
 * when the key's first value is binary data, to its bytes, which point
 * into the tree, and their length.  1 for binary data, else 0. */
HALV_API int HVHdrGetHeaderData(HalvUserCMData *tree, const char *section, const char *key, void **data,
                                uint32_t *length) HALV_NOEXCEPT;

/* The number of the key's values, with *list a new null-terminated array
 * of copies of their texts that the caller releases with HVHdrFreeList.
 * 0 with *list untouched when the key is missing or has no value, for a
 * null list pointer, or when memory runs out. */
HALV_API int HVHdrGetHeaderList(HalvUserCMData *tree, const char *section, const char *key,
                                char ***list) HALV_NOEXCEPT;

/* Deletes the key's first label, then parses length bytes at bytes as the
 * value text of a new label key in section (made when missing): a plain
 * value gives a word, a quoted one a string, a Base64 block binary data,
 * several lines several values.  The tree, possibly with a new root; a
 * malformed text may free the whole tree and give null. */
HALV_API HalvUserCMData *HVHdrSetHeaderField(HalvUserCMData *tree, const char *section, const char *key,
                                             const char *bytes, uint32_t length) HALV_NOEXCEPT;

/* HVHdrSetHeaderField with a NUL-terminated text; a null text leaves the
 * key without a value, and with a null key too it only makes sure the
 * section exists. */
HALV_API HalvUserCMData *HVHdrSetHeaderParam(HalvUserCMData *tree, const char *section, const char *key,
                                             const char *text) HALV_NOEXCEPT;

/* Makes a new label key in section (made when missing) whose only value is
 * a string holding a copy of text, taken as it is, not parsed.  The old
 * label of a key that exists is not deleted: it stays in front and
 * lookups keep finding it, so delete the key first to replace it.  A null
 * text, or no memory, stores nothing.  The tree, possibly with a new
 * root. */
HALV_API HalvUserCMData *HVHdrSetHeaderString(HalvUserCMData *tree, const char *section, const char *key,
                                              const char *text) HALV_NOEXCEPT;

/* HVHdrSetHeaderString with a binary value holding a copy of the length
 * bytes at bytes (null allowed for length 0).  Null bytes with a length
 * store nothing. */
HALV_API HalvUserCMData *HVHdrSetHeaderData(HalvUserCMData *tree, const char *section, const char *key,
                                            const void *bytes, uint32_t length) HALV_NOEXCEPT;

/* Deletes the first label key of section (ASCII case ignored) with its
 * values; nothing happens without one, or for a null key.  The tree. */
HALV_API HalvUserCMData *HVHdrDeleteHeaderField(HalvUserCMData *tree, const char *section,
                                                const char *key) HALV_NOEXCEPT;

/* Deletes the first section named section with all it holds.  The tree,
 * which may now start at another node or be null; unchanged when there is
 * no such section. */
HALV_API HalvUserCMData *HVHdrDeleteHeaderSection(HalvUserCMData *tree, const char *section) HALV_NOEXCEPT;

/* Frees tree, its children and its following siblings.  1, also for
 * null. */
HALV_API int HVHdrFree(HalvUserCMData *tree) HALV_NOEXCEPT;

/* Frees a list from HVHdrGetHeaderList and sets *list to null.  1, also
 * for a null list or *list. */
HALV_API int HVHdrFreeList(char ***list) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Keys as arrays of numbers.  Numbers are written and read in the C
 * locale, whatever locale the host set.
 * ------------------------------------------------------------------------ */

/* Stores count values as the key's text with HVHdrSetHeaderField: each
 * written with "%d", a line feed behind every perLine-th (perLine 0:
 * none) and a blank behind the others.  The tree; unchanged when memory
 * runs out or values is null with count above 0.  Count 0 leaves the key
 * without a value. */
HALV_API HalvUserCMData *HVHdrSetHeaderInts(HalvUserCMData *tree, const char *section, const char *key,
                                            const int32_t *values, uint32_t count, uint32_t perLine) HALV_NOEXCEPT;

/* HVHdrSetHeaderInts for doubles, each written with "%f" (six decimals). */
HALV_API HalvUserCMData *HVHdrSetHeaderDoubles(HalvUserCMData *tree, const char *section, const char *key,
                                               const double *values, uint32_t count, uint32_t perLine) HALV_NOEXCEPT;

/* HVHdrSetHeaderInts for floats, each written with "%f" of the double it
 * widens to. */
HALV_API HalvUserCMData *HVHdrSetHeaderFloats(HalvUserCMData *tree, const char *section, const char *key,
                                              const float *values, uint32_t count, uint32_t perLine) HALV_NOEXCEPT;

/* Scans the key's first value token by token ("%d") into values, at most
 * *count of them; *count becomes the tokens taken.  A token that is no
 * number keeps its entry and still counts, and so does the empty token
 * behind trailing white space ("1 2 " counts 3).  1; 1 with *count 0 and
 * nothing read for *count 0; 0 with everything untouched when the key has
 * no value, for a null count, or a null values with *count above 0. */
HALV_API int HVHdrGetHeaderInts(HalvUserCMData *tree, const char *section, const char *key, int32_t *values,
                                uint32_t *count) HALV_NOEXCEPT;

/* HVHdrGetHeaderInts for doubles ("%lf"). */
HALV_API int HVHdrGetHeaderDoubles(HalvUserCMData *tree, const char *section, const char *key, double *values,
                                   uint32_t *count) HALV_NOEXCEPT;

/* HVHdrGetHeaderInts for floats ("%f"). */
HALV_API int HVHdrGetHeaderFloats(HalvUserCMData *tree, const char *section, const char *key, float *values,
                                  uint32_t *count) HALV_NOEXCEPT;

/* A table: one row for each of the key's values (value lines), as many
 * columns (*perLine) as the first line has tokens.  *values is a new
 * zeroed array of lines x *perLine entries (null when that is 0) that the
 * caller frees with halv_internal_free.  The integer form runs the lines
 * together: a line's numbers follow straight behind those of the line
 * before, at most *perLine from each line, so a short line leaves its
 * zeros at the end of the table.  Result: the number of lines; 0 with
 * *values null and *perLine 0 when the key has no value or memory runs
 * out; 0 for a null values or perLine (nothing stored). */
HALV_API int HVHdrGetHeaderIntsList(HalvUserCMData *tree, const char *section, const char *key, int32_t **values,
                                    uint32_t *perLine) HALV_NOEXCEPT;

/* HVHdrGetHeaderIntsList for doubles, with two differences: only tokens
 * that begin with a digit, '.' or '-' count as columns (others are still
 * scanned in their place), and each line fills its own row, a short one
 * leaving zeros at the row's end. */
HALV_API int HVHdrGetHeaderDoublesList(HalvUserCMData *tree, const char *section, const char *key, double **values,
                                       uint32_t *perLine) HALV_NOEXCEPT;

/* HVHdrGetHeaderDoublesList for floats. */
HALV_API int HVHdrGetHeaderFloatsList(HalvUserCMData *tree, const char *section, const char *key, float **values,
                                      uint32_t *perLine) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Resolution and units, kept in section Origin of the header's tree.
 * ------------------------------------------------------------------------ */

/* *first from Origin/resolution (1.0 when absent), *second the same
 * divided by Origin/aspect when that is positive.  1 with resolution, 2
 * with aspect alone, 0 with neither; 0 for a null argument (nothing
 * stored). */
HALV_API int HalvHeaderGetResolution(const HalvHeaderStruct *header, double *first, double *second) HALV_NOEXCEPT;
/* Stores first as Origin/resolution (only above 1.0, with second not 0)
 * and first / second as Origin/aspect (only with second not 0), each with
 * "%f", deleting the key that isn't stored.  1, or 0 for null. */
HALV_API int HalvHeaderSetResolution(HalvHeaderStruct *header, double first, double second) HALV_NOEXCEPT;
/* The text of Origin/units in the header's tree, pointing into it; null
 * without one, or for null. */
HALV_API const char *HalvHeaderGetUnits(const HalvHeaderStruct *header) HALV_NOEXCEPT;

/* Stores text as Origin/units with HVHdrSetHeaderParam (null: the key
 * without a value).  1, or 0 for a null header. */
HALV_API int HalvHeaderSetUnits(HalvHeaderStruct *header, const char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * ASCII sample codecs: each number written with one blank in front, read
 * back token by token.  8- and 16-bit samples as " %u", 32-bit floats as
 * " %g", 64-bit as a pair of floats.
 * ------------------------------------------------------------------------ */

/* Reads one token, single bytes through in's read slot (which must be
 * there) with nothing read ahead: white space in front is skipped, and the
 * white space or 0x04 that ends it is consumed.  Scans it with "%u" into
 * *value in the C locale.  0 ok; 1 the token is no number or longer than
 * 31 bytes (read to its end all the same, *value untouched); -1 the end
 * of the values (a failed read, 0xFF or 0x04 before the token) or a null
 * argument. */
HALV_API int __HVHdrReadAsciiInt(HalvIO *in, uint32_t *value) HALV_NOEXCEPT;

/* __HVHdrReadAsciiInt for a float: the token (at most 63 bytes) is scanned
 * as a double ("%lf") and rounded to float. */
HALV_API int __HVHdrReadAsciiFloat(HalvIO *in, float *value) HALV_NOEXCEPT;

/* Two floats into pair[0] and pair[1]; the second is read only when the
 * first gave 0.  The result of the last read; -1 for a null pair. */
HALV_API int __HVHdrReadAsciiComplex(HalvIO *in, float *pair) HALV_NOEXCEPT;

/* Writes *value as " %u".  0 ok, -1 when not all bytes were written or for
 * a null argument. */
HALV_API int __HVHdrWriteAsciiInt(HalvIO *out, const uint32_t *value) HALV_NOEXCEPT;

/* Writes *value as " %g" of the double it widens to, in the C locale.
 * Results as __HVHdrWriteAsciiInt. */
HALV_API int __HVHdrWriteAsciiFloat(HalvIO *out, const float *value) HALV_NOEXCEPT;

/* Writes pair[0] and pair[1] as two floats; the second only when the first
 * went out.  Results as __HVHdrWriteAsciiInt. */
HALV_API int __HVHdrWriteAsciiComplex(HalvIO *out, const float *pair) HALV_NOEXCEPT;

/* The ASCII chunk codecs, one for each sample width of 8, 16, 32 (a float)
 * and 64 bits (a pair of floats). */

/* Reads count 8-bit values (each token cut to 8 bits) into the chunk as
 * one line.  With null data the chunk gets a new zeroed buffer of count
 * bytes from halv_internal_calloc, which the caller then owns; data that
 * are there must hold count values.  On 1 the chunk has lines 1, bytes the
 * count's and flags 0; a stream that ends before the first value also
 * gives 1, with lines and bytes 0 and flags 1.  0 for a null stream or
 * chunk, count 0, a size past 32 bits, data whose capacity is told (not 0)
 * and too small (nothing is read), no memory, a token that is no number,
 * or a stream that ends part way. */
HALV_API int HVHdrLoadChunk_Ascii_8(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;

/* HVHdrLoadChunk_Ascii_8 for 16-bit values (each token cut to 16 bits),
 * two bytes each. */
HALV_API int HVHdrLoadChunk_Ascii_16(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;

/* HVHdrLoadChunk_Ascii_8 for floats, four bytes each. */
HALV_API int HVHdrLoadChunk_Ascii_32(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;

/* HVHdrLoadChunk_Ascii_8 for pairs of floats, eight bytes each. */
HALV_API int HVHdrLoadChunk_Ascii_64(HalvIO *in, HalvChunk *chunk, uint32_t count) HALV_NOEXCEPT;

/* Writes the chunk's whole 8-bit values, as many as its bytes hold, as " %u"
 * each, and a line feed (whose failure isn't reported); number only has
 * to be nonzero.  1 ok; 0 for a null stream, chunk or data, number 0, or a
 * short write; -1 when bytes is no multiple of the width (the whole values
 * are written, the line feed not). */
HALV_API int HVHdrEmitChunk_Ascii_8(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;

/* HVHdrEmitChunk_Ascii_8 for 16-bit values. */
HALV_API int HVHdrEmitChunk_Ascii_16(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;

/* HVHdrEmitChunk_Ascii_8 for floats, as " %g". */
HALV_API int HVHdrEmitChunk_Ascii_32(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;

/* HVHdrEmitChunk_Ascii_8 for pairs of floats. */
HALV_API int HVHdrEmitChunk_Ascii_64(HalvIO *out, HalvChunk *chunk, uint32_t number) HALV_NOEXCEPT;

/* Reads count groups of parts values, part j of bits[j] bits (8, 16, 32 or
 * 64), to *cursor, which moves on behind each value; *read counts the
 * values read (the caller starts it).  Stops at the first failure, with
 * the cursor and count behind the last value read.  1 ok; 0 for a width
 * not among those or a null argument (bits may be null with parts 0); -1
 * for a token that is no number or the end of the values. */
HALV_API int __HVHdrReadAsciiValues(HalvIO *in, const uint32_t *bits, uint32_t count, uint32_t parts, void **cursor,
                                    uint32_t *read) HALV_NOEXCEPT;

/* Writes count groups of parts values from *cursor, which moves on; a line
 * feed goes behind each value with flag set, else behind each group.
 * Failures don't stop the run: every value is tried (a value of an unknown
 * width is passed over without moving the cursor), and the result tells
 * the last failure: 1 ok, 0 a width not among 8, 16, 32, 64, -1 a failed
 * write.  0 for a null argument (bits may be null with parts 0). */
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
 * samplingInterval, which becomes none.  spectrumType comes from its name
 * (leading white space skipped; 3 when missing or not known).  1, or 0
 * (nothing left behind) for
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

/* fromHeader of "1.0-binary": __HVHdrSpectralFromHeader_A10 with version
 * "1.0-binary" and ID/binary as four zero bytes before it. */
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
#define HALV_COLOR_UNKNOWN 0x01u /* "unknown" alone */
#define HALV_COLOR_RGB 0x02u     /* red, green and blue in either order: rgbLinear, BGR, sRGB, DeviceRGB ... */
#define HALV_COLOR_GRAY 0x04u    /* one-part grey and lightness spaces */
#define HALV_COLOR_PLAIN 0x08u /* all but unknown, hue spaces, maps, MultiPart, Spectral */
#define HALV_COLOR_HUE 0x10u     /* spaces with a hue: yhs, hsv, cielch, ciecam97s */
#define HALV_COLOR_DEVICE 0x20u  /* device spaces: cmyk, the Device* spaces, MultiPart, Spectral */
#define HALV_COLOR_INDEPENDENT 0x40u /* device-independent spaces: cielab, xyz, sRGB ... */
#define HALV_COLOR_MAP 0x80u     /* BuildMap and Map */

/* The colour code of a word: the first of the accepted words, in a fixed
 * order, that text begins with ("rgbLinear", "rgb", "sRGB", "lab" ...), so
 * "rgb16" gives rgbLinear's code.  0 (unknown) for null or no match. */
HALV_API int32_t HalvStr2Clr(const char *text) HALV_NOEXCEPT;

/* The written word of a colour code ("rgbLinear" for 2); "Unknown" for
 * codes not in the table. */
HALV_API const char *HalvClr2Str(int32_t code) HALV_NOEXCEPT;

/* 1 when code is in the table of colour spaces (0, unknown, included),
 * else 0. */
HALV_API int HalvValidColor(int32_t code) HALV_NOEXCEPT;

/* The colour space a number of parts suggests: 1 (grayLinear) for 1 part,
 * 2 (rgbLinear) for 3, 6 (cmykLinear) for 4, else 0. */
HALV_API int32_t HalvGetDefaultColor(int32_t parts) HALV_NOEXCEPT;

/* Separations of a colour space; -1 for no fixed number (unknown,
 * MultiPart, Spectral) or no such space. */
HALV_API int32_t HalvGetImageParts(int32_t code) HALV_NOEXCEPT;

/* HalvGetImageParts(a) minus HalvGetImageParts(b): 0 when the two spaces
 * have as many separations. */
HALV_API int32_t HalvCompareColor(int32_t a, int32_t b) HALV_NOEXCEPT;

/* 1 if the space's class shares a bit with mask (HALV_COLOR_*), else 0,
 * also for a code not in the table. */
HALV_API int HalvColorQuery(int32_t code, uint32_t mask) HALV_NOEXCEPT;

/* The compression code of a whole word, ASCII case ignored: 0
 * "uncompressed", 1 "jpeg", ... 18 "jpeg-xr"; "hex" reads as base16 (14).
 * -1 for null or any other text. */
HALV_API int32_t HalvStr2Comp(const char *text) HALV_NOEXCEPT;

/* The word of a compression code; "unknown" for codes not in the table. */
HALV_API const char *HalvComp2Str(int32_t code) HALV_NOEXCEPT;

/* The interleave code of a whole word: 0 "scanline", 1 "pixel", 2
 * "frame", 3 "compression"; 0 for null or no match. */
HALV_API int32_t HalvStr2Interleave(const char *text) HALV_NOEXCEPT;

/* The word of an interleave code; "scanline" for codes not in the table. */
HALV_API const char *HalvInterleave2Str(int32_t code) HALV_NOEXCEPT;

/* 0 for null, "TB" or "LRTB"; 1 for "BT" or "LRBT"; -1 otherwise. */
HALV_API int32_t HalvStr2Orient(const char *text) HALV_NOEXCEPT;

/* "TB" for 0, "BT" for 1, "unknown" for any other code. */
HALV_API const char *HalvOrient2Str(int32_t code) HALV_NOEXCEPT;

/* The scan direction code of a whole word: 0 "LRTB", 1 "LRBT", 2 "RLTB",
 * 3 "RLBT", 4 "TBRL", 5 "TBLR", 6 "BTRL", 7 "BTLR"; 0 for null, -1 for no
 * match. */
HALV_API int32_t HalvStr2ScanDir(const char *text) HALV_NOEXCEPT;

/* The word of a scan direction code; "unknown" for codes not in the
 * table. */
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
    uint32_t width;  /* bytes of one value: 4 for i, 8 for f */
    uint32_t count;  /* values in the row */
    uint32_t offset; /* byte offset of the first value within an entry */
} HalvInfoSwapEntry;

/* The info format's record.  Generic fields: managerType 10, dims[0] 1,
 * dims[1] entries and dims[2] blobs when the header names them (dimCount
 * 2 or 3), bytesPerSep[0] the bytes of one entry.  The field-N keys of
 * section Info stay in userData.  chunkBuffer holds the last chunk's
 * payload (the next load reuses it); the table and the buffer belong to
 * the header, whose free releases them, and a copy has its own table and
 * no buffer. */
typedef struct HalvInfoHeader {
    HalvHeaderStruct generic;     /* first, so a pointer to one is a pointer to the other */
    uint32_t swapBytes;           /* nonzero: the stream is in the other byte order */
    HalvInfoSwapEntry *swapTable; /* swapCount rows, owned; null for none */
    uint32_t swapCount;           /* rows of swapTable */
    uint32_t bufferCapacity;      /* bytes chunkBuffer holds */
    void *chunkBuffer;            /* the last chunk's payload, or null */
} HalvInfoHeader;

HALV_END_DECLS

#endif /* HALV_HEADERS_H */
