/*
 * headers/number_text.h - how the three element types of typed keys are
 * written and scanned, and the token walk over a value line.  Callers hold
 * a CNumberLocale around every use.
 */
#ifndef HALV_HEADERS_NUMBER_TEXT_H
#define HALV_HEADERS_NUMBER_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "headers/internal.h"

namespace halv {

/* How each element type is written and scanned; a float is printed as the
 * double it widens to. */
template <typename T> struct NumberText;
template <> struct NumberText<int32_t> {
    static int Print(char *out, size_t room, int32_t v) { return std::snprintf(out, room, "%d", (int)v); }
    static void Scan(const char *text, int32_t *v) {
        int value;
        if (std::sscanf(text, "%d", &value) == 1)
            *v = value;
    }
};
template <> struct NumberText<double> {
    static int Print(char *out, size_t room, double v) { return std::snprintf(out, room, "%f", v); }
    static void Scan(const char *text, double *v) { (void)std::sscanf(text, "%lf", v); }
};
template <> struct NumberText<float> {
    static int Print(char *out, size_t room, float v) { return std::snprintf(out, room, "%f", (double)v); }
    static void Scan(const char *text, float *v) { (void)std::sscanf(text, "%f", v); }
};

inline const char *SkipSpace(const char *p) {
    while (*p != '\0' && halv::IsHeaderSpace((unsigned char)*p))
        ++p;
    return p;
}

inline const char *SkipToken(const char *p) {
    while (*p != '\0' && !halv::IsHeaderSpace((unsigned char)*p))
        ++p;
    return p;
}

} // namespace halv

#endif /* HALV_HEADERS_NUMBER_TEXT_H */
