// Fuzz target for date patterns.
//
// An input is a flag byte (bit 0: a UTC date, else local), a time of eight
// bytes (little-endian milliseconds) and a pattern, the rest.  The date of
// that time is formatted by the pattern, in the process's zone
// Europe/Berlin and the "C" locale.  Properties:
//   - a date before the epoch has no text;
//   - otherwise the pattern is refused exactly when a letter outside quotes
//     is no field letter, or when its last literal text is a lone quote
//     (a small model below, written as a scan of quote pairs);
//   - the text of a date that was already normalised is the same again.
#include <ctime>

#include "fuzz/support.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;

bool IsLetter(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

/* Whether the pattern language refuses this pattern. */
bool Refused(const std::string &pattern) {
    static const std::string kFields = "yYMdDeEwHkKhmsaZ";
    bool quoted = false;
    size_t literalStart = std::string::npos; /* where the last literal text began */
    size_t literalBytes = 0;                 /* bytes that literal text writes */
    for (size_t i = 0; i < pattern.size(); ++i) {
        const auto c = static_cast<unsigned char>(pattern[i]);
        if (!quoted && IsLetter(c)) {
            if (kFields.find(static_cast<char>(c)) == std::string::npos)
                return true;
            literalStart = std::string::npos;
            continue;
        }
        if (literalStart == std::string::npos) {
            literalStart = i;
            literalBytes = 0;
        }
        if (c == '\'' && i + 1 < pattern.size() && pattern[i + 1] == '\'') {
            ++literalBytes;
            ++i;
        } else if (c == '\'') {
            quoted = !quoted;
        } else {
            ++literalBytes;
        }
    }
    return literalStart != std::string::npos && literalBytes == 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("TZ", "Europe/Berlin", 1);
    unsetenv("LC_ALL");
    unsetenv("LC_TIME");
    unsetenv("LANG");
    tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 9 || size > 4096 + 9)
        return 0;
    const bool utc = (data[0] & 1) != 0;
    int64_t milliseconds = 0;
    std::memcpy(&milliseconds, data + 1, 8);
    std::string pattern(reinterpret_cast<const char *>(data + 9), size - 9);
    pattern.resize(std::strlen(pattern.c_str())); /* the pattern ends at a NUL */

    HalvDate date;
    HalvMakeDate(&date, utc ? 1 : 0, milliseconds);
    char *text = HalvFormatDate(&date, pattern.c_str());
    if (milliseconds / 1000 < 0) {
        FailIf(text != nullptr, "a date before the epoch was formatted");
        return 0;
    }
    if ((text == nullptr) != Refused(pattern))
        Fail(text == nullptr ? "a valid pattern was refused" : "an invalid pattern was accepted");
    if (text != nullptr) {
        char *again = HalvFormatDate(&date, pattern.c_str());
        FailIf(again == nullptr || std::strcmp(text, again) != 0, "the same date gave another text");
        halv_internal_free(again);
    }
    halv_internal_free(text);
    return 0;
}
