/*
 * util/codepage_iconv.cpp - text through the platform's converter (glibc
 * iconv), opened for one call and closed again.
 *
 * The converter stops at a unit it can't map, or at input that is not valid
 * in the source set; the loop then passes over it and puts a replacement in
 * its place, the way a default character would, and goes on.
 */
#include <errno.h>
#include <iconv.h>
#include <string.h>

#include "halv_core.h"
#include "util/codepage_internal.h"

namespace halv {
namespace {

constexpr size_t kTerminatorBytes = 4;

/* A growing output buffer in the library's memory. */
class OutputBuffer {
public:
    ~OutputBuffer() { halv_internal_free(data_); }

    bool Reserve(size_t capacity) {
        char *grown = (char *)halv_internal_realloc(data_, capacity + kTerminatorBytes);
        if (grown == nullptr)
            return false;
        data_ = grown;
        capacity_ = capacity;
        return true;
    }

    bool Grow() { return Reserve(capacity_ * 2 + 16); }

    char *Cursor() { return data_ + size_; }
    size_t Left() const { return capacity_ - size_; }
    void Advance(char *cursor) { size_ = (size_t)(cursor - data_); }

    bool Append(const char *bytes, size_t count) {
        while (Left() < count)
            if (!Grow())
                return false;
        memcpy(Cursor(), bytes, count);
        size_ += count;
        return true;
    }

    /* Hands the bytes over, terminated. */
    void Release(ConvertedText *out) {
        memset(data_ + size_, 0, kTerminatorBytes);
        out->data = data_;
        out->size = size_;
        data_ = nullptr;
    }

private:
    char *data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

/* One iconv call on input (null input flushes the shift state), growing the
 * output until the input is used up or the converter stops at bad input.
 * Gives 0, or the errno that stopped it: EILSEQ, EINVAL, or ENOMEM. */
int RunConverter(iconv_t cd, const char **input, size_t *left, OutputBuffer &output) {
    for (;;) {
        char *cursor = output.Cursor();
        size_t room = output.Left();
        size_t result = iconv(cd, (char **)input, left, &cursor, &room);
        output.Advance(cursor);
        if (result != (size_t)-1)
            return 0;
        if (errno != E2BIG)
            return errno == EILSEQ || errno == EINVAL ? errno : EILSEQ;
        if (!output.Grow())
            return ENOMEM;
    }
}

} // namespace

bool ConvertCharacterSet(const char *to, const char *from, const char *input, size_t length,
                         const Replacement &replacement, ConvertedText *out) noexcept {
    iconv_t cd = iconv_open(to, from);
    if (cd == (iconv_t)-1)
        return false;
    OutputBuffer output;
    bool ok = output.Reserve(length * 2 + 16);
    const char *cursor = input;
    size_t left = length;
    while (ok && left > 0) {
        int stop = RunConverter(cd, &cursor, &left, output);
        if (stop == 0)
            break;
        if (stop == ENOMEM) {
            ok = false;
            break;
        }
        /* Pass over the bad unit (all of what is left, if less) and put the
         * replacement in. */
        size_t skip = replacement.skip < left ? replacement.skip : left;
        cursor += skip;
        left -= skip;
        if (replacement.output != nullptr) {
            ok = output.Append(replacement.output, replacement.outputSize);
        } else if (replacement.input != nullptr) {
            const char *substitute = replacement.input;
            size_t substituteLeft = replacement.inputSize;
            /* A replacement the target can't take either is left out. */
            ok = RunConverter(cd, &substitute, &substituteLeft, output) != ENOMEM;
        }
    }
    if (ok)
        ok = RunConverter(cd, nullptr, nullptr, output) != ENOMEM;
    iconv_close(cd);
    if (ok)
        output.Release(out);
    return ok;
}

} // namespace halv
