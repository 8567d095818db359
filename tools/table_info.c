/*
 * table_info.c - the table part of halvern info: the size of an entry,
 * how many entries the data hold (counted by reading them) against what
 * the header says, and the field list with each field's place.
 */
#include <stdio.h>

#include "table.h"

static const char *TypeName(char type) {
    switch (type) {
    case HALV_INFO_INT: return "integer";
    case HALV_INFO_DOUBLE: return "double";
    default: return "text";
    }
}

static void PrintFields(HalvInfoField *const *fields) {
    printf("%-14s %u, %u columns\n", "fields:", HalvGetArraySize(fields), TableColumnCount(fields));
    printf("    %-20s %-8s %9s %9s %9s\n", "name", "type", "count", "offset", "bytes");
    for (uint32_t i = 0; fields[i] != NULL; ++i)
        printf("    %-20s %-8s %9d %9d %9d\n", fields[i]->name, TypeName(fields[i]->type), fields[i]->count,
               fields[i]->offset, fields[i]->size);
}

/* Reads every chunk to count the entries. */
static int CountEntries(Image *image, uint32_t entryBytes) {
    Progress progress;
    ProgressStart(&progress, "counting", image->fileBytes);
    HalvChunk chunk = {0};
    int status = kExitOk;
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = TableNextChunk(image, &chunk, entryBytes);
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    return status;
}

int TableInfo(Image *image, const char *order) {
    const HalvHeaderStruct *h = image->header;
    printf("%-14s %s\n", "byte order:", order);
    printf("%-14s %u\n", "bytes/entry:", h->bytesPerSep[0]);
    HalvInfoField **fields = NULL;
    int status = TableLoadFields(image, &fields);
    if (status == kExitOk)
        status = CountEntries(image, h->bytesPerSep[0]);
    if (status == kExitOk) {
        printf("%-14s %llu", "entries:", (unsigned long long)image->linesRead);
        if (image->height != 0)
            printf(" (the header says %u)\n", image->height);
        else
            printf(" (the header doesn't say)\n");
        PrintFields(fields);
    }
    if (h->dimCount >= 3 && h->dims[2] != 0)
        printf("%-14s %u\n", "blobs:", h->dims[2]);
    HalvFreeSmartArray(fields);
    return status;
}
