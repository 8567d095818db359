/*
 * text/scan_input.cpp - the two byte sources of the scan engine.
 *
 * A stream has no push-back: every byte the engine looks at is taken from
 * the stream for good, the look-ahead behind the last field included.
 */
#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kStreamEndByte = 0xFF; /* reads like the end of input */

ScanSource &SourceOf(HalvFormatContext *context) noexcept {
    return *reinterpret_cast<ScanSource *>(context);
}

/* Hands the byte now in `current` to out, unless the input has ended. */
int32_t Deliver(HalvFormatContext *context, char *out) noexcept {
    if (out != nullptr && context->current >= 0)
        *out = static_cast<char>(context->current);
    return context->current;
}

int32_t TextInChar(HalvFormatContext *context, char *out) {
    SourceOf(context).NextTextByte();
    return Deliver(context, out);
}

/* One read call of one byte.  Only a failed read is an error; a stream that
 * would block has nothing to give now, which to a scan is the end of its
 * input, and so has a stream without a read slot. */
int32_t StreamInChar(HalvFormatContext *context, char *out) {
    if (context->current == -1)
        return -1;
    auto *io = static_cast<HalvIO *>(context->location);
    unsigned char byte = 0;
    const int32_t got = io != nullptr && io->read != nullptr ? HalvIOReadBytes(io, &byte, 1) : 0;
    if (got > 0 && byte != kStreamEndByte) {
        ++context->processed;
        ++context->committed;
        context->current = byte;
        return Deliver(context, out);
    }
    if (got == -1)
        context->error = HALV_FORMAT_STREAM_ERROR;
    context->current = -1;
    return -1;
}

/* Every field of the record, the source's own text pointer included. */
void InitSource(ScanSource &in, const HalvLocale *locale, decltype(HalvFormatContext::inChar) inChar,
                void *location) noexcept {
    HalvFormatContext &context = in.context;
    context.outChar = nullptr;
    context.inChar = inChar;
    context.location = location;
    context.current = 0;
    context.processed = 0;
    context.committed = 0;
    context.max = 0;
    context.error = 0;
    context.locale = LocaleOrFixed(locale);
    in.text = nullptr;
}

} // namespace

void InitTextSource(ScanSource &in, const HalvLocale *locale, const char *text) noexcept {
    InitSource(in, locale, TextInChar, &in.text);
    in.text = reinterpret_cast<const unsigned char *>(text != nullptr ? text : "");
}

void InitStreamSource(ScanSource &in, const HalvLocale *locale, HalvIO *io) noexcept {
    InitSource(in, locale, StreamInChar, io);
}

} // namespace halv
