/* tests/util/support.h - helpers of the util tests: ownership of library
 * results, and UTF-8 / UTF-16 text built and read a character at a time. */
#ifndef HALV_TESTS_UTIL_SUPPORT_H
#define HALV_TESTS_UTIL_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace halvtest {

/* Frees a library result when the scope ends. */
template <typename T> struct Owned {
    T *p;
    explicit Owned(T *value) : p(value) {}
    ~Owned() { halv_internal_free(p); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
};

/* Takes a result string, frees it, and gives its bytes (size bytes, or up to
 * the NUL); "<null>" for a null result. */
inline std::string Take(char *text, int32_t size = -1) {
    if (text == nullptr)
        return "<null>";
    std::string bytes = size < 0 ? std::string(text) : std::string(text, (size_t)size);
    halv_internal_free(text);
    return bytes;
}

/* Appends the UTF-8 form of v, for any value below 2^21. */
inline void AppendUtf8(uint32_t v, std::string &out) {
    const int length = v < 0x80 ? 1 : v < 0x800 ? 2 : v < 0x10000 ? 3 : 4;
    static const unsigned char lead[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
    out += (char)(lead[length] | (v >> (6 * (length - 1))));
    for (int i = length - 2; i >= 0; --i)
        out += (char)(0x80 | ((v >> (6 * i)) & 0x3F));
}

inline std::string Utf8Of(uint32_t v) {
    std::string s;
    AppendUtf8(v, s);
    return s;
}

inline void AppendUtf16(std::vector<uint16_t> &units, uint32_t v) {
    if (v < 0x10000) {
        units.push_back((uint16_t)v);
    } else {
        units.push_back((uint16_t)(0xD800 | (((v - 0x10000) >> 10) & 0x3FF)));
        units.push_back((uint16_t)(0xDC00 | ((v - 0x10000) & 0x3FF)));
    }
}

/* The units or values of a terminated text; none for null. */
template <typename T> std::vector<T> Units(const T *wide) {
    std::vector<T> out;
    for (; wide != nullptr && *wide != 0; ++wide)
        out.push_back(*wide);
    return out;
}

} // namespace halvtest

#endif
