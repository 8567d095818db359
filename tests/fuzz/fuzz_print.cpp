// Fuzz target for the print engine, through the array (L) forms.
//
// Input: a control byte, a size byte for the bounded sink, the format up to
// a NUL, then the bytes the argument values are made of.
//
// The arguments a format takes are worked out here from the rules of the
// directives, independently of the engine, and handed over as exactly that
// many pointers in a block of exactly that size, each value in a block of
// exactly the size its directive reads or (%n) stores: reading past the
// pool or a value, or storing past a count, is caught.  %p entries are
// arbitrary addresses that must never be followed.  Besides: a format the
// rules call malformed or too long gives -2 or -3 and writes nothing; the
// four sinks (the bounded one its head, terminated; a stream and a null
// stream) give the same count and text; and a locale record whose decimal
// point is "." prints what the fixed record prints.
#include <algorithm>
#include <vector>

#include "fuzz/support.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;

enum class Kind { Star, Value, String, Pointer, Count };

/* One argument as the rules give it, and the bytes read or stored through
 * its pointer. */
struct Argument {
    Kind kind;
    size_t bytes;
};

constexpr size_t kMaxArgs = 64;

/* The arguments of a format in print mode, or kMalformed / kTooMany. */
int32_t ArgumentsOf(const char *p, std::vector<Argument> &args) {
    auto takeStar = [&](bool) {
        if (args.size() >= kMaxArgs)
            return false;
        args.push_back({Kind::Star, sizeof(int)});
        return true;
    };
    while (fuzz::NextDirective(p)) {
        if (args.size() >= kMaxArgs)
            return fuzz::kTooMany;
        fuzz::Directive d;
        if (const int32_t refused = fuzz::ReadDirective(p, d, takeStar))
            return refused;
        const char c = *p++;
        const size_t floating = d.longDouble ? sizeof(long double) : d.h ? sizeof(float) : sizeof(double);
        Argument a;
        if (c != '\0' && std::strchr("diuoxX", c) != nullptr)
            a = {Kind::Value, d.IntegerBytes()};
        else if (c != '\0' && std::strchr("fFeEgGaA", c) != nullptr)
            a = {Kind::Value, floating};
        else if (c == 'c')
            a = {Kind::Value, 1};
        else if (c == 's')
            a = {Kind::String, 0};
        else if (c == 'p')
            a = {Kind::Pointer, 0};
        else if (c == 'n')
            a = {Kind::Count, d.IntegerBytes()};
        else
            return fuzz::kMalformed;
        if (args.size() >= kMaxArgs)
            return fuzz::kTooMany;
        args.push_back(a);
    }
    return (int32_t)args.size();
}

/* The bytes argument values are made of, handed out in turn; zeros when
 * they run out. */
class ValueBytes {
public:
    ValueBytes(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    void Take(void *out, size_t n) {
        auto *bytes = static_cast<uint8_t *>(out);
        for (size_t i = 0; i < n; ++i)
            bytes[i] = at_ < size_ ? data_[at_++] : 0;
    }
    uint8_t Byte() {
        uint8_t b;
        Take(&b, 1);
        return b;
    }

private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

/* The argument pool: exactly one pointer an argument, each value in an
 * allocation of exactly its size. */
struct Pool {
    void **entries = nullptr;
    std::vector<void *> owned;

    Pool(const std::vector<Argument> &args, ValueBytes &values) {
        entries = static_cast<void **>(std::malloc(args.size() * sizeof(void *) + (args.empty() ? 1 : 0)));
        for (size_t i = 0; i < args.size(); ++i) {
            void *entry = nullptr;
            switch (args[i].kind) {
            case Kind::Star: {
                /* Widths and precisions from arguments stay small, so that
                 * a run doesn't print gigabytes. */
                int value;
                values.Take(&value, sizeof value);
                value = (int)((unsigned)value % 601) - 300;
                entry = Own(sizeof value);
                std::memcpy(entry, &value, sizeof value);
                break;
            }
            case Kind::Value:
                entry = Own(args[i].bytes);
                values.Take(entry, args[i].bytes);
                break;
            case Kind::String: {
                uint8_t length = values.Byte();
                if (length == 255)
                    break; /* a null string prints "(nil)" */
                length %= 32;
                entry = Own(length + 1u);
                values.Take(entry, length);
                static_cast<char *>(entry)[length] = '\0';
                break;
            }
            case Kind::Pointer:
                values.Take(&entry, sizeof entry); /* printed, never followed */
                break;
            case Kind::Count:
                if (values.Byte() % 8 != 0)
                    entry = Own(args[i].bytes);
                break;
            }
            entries[i] = entry;
        }
    }
    ~Pool() {
        for (void *p : owned)
            std::free(p);
        std::free(entries);
    }
    void *Own(size_t bytes) {
        void *p = std::malloc(bytes);
        std::memset(p, 0xA5, bytes);
        owned.push_back(p);
        return p;
    }
};

/* Prints through the four sinks and checks that they agree; gives the text
 * and the count. */
int32_t PrintAll(const HalvLocale *locale, const char *format, void **pool, uint32_t boundedSize,
                 int32_t expected, std::string &text) {
    char *made = reinterpret_cast<char *>(1);
    const int32_t result = HalvLASPrintfl(locale, &made, format, pool);
    if (result == -1 && made == nullptr)
        return -1; /* out of memory: nothing to compare */
    if (expected < 0) {
        if (result != expected || made != nullptr)
            Fail("a format the rules refuse was not refused, or left a string");
    } else if (result < 0 || made == nullptr) {
        Fail("a well-formed format was refused");
    }
    if (made != nullptr) {
        text.assign(made, (size_t)result);
        FailIf(made[result] != '\0', "the new string isn't terminated");
        halv_internal_free(made);
    }

    /* The bounded sink: the head of the text in exactly boundedSize bytes. */
    char *bounded = static_cast<char *>(std::malloc(boundedSize + 1));
    if (HalvLSNPrintfl(locale, boundedSize == 0 ? nullptr : bounded, boundedSize, format, pool) != result)
        Fail("the bounded sink counted otherwise");
    if (boundedSize != 0) {
        const size_t stored = result < 0 ? 0 : std::min<size_t>(boundedSize - 1, (size_t)result);
        if (std::memcmp(bounded, text.data(), stored) != 0 || bounded[stored] != '\0')
            Fail("the bounded sink stored other bytes");
    }
    std::free(bounded);

    /* The unbounded sink, in exactly the bytes the text and its terminator
     * need. */
    const size_t length = result < 0 ? 0 : (size_t)result;
    char *buffer = static_cast<char *>(std::malloc(length + 1));
    if (HalvLSPrintfl(locale, buffer, format, pool) != result || std::memcmp(buffer, text.data(), length) != 0 ||
        buffer[length] != '\0')
        Fail("the unbounded sink differs");
    std::free(buffer);

    HalvIO *io = HalvIO_Mem(0);
    if (HalvIOLPrintfl(locale, io, format, pool) != result || fuzz::MemText(io) != text)
        Fail("the stream sink differs");
    io->close(io);
    FailIf(HalvIOLPrintfl(locale, nullptr, format, pool) != result, "a null stream counted otherwise");
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3 || size > 8192)
        return 0;
    const uint8_t control = data[0];
    const uint32_t boundedSize = data[1];
    const char *format = reinterpret_cast<const char *>(data + 2);
    const size_t formatLength = strnlen(format, size - 2);
    if (formatLength == size - 2)
        return 0; /* the format needs its NUL */
    const std::string formatText(format, formatLength);
    if (!fuzz::NumbersAreSmall(formatText.c_str()))
        return 0;
    const size_t valuesAt = 2 + formatLength + 1;
    ValueBytes values(data + valuesAt, size - valuesAt);

    std::vector<Argument> args;
    const int32_t expected = ArgumentsOf(formatText.c_str(), args);
    char *exactFormat = fuzz::Exact(formatText);
    Pool pool(args, values);

    std::string text;
    const int32_t result = PrintAll(nullptr, exactFormat, pool.entries, boundedSize, expected, text);

    static const char *const kPoints[] = {".", ",", "", "\xC2\xB7", "::"};
    const HalvLocale locale = {kPoints[control % 5], "'", "3;0"};
    std::string localText;
    const int32_t localResult = PrintAll(&locale, exactFormat, pool.entries, boundedSize, expected, localText);
    if (control % 5 == 0 && result >= 0 && localResult >= 0 && (localResult != result || localText != text))
        Fail("a record with the decimal point \".\" printed otherwise than the fixed one");
    std::free(exactFormat);
    return 0;
}
