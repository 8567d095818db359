// Fuzz target for the token parser.
//
// Input: a count byte, that many delimiter bytes (the count taken modulo
// 8; a NUL ends them early), then the text up to its first NUL.  Each input
// is cut under every one of the 32 flag combinations by HalvTokenParseEx on
// an exact copy, by HalvDupTokenParseEx on another that must stay untouched,
// and by a plain model of the rules (the byte table, the scan states, the
// cursor with the text as its end mark, the quote rewrite): all three must
// give the same tokens, and the parsers the same cursors; flags 0 must also
// agree with HalvTokenParse and HalvDupTokenParse.
#include <vector>

#include "fuzz/support.h"

namespace {

[[noreturn]] void Fail(const char *what, int flags) {
    std::fprintf(stderr, "property broken with flags %d: %s\n", flags, what);
    std::abort();
}

/* One token of the model: its text and the cursor offset behind the call,
 * -1 standing for the text itself (the end mark). */
struct Step {
    std::string token;
    long cursor;
};

/* The model of one whole parse: the tokens and the cursors, the last step
 * being the null result (its token empty). */
std::vector<Step> Model(const std::string &text, const std::string &delimiters, int flags) {
    unsigned char table[256] = {};
    for (unsigned char d : delimiters)
        table[d] = 1;
    if (flags & 4)
        table['"'] = (flags & 8) ? 4 : 2;
    if (flags & 2)
        table['\''] = (flags & 8) ? 5 : 3;

    std::vector<Step> steps;
    const long end = (long)text.size();
    long cursor = -2; /* null: before the first call */
    for (;;) {
        long at = cursor == -2 ? 0 : cursor;
        while (cursor != -1 && (flags & 1) && at < end && table[(unsigned char)text[at]] == 1)
            ++at;
        if (cursor == -1 || ((flags & 1) && at == end)) {
            steps.push_back({"", -1});
            return steps;
        }
        const long start = at;
        int state = 0;
        bool atDelimiter = false;
        for (; at < end; ++at) {
            const unsigned char c = (unsigned char)text[at];
            if (state == 0) {
                state = table[c];
                if (state == 1) {
                    atDelimiter = true;
                    break;
                }
            } else if (state == 2 || state == 4) {
                if (c == '"')
                    state = 0;
                else if (state == 4 && c == '\\')
                    state = 6;
            } else if (state == 3 || state == 5) {
                if (c == '\'')
                    state = 0;
                else if (state == 5 && c == '\\')
                    state = 7;
            } else {
                state -= 2;
            }
        }
        cursor = atDelimiter ? at + 1 : -1;
        std::string raw = text.substr((size_t)start, (size_t)(at - start)), token;
        if ((flags & 6) == 0) {
            steps.push_back({raw, cursor});
            continue;
        }
        char inside = 0;
        bool escaped = false;
        for (char c : raw) {
            if (escaped) {
                token += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
                escaped = false;
            } else if (inside != 0) {
                if ((flags & 8) && c == '\\') {
                    escaped = true;
                } else if (c == inside) {
                    inside = 0;
                    if (flags & 16)
                        token += c;
                } else {
                    token += c;
                }
            } else if ((c == '"' && (flags & 4)) || (c == '\'' && (flags & 2))) {
                inside = c;
                if (flags & 16)
                    token += c;
            } else {
                token += c;
            }
        }
        steps.push_back({token, cursor});
    }
}

long CursorOffset(const char *text, const char *cursor, int flags) {
    if (cursor == text)
        return -1;
    if (cursor == nullptr)
        Fail("a call left the cursor null", flags);
    return cursor - text;
}

void Check(const std::string &text, const std::string &delimiters, int flags, bool plainForms) {
    const std::vector<Step> steps = Model(text, delimiters, flags);
    char *cut = fuzz::Exact(text);
    char *kept = fuzz::Exact(text);
    char *next = nullptr;
    const char *dupNext = nullptr;
    for (size_t i = 0; i < steps.size(); ++i) {
        const bool last = i + 1 == steps.size();
        char *token = plainForms ? HalvTokenParse(cut, delimiters.c_str(), &next)
                                 : HalvTokenParseEx(cut, delimiters.c_str(), flags, &next);
        char *dup = plainForms ? HalvDupTokenParse(kept, delimiters.c_str(), &dupNext)
                               : HalvDupTokenParseEx(kept, delimiters.c_str(), flags, &dupNext);
        if (last ? token != nullptr : token == nullptr || steps[i].token != token)
            Fail("HalvTokenParseEx gave another token", flags);
        if (last ? dup != nullptr : dup == nullptr || steps[i].token != dup)
            Fail("HalvDupTokenParseEx gave another token", flags);
        if (CursorOffset(cut, next, flags) != steps[i].cursor || CursorOffset(kept, dupNext, flags) != steps[i].cursor)
            Fail("a cursor differs from the rules", flags);
        halv_internal_free(dup);
    }
    if (text != kept)
        Fail("HalvDupTokenParseEx changed the text", flags);
    std::free(cut);
    std::free(kept);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 4096)
        return 0;
    size_t count = data[0] % 8;
    size_t at = 1;
    std::string delimiters;
    while (delimiters.size() < count && at < size && data[at] != 0)
        delimiters += (char)data[at++];
    if (delimiters.size() < count && at < size)
        ++at; /* the NUL that ended the delimiters */
    const char *rest = reinterpret_cast<const char *>(data + at);
    const std::string text(rest, strnlen(rest, size - at));
    for (int flags = 0; flags < 32; ++flags)
        Check(text, delimiters, flags, false);
    Check(text, delimiters, 0, true);
    return 0;
}
