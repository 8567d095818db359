/*
 * table_export.c - an info table as CSV: a row of column names, then one
 * row for each entry.  Integers in decimal, doubles in the shortest text
 * that reads back to the same value, character fields as text up to their
 * first NUL.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "table.h"

/* Rows gather in memory and go out in pieces of about this size. */
enum { kFlushBytes = 1u << 20 };

typedef struct Export {
    Image *image;
    Output *out;
    HalvInfoField **fields;
    TextBuffer text;
    uint64_t hiddenBytes; /* text values that hold bytes behind a NUL */
} Export;

static int NoMemory(void) { return Complain("no memory"); }

static int WriteHeaderRow(Export *e) {
    for (uint32_t i = 0; e->fields[i] != NULL; ++i) {
        const HalvInfoField *f = e->fields[i];
        int32_t columns = f->type == HALV_INFO_CHAR ? 1 : f->count;
        for (int32_t k = 0; k < columns; ++k) {
            char name[320];
            int length = TableColumnName(f, k, name, sizeof name);
            if (length >= (int)sizeof name)
                length = (int)sizeof name - 1;
            if (!CsvAppendCell(&e->text, name, (size_t)length, i == 0 && k == 0))
                return NoMemory();
        }
    }
    return TextAppend(&e->text, "\n", 1) ? kExitOk : NoMemory();
}

/* The cells of one field of entry. */
static int AppendField(Export *e, const HalvInfoField *f, const unsigned char *entry, int first) {
    char cell[64];
    if (f->type == HALV_INFO_CHAR) {
        const char *text = (const char *)entry + f->offset;
        size_t length = strnlen(text, (size_t)f->count);
        for (size_t i = length; i < (size_t)f->count; ++i)
            if (text[i] != '\0') {
                ++e->hiddenBytes;
                break;
            }
        return CsvAppendCell(&e->text, text, length, first);
    }
    for (int32_t k = 0; k < f->count; ++k) {
        if (f->type == HALV_INFO_INT) {
            int32_t v = 0;
            HalvGetInfoFieldInt(f, entry, k, &v);
            snprintf(cell, sizeof cell, "%d", (int)v);
        } else {
            double v = 0;
            HalvGetInfoFieldDouble(f, entry, k, &v);
            CsvFormatDouble(v, cell, sizeof cell);
        }
        if (!CsvAppendCell(&e->text, cell, strlen(cell), first && k == 0))
            return 0;
    }
    return 1;
}

static int Flush(Export *e) {
    int status = OutputWriteBytes(e->out, e->text.bytes, (uint32_t)e->text.length);
    e->text.length = 0;
    return status;
}

static int WriteRows(Export *e, uint32_t entryBytes) {
    Progress progress;
    ProgressStart(&progress, "export", e->image->fileBytes);
    HalvChunk chunk = {0};
    int status = kExitOk;
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = TableNextChunk(e->image, &chunk, entryBytes);
        for (uint32_t n = 0; status == kExitOk && n < chunk.lines; ++n) {
            const unsigned char *entry = (const unsigned char *)chunk.data + (size_t)n * entryBytes;
            for (uint32_t i = 0; status == kExitOk && e->fields[i] != NULL; ++i)
                if (!AppendField(e, e->fields[i], entry, i == 0))
                    status = NoMemory();
            if (status == kExitOk && !TextAppend(&e->text, "\n", 1))
                status = NoMemory();
            if (status == kExitOk && e->text.length >= kFlushBytes)
                status = Flush(e);
        }
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    return status == kExitOk ? Flush(e) : status;
}

int ExportTable(const char *input, const char *output) {
    Image image;
    if (ImageOpen(&image, input) != kExitOk)
        return kExitFailed;
    Export e = {&image, NULL, NULL, {NULL, 0, 0}, 0};
    int status = kExitOk;
    if (image.header->managerType != HALV_HDR_INFO)
        status = Complain("%s has format %s; CSV export takes info tables (images go to .pgm or .ppm)", input,
                          image.format);
    if (status == kExitOk)
        status = TableLoadFields(&image, &e.fields);
    Output out;
    if (status == kExitOk)
        status = OutputOpen(&out, output);
    if (status == kExitOk) {
        e.out = &out;
        status = WriteHeaderRow(&e);
        if (status == kExitOk)
            status = WriteRows(&e, image.header->bytesPerSep[0]);
        if (status == kExitOk && e.hiddenBytes != 0)
            fprintf(stderr, "halvern: note: %llu text values of %s hold bytes behind their end (a NUL); the CSV "
                            "has each text up to its NUL\n",
                    (unsigned long long)e.hiddenBytes, input);
        status = OutputFinish(&out, status);
    }
    free(e.text.bytes);
    HalvFreeSmartArray(e.fields);
    ImageClose(&image);
    return status;
}
