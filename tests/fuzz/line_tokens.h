// The "[section]" and "label: value" tokens of the registry file and of
// function descriptions, read as both readers read them: a label into 511
// bytes and its value into 2047, each text cut at its first NUL.  The
// fuzz targets of those readers walk their input with this to work out, by
// the rules of each file, what the reader under test must have done.
#ifndef HALV_TESTS_FUZZ_LINE_TOKENS_H
#define HALV_TESTS_FUZZ_LINE_TOKENS_H

#include <cstdint>
#include <cstring>
#include <string>

#include "dpk_hvsup.h"

namespace fuzz_lines {

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

/* ASCII case-insensitive equality. */
inline bool SameNoCase(const std::string &a, const char *b) {
    if (a.size() != std::strlen(b))
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (HalvAsciiToLower((unsigned char)a[i]) != HalvAsciiToLower((unsigned char)b[i]))
            return false;
    return true;
}

/* A library memory stream holding the bytes, read from the start. */
inline HalvIO *OpenBytes(const void *bytes, size_t size) {
    HalvIO *io = HalvIO_Mem(0);
    if (size != 0)
        io->write(io, bytes, (uint32_t)size);
    io->seek(io, 0, 0);
    return io;
}

} // namespace fuzz_lines

#endif
