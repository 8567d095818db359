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
// terminator, or the whole input and a terminator).  They are handed over
// as exactly that many pointers in a block of exactly that size, each to a
// block of exactly what its directive may store.  Besides: a format the
// rules call malformed or too long gives -2 or -3 and stores nothing; the
// count never exceeds the assigning directives; the string and the stream
// source give the same result and bytes; a locale record whose decimal
// point is "." scans as the fixed one does; an integer printed in any base
// from 2 to 36 scans back to itself.
#include <vector>

#include "fuzz/support.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;

constexpr size_t kMaxEntries = 64;

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
    while (fuzz::NextDirective(p)) {
        if (entries >= kMaxEntries)
            return fuzz::kTooMany;
        bool suppressed = false;
        auto star = [&](bool precision) {
            if (!precision) {
                suppressed = true;
                return true;
            }
            if (entries >= kMaxEntries)
                return false;
            ++entries;
            out.push_back({sizeof(int), false});
            return true;
        };
        fuzz::Directive d;
        if (const int32_t refused = fuzz::ReadDirective(p, d, star))
            return refused;
        const char c = *p++;
        Destination dest{0, true};
        if (c != '\0' && std::strchr("diuoxX", c) != nullptr)
            dest.bytes = d.IntegerBytes();
        else if (c != '\0' && std::strchr("eEfFgGaA", c) != nullptr)
            dest.bytes = sizeof(double);
        else if (c == 'c')
            dest.bytes = d.width > 0 ? (size_t)d.width : 1;
        else if (c == 's' || c == '[')
            dest.bytes = (d.width > 0 ? (size_t)d.width : inputLength) + 1;
        else if (c == 'p')
            dest.bytes = sizeof(void *);
        else if (c == 'n')
            dest = {d.IntegerBytes(), false};
        else
            return fuzz::kMalformed;
        if (entries >= kMaxEntries)
            return fuzz::kTooMany;
        ++entries;
        if (c == '[')
            p = SetEnd(p);
        if (!suppressed)
            out.push_back(dest);
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
    FailIf(printed <= 0 || printed >= (int32_t)sizeof text, "an integer didn't print");
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
    if (!fuzz::NumbersAreSmall(formatText.c_str()))
        return 0;
    char *exactFormat = fuzz::Exact(formatText);
    char *exactInput = fuzz::Exact(std::string(input, inputLength));

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
    } else if (result == fuzz::kTooMany || result > assigning || result < -8) {
        Fail("a result out of range");
    }

    /* The same input from a stream; a 0xFF byte would end it there. */
    if (std::memchr(exactInput, 0xFF, inputLength) == nullptr) {
        Pool fromStream(dests, values, valueCount);
        HalvIO *io = fuzz::OpenBytes(exactInput, inputLength);
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
