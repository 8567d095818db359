/*
 * userdata/token.cpp - the token reader of the user data language.
 *
 * A token is found by its opening byte: <item>, [section], "string" (which
 * may turn out to be a Base64 block), {group}, or anything else, which runs
 * up to ':' (label), '=' (assignment) or the line end (word).  The reader
 * consumes nothing behind a token but the byte that ends it, so a header's
 * binary data can follow [End] in the same stream.
 */
#include "userdata/internal.h"

namespace halv {
namespace {

constexpr int32_t kItem = HALV_UCM_TOKEN_ITEM;
constexpr int32_t kSection = HALV_UCM_TOKEN_SECTION;
constexpr int32_t kLabel = HALV_UCM_TOKEN_LABEL;
constexpr int32_t kAssign = HALV_UCM_TOKEN_ASSIGN;
constexpr int32_t kWord = HALV_UCM_TOKEN_WORD;
constexpr int32_t kString = HALV_UCM_TOKEN_STRING;
constexpr int32_t kData = HALV_UCM_TOKEN_DATA;
constexpr int32_t kEnd = HALV_UCM_TOKEN_END;
constexpr int32_t kError = HALV_UCM_TOKEN_ERROR;
constexpr int32_t kUndecided = 0;

/* A string's first bytes, up to this many, decide whether it is a Base64
 * block; escapes don't apply within them. */
constexpr int kStringPrefixMax = 31;
constexpr char kBase64Mark[] = "<<<<Base64Data";
constexpr int kBase64MarkLength = sizeof kBase64Mark - 1;

/* Base64 alphabet values, indexed by the character masked with 0x7F.
 * Characters outside the alphabet count as 0. */
struct Base64Table {
    unsigned char value[128];
};
constexpr Base64Table MakeBase64Table() {
    Base64Table table{};
    for (int i = 0; i < 64; ++i)
        table.value[(unsigned char)kBase64Alphabet[i]] = (unsigned char)i;
    return table;
}
constexpr Base64Table kBase64 = MakeBase64Table();

/* Bytes that end the fast path of a run: the closer, '=' (current
 * dialect), the escape, the quotes that open verbatim runs, and for bare
 * text LF and '#'.  The end of input, -1, is looked up as 0xFF, a byte
 * that never arrives as data.  CR never arrives either; it stops a scan of
 * the window, whose bytes haven't passed the CR drop. */
struct StopBytes {
    bool stop[256];
};
constexpr StopBytes MakeStopBytes(int closer, bool old) {
    StopBytes table{};
    table.stop[0xFF] = true;
    table.stop[13] = true;
    table.stop[closer] = true;
    table.stop[(unsigned char)'\\'] = true;
    table.stop[(unsigned char)'"'] = true;
    if (old)
        table.stop[(unsigned char)'\''] = true;
    else
        table.stop[(unsigned char)'='] = true;
    if (closer == ':') {
        table.stop[(unsigned char)'\n'] = true;
        table.stop[(unsigned char)'#'] = true;
    }
    return table;
}
constexpr StopBytes kStops[2][3] = {
    {MakeStopBytes(':', false), MakeStopBytes('>', false), MakeStopBytes(']', false)},
    {MakeStopBytes(':', true), MakeStopBytes('>', true), MakeStopBytes(']', true)},
};

/* The same for the body of a string: its quote and the escape. */
constexpr StopBytes MakeQuotedStops(unsigned char quote) {
    StopBytes table{};
    table.stop[0xFF] = true;
    table.stop[13] = true;
    table.stop[(unsigned char)'\\'] = true;
    table.stop[quote] = true;
    return table;
}
constexpr StopBytes kDoubleQuotedStops = MakeQuotedStops('"');
constexpr StopBytes kSingleQuotedStops = MakeQuotedStops('\'');

/* Hands the ordinary byte Next just gave and those behind it in the
 * source's window to a collecting sink as they lie.  Result: false when the
 * sink refused them. */
template <class Sink> bool PutWindowRun(ByteSource &source, Sink &sink, const StopBytes &stops) noexcept {
    const unsigned char *run;
    const uint32_t length = source.TakeRunFromLast(stops.stop, &run);
    return sink.PutInPlace(run, length);
}

/* Ordinary bytes, by far the most of a run, up to the first stop byte,
 * which is left in c.  A sink that only collects takes them in blocks:
 * straight from the source's window, or gathered on the stack from byte
 * reads.  An outside stream gets one write per byte, so that a full stream
 * cuts the token at the first byte that doesn't fit. */
template <class Sink> bool PutOrdinary(ByteSource &source, Sink &sink, const StopBytes &stops, int &c) noexcept {
    if constexpr (Sink::kCollectsOnly) {
        if (source.Windowed()) {
            for (; !stops.stop[c & 0xFF]; c = source.Next())
                if (!PutWindowRun(source, sink, stops))
                    return false;
            return true;
        }
        unsigned char run[64];
        uint32_t length = 0;
        for (; !stops.stop[c & 0xFF]; c = source.Next()) {
            run[length++] = (unsigned char)c;
            if (length == sizeof run) {
                if (!sink.PutBlock(run, length))
                    return false;
                length = 0;
            }
        }
        return length == 0 || sink.PutBlock(run, length);
    } else {
        for (; !stops.stop[c & 0xFF]; c = source.Next())
            if (!sink.Put(c))
                return false;
        return true;
    }
}

/* Bracketed names and bare text.  closer is the byte that ends the token
 * besides '=' (current dialect) and the end; code is the result for a
 * bracketed name, kUndecided for bare text, which the terminator decides. */
template <class Sink>
int32_t ReadRun(ByteSource &source, Sink &sink, int closer, int32_t code, Dialect dialect) noexcept {
    const bool old = dialect == Dialect::Old;
    const StopBytes &stops = kStops[old][closer == ':' ? 0 : closer == '>' ? 1 : 2];
    bool inComment = false;
    for (;;) {
        int c = source.Next();
        if (!inComment && !PutOrdinary(source, sink, stops, c))
            return kError;
        if (c == closer || c == kEndOfInput || (c == '=' && !old)) {
            if (code != kUndecided)
                return code;
            return c == ':' ? kLabel : c == '=' ? kAssign : kWord;
        }
        if (c == '\n' && code == kUndecided)
            return kWord;
        if (c == '#' && closer == ':')
            inComment = true;
        if (inComment)
            continue;
        if (c == '\\') {
            // The escaped byte passes whatever it is; an end here is ignored.
            c = source.Next();
            if (c != kEndOfInput && !sink.Put(c))
                return kError;
            continue;
        }
        if (!sink.Put(c))
            return kError;
        if (c == '"' || (old && c == '\'')) {
            // A quoted run inside a token is verbatim up to its closing quote.
            const int quote = c;
            while ((c = source.Next()) != kEndOfInput) {
                if (!sink.Put(c))
                    return kError;
                if (c == quote)
                    break;
            }
        }
    }
}

/* The body of a string from the byte in hand c.  Its one escape is a
 * backslash before the quote; any other backslash vanishes. */
template <class Sink> int32_t ReadQuoted(ByteSource &source, Sink &sink, int quote, int c) noexcept {
    for (;;) {
        if (c == kEndOfInput)
            return kString;
        if (c != '\\' && !sink.Put(c))
            return kError;
        int previous = c;
        c = source.Next();
        // Ordinary bytes behind it take the same steps in short; none of
        // them is a backslash, so previous only matters before the loop.
        while (c != quote && c != '\\' && c != kEndOfInput) {
            bool taken;
            if constexpr (Sink::kCollectsOnly)
                taken = source.Windowed() ? PutWindowRun(source, sink, quote == '"' ? kDoubleQuotedStops : kSingleQuotedStops)
                                          : sink.Put(c);
            else
                taken = sink.Put(c);
            if (!taken)
                return kError;
            previous = c;
            c = source.Next();
        }
        if (c != quote)
            continue;
        if (previous != '\\')
            return kString;
        if (!sink.Put(quote))
            return kError;
        c = source.Next();
        if (c == quote)
            return kString;
    }
}

/* "<<<<Base64Data:" has been read; groups of four raw bytes follow up to
 * ">>>>" and the closing quote.  No CR is dropped and no line may break the
 * block. */
template <class Sink> int32_t ReadBase64(ByteSource &source, Sink &sink) noexcept {
    // An outside stream gets each group's bytes in one write call; a sink
    // that only collects takes them in batches.
    unsigned char batch[96];
    uint32_t batched = 0;
    const auto flush = [&] { return batched == 0 || sink.PutBlock(batch, batched); };
    for (;;) {
        unsigned char group[4];
        if (source.ReadRaw(group, 4) < 4) {
            flush(); // what was decoded stays delivered
            return kError;
        }
        if (std::memcmp(group, ">>>>", 4) == 0) {
            source.Next(); // the closing quote
            return flush() ? kData : kError;
        }
        uint32_t bits = 0;
        for (unsigned char ch : group)
            bits = (bits << 6) | kBase64.value[ch & 0x7F];
        const unsigned char bytes[3] = {(unsigned char)(bits >> 16), (unsigned char)(bits >> 8),
                                        (unsigned char)bits};
        const uint32_t count = group[2] == '=' ? 1 : group[3] == '=' ? 2 : 3;
        if constexpr (Sink::kCollectsOnly) {
            std::memcpy(batch + batched, bytes, sizeof bytes);
            batched += count;
            if (batched > sizeof batch - sizeof bytes) {
                if (!flush())
                    return kError;
                batched = 0;
            }
        } else if (!sink.PutBlock(bytes, count)) {
            return kError;
        }
    }
}

/* The opening quote has been read.  The first bytes are gathered as they
 * are, to recognise a Base64 block; the byte that stopped them is in hand. */
template <class Sink> int32_t ReadString(ByteSource &source, Sink &sink) noexcept {
    char prefix[kStringPrefixMax];
    int length = 0;
    int c = source.Next();
    while (c != kEndOfInput && c != '"' && c != ':' && length < kStringPrefixMax) {
        prefix[length++] = (char)c;
        c = source.Next();
    }
    if (length == kBase64MarkLength && HalvStrNCaseCmp(prefix, kBase64Mark, kBase64MarkLength) == 0)
        return ReadBase64(source, sink);
    if constexpr (Sink::kCollectsOnly) {
        if (!sink.PutBlock(reinterpret_cast<const unsigned char *>(prefix), (uint32_t)length))
            return kError;
    } else {
        for (int i = 0; i < length; ++i)
            if (!sink.Put((unsigned char)prefix[i]))
                return kError;
    }
    if (c == '"')
        return kString;
    return ReadQuoted(source, sink, '"', c);
}

/* A {group} is delivered whole, braces included, with no comments or
 * escapes; the byte behind the closing brace is consumed and dropped. */
template <class Sink> int32_t ReadGroup(ByteSource &source, Sink &sink) noexcept {
    if (!sink.Put('{'))
        return kError;
    uint32_t depth = 1;
    for (;;) {
        const int c = source.Next();
        if (c == kEndOfInput)
            return kError;
        if (depth == 0)
            return kWord;
        if (!sink.Put(c))
            return kError;
        if (c == '{')
            ++depth;
        else if (c == '}')
            --depth;
    }
}

/* Drops blanks and comments; the first other byte, or kEndOfInput. */
int SkipToToken(ByteSource &source) noexcept {
    for (;;) {
        int c = source.Next();
        if (c == '#') {
            do
                c = source.Next();
            while (c != kEndOfInput && c != '\n');
            continue;
        }
        if (!IsBlank(c))
            return c;
    }
}

} // namespace

template <class Sink> int32_t ReadToken(ByteSource &source, Sink &sink, Dialect dialect) noexcept {
    const bool old = dialect == Dialect::Old;
    const int c = SkipToToken(source);
    switch (c) {
    case kEndOfInput:
        return kEnd;
    case '<':
        return ReadRun(source, sink, '>', kItem, dialect);
    case '[':
        return ReadRun(source, sink, ']', kSection, dialect);
    case '"':
        return old ? ReadQuoted(source, sink, '"', source.Next()) : ReadString(source, sink);
    case '\'':
        if (old)
            return ReadQuoted(source, sink, '\'', source.Next());
        break;
    case '{':
        if (!old)
            return ReadGroup(source, sink);
        break;
    default:
        break;
    }
    // Bare text: its first byte is text whatever it is, even ':' or '\'.
    bool taken;
    if constexpr (Sink::kCollectsOnly)
        taken = source.Windowed() ? sink.PutInPlace(source.LastTaken(), 1) : sink.Put(c);
    else
        taken = sink.Put(c);
    if (!taken)
        return kError;
    return ReadRun(source, sink, ':', kUndecided, dialect);
}

template int32_t ReadToken<StreamSink>(ByteSource &, StreamSink &, Dialect) noexcept;
template int32_t ReadToken<TextBuffer>(ByteSource &, TextBuffer &, Dialect) noexcept;

} // namespace halv

namespace {

int32_t ReadOneToken(HalvIO *in, HalvIO *out, halv::Dialect dialect) noexcept {
    if (in == nullptr || out == nullptr)
        return HALV_UCM_TOKEN_ERROR;
    // The window would read bytes that a write to the same stream changes.
    halv::ByteSource source(in, in != out);
    halv::StreamSink sink{out};
    return halv::ReadToken(source, sink, dialect);
}

} // namespace

extern "C" {

HALV_API int32_t HalvReadUserCM(HalvIO *in, HalvIO *out) noexcept {
    return ReadOneToken(in, out, halv::Dialect::Current);
}

HALV_API int32_t HalvReadOldUserCM(HalvIO *in, HalvIO *out) noexcept {
    return ReadOneToken(in, out, halv::Dialect::Old);
}

} // extern "C"
