/*
 * util/token.cpp - the token parser: delimiters, quote groups, escapes, and
 * a cursor that the caller holds.
 *
 * One step works in three moves: a 256-entry table that classifies every
 * byte (built on the stack, so parsers share nothing), a scan that finds
 * where the token ends, and, only when quotes are on, a rewrite of the
 * token in place that drops the quotes and resolves escapes.  Each move is
 * a single pass, and the table keeps the cost per byte constant however
 * many delimiters there are.
 *
 * The cursor: null before the first call; afterwards the byte behind the
 * last delimiter, or text itself once the text is used up.  No cursor can
 * come back to text, which is why text doubles as the end mark.
 */
#include <cstring>

#include "halv_util.h"
#include "util/internal.h"

namespace {

/* Entries of the byte table, which are also the scan states they start:
 * a byte of class kDelimiter moves the scan to "delimiter passed". */
enum ScanState : unsigned char {
    kPlain = 0,
    kDelimiter = 1,
    kInDouble = 2,
    kInSingle = 3,
    kInDoubleEscaping = 4, /* double quotes with backslash escapes */
    kInSingleEscaping = 5,
    kEscapedDouble = 6,    /* byte behind a backslash, inside "..." */
    kEscapedSingle = 7,
};

struct ByteClasses {
    unsigned char of[256];
};

/* Delimiters first, quotes after them, so that a quote character listed
 * among the delimiters acts as a quote when its flag is set. */
void BuildClasses(ByteClasses &table, const char *delimiters, int flags) noexcept {
    std::memset(table.of, kPlain, sizeof table.of);
    if (delimiters != nullptr)
        for (const char *d = delimiters; *d != '\0'; ++d)
            table.of[(unsigned char)*d] = kDelimiter;
    bool escapes = (flags & HALV_TOKEN_ESCAPES) != 0;
    if (flags & HALV_TOKEN_DOUBLE_QUOTES)
        table.of[(unsigned char)'"'] = escapes ? kInDoubleEscaping : kInDouble;
    if (flags & HALV_TOKEN_SINGLE_QUOTES)
        table.of[(unsigned char)'\''] = escapes ? kInSingleEscaping : kInSingle;
}

/* Where a token ends: at the delimiter that closes it, or at the NUL. */
struct TokenSpan {
    const char *start;
    const char *end;
    bool atDelimiter;
};

/* Closing byte of each quote state: its quote, and the backslash for the
 * escaping states (which it sends on to the matching escaped state). */
constexpr char kClosingQuote[8] = {0, 0, '"', '\'', '"', '\'', 0, 0};

/* Finds the extent of the token that starts at start.  An unclosed quote
 * runs to the end of the text. */
TokenSpan ScanToken(const ByteClasses &table, const char *start) noexcept {
    unsigned state = kPlain;
    const char *p = start;
    for (; *p != '\0'; ++p) {
        auto byte = (unsigned char)*p;
        switch (state) {
        case kPlain:
            state = table.of[byte];
            if (state == kDelimiter)
                return TokenSpan{start, p, true};
            break;
        case kInDouble:
        case kInSingle:
            if (byte == (unsigned char)kClosingQuote[state])
                state = kPlain;
            break;
        case kInDoubleEscaping:
        case kInSingleEscaping:
            if (byte == (unsigned char)kClosingQuote[state])
                state = kPlain;
            else if (byte == '\\')
                state += 2;
            break;
        default: /* kEscapedDouble, kEscapedSingle: the byte is passed over */
            state -= 2;
            break;
        }
    }
    return TokenSpan{start, p, false};
}

/* Finds the next token behind the cursor; false when the text is used up.
 * *resume receives the cursor for the call after this one. */
bool NextToken(const char *text, const char *cursor, const ByteClasses &table, int flags, TokenSpan &span,
               const char *&resume) noexcept {
    if (cursor == text)
        return false;
    const char *start = cursor == nullptr ? text : cursor;
    if (flags & HALV_TOKEN_SKIP_DELIMITERS) {
        while (table.of[(unsigned char)*start] == kDelimiter)
            ++start;
        if (*start == '\0') {
            resume = text;
            return false;
        }
    }
    span = ScanToken(table, start);
    resume = span.atDelimiter ? span.end + 1 : text;
    return true;
}

/* Escape letters that stand for control bytes; every other byte stands for
 * itself. */
char Unescape(char c) noexcept {
    switch (c) {
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    default: return c;
    }
}

/* Drops the quotes of a token (or keeps them with HALV_TOKEN_KEEP_QUOTES)
 * and resolves escapes, in place; the token shrinks or stays as long. */
void RewriteQuotes(char *token, size_t length, int flags) noexcept {
    bool keep = (flags & HALV_TOKEN_KEEP_QUOTES) != 0;
    bool escapes = (flags & HALV_TOKEN_ESCAPES) != 0;
    char open = 0; /* the quote we are inside, or 0 outside */
    bool escaped = false;
    char *out = token;
    for (size_t i = 0; i < length; ++i) {
        char c = token[i];
        if (escaped) {
            *out++ = Unescape(c);
            escaped = false;
        } else if (open != 0) {
            if (escapes && c == '\\') {
                escaped = true;
            } else if (c == open) {
                open = 0;
                if (keep)
                    *out++ = c;
            } else {
                *out++ = c;
            }
        } else if ((c == '"' && (flags & HALV_TOKEN_DOUBLE_QUOTES)) ||
                   (c == '\'' && (flags & HALV_TOKEN_SINGLE_QUOTES))) {
            open = c;
            if (keep)
                *out++ = c;
        } else {
            *out++ = c;
        }
    }
    *out = '\0';
}

bool QuotesOn(int flags) noexcept { return (flags & (HALV_TOKEN_SINGLE_QUOTES | HALV_TOKEN_DOUBLE_QUOTES)) != 0; }

/* The next token of text from `from` on, by the delimiters and flags of a
 * call; `resume`, when set, is where the next call goes on. */
bool FindToken(const char *text, const char *from, const char *delimiters, int flags, TokenSpan &span,
               const char *&resume) noexcept {
    ByteClasses table;
    BuildClasses(table, delimiters, flags);
    resume = nullptr;
    return NextToken(text, from, table, flags, span, resume);
}

} // namespace

extern "C" {

HALV_API char *HalvTokenParseEx(char *text, const char *delimiters, int flags, char **next) noexcept {
    if (text == nullptr || next == nullptr)
        return nullptr;
    TokenSpan span;
    const char *resume;
    const bool found = FindToken(text, *next, delimiters, flags, span, resume);
    if (resume != nullptr)
        *next = const_cast<char *>(resume);
    if (!found)
        return nullptr;
    char *token = const_cast<char *>(span.start);
    size_t length = (size_t)(span.end - span.start);
    token[length] = '\0';
    if (QuotesOn(flags))
        RewriteQuotes(token, length, flags);
    return token;
}

HALV_API char *HalvTokenParse(char *text, const char *delimiters, char **next) noexcept {
    return HalvTokenParseEx(text, delimiters, 0, next);
}

HALV_API char *HalvDupTokenParseEx(const char *text, const char *delimiters, int flags, const char **next) noexcept {
    if (text == nullptr || next == nullptr)
        return nullptr;
    TokenSpan span;
    const char *resume;
    const bool found = FindToken(text, *next, delimiters, flags, span, resume);
    if (!found) {
        if (resume != nullptr)
            *next = resume;
        return nullptr;
    }
    size_t length = (size_t)(span.end - span.start);
    char *token = HalvStrNDup(span.start, (uint32_t)length);
    if (token == nullptr)
        return nullptr; /* *next untouched: the same call may be tried again */
    *next = resume;
    if (QuotesOn(flags))
        RewriteQuotes(token, length, flags);
    return token;
}

HALV_API char *HalvDupTokenParse(const char *text, const char *delimiters, const char **next) noexcept {
    return HalvDupTokenParseEx(text, delimiters, 0, next);
}

} // extern "C"
