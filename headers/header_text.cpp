/*
 * headers/header_text.cpp - the text of a stored header and its end marker.
 *
 * A stored header is the text of a tree from [ID] to [End], then the bytes
 * 0x0C 0x0A, then the format's data.  The reader takes the text, then
 * bytes up to a form feed and on to a line feed, one at a time: nothing is
 * read ahead, so a stream without positions stands at the first data byte.
 */
#include "halv_userdata.h"
#include "headers/internal.h"

namespace {

constexpr unsigned char kFormFeed = 0x0C;
constexpr unsigned char kLineFeed = 0x0A;

/* Reads single bytes until one equals stop or a read gives anything but 1
 * byte.  At least one byte is always asked for. */
void SkipThrough(HalvIO *in, unsigned char stop) {
    unsigned char byte = 0;
    while (in->read(in, &byte, 1) == 1 && byte != stop) {
    }
}

/* Top-level names of a header, told apart by length and folded case. */
bool IsNamed(const HalvUserCMData *node, const char *name, uint32_t length) {
    if (node->text == nullptr || node->length != length)
        return false;
    for (uint32_t i = 0; i < length; ++i) {
        unsigned char a = (unsigned char)node->text[i], b = (unsigned char)name[i];
        if (a >= 'A' && a <= 'Z')
            a = (unsigned char)(a - 'A' + 'a');
        if (b >= 'A' && b <= 'Z')
            b = (unsigned char)(b - 'A' + 'a');
        if (a != b)
            return false;
    }
    return true;
}

} // namespace

extern "C" {

HALV_API int HVHdrRead(HalvIO *in, HalvUserCMData **tree) noexcept {
    int result = HalvReadUserCMData(in, tree, 1);
    if (result != 1)
        return result;
    // A marker cut short or missing changes nothing: the tree is whole.
    SkipThrough(in, kFormFeed);
    SkipThrough(in, kLineFeed);
    return 1;
}

HALV_API int HVHdrWrite(HalvUserCMData *tree, HalvIO *out) noexcept {
    if (out == nullptr)
        return 0;
    int result = HalvWriteUserCMData(tree, out);
    if (result == 1) {
        static const unsigned char kMarker[2] = {kFormFeed, kLineFeed};
        HalvIOWriteBytes(out, kMarker, sizeof kMarker);
    }
    if (out->flush != nullptr)
        out->flush(out);
    return result;
}

/* One walk with the node before: an ID that isn't first goes to the head;
 * an End with something behind it goes to a side list (at its head), which
 * is joined on at the end.  The last node is never moved, so the walk ends
 * with `before` on the tail. */
HALV_API HalvUserCMData *HVHdrArrange(HalvUserCMData *tree) noexcept {
    HalvUserCMData *head = tree, *before = nullptr, *ends = nullptr;
    for (HalvUserCMData *node = tree, *next; node != nullptr; node = next) {
        next = node->next;
        if (before != nullptr && IsNamed(node, "ID", 2)) {
            before->next = next;
            node->next = head;
            head = node;
            continue;
        }
        if (next != nullptr && IsNamed(node, "End", 3)) {
            if (before != nullptr)
                before->next = next;
            else
                head = next;
            node->next = ends;
            ends = node;
            continue;
        }
        before = node;
    }
    if (ends != nullptr && before != nullptr)
        before->next = ends;
    return head;
}

} // extern "C"
