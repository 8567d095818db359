/*
 * table_import.c - halvern import-table: an info table made from a CSV
 * file and a field list such as "x:1i weight:2f label:8c".
 *
 * The CSV's first row names the columns as export writes them (a field of
 * count 1 and every text field by its name, a number field of count n by
 * name[0] .. name[n-1]); the columns may stand in any order, and each must
 * be there once.  Every cell must hold what its field takes: an integer
 * that fits 32 bits, a number, or a text no longer than the field.  The
 * whole file is checked before OUTPUT is begun, so a bad cell leaves
 * nothing behind.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "table.h"

/* Entries larger than this are no table a CSV file describes. */
static const uint32_t kMaxEntryBytes = 16u << 20;
/* Chunks of about this many bytes. */
enum { kChunkBytes = 1u << 20 };

typedef struct Column {
    const HalvInfoField *field;
    int32_t index;  /* value within the field; 0 for text */
    uint32_t cell;  /* where the CSV has it */
    char name[320];
} Column;

typedef struct Import {
    const char *csvPath;
    HalvInfoField **fields;
    uint32_t entryBytes;
    Column *columns;
    uint32_t columnCount;
    unsigned char *data;
    size_t length, capacity;
    uint64_t entries;
} Import;

static int IsNameByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.';
}

/* A field's name: letters, digits, '_', '-', '.', so that it stands in
 * header text and CSV headings as it is. */
static int CheckName(const char *form) {
    const char *colon = strchr(form, ':');
    if (colon == NULL || colon == form)
        return 0;
    for (const char *p = form; p < colon; ++p)
        if (!IsNameByte(*p))
            return 0;
    return 1;
}

static int BadFieldList(const char *form) {
    Complain("field \"%s\": a field is name:[count]type, the name of letters, digits, '_', '-', '.', the type "
             "i (32-bit integer), f (double) or c (characters), such as x:1i weight:2f label:8c",
             form);
    return kExitUsage;
}

/* The field list of the command line, checked. */
static int ParseFieldList(const char *text, HalvInfoField ***fields) {
    *fields = NULL;
    char *copy = strdup(text);
    size_t capacity = strlen(text) / 2 + 2, count = 0;
    const char **forms = calloc(capacity, sizeof *forms);
    if (copy == NULL || forms == NULL) {
        free(copy);
        free(forms);
        return Complain("no memory");
    }
    char *next = NULL;
    for (char *form; (form = HalvTokenParseEx(copy, " \t\r\n", HALV_TOKEN_SKIP_DELIMITERS, &next)) != NULL;)
        forms[count++] = form;
    int status = count == 0 ? (Complain("the field list is empty: give fields such as \"x:1i weight:2f label:8c\""),
                               kExitUsage)
                            : kExitOk;
    for (size_t i = 0; status == kExitOk && i < count; ++i) {
        const char *one[] = {forms[i], NULL};
        HalvInfoField **single = NULL;
        int parsed = HalvParseInfoFields(one, &single);
        HalvFreeSmartArray(single);
        if (!CheckName(forms[i]) || parsed != 1)
            status = BadFieldList(forms[i]);
    }
    if (status == kExitOk && HalvParseInfoFields(forms, fields) != 1)
        status = (Complain("the fields make an entry of more than 2147483647 bytes"), kExitUsage);
    for (size_t i = 0; status == kExitOk && i < count; ++i)
        if ((size_t)HalvFindInfoField(*fields, (*fields)[i]->name) != i)
            status = (Complain("the field list names %s twice", (*fields)[i]->name), kExitUsage);
    if (status == kExitOk && (uint32_t)HalvGetInfoFieldsTotal(*fields) > kMaxEntryBytes)
        status = (Complain("the fields make an entry of %d bytes; at most %u can be imported",
                           HalvGetInfoFieldsTotal(*fields), kMaxEntryBytes),
                  kExitUsage);
    free(copy);
    free(forms);
    if (status != kExitOk) {
        HalvFreeSmartArray(*fields);
        *fields = NULL;
    }
    return status;
}

static int MakeColumns(Import *im) {
    im->columnCount = TableColumnCount(im->fields);
    im->columns = calloc(im->columnCount, sizeof *im->columns);
    if (im->columns == NULL)
        return Complain("no memory");
    uint32_t c = 0;
    for (uint32_t i = 0; im->fields[i] != NULL; ++i) {
        const HalvInfoField *f = im->fields[i];
        int32_t values = f->type == HALV_INFO_CHAR ? 1 : f->count;
        for (int32_t k = 0; k < values; ++k, ++c) {
            im->columns[c].field = f;
            im->columns[c].index = k;
            TableColumnName(f, k, im->columns[c].name, sizeof im->columns[c].name);
        }
    }
    return kExitOk;
}

/* Finds every column of the field list in the CSV's first row. */
static int MapColumns(Import *im, const CsvReader *csv) {
    const uint32_t kUnset = UINT32_MAX;
    for (uint32_t c = 0; c < im->columnCount; ++c)
        im->columns[c].cell = kUnset;
    for (uint32_t cell = 0; cell < csv->cellCount; ++cell) {
        size_t length;
        const char *heading = CsvCell(csv, cell, &length);
        uint32_t found = kUnset;
        for (uint32_t c = 0; c < im->columnCount && found == kUnset; ++c)
            if (strlen(im->columns[c].name) == length && HalvStrCaseCmp(im->columns[c].name, heading) == 0)
                found = c;
        if (found == kUnset)
            return Complain("%s: its column \"%s\" is not one the field list gives", im->csvPath, heading);
        if (im->columns[found].cell != kUnset)
            return Complain("%s has the column \"%s\" twice", im->csvPath, heading);
        im->columns[found].cell = cell;
    }
    for (uint32_t c = 0; c < im->columnCount; ++c)
        if (im->columns[c].cell == kUnset)
            return Complain("%s has no column \"%s\", which the field list gives (its first row names the columns)",
                            im->csvPath, im->columns[c].name);
    return kExitOk;
}

/* Text without the blanks around it, in buffer. */
static const char *Trimmed(const char *text, size_t length, char *buffer, size_t size) {
    while (length > 0 && (*text == ' ' || *text == '\t'))
        ++text, --length;
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t'))
        --length;
    if (length >= size)
        length = size - 1; /* too long for any number: it won't scan whole */
    memcpy(buffer, text, length);
    buffer[length] = '\0';
    return buffer;
}

static int CellError(const Import *im, const CsvReader *csv, const Column *col, const char *text, const char *what) {
    return Complain("%s, line %llu, column %s: \"%s\" is %s", im->csvPath, (unsigned long long)csv->recordLine,
                    col->name, text, what);
}

/* One cell into the entry. */
static int StoreCell(const Import *im, const CsvReader *csv, const Column *col, unsigned char *entry) {
    size_t length;
    const char *cell = CsvCell(csv, col->cell, &length);
    const HalvInfoField *f = col->field;
    if (f->type == HALV_INFO_CHAR) {
        if (memchr(cell, '\0', length) != NULL)
            return CellError(im, csv, col, "(a text with a NUL byte)", "not a text");
        if (length > (size_t)f->count)
            return Complain("%s, line %llu, column %s: the text has %zu bytes; the field takes %d", im->csvPath,
                            (unsigned long long)csv->recordLine, col->name, length, f->count);
        HalvSetInfoFieldStr(f, entry, cell);
        return kExitOk;
    }
    char number[128];
    const char *text = Trimmed(cell, length, number, sizeof number);
    char *end = NULL;
    errno = 0;
    if (f->type == HALV_INFO_INT) {
        long value = strtol(text, &end, 10);
        if (*text == '\0' || *end != '\0')
            return CellError(im, csv, col, text, "not an integer");
        if (errno == ERANGE || value < INT32_MIN || value > INT32_MAX)
            return CellError(im, csv, col, text, "out of the range of a 32-bit integer");
        HalvSetInfoFieldInt(f, entry, col->index, (int32_t)value);
    } else {
        double value = strtod(text, &end);
        if (*text == '\0' || *end != '\0')
            return CellError(im, csv, col, text, "not a number");
        if (errno == ERANGE && isinf(value))
            return CellError(im, csv, col, text, "beyond the range of a double");
        HalvSetInfoFieldDouble(f, entry, col->index, value);
    }
    return kExitOk;
}

static unsigned char *NewEntry(Import *im) {
    if (im->length + im->entryBytes > im->capacity) {
        size_t capacity = im->capacity < kChunkBytes ? kChunkBytes : im->capacity * 2;
        while (capacity < im->length + im->entryBytes)
            capacity *= 2;
        unsigned char *grown = realloc(im->data, capacity);
        if (grown == NULL)
            return NULL;
        im->data = grown;
        im->capacity = capacity;
    }
    unsigned char *entry = im->data + im->length;
    memset(entry, 0, im->entryBytes);
    im->length += im->entryBytes;
    ++im->entries;
    return entry;
}

static int ReadRows(Import *im, CsvReader *csv) {
    const char *reason = NULL;
    int got = CsvNextRecord(csv, &reason);
    if (got == 0 && ferror(csv->file))
        return Complain("can't read %s: %s", im->csvPath, strerror(errno));
    if (got == 0)
        return Complain("%s is empty: its first row must name the columns", im->csvPath);
    if (got < 0)
        return Complain("%s, line %llu: %s", im->csvPath, (unsigned long long)csv->recordLine, reason);
    if (MapColumns(im, csv) != kExitOk)
        return kExitFailed;
    uint32_t cells = csv->cellCount;
    while ((got = CsvNextRecord(csv, &reason)) == 1) {
        if (csv->cellCount != cells)
            return Complain("%s, line %llu: %u cells, where the first row has %u", im->csvPath,
                            (unsigned long long)csv->recordLine, csv->cellCount, cells);
        if (im->entries == UINT32_MAX)
            return Complain("%s has more rows than a table holds (%u)", im->csvPath, UINT32_MAX);
        if ((im->entries & 4095) == 0 && InterruptStatus() != kExitOk)
            return InterruptStatus();
        unsigned char *entry = NewEntry(im);
        if (entry == NULL)
            return Complain("no memory for %llu entries", (unsigned long long)im->entries + 1);
        for (uint32_t c = 0; c < im->columnCount; ++c)
            if (StoreCell(im, csv, &im->columns[c], entry) != kExitOk)
                return kExitFailed;
    }
    if (got < 0)
        return Complain("%s, line %llu: %s", im->csvPath, (unsigned long long)csv->recordLine, reason);
    return kExitOk;
}

static int WriteTable(Import *im, const char *path) {
    HVHdrManager manager;
    HalvHeaderStruct *header = NULL;
    if (HVHdrGetManager_Str("info", "1.0", &manager) != 1 || HVHdrCreateHeader(manager, &header) != 1 ||
        header == NULL)
        return Complain("this build can't write info tables");
    header->bytesPerSep[0] = im->entryBytes;
    if (im->entries != 0) {
        header->dimCount = 2;
        header->dims[1] = (uint32_t)im->entries;
    }
    if (HalvWriteInfoFieldsToHdr(header, im->fields) != 1) {
        header->free(header);
        return Complain("no memory");
    }
    Output out;
    if (OutputOpen(&out, path) != kExitOk) {
        header->free(header);
        return kExitFailed;
    }
    int status = OutputWriteHeader(&out, header, manager, 0);
    uint32_t perChunk = kChunkBytes / im->entryBytes ? kChunkBytes / im->entryBytes : 1;
    for (uint64_t first = 0; status == kExitOk && first < im->entries; first += perChunk) {
        uint32_t lines = im->entries - first < perChunk ? (uint32_t)(im->entries - first) : perChunk;
        HalvChunk chunk = {0};
        chunk.lines = lines;
        chunk.bytes = lines * im->entryBytes;
        chunk.data = im->data + first * im->entryBytes;
        chunk.flags = first + lines == im->entries ? HALV_CHUNK_END : 0;
        status = InterruptStatus() != kExitOk ? InterruptStatus() : OutputWriteChunk(&out, &chunk);
    }
    return OutputFinish(&out, status);
}

int CommandImportTable(int argc, char **argv) {
    if (argc != 3)
        return Complain("usage: halvern import-table IN.csv FIELDS OUTPUT (FIELDS such as \"x:1i weight:2f "
                        "label:8c\")"),
               kExitUsage;
    Import im;
    memset(&im, 0, sizeof im);
    im.csvPath = argv[0];
    int status = ParseFieldList(argv[1], &im.fields);
    if (status != kExitOk)
        return status;
    im.entryBytes = (uint32_t)HalvGetInfoFieldsTotal(im.fields);
    status = MakeColumns(&im);
    FILE *file = NULL;
    if (status == kExitOk && (file = fopen(argv[0], "rb")) == NULL)
        status = Complain("can't read %s: %s", argv[0], strerror(errno));
    if (status == kExitOk) {
        CsvReader csv;
        CsvOpen(&csv, file);
        status = ReadRows(&im, &csv);
        if (status == kExitOk && ferror(file))
            status = Complain("can't read %s", argv[0]);
        CsvClose(&csv);
    }
    if (file != NULL)
        fclose(file);
    if (status == kExitOk)
        status = WriteTable(&im, argv[2]);
    else if (status == InterruptStatus())
        Complain("interrupted; %s was not written", argv[2]);
    free(im.data);
    free(im.columns);
    HalvFreeSmartArray(im.fields);
    return status;
}
