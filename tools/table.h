/*
 * table.h - what the table files of the host share: info tables opened as
 * images (image_in.c), their field lists checked, their entries read chunk
 * by chunk, their columns named, and CSV text both ways.
 */
#ifndef HALVERN_TABLE_H
#define HALVERN_TABLE_H

#include <stdio.h>

#include "host.h"

/* The field list of an open info table in *fields (release it with
 * HalvFreeSmartArray), checked against the header's bytes/entry.
 * kExitOk, or kExitFailed after saying what is wrong. */
int TableLoadFields(const Image *image, HalvInfoField ***fields);

/* The next chunk of entries of an info table whose entries are entryBytes
 * long; the image counts entries in linesRead.  kExitOk with the chunk
 * (its flags carry HALV_CHUNK_END on the last, which may be empty);
 * kExitFailed after saying what is wrong with the data; InterruptStatus()
 * when a signal asked the command to stop. */
int TableNextChunk(Image *image, HalvChunk *chunk, uint32_t entryBytes);

/* The columns of a field list: a c field is one column of text named as
 * the field; a number field of count 1 one column named as the field; a
 * number field of count n, n columns name[0] .. name[n-1]. */
uint32_t TableColumnCount(HalvInfoField *const *fields);
/* The name of column (field, index) into buffer; its length. */
int TableColumnName(const HalvInfoField *field, int32_t index, char *buffer, size_t size);

/* ---- CSV text (table_csv.c) ---- */

/* A growing text buffer. */
typedef struct TextBuffer {
    char *bytes;
    size_t length;
    size_t capacity;
} TextBuffer;

/* Appends length bytes; 0 when memory runs out. */
int TextAppend(TextBuffer *buffer, const char *bytes, size_t length);
/* Appends one CSV cell, quoted when it holds a comma, a quote or a line
 * end, with a comma in front unless first is set; 0 out of memory. */
int CsvAppendCell(TextBuffer *buffer, const char *text, size_t length, int first);
/* The shortest text of value that strtod reads back to the same bits
 * ("inf", "-inf", "nan" as the C library prints them). */
void CsvFormatDouble(double value, char *buffer, size_t size);

/* Reads CSV records (RFC 4180: commas, double quotes with "" inside, line
 * ends LF or CRLF, the last line end optional) from a stream. */
typedef struct CsvReader {
    FILE *file;
    uint64_t line;       /* the line the stream stands at, from 1 */
    uint64_t recordLine; /* the line the last record began on */
    TextBuffer text; /* the cells of the last record, each NUL-terminated */
    size_t *cells;   /* their offsets into text */
    uint32_t cellCount;
    uint32_t cellCapacity;
    int bomChecked;
} CsvReader;

void CsvOpen(CsvReader *reader, FILE *file);
/* The next record: 1 with cells; 0 at the end of the stream; -1 for a
 * quote that is never closed or no memory (reason says which).  Lines
 * that hold nothing at all are passed over. */
int CsvNextRecord(CsvReader *reader, const char **reason);
/* Cell i of the last record, and its length (which counts a NUL inside). */
const char *CsvCell(const CsvReader *reader, uint32_t i, size_t *length);
void CsvClose(CsvReader *reader);

#endif
