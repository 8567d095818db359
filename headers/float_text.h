/*
 * headers/float_text.h - the quick road for the floats of the ASCII sample
 * codec: " %g" written and "%lf" read without the C library's general
 * engines, for the numbers where the result is sure to be the same to the
 * last digit and bit.  Everything else takes snprintf and sscanf.
 */
#ifndef HALV_HEADERS_FLOAT_TEXT_H
#define HALV_HEADERS_FLOAT_TEXT_H

#include <cstdint>

namespace halv {

/* Bytes FloatToG may write. */
constexpr int kFloatGBytes = 16;

/* The text that printf's "%g" gives for value widened to double, in the C
 * locale and the default rounding: its length, or -1 where the caller must
 * ask snprintf (infinities, NaNs, subnormals and magnitudes outside 1e-10
 * to 1e15).  out gets no terminator. */
int FloatToG(float value, char *out) noexcept;

/* *value as "%lf" scans text when all of text is one plain decimal number
 * ([+-] digits [. digits] [e [+-] digits]) of at most 19 significant
 * digits that a double holds after one rounding; false for anything else,
 * which the caller hands to sscanf. */
bool DecimalToDouble(const char *text, double *value) noexcept;

} // namespace halv

#endif /* HALV_HEADERS_FLOAT_TEXT_H */
