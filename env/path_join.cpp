/*
 * env/path_join.cpp - building paths out of pieces.
 */
#include <cstring>

#include "halv_core.h"
#include "env/path_internal.h"

namespace halv {

char *JoinTexts(const char *const *pieces, size_t count) noexcept {
    size_t length = 0;
    for (size_t i = 0; i < count; ++i)
        length += pieces[i] != nullptr ? std::strlen(pieces[i]) : 0;
    char *text = static_cast<char *>(halv_internal_malloc(length + 1));
    if (text == nullptr)
        return nullptr;
    char *at = text;
    for (size_t i = 0; i < count; ++i) {
        if (pieces[i] == nullptr)
            continue;
        size_t n = std::strlen(pieces[i]);
        std::memcpy(at, pieces[i], n);
        at += n;
    }
    *at = '\0';
    return text;
}

} // namespace halv
