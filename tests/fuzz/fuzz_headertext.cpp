// Fuzz target for the header text of a stored image: the tree up to [End],
// the end bytes behind it, and the header a manager makes of the tree.
//
// Each input is read from library memory streams, whose positions tell how
// far each reader went.  What must hold:
//  - HVHdrRead gives what the strict tree reader gives, the same tree, and
//    stands where the tree reader stopped, or, when the tree was taken,
//    behind the first form feed from there and the first line feed behind
//    that (or at the end of the input);
//  - HVHdrNonDestructiveRead gives the same result and tree, and exactly
//    the bytes HVHdrRead took (-1, and no bytes, when it took none);
//  - HVHdrRead_Header and HVHdrNonDestructivRead_Header agree, stand at the
//    same place, and make headers that write the same text;
//  - where the tree a header writes reads back from its text as the same
//    tree, that text reads again as a header of the same format, which
//    writes the same text once more unless a label repeats.
// Headers are copied and freed through their own slots on the way.
#include "fuzz/support.h"
#include "userdata/faithful.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;
using fuzz::Position;

/* Text with its control and non-ASCII bytes escaped, for a report. */
std::string Shown(const std::string &text) {
    std::string shown;
    for (unsigned char c : text) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, c == '\n' ? "\\n\n" : c < 32 || c > 126 ? "\\x%02x" : "%c", c);
        shown += escaped;
    }
    return shown;
}

/* Where the end bytes leave a stream standing at `from`: through the first
 * form feed, then through the first line feed behind it. */
size_t BehindEndBytes(const uint8_t *data, size_t size, size_t from) {
    size_t at = from;
    while (at < size && data[at++] != 0x0C) {
    }
    while (at < size && data[at++] != 0x0A) {
    }
    return at;
}

/* True when a section of the tree holds two labels of one name.  A format
 * looks at the first label of a name only, and writing a key replaces the
 * first label of its name, so a repeat may move up a place in each round
 * of reading and writing (an empty first Photometry name, say, gives way
 * to "unknown", and the next name comes first). */
bool HasRepeatedLabel(const HalvUserCMData *tree) {
    for (const HalvUserCMData *node = tree; node != nullptr; node = node->next) {
        for (const HalvUserCMData *a = node->children; a != nullptr; a = a->next)
            for (const HalvUserCMData *b = a->next; b != nullptr; b = b->next)
                if (a->kind == 2 && b->kind == 2 && ucm_test::SameName(a, b))
                    return true;
        if (HasRepeatedLabel(node->children))
            return true;
    }
    return false;
}

/* Whether the tree a header writes reads back from its text as the same
 * tree, and whether a label repeats in it.  The tree writer escapes
 * nothing, so a name or value holding syntax of the language (a quote in a
 * label, say) reads back as other nodes; choosing nodes that read back is
 * the business of whoever made them, and a header whose tree holds such
 * nodes can't be expected to come back either. */
struct WrittenTree {
    bool readsBack;
    bool repeatsLabel;
};

WrittenTree CheckWrittenTree(HalvHeaderStruct *header, HVHdrManager &manager, const std::string &text) {
    HalvUserCMData *written = nullptr;
    HVHdrFromHeader(manager, header, &written);
    HalvIO *in = fuzz::OpenBytes(text.data(), text.size());
    HalvUserCMData *read = nullptr;
    HVHdrRead(in, &read);
    in->close(in);
    const WrittenTree t = {ucm_test::SameTree(written, read), HasRepeatedLabel(written)};
    HalvFreeUserCMData(read);
    HalvFreeUserCMData(written);
    return t;
}

/* The text a header writes, or an empty string and false when it doesn't. */
bool WriteHeader(HalvHeaderStruct *header, HVHdrManager &manager, std::string &text) {
    HalvIO *out = HalvIO_Mem(0);
    const int result = HVHdrWrite_Header(header, &manager, out);
    text = fuzz::MemText(out);
    out->close(out);
    return result == 1;
}

void ReleaseHeader(HalvHeaderStruct *header) {
    fuzz::CopyAndFree(header);
    header->free(header);
}

void CheckTreeReads(const uint8_t *data, size_t size) {
    HalvIO *plain = fuzz::OpenBytes(data, size);
    HalvUserCMData *plainTree = nullptr;
    const int32_t plainResult = HalvReadUserCMData(plain, &plainTree, 1);
    const size_t stop = Position(plain);
    plain->close(plain);

    HalvIO *in = fuzz::OpenBytes(data, size);
    HalvUserCMData *tree = nullptr;
    const int result = HVHdrRead(in, &tree);
    const size_t taken = Position(in);
    in->close(in);
    if (result != plainResult || !ucm_test::SameTree(tree, plainTree))
        Fail("HVHdrRead read another tree than the tree reader");
    if (taken != (result == 1 ? BehindEndBytes(data, size, stop) : stop))
        Fail("HVHdrRead stopped elsewhere than behind the end bytes");

    HalvIO *again = fuzz::OpenBytes(data, size);
    HalvUserCMData *kept = nullptr;
    void *bytes = reinterpret_cast<void *>(1);
    uint32_t count = 12345;
    const int keptResult = HVHdrNonDestructiveRead(again, &kept, &bytes, &count);
    FailIf(Position(again) != taken, "HVHdrNonDestructiveRead took other bytes than HVHdrRead");
    again->close(again);
    if (taken == 0) {
        if (keptResult != -1 || bytes != nullptr || count != 0)
            Fail("HVHdrNonDestructiveRead of no bytes isn't -1");
    } else if (keptResult != result || !ucm_test::SameTree(kept, tree) || bytes == nullptr || count != taken ||
               std::memcmp(bytes, data, taken) != 0) {
        Fail("HVHdrNonDestructiveRead differs from HVHdrRead");
    }
    halv_internal_free(bytes);
    HalvFreeUserCMData(kept);
    HalvFreeUserCMData(tree);
    HalvFreeUserCMData(plainTree);
}

void CheckHeaderReads(const uint8_t *data, size_t size) {
    HalvIO *in = fuzz::OpenBytes(data, size);
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    const int result = HVHdrRead_Header(in, &manager, &header);
    const size_t taken = Position(in);
    in->close(in);

    HalvIO *again = fuzz::OpenBytes(data, size);
    HVHdrManager keptManager{};
    HalvHeaderStruct *kept = nullptr;
    void *bytes = nullptr;
    uint32_t count = 0;
    const int keptResult = HVHdrNonDestructivRead_Header(again, &bytes, &count, &keptManager, &kept);
    const size_t keptTaken = Position(again);
    again->close(again);
    halv_internal_free(bytes);
    if (keptTaken != taken || (keptResult != result && !(taken == 0 && keptResult == -1)))
        Fail("HVHdrNonDestructivRead_Header differs from HVHdrRead_Header");
    if ((result == 1) != (header != nullptr) || (keptResult == 1) != (kept != nullptr))
        Fail("a header without success, or success without a header");
    if (header == nullptr) {
        if (kept != nullptr)
            ReleaseHeader(kept);
        return;
    }
    std::string text, keptText;
    const bool written = WriteHeader(header, manager, text);
    if (WriteHeader(kept, keptManager, keptText) != written || keptText != text)
        Fail("the two header readers made headers that write differently");
    const int32_t managerType = header->managerType;
    const WrittenTree tree = written ? CheckWrittenTree(header, manager, text) : WrittenTree{};
    ReleaseHeader(kept);
    ReleaseHeader(header);
    if (!tree.readsBack)
        return;

    /* What the writer makes, the reader takes, and writes the same again. */
    HalvIO *back = fuzz::OpenBytes(text.data(), text.size());
    HVHdrManager backManager{};
    HalvHeaderStruct *reread = nullptr;
    if (HVHdrRead_Header(back, &backManager, &reread) != 1 || reread == nullptr) {
        std::fprintf(stderr, "written:\n%s\n", Shown(text).c_str());
        Fail("a written header doesn't read back");
    }
    FailIf(Position(back) != text.size(), "a written header reads back short of its end bytes");
    FailIf(reread->managerType != managerType, "a written header reads back in another format");
    back->close(back);
    std::string second;
    if (!WriteHeader(reread, backManager, second) || (second != text && !tree.repeatsLabel)) {
        std::fprintf(stderr, "first:\n%s\nsecond:\n%s\n", Shown(text).c_str(), Shown(second).c_str());
        Fail("a header read back writes other text");
    }
    ReleaseHeader(reread);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 16))
        return 0;
    CheckTreeReads(data, size);
    CheckHeaderReads(data, size);
    return 0;
}
