/*
 * headers/formats/info_swap.cpp - byte reversal of info table entries
 * stored in the other byte order: the swap table drawn from a field list,
 * and its application to a chunk's entries.
 *
 * A chunk's record says how many entries it holds, and the header how long
 * one is; neither is believed further than the chunk's bytes reach.  When
 * both agree with the table, which is the case of every sound table, the
 * walk runs without a bounds test per value.
 */
#include <cstring>

#include "halv_util.h"
#include "headers/formats/formats.h"
#include "util/internal.h"

namespace halv {

namespace {

/* Reverses count values of width bytes from p on. */
inline void ReverseRun(unsigned char *p, uint32_t width, uint32_t count) {
    switch (width) {
    case 8:
        SwabValues<uint64_t>(p, count);
        break;
    case 4:
        SwabValues<uint32_t>(p, count);
        break;
    case 2:
        SwabValues<uint16_t>(p, count);
        break;
    default:
        break;
    }
}

/* The end of a row within its entry, exact. */
uint64_t RowEnd(const HalvInfoSwapEntry &row) { return row.offset + (uint64_t)row.width * row.count; }

/* Every entry within the bytes and every row within its entry. */
bool WalkIsSafe(const HalvInfoSwapEntry *table, uint32_t count, uint32_t bytes, uint32_t lines, uint32_t stride) {
    if ((uint64_t)lines * stride > bytes)
        return false;
    for (uint32_t r = 0; r < count; ++r)
        if (RowEnd(table[r]) > stride)
            return false;
    return true;
}

/* The walk for tables and chunks that don't agree: only the values that
 * lie wholly within their entry and within the bytes are reversed, so the
 * work stays within the bytes however long the record claims the chunk
 * or the rows are.  Rows come in field order, their offsets rising: the
 * first that begins past the entry ends the entry's walk. */
void ReverseClipped(const HalvInfoSwapEntry *table, uint32_t count, unsigned char *data, uint32_t bytes,
                    uint32_t lines, uint32_t stride) {
    uint64_t entries = ((uint64_t)bytes + stride - 1) / stride; // those that begin within the bytes
    if (entries > lines)
        entries = lines;
    for (uint64_t e = 0; e < entries; ++e) {
        uint64_t base = e * stride;
        uint64_t limit = base + stride < bytes ? base + stride : bytes;
        for (uint32_t r = 0; r < count && base + table[r].offset < limit; ++r) {
            const HalvInfoSwapEntry &row = table[r];
            uint32_t width = row.width == 8 || row.width == 4 || row.width == 2 ? row.width : 0;
            if (width == 0)
                continue;
            uint64_t fitting = (limit - base - row.offset) / width;
            ReverseRun(data + base + row.offset, width, fitting < row.count ? (uint32_t)fitting : row.count);
        }
    }
}

} // namespace

bool InfoBuildSwapTable(HalvInfoField **fields, HalvInfoSwapEntry **table, uint32_t *count) noexcept {
    *table = nullptr;
    *count = 0;
    uint32_t rows = 0;
    for (uint32_t i = 0; fields != nullptr && fields[i] != nullptr; ++i)
        if (fields[i]->type == HALV_INFO_INT || fields[i]->type == HALV_INFO_DOUBLE)
            ++rows;
    if (rows == 0)
        return true;
    auto *made = static_cast<HalvInfoSwapEntry *>(halv_internal_malloc(rows * sizeof(HalvInfoSwapEntry)));
    if (made == nullptr)
        return false;
    uint32_t r = 0;
    for (uint32_t i = 0; fields[i] != nullptr; ++i) {
        const HalvInfoField *field = fields[i];
        if (field->type != HALV_INFO_INT && field->type != HALV_INFO_DOUBLE)
            continue;
        made[r++] = HalvInfoSwapEntry{field->type == HALV_INFO_INT ? 4u : 8u, (uint32_t)field->count,
                                      (uint32_t)field->offset};
    }
    *table = made;
    *count = rows;
    return true;
}

void InfoReverseEntries(const HalvInfoSwapEntry *table, uint32_t count, void *data, uint32_t bytes, uint32_t lines,
                        uint32_t stride) noexcept {
    if (table == nullptr || count == 0 || data == nullptr || bytes == 0 || lines == 0 || stride == 0)
        return;
    auto *p = static_cast<unsigned char *>(data);
    if (!WalkIsSafe(table, count, bytes, lines, stride)) {
        ReverseClipped(table, count, p, bytes, lines, stride);
        return;
    }
    for (uint32_t e = 0; e < lines; ++e, p += stride)
        for (uint32_t r = 0; r < count; ++r)
            ReverseRun(p + table[r].offset, table[r].width, table[r].count);
}

} // namespace halv
