/*
 * headers/tree_words.cpp - the compression and the colour space that a
 * header's tree names as words, as every reader of a stored or flat header
 * recovers them into the record.
 */
#include <cstring>

#include "halv_headers.h"
#include "headers/internal.h"

namespace halv {

namespace {

/* Bytes of the buffer a compression word is looked up from, terminator
 * included; no keyword comes near it. */
constexpr size_t kCompressionWordBytes = 32;

bool EndsCompressionWord(char c) { return c == '\0' || c == '(' || IsHeaderSpace((unsigned char)c); }

} // namespace

int32_t CompressionFromTree(HalvUserCMData *tree) noexcept {
    const char *text = HVHdrGetHeaderParam(tree, "Compression", "compressors");
    if (text == nullptr)
        return 0;
    while (*text != '\0' && IsHeaderSpace((unsigned char)*text))
        ++text;
    size_t length = 0;
    while (!EndsCompressionWord(text[length]))
        ++length;
    if (length == 0)
        return 0;
    if (length >= kCompressionWordBytes)
        return -1;
    char word[kCompressionWordBytes];
    std::memcpy(word, text, length);
    word[length] = '\0';
    return HalvStr2Comp(word);
}

int32_t ColorFromTree(HalvUserCMData **tree) noexcept {
    const char *name = HVHdrGetHeaderParam(*tree, "Photometry", "name");
    if (name == nullptr)
        return 0;
    int32_t color = HalvStr2Clr(name);
    if (color != 0)
        *tree = DeleteEveryHeaderField(*tree, "Photometry", "name");
    return color;
}

} // namespace halv
