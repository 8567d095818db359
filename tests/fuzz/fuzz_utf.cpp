// Fuzz target for the UTF-8 walkers and the UTF-16 and UCS-4 converters.
//
// Input: one control byte, four bytes of a code point to search for, one
// byte limit, then the text, taken three ways, each in a block of exactly
// its size: as UTF-8 up to its first NUL, as native UTF-16 units up to the
// first 0 unit, and as UCS-4 values up to the first 0.  Every walker and
// converter is compared with a plain model of the rules, one character at
// a time: the decode step (no overlong form; surrogates and values up to
// 0x1FFFFF pass), the surrogate pairs and byte order marks of UTF-16, and
// the limits of UCS-4.  Valid text must also come back from UTF-16 and from
// UCS-4 as it was.
#include <vector>

#include "fuzz/support.h"

namespace {

using fuzz::Exact;
using fuzz::Fail;
using fuzz::FailIf;

struct Decoded {
    uint32_t value;
    uint32_t length; /* 0: invalid */
};

/* One decode step of the rules. */
Decoded Decode(const unsigned char *p) {
    static constexpr struct {
        unsigned char mask, lead;
        uint32_t length, minimum;
    } kForms[] = {{0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};
    if (p[0] < 0x80)
        return {p[0], 1};
    for (const auto &form : kForms) {
        if ((p[0] & form.mask) != form.lead)
            continue;
        uint32_t value = p[0] & (0x7F >> form.length);
        for (uint32_t i = 1; i < form.length; ++i) {
            if ((p[i] & 0xC0) != 0x80)
                return {0, 0};
            value = value << 6 | (p[i] & 0x3F);
        }
        return value >= form.minimum ? Decoded{value, form.length} : Decoded{0, 0};
    }
    return {0, 0};
}

void Encode(uint32_t v, std::string &out) {
    static const unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
    const int extra = v < 0x80 ? 0 : v < 0x800 ? 1 : v < 0x10000 ? 2 : 3;
    out += (char)(kLead[extra] | v >> 6 * extra);
    for (int i = extra - 1; i >= 0; --i)
        out += (char)(0x80 | (v >> 6 * i & 0x3F));
}

/* The characters of text up to its NUL or first invalid sequence, and
 * whether an invalid one ended them. */
struct Walk {
    std::vector<uint32_t> values;
    std::vector<uint32_t> offsets; /* of each character */
    size_t end;                    /* offset of the NUL or the invalid sequence */
    bool invalid;
};

Walk WalkText(const unsigned char *text) {
    Walk w{};
    size_t at = 0;
    for (;;) {
        Decoded d = Decode(text + at);
        if (d.length == 0 || d.value == 0) {
            w.end = at;
            w.invalid = d.length == 0;
            return w;
        }
        w.values.push_back(d.value);
        w.offsets.push_back((uint32_t)at);
        at += d.length;
    }
}

void CheckWalkers(const char *text, uint32_t code, uint32_t maxBytes) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    const Decoded first = Decode(bytes);
    FailIf(HalvUTF8NextChar(text) != first.value, "HalvUTF8NextChar");
    FailIf(HalvUTF8IsNextCharValid(text) != (first.length != 0), "HalvUTF8IsNextCharValid");
    FailIf(HalvUTF8NextCharLen(text) != (int)first.length, "HalvUTF8NextCharLen");
    FailIf(HalvUTF8Inc(text) != (first.length == 0 ? nullptr : text + first.length), "HalvUTF8Inc");

    const Walk w = WalkText(bytes);
    FailIf(HalvUTF8StrLen(text) != (int32_t)w.values.size(), "HalvUTF8StrLen");

    /* StrNLen: characters that fit wholly within maxBytes.  It is handed
     * just those bytes when they are fewer than the text's, with no NUL
     * behind them, so looking past the limit is caught. */
    int32_t fitting = 0;
    for (size_t i = 0; i < w.values.size(); ++i) {
        size_t next = i + 1 < w.values.size() ? w.offsets[i + 1] : w.end;
        if (next > maxBytes)
            break;
        ++fitting;
    }
    const size_t length = std::strlen(text);
    if (maxBytes <= length) {
        char *limited = Exact(text, maxBytes);
        FailIf(HalvUTF8StrNLen(limited, maxBytes) != fitting, "HalvUTF8StrNLen within the limit");
        std::free(limited);
    } else if (HalvUTF8StrNLen(text, maxBytes) != fitting) {
        Fail("HalvUTF8StrNLen");
    }

    const char *firstFound = nullptr, *lastFound = nullptr;
    for (size_t i = 0; i < w.values.size(); ++i) {
        if (w.values[i] != code)
            continue;
        size_t behind = i + 1 < w.values.size() ? w.offsets[i + 1] : w.end;
        lastFound = text + behind;
        if (firstFound == nullptr)
            firstFound = lastFound;
    }
    /* An invalid sequence ends StrChr's search with null; StrRChr keeps
     * what it found before it. */
    if (HalvUTF8StrChr(text, code) != (w.invalid && firstFound == nullptr ? nullptr : firstFound))
        Fail("HalvUTF8StrChr");
    FailIf(HalvUTF8StrRChr(text, code) != lastFound, "HalvUTF8StrRChr");
}

/* UTF-8 to UTF-16 and UCS-4, and the round trips back. */
void CheckFromUtf8(const char *text) {
    const Walk w = WalkText(reinterpret_cast<const unsigned char *>(text));
    std::vector<uint16_t> units;
    for (uint32_t v : w.values) {
        if (v <= 0xFFFF) {
            units.push_back((uint16_t)v);
        } else {
            units.push_back((uint16_t)(0xD800 | ((v - 0x10000) >> 10 & 0x3FF)));
            units.push_back((uint16_t)(0xDC00 | ((v - 0x10000) & 0x3FF)));
        }
    }
    units.push_back(0);

    uint16_t *wide = HalvUTF8ConvertToUTF16(text);
    if (w.invalid) {
        FailIf(wide != nullptr, "HalvUTF8ConvertToUTF16 took an invalid sequence");
    } else if (wide == nullptr || std::memcmp(wide, units.data(), units.size() * 2) != 0) {
        Fail("HalvUTF8ConvertToUTF16");
    }

    uint32_t *ucs = HalvUTF8ConvertToUCS4(text);
    FailIf(ucs == nullptr, "HalvUTF8ConvertToUCS4 gave null");
    for (size_t i = 0; i <= w.values.size(); ++i)
        FailIf(ucs[i] != (i < w.values.size() ? w.values[i] : 0), "HalvUTF8ConvertToUCS4");

    /* Round trips, for the characters before any invalid sequence. */
    bool allInRange = true, plainUnicode = true;
    for (uint32_t v : w.values) {
        allInRange &= v <= 0x10FFFF;
        plainUnicode &= v <= 0x10FFFF && !(v >= 0xD800 && v <= 0xDFFF) && v != 0xFEFF && v != 0xFFFE;
    }
    const std::string before(text, w.end);
    char *back = HalvUTF8ConvertFromUCS4(ucs);
    if (allInRange != (back != nullptr) || (back != nullptr && before != back))
        Fail("UTF-8 -> UCS-4 -> UTF-8 changed the text");
    halv_internal_free(back);
    if (wide != nullptr && plainUnicode) {
        back = HalvUTF8ConvertFromUTF16(wide);
        FailIf(back == nullptr || before != back, "UTF-8 -> UTF-16 -> UTF-8 changed the text");
        halv_internal_free(back);
    }
    halv_internal_free(ucs);
    halv_internal_free(wide);
}

/* UTF-16 to UTF-8: byte order marks, the swap they switch on, pairs. */
void CheckFromUtf16(const uint16_t *wide) {
    std::string expected;
    bool swap = false, failed = false;
    auto unitAt = [&](size_t i) { return swap ? (uint16_t)__builtin_bswap16(wide[i]) : wide[i]; };
    for (size_t i = 0; wide[i] != 0 && !failed; ++i) {
        uint16_t u = unitAt(i);
        if (u == 0xFEFF)
            continue;
        if (u == 0xFFFE) {
            swap = true;
            continue;
        }
        if (u >= 0xDC00 && u <= 0xDFFF) {
            failed = true;
        } else if (u >= 0xD800 && u <= 0xDBFF) {
            uint16_t low = wide[i + 1] == 0 ? 0 : unitAt(i + 1);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                Encode(0x10000 + ((uint32_t)(u & 0x3FF) << 10) + (low & 0x3FF), expected);
                ++i;
            } else {
                failed = true;
            }
        } else {
            Encode(u, expected);
        }
    }
    char *text = HalvUTF8ConvertFromUTF16(wide);
    FailIf(failed ? text != nullptr : text == nullptr || expected != text, "HalvUTF8ConvertFromUTF16");
    halv_internal_free(text);
}

void CheckFromUcs4(const uint32_t *ucs) {
    std::string expected;
    bool failed = false;
    for (size_t i = 0; ucs[i] != 0 && !failed; ++i) {
        if (ucs[i] > 0x10FFFF)
            failed = true;
        else
            Encode(ucs[i], expected);
    }
    char *text = HalvUTF8ConvertFromUCS4(ucs);
    FailIf(failed ? text != nullptr : text == nullptr || expected != text, "HalvUTF8ConvertFromUCS4");
    halv_internal_free(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr size_t kHead = 6;
    if (size < kHead || size > 4096)
        return 0;
    const uint8_t control = data[0];
    uint32_t code;
    std::memcpy(&code, data + 1, 4);
    if (control & 1) /* mostly search for a character the text may hold */
        code %= 0x110000;
    const uint32_t maxBytes = data[5];
    data += kHead;
    size -= kHead;

    /* UTF-8: up to the first NUL. */
    const char *bytes = reinterpret_cast<const char *>(data);
    char *text = Exact(std::string(bytes, strnlen(bytes, size)));
    CheckWalkers(text, code, maxBytes);
    CheckFromUtf8(text);
    std::free(text);

    /* UTF-16, native order, up to the first 0 unit. */
    std::vector<uint16_t> units;
    for (size_t i = 0; i + 1 < size; i += 2) {
        uint16_t u;
        std::memcpy(&u, data + i, 2);
        if (u == 0)
            break;
        units.push_back(u);
    }
    units.push_back(0);
    uint16_t *wide = Exact(units.data(), units.size());
    CheckFromUtf16(wide);
    std::free(wide);

    /* UCS-4; with bit 1 of the control byte the values are kept to the
     * range of Unicode, so most of them convert. */
    std::vector<uint32_t> values;
    for (size_t i = 0; i + 3 < size; i += 4) {
        uint32_t v;
        std::memcpy(&v, data + i, 4);
        if (control & 2)
            v %= 0x110000;
        if (v == 0)
            break;
        values.push_back(v);
    }
    values.push_back(0);
    uint32_t *ucs = Exact(values.data(), values.size());
    CheckFromUcs4(ucs);
    std::free(ucs);
    return 0;
}
