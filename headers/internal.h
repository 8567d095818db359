/*
 * headers/internal.h - helpers that the header units share.  Nothing here
 * is exported.
 */
#ifndef HALV_HEADERS_INTERNAL_H
#define HALV_HEADERS_INTERNAL_H

#include <clocale>
#include <cstdint>
#include <locale.h>

#include "halv_headers.h"

namespace halv {

/* While alive, the calling thread formats and scans numbers in the "C"
 * locale, so a host's setlocale never turns "300.000000" into
 * "300,000000".  The thread's own locale comes back afterwards. */
class CNumberLocale {
  public:
    CNumberLocale() noexcept;
    ~CNumberLocale();
    CNumberLocale(const CNumberLocale &) = delete;
    CNumberLocale &operator=(const CNumberLocale &) = delete;

  private:
    locale_t previous_;
};

/* White space of header text and value tokens: 9 to 13 and 32, whatever
 * the locale says. */
inline bool IsHeaderSpace(unsigned char c) { return c == ' ' || (c >= 9 && c <= 13); }

/* The code of the first word of Compression/compressors: 0 when absent or
 * empty, -1 for a word that isn't known (a word too long included). */
int32_t CompressionFromTree(HalvUserCMData *tree) noexcept;

/* The code of Photometry/name, 0 when absent or unknown.  A known name is
 * taken out of *tree, with any repeat of its label; an unknown one stays,
 * so it goes out as it came. */
int32_t ColorFromTree(HalvUserCMData **tree) noexcept;

/* Takes every label named key (ignoring case) out of section, where
 * HVHdrDeleteHeaderField takes the first.  A format that reads a key drops
 * all its labels: a repeat left behind would stand before the label that
 * writing the header puts back, and the text would name another value. */
HalvUserCMData *DeleteEveryHeaderField(HalvUserCMData *tree, const char *section, const char *key) noexcept;

/* Copies the nine slots of manager into header. */
void BindManager(HalvHeaderStruct *header, const HVHdrManager &manager) noexcept;

} // namespace halv

#endif /* HALV_HEADERS_INTERNAL_H */
