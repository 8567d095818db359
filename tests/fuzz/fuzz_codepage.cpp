// Fuzz target for code page conversion.
//
// Input: a selector byte, a size byte, then text, which up to its first NUL
// sits in a block of exactly its size.  The selector picks a code page name
// from a list (copies, the ANSI and OEM pages, single- and multi-byte pages,
// pages that hold all of Unicode, unknown names) or, for its last value,
// takes the name from the text up to a '\n'.  What must hold:
//  - a copy name gives a copy and leaves *size alone; an unknown name gives
//    null both ways;
//  - towards a code page, invalid UTF-8 gives null and valid UTF-8 never
//    does, and *size is the length, with a terminator behind it;
//  - from a code page, any bytes give valid UTF-8 (or null, where a U+FFFE
//    in them swaps the rest into a lone surrogate, as the UTF-16 step
//    does), reading no further than the NUL whatever the size says;
//  - a single-byte page makes one byte of each UTF-16 unit, one character
//    of each byte, and gives the bytes back from what it made of them;
//  - a page that holds all of Unicode gives the text back.
#include "fuzz/support.h"

namespace {

[[noreturn]] void Fail(const char *what, const char *page) {
    std::fprintf(stderr, "property broken for code page %s: %s\n", page != nullptr ? page : "(null)", what);
    std::abort();
}

void FailIf(bool broken, const char *what, const char *page) {
    if (broken)
        Fail(what, page);
}

enum class Kind { Copy, Unknown, SingleByte, MultiByte, AllUnicode };

struct Page {
    const char *name;
    Kind kind;
};

constexpr Page kPages[] = {
    {nullptr, Kind::Copy},        {"utf8", Kind::Copy},         {"UTF-8", Kind::Copy},
    {"ACP", Kind::SingleByte},    {"oemcp", Kind::SingleByte},  {"CP1252", Kind::SingleByte},
    {"cp437", Kind::SingleByte},  {"CP850", Kind::SingleByte},  {"CP1251", Kind::SingleByte},
    {"CP866", Kind::SingleByte},  {"CP20866", Kind::SingleByte}, {"CP28591", Kind::SingleByte},
    {"CP28592", Kind::SingleByte}, {"CP28605", Kind::SingleByte}, {"CP10000", Kind::SingleByte},
    {"CP20127", Kind::SingleByte}, {"CP2", Kind::SingleByte},   {"CPnothing", Kind::SingleByte},
    {"CP932", Kind::MultiByte},   {"CP936", Kind::MultiByte},   {"CP949", Kind::MultiByte},
    {"CP950", Kind::MultiByte},   {"CP1361", Kind::MultiByte},  {"CP20932", Kind::MultiByte},
    {"CP50220", Kind::MultiByte}, {"CP51949", Kind::MultiByte}, {"CP1200", Kind::MultiByte},
    {"CP1201", Kind::MultiByte},  {"CP12000", Kind::MultiByte}, {"CP12001", Kind::MultiByte},
    {"CP1255", Kind::MultiByte},  {"CP1258", Kind::MultiByte},  {"CP54936", Kind::AllUnicode},
    {"CP65001", Kind::AllUnicode}, {"CP65000", Kind::AllUnicode}, {"latin1", Kind::Unknown},
    {"", Kind::Unknown},          {"CP42", Kind::Unknown},      {"CP-1", Kind::Unknown},
};
constexpr size_t kPageCount = sizeof kPages / sizeof kPages[0];

/* UTF-16 units of valid UTF-8, or -1 for invalid text. */
long Utf16Units(const char *text) {
    uint16_t *wide = HalvUTF8ConvertToUTF16(text);
    if (wide == nullptr)
        return -1;
    long units = HalvWideStrLen(wide);
    halv_internal_free(wide);
    return units;
}

/* Text without the characters the UTF-16 step itself changes: values past
 * Unicode, surrogates, and the byte order marks U+FEFF and U+FFFE. */
bool PlainUnicode(const char *text) {
    uint32_t *ucs = HalvUTF8ConvertToUCS4(text);
    bool plain = true;
    for (size_t i = 0; ucs[i] != 0; ++i) {
        uint32_t v = ucs[i];
        plain &= v <= 0x10FFFF && !(v >= 0xD800 && v <= 0xDFFF) && v != 0xFEFF && v != 0xFFFE;
    }
    halv_internal_free(ucs);
    return plain;
}

void CheckTo(const char *text, const Page &page, const char *name) {
    int32_t size = -12345;
    char *converted = HalvUTF8ConvertTo(text, name, &size);
    if (page.kind == Kind::Copy) {
        if (converted == nullptr || std::strcmp(converted, text) != 0 || size != -12345)
            Fail("a copy name didn't copy", name);
    } else if (page.kind == Kind::Unknown) {
        FailIf(converted != nullptr, "an unknown name converted", name);
    } else {
        const long units = Utf16Units(text);
        if ((units < 0) != (converted == nullptr))
            Fail("null towards a code page iff the UTF-8 is invalid", name);
        if (converted != nullptr) {
            FailIf(size < 0 || converted[size] != 0, "size isn't the length before a terminator", name);
            if (page.kind == Kind::SingleByte && size != units)
                Fail("a single-byte page made other than one byte a unit", name);
            if (page.kind == Kind::AllUnicode && PlainUnicode(text)) {
                char *back = HalvUTF8ConvertFrom(converted, size, name);
                if (back == nullptr || std::strcmp(back, text) != 0)
                    Fail("a page of all Unicode didn't give the text back", name);
                halv_internal_free(back);
            }
        }
    }
    halv_internal_free(converted);
}

void CheckFrom(const char *text, int32_t size, const Page &page, const char *name) {
    char *converted = HalvUTF8ConvertFrom(text, size, name);
    const size_t length = std::strlen(text);
    const size_t taken = size >= 0 && (size_t)size < length ? (size_t)size : length;
    if (page.kind == Kind::Copy) {
        if (converted == nullptr || std::string(text, taken) != converted)
            Fail("a copy name didn't copy", name);
    } else if (page.kind == Kind::Unknown) {
        FailIf(converted != nullptr, "an unknown name converted", name);
    } else {
        /* The converter's UTF-16 goes through HalvUTF8ConvertFromUTF16, so a
         * U+FFFE in the source swaps the units behind it, and one that then
         * stands alone as a surrogate gives null.  No single-byte page has
         * such a character. */
        if (converted == nullptr ? page.kind == Kind::SingleByte : Utf16Units(converted) < 0)
            Fail("bytes from a code page didn't give valid UTF-8", name);
        if (converted != nullptr && page.kind == Kind::SingleByte) {
            if (HalvUTF8StrLen(converted) != (int32_t)taken)
                Fail("a single-byte page made other than one character a byte", name);
            if (std::strstr(converted, "\xEF\xBF\xBD") == nullptr) {
                int32_t backSize = 0;
                char *back = HalvUTF8ConvertTo(converted, name, &backSize);
                if (back == nullptr || (size_t)backSize != taken || std::memcmp(back, text, taken) != 0)
                    Fail("a single-byte page didn't give the bytes back", name);
                halv_internal_free(back);
            }
        }
    }
    halv_internal_free(converted);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size > 4096)
        return 0;
    const uint8_t selector = data[0];
    const int32_t givenSize = data[1] == 255 ? -1 : data[1];
    const char *rest = reinterpret_cast<const char *>(data + 2);
    std::string text(rest, strnlen(rest, size - 2));

    Page page = kPages[selector % (kPageCount + 1) < kPageCount ? selector % (kPageCount + 1) : 0];
    std::string ownName;
    const char *name = page.name;
    if (selector % (kPageCount + 1) == kPageCount) {
        /* A name of the input's own: its kind follows from the rules. */
        size_t line = text.find('\n');
        ownName = text.substr(0, line);
        text = line == std::string::npos ? "" : text.substr(line + 1);
        name = ownName.c_str();
        if (HalvStrCaseCmp(name, "utf8") == 0 || HalvStrCaseCmp(name, "utf-8") == 0)
            page.kind = Kind::Copy;
        else if (HalvStrCaseCmp(name, "ACP") == 0 || HalvStrCaseCmp(name, "OEMCP") == 0)
            page.kind = Kind::SingleByte;
        else if (HalvStrNCaseCmp(name, "CP", 2) != 0)
            page.kind = Kind::Unknown;
        else
            page.kind = Kind::MultiByte; /* whatever it names: at least not unknown for sure */
    }
    char *exact = fuzz::Exact(text);
    if (name == ownName.c_str() && page.kind == Kind::MultiByte) {
        /* A numbered name may or may not have a converter: only what holds
         * for every page is checked, and that it never crashes. */
        if (char *converted = HalvUTF8ConvertFrom(exact, givenSize, name)) {
            FailIf(Utf16Units(converted) < 0, "bytes from a code page didn't give valid UTF-8", name);
            halv_internal_free(converted);
        }
        int32_t outSize = 0;
        char *to = HalvUTF8ConvertTo(exact, name, &outSize);
        FailIf(to != nullptr && to[outSize] != 0, "size isn't the length before a terminator", name);
        halv_internal_free(to);
    } else {
        CheckTo(exact, page, name);
        CheckFrom(exact, givenSize, page, name);
    }
    std::free(exact);
    return 0;
}
