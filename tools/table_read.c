/*
 * table_read.c - reading an info table: its field list, checked against
 * the size of an entry, and its chunks, each checked to hold whole
 * entries and no more of them than the header promises.
 */
#include <stdio.h>
#include <string.h>

#include "table.h"

/* Field texts tried one by one to name the one at fault; a header with
 * more keys than this gets the general message. */
enum { kFieldsToBlame = 1000 };

/* Says which key of section Info makes the field list fail. */
static int BlameField(const Image *image) {
    for (int k = 0; k < kFieldsToBlame; ++k) {
        char key[32];
        snprintf(key, sizeof key, "field-%d", k);
        const char *text = HVHdrGetHeaderParam(image->header->userData, "Info", key);
        if (text == NULL)
            break;
        const char *one[] = {text, NULL};
        HalvInfoField **fields = NULL;
        int parsed = HalvParseInfoFields(one, &fields);
        HalvFreeSmartArray(fields);
        if (parsed != 1)
            return Complain("%s: its field %s is \"%s\", which is no name:[count]type with type i, f or c",
                            image->path, key, text);
    }
    return Complain("%s: its fields (section Info, keys field-0, field-1, ...) don't make an entry of at most "
                    "2147483647 bytes",
                    image->path);
}

int TableLoadFields(const Image *image, HalvInfoField ***fields) {
    *fields = NULL;
    if (HalvParseInfoFieldsFromHdr(image->header, fields) != 1) {
        HalvFreeSmartArray(*fields);
        *fields = NULL;
        return BlameField(image);
    }
    uint32_t entryBytes = image->header->bytesPerSep[0];
    int32_t total = HalvGetInfoFieldsTotal(*fields);
    const char *problem = NULL;
    if (HalvGetArraySize(*fields) == 0)
        problem = "it has no fields (section Info, keys field-0, field-1, ...)";
    else if (entryBytes == 0)
        problem = "its header gives no bytes/entry";
    else if ((uint32_t)total != entryBytes) {
        HalvFreeSmartArray(*fields);
        *fields = NULL;
        return Complain("%s: its fields take %d bytes per entry, but its header says bytes/entry %u", image->path,
                        total, entryBytes);
    }
    if (problem != NULL) {
        HalvFreeSmartArray(*fields);
        *fields = NULL;
        return Complain("%s: %s", image->path, problem);
    }
    return kExitOk;
}

int TableNextChunk(Image *image, HalvChunk *chunk, uint32_t entryBytes) {
    memset(chunk, 0, sizeof *chunk);
    int interrupted = InterruptStatus();
    if (interrupted != kExitOk)
        return interrupted;
    if (image->ended) {
        chunk->flags = HALV_CHUNK_END;
        return kExitOk;
    }
    if (HVHdrToChunk(image->manager, image->header, image->io, chunk) != 1)
        return Complain("%s is damaged: its data end inside a chunk, or a chunk record gives a wrong length "
                        "(after %llu entries)",
                        image->path, (unsigned long long)image->linesRead);
    if ((uint64_t)chunk->lines * entryBytes != chunk->bytes)
        return Complain("%s is damaged: a chunk holds %u bytes for %u entries of %u bytes (after %llu entries)",
                        image->path, chunk->bytes, chunk->lines, entryBytes, (unsigned long long)image->linesRead);
    image->linesRead += chunk->lines;
    image->bytesRead += chunk->bytes;
    if (image->height != 0 && image->linesRead > image->height)
        return Complain("%s holds more entries than the %u its header gives", image->path, image->height);
    if (chunk->flags & HALV_CHUNK_END) {
        image->ended = 1;
        if (image->height != 0 && image->linesRead < image->height)
            return Complain("%s is cut short: it holds %llu of the %u entries its header gives", image->path,
                            (unsigned long long)image->linesRead, image->height);
    }
    return kExitOk;
}

uint32_t TableColumnCount(HalvInfoField *const *fields) {
    uint32_t columns = 0;
    for (uint32_t i = 0; fields[i] != NULL; ++i)
        columns += fields[i]->type == HALV_INFO_CHAR ? 1 : (uint32_t)fields[i]->count;
    return columns;
}

int TableColumnName(const HalvInfoField *field, int32_t index, char *buffer, size_t size) {
    if (field->type == HALV_INFO_CHAR || field->count == 1)
        return snprintf(buffer, size, "%s", field->name);
    return snprintf(buffer, size, "%s[%d]", field->name, (int)index);
}
