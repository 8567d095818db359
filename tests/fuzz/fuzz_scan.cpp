// Fuzz target for the scan engine, through the array (L) forms.
//
// Input: a control byte, the format up to a NUL, the input text up to a
// NUL, then bytes for argument values and for a round trip.
//
// The destinations a format takes are worked out here from the rules of the
// directives, independently of the engine: '*' suppresses and takes none,
// ".*" takes a pointer to an int, and each conversion stores a known number
// of bytes (integers and counts by size, every floating conversion a double,
// %p a pointer, %c its width, %s and %[ at most their width and a
// terminator, or the whole input and a terminator).  The engine gets exactly
// that many pointers in an allocation of exactly that size, each pointing at
// an allocation of exactly what its directive may store, so a store past a
// destination, or a read past the pool, is caught.
//
// What must hold besides: a format the rules call malformed or too long
// gives -2 or -3 and stores nothing; the count never exceeds the assigning
// directives; the string source and the stream source (a memory stream)
// give the same result and store the same bytes; a locale record whose
// decimal point is "." scans as the fixed one does.  And an integer printed
// in any base from 2 to 36 scans back to itself.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

[[noreturn]] void Fail(const char *what) {
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

constexpr int32_t kMalformed = -2;
constexpr int32_t kTooMany = -3;
constexpr size_t kMaxEntries = 64;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/* One destination, by the rules: the bytes the engine may store through it
 * (an int read for a ".*" entry), and whether its directive counts as an
 * assignment. */
struct Destination {
    size_t bytes;
    bool assigns;
};

/* Where the set of a %[ ends: behind a leading '^', then a leading ']' or
 * '-', the brackets pair up; the end of the format ends it too. */
const char *SetEnd(const char *p) {
    if (*p == '^')
        ++p;
    if (*p == ']' || *p == '-')
        ++p;
    for (int depth = 1; *p != '\0'; ++p) {
        if (*p == '[')
            ++depth;
        else if (*p == ']' && --depth == 0)
            return p + 1;
    }
    return p;
}

/* The table entries and destinations of a format in scan mode, or
 * kMalformed / kTooMany.  `entries` counts '.*' entries and suppressed
 * directives too, as the 64-entry limit does. */
int32_t DestinationsOf(const char *p, size_t inputLength, std::vector<Destination> &out) {
    size_t entries = 0;
    while (*p != '\0') {
        if (*p != '%') {
            ++p;
            continue;
        }
        if (p[1] == '%') {
            p += 2;
            continue;
        }
        if (entries >= kMaxEntries)
            return kTooMany;
        ++p;
        bool left = false, suppressed = false;
        int dots = 0, h = 0, l = 0;
        bool wide = false, anySize = false;
        int varsize = 0;
        long width = 0;
        auto readWidth = [&]() {
            width = 0;
            while (IsDigit(*p))
                width = width > 100000 ? width : width * 10 + (*p++ - '0');
        };
        for (;;) {
            const char c = *p;
            if (c == ' ' || c == '+' || c == '#') {
                ++p;
            } else if (c == '-') {
                left = true;
                ++p;
            } else if (c == '0' && !left) {
                ++p;
            } else if (IsDigit(c)) {
                readWidth();
            } else if (c == '*') {
                ++p;
                suppressed = true;
            } else if (c == '.') {
                ++p;
                if (++dots > 2)
                    return kMalformed;
                if (*p == '*') {
                    ++p;
                    if (entries >= kMaxEntries)
                        return kTooMany;
                    ++entries;
                    out.push_back({sizeof(int), false});
                } else if (dots == 2 && IsDigit(*p)) {
                    long base = 0;
                    while (IsDigit(*p))
                        base = base > 1000 ? base : base * 10 + (*p++ - '0');
                    if (base < 2 || base > 36)
                        return kMalformed;
                } else {
                    while (IsDigit(*p))
                        ++p;
                }
            } else if (c == 'h' || c == 'l') {
                ++p;
                anySize = true;
                if (++(c == 'h' ? h : l) > 2)
                    return kMalformed;
                wide |= c == 'l';
            } else if (c == 'L' || c == 'z' || c == 't' || c == 'j') {
                ++p;
                anySize = true;
                wide |= c != 'L';
            } else if (c == 'I') {
                ++p;
                if (anySize || varsize != 0)
                    return kMalformed;
                const char *digits = p;
                while (IsDigit(*p))
                    ++p;
                const std::string n(digits, p);
                varsize = n == "8" ? 1 : n == "16" ? 2 : n == "32" ? 4 : n == "64" ? 8 : 0;
                if (varsize == 0)
                    return kMalformed;
            } else {
                /* The conversion.  Integers and counts store by size: an I
                 * size decides, then the 64-bit sizes, then h and hh. */
                const size_t integerBytes = varsize != 0 ? (varsize == 8 ? 8 : 4) : wide ? 8 : h ? 2 : 4;
                Destination d{0, true};
                if (c != '\0' && std::strchr("diuoxX", c) != nullptr)
                    d.bytes = integerBytes;
                else if (c != '\0' && std::strchr("eEfFgGaA", c) != nullptr)
                    d.bytes = sizeof(double);
                else if (c == 'c')
                    d.bytes = width > 0 ? (size_t)width : 1;
                else if (c == 's' || c == '[')
                    d.bytes = (width > 0 ? (size_t)width : inputLength) + 1;
                else if (c == 'p')
                    d.bytes = sizeof(void *);
                else if (c == 'n')
                    d = {integerBytes, false};
                else
                    return kMalformed;
                if (entries >= kMaxEntries)
                    return kTooMany;
                ++entries;
                ++p;
                if (c == '[')
                    p = SetEnd(p);
                if (!suppressed)
                    out.push_back(d);
                break;
            }
        }
    }
    return (int32_t)entries;
}

/* Destinations filled with one pattern, one allocation each. */
struct Pool {
    void **entries;
    std::vector<void *> owned;
    std::vector<size_t> sizes;

    Pool(const std::vector<Destination> &dests, const uint8_t *values, size_t valueCount) {
        entries = static_cast<void **>(std::malloc(dests.size() * sizeof(void *) + (dests.empty() ? 1 : 0)));
        for (size_t i = 0; i < dests.size(); ++i) {
            auto *p = static_cast<uint8_t *>(std::malloc(dests[i].bytes));
            for (size_t k = 0; k < dests[i].bytes; ++k)
                p[k] = valueCount != 0 ? values[(i * 7 + k) % valueCount] : 0xA5;
            owned.push_back(p);
            sizes.push_back(dests[i].bytes);
            entries[i] = p;
        }
    }
    ~Pool() {
        for (void *p : owned)
            std::free(p);
        std::free(entries);
    }
    bool SameAs(const Pool &other) const {
        for (size_t i = 0; i < owned.size(); ++i)
            if (std::memcmp(owned[i], other.owned[i], sizes[i]) != 0)
                return false;
        return true;
    }
};

/* No digit run of the format stands for more than this, so that widths
 * keep the destinations small. */
bool NumbersAreSmall(const char *format) {
    long value = 0;
    for (const char *p = format;; ++p) {
        if (IsDigit(*p)) {
            value = value * 10 + (*p - '0');
            if (value > 4096)
                return false;
        } else {
            value = 0;
            if (*p == '\0')
                return true;
        }
    }
}

/* An integer printed in a base scans back to itself. */
void RoundTrip(const uint8_t *bytes, size_t count) {
    if (count < 10)
        return;
    int64_t value;
    std::memcpy(&value, bytes, sizeof value);
    const int base = 2 + bytes[8] % 35;
    /* With '#' the scan wants a 0 before the digits, and 0 itself prints
     * without a prefix: "0" would read as a prefix with no digits. */
    const bool alt = (bytes[9] & 1) && value != 0, isUnsigned = bytes[9] & 2;
    char format[32];
    std::snprintf(format, sizeof format, "%%%s..%dll%c", alt && (base == 2 || base == 16) ? "#" : "", base,
                  isUnsigned ? 'u' : 'i');
    char text[80];
    const int32_t printed = HalvSNPrintf(text, sizeof text, format, value);
    if (printed <= 0 || printed >= (int32_t)sizeof text)
        Fail("an integer didn't print");
    int64_t back = ~value;
    void *target = &back;
    if (HalvLSScanf(text, format, &target) != 1 || back != value) {
        std::fprintf(stderr, "%s of %lld printed \"%s\", scanned %lld\n", format, (long long)value, text,
                     (long long)back);
        Fail("an integer didn't scan back to itself");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size > 8192)
        return 0;
    const uint8_t control = data[0];
    const char *format = reinterpret_cast<const char *>(data + 1);
    const size_t formatLength = strnlen(format, size - 1);
    if (formatLength == size - 1)
        return 0;
    const char *input = format + formatLength + 1;
    const size_t inputRoom = size - 1 - formatLength - 1;
    const size_t inputLength = strnlen(input, inputRoom);
    const size_t valuesAt = 1 + formatLength + 1 + inputLength + (inputLength < inputRoom ? 1 : 0);
    const uint8_t *values = data + valuesAt;
    const size_t valueCount = size - valuesAt;
    RoundTrip(values, valueCount);

    const std::string formatText(format, formatLength);
    if (!NumbersAreSmall(formatText.c_str()))
        return 0;
    char *exactFormat = static_cast<char *>(std::malloc(formatLength + 1));
    std::memcpy(exactFormat, format, formatLength + 1);
    char *exactInput = static_cast<char *>(std::malloc(inputLength + 1));
    std::memcpy(exactInput, input, inputLength);
    exactInput[inputLength] = '\0';

    std::vector<Destination> dests;
    const int32_t expected = DestinationsOf(exactFormat, inputLength, dests);
    int32_t assigning = 0;
    for (const Destination &d : dests)
        assigning += d.assigns ? 1 : 0;

    Pool fromText(dests, values, valueCount);
    const Pool untouched(dests, values, valueCount);
    const int32_t result = HalvLSScanf(exactInput, exactFormat, fromText.entries);
    if (expected < 0) {
        if (result != expected || !fromText.SameAs(untouched))
            Fail("a format the rules refuse was not refused, or stored something");
    } else if (result == kTooMany || result > assigning || result < -8) {
        Fail("a result out of range");
    }

    /* The same input from a stream; a 0xFF byte would end it there. */
    if (std::memchr(exactInput, 0xFF, inputLength) == nullptr) {
        Pool fromStream(dests, values, valueCount);
        HalvIO *io = HalvIO_Mem(0);
        if (inputLength != 0)
            io->write(io, exactInput, (uint32_t)inputLength);
        io->seek(io, 0, 0);
        if (HalvIOLScanf(io, exactFormat, fromStream.entries) != result || !fromStream.SameAs(fromText))
            Fail("the stream source scanned otherwise than the string source");
        io->close(io);
    }

    /* A record whose decimal point is "." is the fixed record's equal. */
    if (control & 1) {
        Pool withLocale(dests, values, valueCount);
        const HalvLocale point = {".", ",", ""};
        if (HalvLSScanfl(&point, exactInput, exactFormat, withLocale.entries) != result ||
            !withLocale.SameAs(fromText))
            Fail("a record with the decimal point \".\" scanned otherwise than the fixed one");
    } else {
        Pool withLocale(dests, values, valueCount);
        static const char *const kPoints[] = {",", "", "\xC2\xB7", "::"};
        const HalvLocale other = {kPoints[(control >> 1) % 4], ".", ""};
        HalvLSScanfl(&other, exactInput, exactFormat, withLocale.entries);
    }
    std::free(exactFormat);
    std::free(exactInput);
    return 0;
}
