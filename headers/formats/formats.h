/*
 * headers/formats/formats.h - the slot functions of the built-in stored
 * formats, which the manager table names, and the helpers that the raster
 * formats share.  Nothing here is exported.
 */
#ifndef HALV_HEADERS_FORMATS_H
#define HALV_HEADERS_FORMATS_H

#include <cstddef>
#include <cstdint>

#include "halv_headers.h"
#include "halv_modules.h"

namespace halv {

/* Bytes of one sample of bits as the text formats hold it in memory: 1, 2,
 * 4 or 8 for 8, 16, 32 and 64 bits; 0 for widths they don't know, at which
 * a codec stops without storing anything. */
inline uint32_t TextSampleBytes(uint32_t bits) noexcept {
    return bits == 8 || bits == 16 || bits == 32 || bits == 64 ? bits / 8 : 0;
}

/* ---- internal 2.1 (and 2.0, which has its own toHeader) ---- */
int InternalToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept;
int InternalToHeaderOld(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept;
int InternalLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines) noexcept;
int InternalFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept;
int InternalEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept;
int InternalCreateHeader(HalvHeaderStruct **header) noexcept;

/* ---- image-ext 1.0 ---- */
int ImageExtToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept;
int ImageExtLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines) noexcept;
int ImageExtFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept;
int ImageExtEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept;
int ImageExtCreateHeader(HalvHeaderStruct **header) noexcept;

/* A zeroed HalvImageExtHeader with image-ext's copy and free and the
 * machine's endian, the record pixr shares; null when memory runs out. */
HalvHeaderStruct *ImageExtNewRecord() noexcept;

/* One number key that a chunked raster format reads: up to count numbers
 * of one line into the uint32_t (array) at offset in HalvHeaderStruct.
 * Where the key is there and dimCount is not 0, the record's dimCount
 * becomes dimCount (rows are read in order, so a later row wins). */
struct RasterNumberKey {
    const char *section;
    const char *key;
    size_t offset;
    uint32_t count;
    uint32_t dimCount;
};

/* How image-ext and pixr read a header into image-ext's record: a new
 * record from newRecord, its byte order, the number keys, interleave,
 * Photometry name and compression; then the keys read (each list ends
 * with null) go from the record's userData, the sections staying. */
struct RasterReading {
    HalvHeaderStruct *(*newRecord)() noexcept;
    const RasterNumberKey *numbers;
    size_t numberCount;
    const char *const *rasterKeys;
    const char *const *encodingKeys;
};
int RasterToHeader(const RasterReading &reading, HalvUserCMData *tree, HalvHeaderStruct **header) noexcept;

/* createHeader of a raster format: a record from newRecord into *header.
 * 1, or 0 for a null header or no memory. */
int RasterCreateHeader(HalvHeaderStruct *(*newRecord)() noexcept, HalvHeaderStruct **header) noexcept;

/* ---- pixr 1.0: image-ext's record, copy, free and emitChunk ---- */
int PixrToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept;
int PixrLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines) noexcept;
int PixrFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept;
int PixrCreateHeader(HalvHeaderStruct **header) noexcept;

/* ---- shared by the raster formats (raster_common.cpp) ---- */

/* endian from ID/architecture; when that names the other order, *swap is
 * set and endian becomes the machine's, since the loader reverses. */
void RasterFindByteOrder(HalvUserCMData *tree, HalvHeaderStruct *header, uint32_t *swap) noexcept;

/* One number, or up to capacity numbers of one line, into values; true
 * when the key is there (entries it doesn't give keep their value). */
bool RasterReadNumber(HalvUserCMData *tree, const char *section, const char *key, uint32_t *value) noexcept;
bool RasterReadNumbers(HalvUserCMData *tree, const char *section, const char *key, uint32_t *values,
                       uint32_t capacity) noexcept;

/* Stores count numbers as one line of decimal text joined by blanks; with
 * count 0 the key is taken out instead. */
HalvUserCMData *RasterSetNumbers(HalvUserCMData *tree, const char *section, const char *key, const uint32_t *values,
                                 uint32_t count) noexcept;

/* Deletes every label of each named key of section; the list ends with
 * null. */
HalvUserCMData *RasterDeleteKeys(HalvUserCMData *tree, const char *section, const char *const *keys) noexcept;

/* The keys that the chunked raster formats write, in their order: ID
 * (format, the four zero bytes of binary, version, architecture), then
 * Raster pixels, then what the format adds through addRaster, then
 * Encoding partsKey (3 numbers), addAfterParts, bytes/sl, bits/sample
 * (HalvHeaderSepCount numbers, or the sum of parts for every interleave
 * with listEveryPart), interleave, alignment, then addEncoding, then
 * Photometry name (RasterSetColorName), then End.  Null hooks add
 * nothing. */
struct RasterKeys {
    const char *format;
    const char *version;
    const char *partsKey;
    bool listEveryPart;
    HalvUserCMData *(*addRaster)(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept;
    HalvUserCMData *(*addAfterParts)(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept;
    HalvUserCMData *(*addEncoding)(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept;
};
int RasterFromHeader(const RasterKeys &keys, HalvHeaderStruct *header, HalvUserCMData **tree) noexcept;

/* Photometry name: the word of color; where color is 0, a name the
 * header's userData kept (one this library doesn't know) stays as it came,
 * and "unknown" goes in only where there was no name at all. */
HalvUserCMData *RasterSetColorName(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept;

/* Encoding minimumChunk and preferredChunk, each only when not 0. */
HalvUserCMData *RasterAddChunkSizes(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept;

/* A zeroed record of size bytes with copy, free and the machine's endian;
 * null when memory runs out. */
HalvHeaderStruct *RasterNewRecord(size_t size, HalvHeaderStruct *(*copy)(HalvHeaderStruct *),
                                  void (*release)(HalvHeaderStruct *)) noexcept;

/* The chunk's bytes written whole: 1, else -1. */
int RasterWritePayload(const HalvChunk *chunk, HalvIO *out) noexcept;

/* ---- spectral 1.0-ascii and 1.0-binary: the slots are the exported
 * __HVHdrSpectral* functions; these are what their files share ---- */

/* The record as toHeader and createHeader start it: zeroed, with copy,
 * free, managerType 9 and dimCount 2; null when memory runs out. */
HalvSpectralHeader *SpectralNewRecord() noexcept;

/* Reads the wavelength keys of tree into the record, whose dims[0] is
 * already read, and applies their rules: false when the header is to be
 * refused. */
bool SpectralReadWavelengths(HalvUserCMData *tree, HalvSpectralHeader *header) noexcept;

/* A buffer for measurements of bytesPerMeasurement each (zeroed when asked),
 * or null for a size of 0, above the limit of one load, or no memory. */
void *SpectralAllocate(uint32_t bytesPerMeasurement, uint32_t measurements, bool zeroed) noexcept;

/* The chunk that tells the end of the data: the header's buffer, no bytes,
 * no lines, flags 1. */
void SpectralEndChunk(HalvSpectralHeader *header, HalvChunk *chunk) noexcept;

/* ---- pixelstream 1.0-ascii: the slots are the exported
 * __HVHdrPixelStream* functions ---- */

/* valuesPerPixel, bytesPerPixel and bytesPerSep[0] from parts and
 * bitsPerSample[0]; initialised becomes 1. */
void PixelStreamWorkOut(HalvPixelStreamHeader *header) noexcept;

/* ---- info 1.0 (info_format.cpp, info_swap.cpp) ---- */
int InfoToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept;
int InfoLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines) noexcept;
int InfoFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept;
int InfoEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept;
int InfoCreateHeader(HalvHeaderStruct **header) noexcept;

/* The swap table of a field list: one row for each i or f field, in
 * order.  True with *table a new array of *count rows (null for none);
 * false when memory runs out. */
bool InfoBuildSwapTable(HalvInfoField **fields, HalvInfoSwapEntry **table, uint32_t *count) noexcept;

/* Reverses, in place, the values that the table names in each of lines
 * entries of stride bytes at data.  Where the chunk or the table doesn't
 * agree with the stride, only values that lie wholly within their entry
 * and within the bytes are reversed; with stride 0 none is. */
void InfoReverseEntries(const HalvInfoSwapEntry *table, uint32_t count, void *data, uint32_t bytes, uint32_t lines,
                        uint32_t stride) noexcept;

/* ---- stored chunks of image-ext and info (chunk_records.cpp) ---- */

/* Reads one chunk: its 16-byte record (the words reversed when asked),
 * then the payload into *buffer of *capacity bytes, which grows as the
 * bytes arrive.  The chunk is cleared first, and takes the buffer as data
 * and capacity once the record is in.  1 loaded; 1 with flags END and
 * nothing else when the stream ends at the record; 0 when it ends inside
 * the record or payload, a read fails or memory runs out. */
int ReadStoredChunk(HalvIO *in, HalvChunk *chunk, bool reverseWords, void **buffer, uint32_t *capacity) noexcept;

/* Writes the chunk's record (flags cut to those a stored chunk keeps,
 * the words reversed when asked) and its payload: 1, else -1. */
int WriteStoredChunk(const HalvChunk *chunk, HalvIO *out, bool reverseWords) noexcept;

} // namespace halv

#endif /* HALV_HEADERS_FORMATS_H */
