/*
 * modules/funcdesc_read.cpp - a function description from its text form.
 *
 * One section: [name], then "label: value" lines.  Each label is matched
 * against a table in order; the table row says how the value lands in the
 * record.  Single texts keep their first line, word lists their last, and
 * args, tests and formats collect every line.
 */
#include <cstdlib>
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "modules/internal.h"
#include "modules/line_reader.h"

namespace {

constexpr uint32_t kListStep = 4;

enum class Match { Exact, Prefix };

/* One read in progress: the record, and which first-line-wins numbers
 * have been given (their fields start at 1, not at an empty value). */
struct Reading {
    HalvFuncDesc *desc;
    bool inputsGiven;
    bool outputsGiven;
};

/* Applies one line; false out of memory, which ends the read with 0. */
using LineFn = bool (*)(Reading &r, const char *value);

bool IsSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool BeginsWithAny(const char *value) noexcept { return std::strncmp(value, "any", 3) == 0; }

/* Splits value at white space into a new array of copies with two spare
 * null slots.  True with *words null for an empty value; false out of
 * memory. */
bool SplitWords(const char *value, char ***words, size_t *count) noexcept {
    *words = nullptr;
    *count = 0;
    for (const char *p = value; *p != '\0';) {
        while (IsSpace(*p))
            ++p;
        if (*p == '\0')
            break;
        ++*count;
        while (*p != '\0' && !IsSpace(*p))
            ++p;
    }
    if (*count == 0)
        return true;
    auto **array = static_cast<char **>(halv_internal_calloc(*count + 2, sizeof(char *)));
    if (array == nullptr)
        return false;
    size_t index = 0;
    for (const char *p = value; index < *count;) {
        while (IsSpace(*p))
            ++p;
        const char *start = p;
        while (*p != '\0' && !IsSpace(*p))
            ++p;
        if ((array[index++] = HalvStrNDup(start, (uint32_t)(p - start))) == nullptr) {
            HalvFreeArray(array);
            return false;
        }
    }
    *words = array;
    return true;
}

bool KeepFirst(char **field, const char *value) noexcept {
    if (*field != nullptr)
        return true;
    *field = HalvStrDup(value);
    return *field != nullptr;
}

/* Adds one line to a collecting array, growing it four slots at a time. */
bool Collect(char ***field, const char *value) noexcept {
    uint32_t count = HalvGetArraySize(*field);
    if (count % kListStep == 0 && HalvReallocArray(field, count + kListStep, 0) != 1)
        return false;
    if (((*field)[count] = HalvStrDup(value)) == nullptr)
        return false;
    (*field)[count + 1] = nullptr;
    return true;
}

/* A word list replaces the field; an empty one leaves it alone. */
bool ReplaceWords(char ***field, const char *value) noexcept {
    char **words = nullptr;
    size_t count = 0;
    if (!SplitWords(value, &words, &count))
        return false;
    if (words != nullptr) {
        HalvFreeArray(*field);
        *field = words;
    }
    return true;
}

/* A decimal number, 0 when it doesn't parse; only the first line counts. */
bool ReadNumberOnce(int32_t *field, bool *given, const char *value) noexcept {
    if (!*given)
        *field = (int32_t)std::strtol(value, nullptr, 10);
    *given = true;
    return true;
}

bool LineInit(Reading &r, const char *v) noexcept { return KeepFirst(&r.desc->init, v); }
bool LineDescription(Reading &r, const char *v) noexcept { return KeepFirst(&r.desc->description, v); }
bool LineDocumentation(Reading &r, const char *v) noexcept { return KeepFirst(&r.desc->documentation, v); }
bool LineArg(Reading &r, const char *v) noexcept { return Collect(&r.desc->args, v); }
bool LineTest(Reading &r, const char *v) noexcept { return Collect(&r.desc->tests, v); }
bool LineFormat(Reading &r, const char *v) noexcept { return Collect(&r.desc->formats, v); }
bool LineCategories(Reading &r, const char *v) noexcept { return ReplaceWords(&r.desc->categories, v); }

bool LineCspaces(Reading &r, const char *v) noexcept {
    HalvFuncDesc *d = r.desc;
    if (!BeginsWithAny(v))
        return ReplaceWords(&d->cspaces, v);
    HalvFreeArray(d->cspaces);
    d->cspaces = nullptr;
    return true;
}

bool LineBits(Reading &r, const char *v) noexcept {
    HalvFuncDesc *d = r.desc;
    if (BeginsWithAny(v)) {
        halv_internal_free(d->bits);
        d->bits = nullptr;
        return true;
    }
    char **words = nullptr;
    size_t count = 0;
    if (!SplitWords(v, &words, &count))
        return false;
    if (words == nullptr)
        return true;
    auto *bits = static_cast<int32_t *>(halv_internal_calloc(count + 2, sizeof(int32_t)));
    if (bits != nullptr) {
        for (size_t i = 0; i < count; ++i)
            bits[i] = (int32_t)std::strtol(words[i], nullptr, 10);
        bits[count] = -1;
        halv_internal_free(d->bits);
        d->bits = bits;
    }
    HalvFreeArray(words);
    return bits != nullptr;
}

/* The interleave words and their bits; the first other word ends the list. */
bool LineInterleave(Reading &r, const char *v) noexcept {
    HalvFuncDesc *d = r.desc;
    static constexpr struct {
        const char *word;
        int32_t bit;
    } kWords[] = {{"scanline", HALV_INTERLEAVE_SCANLINE},
                  {"pixel", HALV_INTERLEAVE_PIXEL},
                  {"frame", HALV_INTERLEAVE_FRAME},
                  {"compression", HALV_INTERLEAVE_COMPRESSION}};
    if (BeginsWithAny(v)) {
        d->interleave = HALV_INTERLEAVE_ANY;
        return true;
    }
    char **words = nullptr;
    size_t count = 0;
    if (!SplitWords(v, &words, &count))
        return false;
    if (words == nullptr)
        return true;
    int32_t mask = 0;
    for (size_t i = 0; i < count; ++i) {
        int32_t bit = 0;
        for (const auto &row : kWords)
            if (std::strcmp(words[i], row.word) == 0)
                bit = row.bit;
        if (bit == 0)
            break;
        mask |= bit;
    }
    d->interleave = mask;
    HalvFreeArray(words);
    return true;
}

bool LineInput(Reading &r, const char *v) noexcept { return ReadNumberOnce(&r.desc->inputs, &r.inputsGiven, v); }
bool LineOutput(Reading &r, const char *v) noexcept { return ReadNumberOnce(&r.desc->outputs, &r.outputsGiven, v); }

bool LineSynchronous(Reading &r, const char *v) noexcept {
    r.desc->synchronous = v[0] != '\0' && std::strchr("YyTt1", v[0]) != nullptr ? 1 : 0;
    return true;
}

struct LabelRow {
    const char *label;
    Match match;
    LineFn apply;
};

/* Tried in this order; the first row that matches takes the line. */
constexpr LabelRow kLabels[] = {
    {"init", Match::Exact, LineInit},
    {"description", Match::Exact, LineDescription},
    {"documentation", Match::Exact, LineDocumentation},
    {"arg", Match::Exact, LineArg},
    {"test", Match::Exact, LineTest},
    {"format", Match::Exact, LineFormat},
    {"cspace", Match::Prefix, LineCspaces},
    {"categories", Match::Exact, LineCategories},
    {"category", Match::Exact, LineCategories},
    {"bit", Match::Prefix, LineBits},
    {"interleave", Match::Prefix, LineInterleave},
    {"input", Match::Exact, LineInput},
    {"output", Match::Exact, LineOutput},
    {"synchronous", Match::Exact, LineSynchronous},
};

bool Matches(const LabelRow &row, const char *label) noexcept {
    return row.match == Match::Exact ? std::strcmp(label, row.label) == 0
                                     : std::strncmp(label, row.label, std::strlen(row.label)) == 0;
}

/* Applies a line to the record; unknown labels are passed over. */
bool ApplyLine(Reading &r, const char *label, const char *value) noexcept {
    for (const LabelRow &row : kLabels)
        if (Matches(row, label))
            return row.apply(r, value);
    return true;
}

/* The lines of one description: the first section names the function,
 * a second one ends the description. */
class DescriptionSink final : public halv::LineSink {
  public:
    explicit DescriptionSink(HalvFuncDesc *desc) noexcept : reading_{desc, false, false} {}

    int Section(const char *name) noexcept override {
        if (reading_.desc->name != nullptr)
            return 1;
        return (reading_.desc->name = HalvStrDup(name)) != nullptr ? kGoOn : 0;
    }

    int Line(const char *label, const char *value) noexcept override {
        return ApplyLine(reading_, label, value) ? kGoOn : 0;
    }

    int LabelAtEnd(const char *) noexcept override { return 0; }

  private:
    Reading reading_;
};

} // namespace

extern "C" {

HALV_API int HalvReadFuncDesc(HalvIO *stream, HalvFuncDesc *desc) noexcept {
    if (stream == nullptr || desc == nullptr)
        return 0;
    desc->inputs = desc->outputs = desc->synchronous = 1;
    desc->interleave = HALV_INTERLEAVE_ANY;
    desc->name = desc->init = desc->description = desc->documentation = nullptr;
    desc->args = desc->cspaces = desc->tests = desc->formats = desc->categories = nullptr;
    desc->bits = nullptr;

    DescriptionSink sink(desc);
    return halv::ReadSectionLines(stream, sink);
}

} // extern "C"
