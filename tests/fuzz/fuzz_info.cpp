// Fuzz target for info tables: the header text read through the info
// manager whatever its format key says, the field list of its Info
// section, and every chunk behind it, each entry taken apart by field.
//
// The header is copied and released through its own slots; its field list
// is parsed, written into a copy of the header and parsed again (the two
// must agree), and worked on with find, add and remove.  Each chunk's
// entries are read and written back value by value wherever the list
// places a value inside the entry and the chunk, and each chunk goes out
// again behind the header written to a memory stream, which is read once
// more.  Any crash, leak, sanitizer report or disagreement is a fault.
#include "fuzz/support.h"

namespace {

constexpr int kMaxLoads = 64;
/* Values visited in one chunk; enough to reach every kind of field. */
constexpr uint32_t kMaxValues = 1u << 16;

/* Names, types and counts of two lists agree. */
bool SameList(HalvInfoField **a, HalvInfoField **b) {
    uint32_t n = HalvGetArraySize(a);
    if (n != HalvGetArraySize(b))
        return false;
    for (uint32_t i = 0; i < n; ++i)
        if (std::strcmp(a[i]->name, b[i]->name) != 0 || a[i]->type != b[i]->type || a[i]->count != b[i]->count ||
            a[i]->size != b[i]->size || a[i]->offset != b[i]->offset)
            return false;
    return true;
}

/* What the list writes into a header reads back the same, unless a name
 * was cut to fit 255 characters. */
void CheckHeaderKeys(HalvHeaderStruct *header, HalvInfoField **fields) {
    for (uint32_t i = 0; fields[i] != nullptr; ++i)
        if (std::strlen(fields[i]->name) > 200)
            return;
    HalvHeaderStruct *copy = header->copy(header);
    if (copy == nullptr)
        return;
    HalvInfoField **again = nullptr;
    fuzz::Require(HalvWriteInfoFieldsToHdr(copy, fields) != 1 ||
                  HalvParseInfoFieldsFromHdr(copy, &again) != 1 || SameList(fields, again));
    HalvFreeSmartArray(again);
    copy->free(copy);
}

/* Find, add and remove on a copy of the list, each checked. */
void WorkOnList(HalvInfoField **fields) {
    HalvInfoField **list = nullptr;
    uint32_t n = HalvGetArraySize(fields);
    for (uint32_t i = 0; i < n && i < 64; ++i) {
        int32_t at = HalvAddInfoField(&list, fields[i]->name, fields[i]->type, fields[i]->count);
        fuzz::Require(at == -1 || (uint32_t)at == i);
        fuzz::Require(HalvFindInfoField(list, fields[i]->name) <= (int32_t)i);
    }
    int32_t total = HalvGetInfoFieldsTotal(list);
    fuzz::Require(n == 0 || HalvRemoveInfoField(list, 0) != 1 || HalvGetInfoFieldsTotal(list) <= total);
    HalvFreeSmartArray(list);
}

/* Every value of the chunk's entries that lies inside its entry and the
 * chunk, read and written back unchanged. */
void VisitValues(HalvInfoField **fields, uint32_t entryBytes, HalvChunk *chunk) {
    if (fields == nullptr || entryBytes == 0 || chunk->data == nullptr)
        return;
    auto *data = static_cast<unsigned char *>(chunk->data);
    uint64_t entries = chunk->bytes / entryBytes;
    if (entries > chunk->lines)
        entries = chunk->lines;
    uint32_t visited = 0;
    for (uint64_t e = 0; e < entries; ++e) {
        unsigned char *entry = data + e * entryBytes;
        for (uint32_t i = 0; fields[i] != nullptr; ++i) {
            const HalvInfoField *f = fields[i];
            if ((uint64_t)f->offset + (uint64_t)f->size > entryBytes)
                continue;
            if (f->type == 'c') {
                char *text = nullptr;
                fuzz::Require(HalvGetInfoFieldStr(f, entry, &text) != 1 ||
                              HalvSetInfoFieldStr(f, entry, text) == 1);
                halv_internal_free(text);
                continue;
            }
            for (int32_t k = 0; k < f->count && visited < kMaxValues; ++k, ++visited) {
                if (f->type == 'i') {
                    int32_t v;
                    fuzz::Require(HalvGetInfoFieldInt(f, entry, k, &v) == 1 &&
                                  HalvSetInfoFieldInt(f, entry, k, v) == 1);
                } else {
                    double v;
                    fuzz::Require(HalvGetInfoFieldDouble(f, entry, k, &v) == 1 &&
                                  HalvSetInfoFieldDouble(f, entry, k, v) == 1);
                }
            }
        }
        if (visited >= kMaxValues)
            return;
    }
}

/* Reads one table from in; when out isn't null, writes it there. */
void Pass(HalvIO *in, HalvIO *out) {
    HVHdrManager manager{};
    fuzz::Require(HVHdrGetManager_Str("info", "1.0", &manager) == 1);
    HalvUserCMData *tree = nullptr;
    int read = HVHdrRead(in, &tree);
    HalvHeaderStruct *header = nullptr;
    int made = read == 1 ? HVHdrToHeader(manager, tree, &header) : 0;
    HVHdrFree(tree);
    if (made != 1 || header == nullptr)
        return;
    fuzz::CopyAndFree(header);
    HalvInfoField **fields = nullptr;
    if (HalvParseInfoFieldsFromHdr(header, &fields) == 1) {
        CheckHeaderKeys(header, fields);
        WorkOnList(fields);
    } else {
        HalvFreeSmartArray(fields);
        fields = nullptr;
    }
    if (out != nullptr)
        HVHdrWrite_Header(header, &manager, out);
    for (int i = 0; i < kMaxLoads; ++i) {
        HalvChunk chunk;
        if (HVHdrToChunk(manager, header, in, &chunk) != 1)
            break;
        VisitValues(fields, header->bytesPerSep[0], &chunk);
        if (out != nullptr)
            HVHdrFromChunk(manager, header, &chunk, out);
        if (chunk.flags & HALV_CHUNK_END)
            break;
    }
    HalvFreeSmartArray(fields);
    header->free(header);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20))
        return 0;
    HalvIO *out = HalvIO_Mem(0);
    fuzz::OverCopy(data, size, [&](HalvIO *in) { Pass(in, out); });
    fuzz::ReadBack(out, [](HalvIO *again) { Pass(again, nullptr); });
    out->close(out);
    return 0;
}
