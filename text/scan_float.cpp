/*
 * text/scan_float.cpp - the float reader behind %e %f %g %a and their
 * upper-case forms.
 *
 * The field is first collected as text, which bounds it by the width, and
 * then converted.  The width counts the sign and the digits (of the integer
 * part, the fraction and the exponent) and the letters of a word; the point,
 * the 0x of hexadecimal text and the exponent's letter and sign are taken
 * while the width lasts but use none of it, so "%3f" on "1.2345" is 1.23.
 * Apart from the width, the collected text never passes 511 bytes, which
 * keeps it inside its 512-byte buffer.  The locale's decimal point, of any
 * length, is matched byte by byte and collected as a plain '.'.  An
 * exponent is read only behind a point: "1e5" is 1, and leaves "e5" for
 * whatever comes next.
 */
#include <cmath>
#include <limits>

#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kFieldLimit = 511;

enum PointMatch { kNoPoint, kPoint, kPartialPoint };

/* Collects the bytes of one float field. */
class FloatCollector {
public:
    FloatCollector(ScanSource &in, int32_t width)
        : in_(in), remaining_((width <= 0 || width > kFieldLimit) ? kFieldLimit : width) {}

    int Read(double *value) {
        SkipScanSpace(in_);
        if (ReadInPlace(value))
            return kFieldDone;
        char sign = 0;
        if (in_.Current() == '+' || in_.Current() == '-') {
            sign = (char)in_.Current();
            Take();
        }
        int32_t body = length_;
        int lead = in_.Current() | 0x20;
        if ((lead == 'n' && sign == 0) || lead == 'i')
            return ReadWord(body, sign, value);

        int base = 10;
        if (Lasts() && in_.Current() == '0') {
            Take();
            if (Lasts() && (in_.Current() | 0x20) == 'x') {
                TakeMark();
                base = 16;
            }
        }
        TakeDigits(base);
        if (Lasts() && MatchPoint(DecimalPointOf(in_.context)) == kPoint) {
            StoreMark('.');
            TakeDigits(base);
            if (Lasts() && (in_.Current() | 0x20) == (base == 16 ? 'p' : 'e')) {
                TakeMark();
                if (Lasts() && (in_.Current() == '+' || in_.Current() == '-'))
                    TakeMark();
                TakeDigits(10);
            }
        }
        if (length_ == body)
            return kFieldFailed;
        text_[length_] = '\0';
        *value = ScanTextToDouble(text_);
        return kFieldDone;
    }

private:
    /* The usual field needs no collecting: from a string, with no width, a
     * decimal point of ".", and no word, the text to collect is the
     * string itself up to where the conversion stops, so it is converted
     * where it stands.  The conversion's result is the same, for it reads
     * the same bytes.  A field that could reach the collector's limit, and
     * one with no digit and no point, go the collector's way.  False when
     * nothing was taken. */
    bool ReadInPlace(double *value) {
        constexpr ptrdiff_t kShortField = kFieldLimit / 2;
        const unsigned char *point = reinterpret_cast<const unsigned char *>(DecimalPointOf(in_.context));
        if (in_.text == nullptr || remaining_ != kFieldLimit || in_.Current() < 0 || point[0] != '.' ||
            point[1] != 0)
            return false;
        const unsigned char *start = in_.CurrentText();
        const unsigned char *body = start + (*start == '+' || *start == '-');
        const int lead = *body | 0x20;
        if (lead == 'n' || lead == 'i')
            return false;
        const char *end;
        const double converted = ScanTextToDouble(reinterpret_cast<const char *>(start), &end);
        const auto stop = reinterpret_cast<const unsigned char *>(end);
        if (stop == body || stop - start > kShortField)
            return false;
        *value = converted;
        in_.AdvanceTo(stop);
        return true;
    }

    /* The field goes on while width is left and the buffer has room. */
    bool Lasts() const { return remaining_ > 0 && length_ < kFieldLimit; }

    /* A byte that uses up width: the sign, a digit, a letter of a word. */
    void Store(char c) {
        text_[length_++] = c;
        --remaining_;
    }

    /* A byte that marks the number's parts and uses no width: the point,
     * the x of 0x, the exponent's letter and sign. */
    void StoreMark(char c) { text_[length_++] = c; }

    void Take() {
        Store((char)in_.Current());
        in_.Advance();
    }

    void TakeMark() {
        StoreMark((char)in_.Current());
        in_.Advance();
    }

    void TakeDigits(int base) {
        /* A local length: the byte stores could alias a member. */
        char *text = text_;
        int32_t length = length_;
        const int32_t room = kFieldLimit - length;
        remaining_ -= in_.TakeRun(
            remaining_ < room ? remaining_ : room,
            [base](int32_t c) { return (unsigned)DigitValue(c) < (unsigned)base; },
            [text, &length](int32_t c) { text[length++] = (char)c; });
        length_ = length;
    }

    /* The point's bytes must all match; a partial match has consumed what
     * it matched, and ends the field. */
    PointMatch MatchPoint(const char *decimalPoint) {
        const unsigned char *point = (const unsigned char *)decimalPoint;
        if (point[0] == 0 || in_.Current() != point[0])
            return kNoPoint;
        for (; *point != 0; ++point) {
            if (in_.Current() != *point)
                return kPartialPoint;
            in_.Advance();
        }
        return kPoint;
    }

    /* "inf", "infinite" (signed or not) and an unsigned "nan", in any case;
     * any other word fails. */
    int ReadWord(int32_t body, char sign, double *value) {
        while (Lasts() && ((in_.Current() | 0x20) >= 'a' && (in_.Current() | 0x20) <= 'z'))
            Take();
        char word[9] = {};
        int32_t size = length_ - body;
        if (size > 8)
            return kFieldFailed;
        for (int32_t i = 0; i < size; ++i)
            word[i] = (char)(text_[body + i] & ~0x20);
        auto is = [&](const char *name) {
            for (int32_t i = 0; i <= size; ++i)
                if (word[i] != name[i])
                    return false;
            return true;
        };
        if (is("INF") || is("INFINITE")) {
            *value = sign == '-' ? -std::numeric_limits<double>::infinity()
                                 : std::numeric_limits<double>::infinity();
            return kFieldDone;
        }
        if (sign == 0 && is("NAN")) {
            *value = std::numeric_limits<double>::quiet_NaN();
            return kFieldDone;
        }
        return kFieldFailed;
    }

    ScanSource &in_;
    int32_t remaining_;
    int32_t length_ = 0;
    char text_[kFieldLimit + 1];
};

} // namespace

int ReadScanFloat(ScanSource &in, int32_t width, double *value) noexcept {
    FloatCollector collector(in, width);
    return collector.Read(value);
}

} // namespace halv
