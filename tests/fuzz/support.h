// What the fuzz targets share: how a broken promise ends a run, inputs in
// allocations of exactly their size (so that ASan catches a read past them),
// streams over the input, the passes of the stored-format targets, the
// directive rules the print and scan targets model, and the tokens of the
// registry file and of function descriptions.
#ifndef HALV_TESTS_FUZZ_SUPPORT_H
#define HALV_TESTS_FUZZ_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dpk_hvsup.h"

namespace fuzz {

[[noreturn]] inline void Fail(const char *what) {
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

inline void FailIf(bool broken, const char *what) {
    if (broken)
        Fail(what);
}

inline void Require(bool promise) {
    if (!promise)
        __builtin_trap();
}

/* A copy of count items in a malloc'ed block of exactly their size. */
template <typename T>
T *Exact(const T *items, size_t count) {
    auto *copy = static_cast<T *>(std::malloc(count * sizeof(T) + (count == 0)));
    if (count != 0)
        std::memcpy(copy, items, count * sizeof(T));
    return copy;
}

/* The text and its NUL, exactly. */
inline char *Exact(const std::string &text) { return Exact(text.c_str(), text.size() + 1); }

/* A library memory stream holding the bytes, read from the start. */
inline HalvIO *OpenBytes(const void *bytes, size_t size) {
    HalvIO *io = HalvIO_Mem(0);
    if (io == nullptr || (size != 0 && io->write(io, bytes, (uint32_t)size) != (int32_t)size) ||
        io->seek(io, 0, 0) != 0)
        Fail("memory stream");
    return io;
}

inline size_t Position(HalvIO *io) { return (size_t)io->seek(io, 0, 1); }

inline std::string MemText(HalvIO *io) {
    return std::string(static_cast<char *>(HalvIOMemBuffer(io)), HalvIOMemLength(io));
}

/* A hand-built stream over bytes: a read slot, a write slot when written
 * is given, and no seek, so that a reader must take it call by call. */
struct ByteStream {
    HalvIO io;
    const uint8_t *bytes;
    size_t size, at;
    std::string *written;
};

inline ByteStream OpenByteStream(const void *bytes, size_t size, std::string *written = nullptr) {
    ByteStream s{};
    s.io.read = [](HalvIO *io, void *buffer, uint32_t count) {
        auto *self = reinterpret_cast<ByteStream *>(io);
        const size_t take = count < self->size - self->at ? count : self->size - self->at;
        if (take != 0)
            std::memcpy(buffer, self->bytes + self->at, take);
        self->at += take;
        return (int32_t)take;
    };
    if (written != nullptr)
        s.io.write = [](HalvIO *io, const void *bytes, uint32_t count) {
            reinterpret_cast<ByteStream *>(io)->written->append(static_cast<const char *>(bytes), count);
            return (int32_t)count;
        };
    s.bytes = static_cast<const uint8_t *>(bytes);
    s.size = size;
    s.written = written;
    return s;
}

/* A header's copy slot tried, and the copy released through its own slot. */
inline void CopyAndFree(HalvHeaderStruct *header) {
    if (HalvHeaderStruct *copy = header->copy(header))
        copy->free(copy);
}

/* The stored-format targets: the count of lines a load asks for, taken
 * from the input's last byte (0, the loader's own choice, for a third). */
inline uint32_t CountToAsk(const uint8_t *data, size_t size, uint32_t modulo) {
    return size % 3 == 0 ? 0 : data[size - 1] % modulo;
}

/* pass(in) over a string stream of a copy of the input: a string stream
 * needs a writable buffer of its own. */
template <typename Pass>
void OverCopy(const uint8_t *data, size_t size, Pass pass) {
    auto *bytes = static_cast<uint8_t *>(halv_internal_malloc(size));
    std::memcpy(bytes, data, size);
    HalvIO *in = HalvIO_Str(bytes, (uint32_t)size);
    pass(in);
    in->close(in);
    halv_internal_free(bytes);
}

/* pass(again) over what a first pass wrote to the memory stream out. */
template <typename Pass>
void ReadBack(HalvIO *out, Pass pass) {
    if (const uint32_t length = HalvIOMemLength(out)) {
        HalvIO *again = HalvIO_Str(HalvIOMemBuffer(out), length);
        pass(again);
        again->close(again);
    }
}

/* The print and scan targets: the directive rules both engines share. */
constexpr int32_t kMalformed = -2;
constexpr int32_t kTooMany = -3;

inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/* No digit run of the format stands for more than 4096, so that a width or
 * precision can't make a run print gigabytes or a destination huge. */
inline bool NumbersAreSmall(const char *format) {
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

/* Moves p behind the '%' of the next directive ("%%" is none); false at
 * the end of the format. */
inline bool NextDirective(const char *&p) {
    for (; *p != '\0'; ++p)
        if (*p == '%' && *++p != '%')
            return true;
    return false;
}

/* What a directive says before its conversion. */
struct Directive {
    long width = 0;
    int h = 0, l = 0, varsize = 0; /* varsize: bytes of an I size, 0 for none */
    bool longDouble = false, wide = false, anySize = false;

    /* Bytes of an integer read or stored: an I size decides; else ll, j,
     * the platform's long, size_t and ptrdiff_t are 8; h and hh 2. */
    size_t IntegerBytes() const { return varsize != 0 ? (varsize == 8 ? 8 : 4) : wide ? 8 : h ? 2 : 4; }
};

/* Reads flags, width, precision, base and sizes, leaving p at the
 * conversion; each '*' is handed to star(precision), which says whether
 * its entry fits.  0, or kMalformed / kTooMany. */
template <typename Star>
int32_t ReadDirective(const char *&p, Directive &d, Star star) {
    bool left = false;
    int dots = 0;
    for (;;) {
        const char c = *p;
        if (c == ' ' || c == '+' || c == '#' || (c == '0' && !left)) {
            ++p;
        } else if (c == '-') {
            left = true;
            ++p;
        } else if (IsDigit(c)) {
            d.width = 0;
            while (IsDigit(*p))
                d.width = d.width > 100000 ? d.width : d.width * 10 + (*p++ - '0');
        } else if (c == '*') {
            ++p;
            if (!star(false))
                return kTooMany;
        } else if (c == '.') {
            ++p;
            if (++dots > 2)
                return kMalformed;
            if (*p == '*') {
                ++p;
                if (!star(true))
                    return kTooMany;
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
            d.anySize = true;
            d.wide |= c == 'l';
            if (++(c == 'h' ? d.h : d.l) > 2)
                return kMalformed;
        } else if (c == 'L' || c == 'z' || c == 't' || c == 'j') {
            ++p;
            d.anySize = true;
            (c == 'L' ? d.longDouble : d.wide) = true;
        } else if (c == 'I') {
            ++p;
            if (d.anySize || d.varsize != 0)
                return kMalformed;
            const char *digits = p;
            while (IsDigit(*p))
                ++p;
            const std::string n(digits, p);
            d.varsize = n == "8" ? 1 : n == "16" ? 2 : n == "32" ? 4 : n == "64" ? 8 : 0;
            if (d.varsize == 0)
                return kMalformed;
        } else {
            return 0;
        }
    }
}

/* ASCII case-insensitive prefix and equality. */
inline bool StartsNoCase(const std::string &text, const char *prefix) {
    const size_t n = std::strlen(prefix);
    if (text.size() < n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (HalvAsciiToLower((unsigned char)text[i]) != HalvAsciiToLower((unsigned char)prefix[i]))
            return false;
    return true;
}

inline bool SameNoCase(const std::string &a, const char *b) { return a.size() == std::strlen(b) && StartsNoCase(a, b); }

/* The "[section]" and "label: value" tokens of the registry file and of
 * function descriptions, read as both readers read them: a label into 511
 * bytes and its value into 2047, each text cut at its first NUL. */
class TokenText {
public:
    explicit TokenText(uint32_t size) : buffer_(size, '\0') { io_ = HalvIO_Str(buffer_.data(), size - 1); }
    ~TokenText() { io_->close(io_); }
    TokenText(const TokenText &) = delete;
    TokenText &operator=(const TokenText &) = delete;

    /* The kind of the next token of in; its text is Text(). */
    int32_t Next(HalvIO *in) {
        HalvIOStrReset(io_);
        buffer_[0] = '\0';
        return HalvReadUserCM(in, io_);
    }
    std::string Text() const { return std::string(buffer_.c_str()); }

private:
    std::string buffer_;
    HalvIO *io_;
};

} // namespace fuzz

#endif
