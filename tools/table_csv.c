/*
 * table_csv.c - CSV text as tables need it: cells quoted where they must
 * be, doubles in the shortest text that reads back to the same bits, and
 * a reader of records that span lines inside quotes.
 */
#include <stdlib.h>
#include <string.h>

#include "table.h"

int TextAppend(TextBuffer *buffer, const char *bytes, size_t length) {
    if (buffer->length + length + 1 > buffer->capacity) {
        size_t capacity = buffer->capacity < 256 ? 256 : buffer->capacity;
        while (capacity < buffer->length + length + 1)
            capacity *= 2;
        char *grown = realloc(buffer->bytes, capacity);
        if (grown == NULL)
            return 0;
        buffer->bytes = grown;
        buffer->capacity = capacity;
    }
    memcpy(buffer->bytes + buffer->length, bytes, length);
    buffer->length += length;
    buffer->bytes[buffer->length] = '\0';
    return 1;
}

static int NeedsQuotes(const char *text, size_t length) {
    for (size_t i = 0; i < length; ++i)
        if (text[i] == ',' || text[i] == '"' || text[i] == '\n' || text[i] == '\r')
            return 1;
    return 0;
}

int CsvAppendCell(TextBuffer *buffer, const char *text, size_t length, int first) {
    if (!first && !TextAppend(buffer, ",", 1))
        return 0;
    if (!NeedsQuotes(text, length))
        return TextAppend(buffer, text, length);
    if (!TextAppend(buffer, "\"", 1))
        return 0;
    for (size_t i = 0; i < length; ++i)
        if (!TextAppend(buffer, text + i, 1) || (text[i] == '"' && !TextAppend(buffer, "\"", 1)))
            return 0;
    return TextAppend(buffer, "\"", 1);
}

void CsvFormatDouble(double value, char *buffer, size_t size) {
    /* 17 significant digits always read back; fewer often do, and read
     * better.  NaN never compares equal and ends with 17 digits' text. */
    for (int digits = 15; digits <= 17; ++digits) {
        snprintf(buffer, size, "%.*g", digits, value);
        double back = strtod(buffer, NULL);
        if (memcmp(&back, &value, sizeof value) == 0)
            return;
    }
}

void CsvOpen(CsvReader *reader, FILE *file) {
    memset(reader, 0, sizeof *reader);
    reader->file = file;
    reader->line = 1;
}

void CsvClose(CsvReader *reader) {
    free(reader->text.bytes);
    free(reader->cells);
    memset(reader, 0, sizeof *reader);
}

const char *CsvCell(const CsvReader *reader, uint32_t i, size_t *length) {
    size_t start = reader->cells[i];
    size_t end = i + 1 < reader->cellCount ? reader->cells[i + 1] - 1 : reader->text.length;
    *length = end - start;
    return reader->text.bytes + start;
}

/* Ends the cell under way (its NUL) and opens the next. */
static int NextCell(CsvReader *reader) {
    if (reader->cellCount == reader->cellCapacity) {
        uint32_t capacity = reader->cellCapacity == 0 ? 16 : reader->cellCapacity * 2;
        size_t *grown = realloc(reader->cells, capacity * sizeof *grown);
        if (grown == NULL)
            return 0;
        reader->cells = grown;
        reader->cellCapacity = capacity;
    }
    if (reader->cellCount > 0 && !TextAppend(&reader->text, "", 1))
        return 0;
    reader->cells[reader->cellCount++] = reader->text.length;
    return 1;
}

int CsvNextRecord(CsvReader *reader, const char **reason) {
    static const char kNoMemory[] = "no memory";
    FILE *f = reader->file;
    int c = getc(f);
    /* Lines that hold nothing are no records. */
    while (c == '\n' || c == '\r') {
        if (c == '\n')
            ++reader->line;
        c = getc(f);
    }
    if (c == EOF)
        return 0;
    reader->recordLine = reader->line;
    reader->text.length = 0;
    reader->cellCount = 0;
    if (!NextCell(reader))
        return *reason = kNoMemory, -1;
    int quoted = 0, wasQuoted = 0;
    for (;; c = getc(f)) {
        if (quoted) {
            if (c == EOF)
                return *reason = "a quoted cell is never closed", -1;
            if (c == '"') {
                int next = getc(f);
                if (next != '"') {
                    quoted = 0;
                    ungetc(next, f);
                    continue;
                }
            }
            if (c == '\n')
                ++reader->line;
            char byte = (char)c;
            if (!TextAppend(&reader->text, &byte, 1))
                return *reason = kNoMemory, -1;
            continue;
        }
        if (c == EOF || c == '\n' || c == '\r') {
            if (c == '\r') {
                int next = getc(f);
                if (next != '\n' && next != EOF)
                    ungetc(next, f);
            }
            if (c != EOF)
                ++reader->line;
            /* A byte order mark in front, as some spreadsheets write. */
            if (!reader->bomChecked) {
                reader->bomChecked = 1;
                if (reader->text.length >= 3 && memcmp(reader->text.bytes, "\xEF\xBB\xBF", 3) == 0) {
                    memmove(reader->text.bytes, reader->text.bytes + 3, reader->text.length - 2);
                    reader->text.length -= 3;
                    for (uint32_t i = 1; i < reader->cellCount; ++i)
                        reader->cells[i] -= 3;
                }
            }
            return 1;
        }
        if (c == ',') {
            if (!NextCell(reader))
                return *reason = kNoMemory, -1;
            wasQuoted = 0;
            continue;
        }
        if (c == '"' && !wasQuoted && reader->text.length == reader->cells[reader->cellCount - 1]) {
            quoted = wasQuoted = 1;
            continue;
        }
        char byte = (char)c;
        if (!TextAppend(&reader->text, &byte, 1))
            return *reason = kNoMemory, -1;
    }
}
