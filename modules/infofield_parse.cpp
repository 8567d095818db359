/*
 * modules/infofield_parse.cpp - the text form of an info field,
 * "name:[multiplier]letters", and field lists made from such texts.
 */
#include <cstring>

#include "halv_util.h"
#include "modules/infofield.h"

namespace {

/* Multipliers and runs saturate here: anything larger makes a count that
 * no signed 32-bit number holds, which is all that matters about it. */
constexpr uint64_t kSaturated = (uint64_t)INT32_MAX + 1;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/* The decimal number at *p, which moves behind its digits; saturated. */
uint64_t ReadMultiplier(const char **p) {
    uint64_t value = 0;
    for (; IsDigit(**p); ++*p)
        if (value < kSaturated)
            value = value * 10 + (uint64_t)(**p - '0');
    return value < kSaturated ? value : kSaturated;
}

/* How many times the letter at p stands in a row; 0 at the end of text. */
uint64_t RunLength(const char *p) {
    uint64_t run = 0;
    if (*p != '\0')
        while (p[run] == *p)
            ++run;
    return run < kSaturated ? run : kSaturated;
}

} // namespace

namespace halv {

int ParseInfoFieldTexts(const char *const *texts, uint32_t count, HalvInfoField ***fields) noexcept {
    auto **list = static_cast<HalvInfoField **>(halv_internal_calloc((size_t)count + 1, sizeof(HalvInfoField *)));
    *fields = list;
    if (list == nullptr)
        return 0;
    int result = 1;
    for (uint32_t i = 0; i < count && result == 1; ++i) {
        char *name = nullptr;
        char type = 0;
        int32_t values = 0;
        if (HalvParseInfoField(texts[i], &name, &type, &values) != 1)
            result = 0;
        else if ((list[i] = NewInfoField(name, type, values)) == nullptr || list[i]->size == 0)
            result = 0;
    }
    // The part built so far gets its offsets too: the caller may look at it.
    if (!LayOutInfoFields(list))
        result = 0;
    return result;
}

} // namespace halv

extern "C" {

HALV_API int HalvParseInfoField(const char *text, char **name, char *type, int32_t *count) noexcept {
    if (text == nullptr || name == nullptr || type == nullptr || count == nullptr)
        return 0;
    const char *colon = std::strchr(text, ':');
    if (colon == nullptr)
        return -1;
    char *copy = HalvStrNDup(text, (uint32_t)(colon - text));
    if (copy == nullptr)
        return 0;
    const char *p = colon + 1;
    uint64_t multiplier = ReadMultiplier(&p);
    if (multiplier < 1)
        multiplier = 1;
    uint64_t values = multiplier * RunLength(p);
    *name = copy;
    *type = *p;
    *count = values > (uint64_t)INT32_MAX ? 0 : (int32_t)values;
    return 1;
}

HALV_API int HalvParseInfoFields(const char *const *strings, HalvInfoField ***fields) noexcept {
    if (strings == nullptr || fields == nullptr)
        return 0;
    uint32_t count = 0;
    while (strings[count] != nullptr)
        ++count;
    return halv::ParseInfoFieldTexts(strings, count, fields);
}

} // extern "C"
