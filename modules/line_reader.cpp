/*
 * modules/line_reader.cpp - the section and label reader of the registry
 * and the function descriptions.
 */
#include "modules/line_reader.h"

#include <cstring>

#include "halv_userdata.h"

namespace {

/* A string stream over a buffer that always keeps a terminator behind its
 * last byte. */
struct TokenBuffer {
    char *text;
    HalvIO *io;

    bool Open(char *buffer, uint32_t size) noexcept {
        std::memset(buffer, 0, size);
        text = buffer;
        io = HalvIO_Str(buffer, size - 1);
        return io != nullptr;
    }

    /* Reads the next token of in into the buffer; its kind. */
    int32_t Next(HalvIO *in) noexcept {
        HalvIOStrReset(io);
        text[0] = '\0';
        return HalvReadUserCM(in, io);
    }

    void Close() noexcept {
        if (io != nullptr)
            io->close(io);
    }
};

int ReadTokens(HalvIO *in, halv::LineSink &sink, TokenBuffer &key, TokenBuffer &value) noexcept {
    for (;;) {
        int32_t kind = key.Next(in);
        int verdict = halv::LineSink::kGoOn;
        switch (kind) {
        case HALV_UCM_TOKEN_SECTION:
            verdict = sink.Section(key.text);
            break;
        case HALV_UCM_TOKEN_LABEL:
            if (value.Next(in) == HALV_UCM_TOKEN_END)
                return sink.LabelAtEnd(key.text);
            verdict = sink.Line(key.text, value.text);
            break;
        case HALV_UCM_TOKEN_END:
            return 1;
        default:
            sink.Skipped(kind, key.text);
            break;
        }
        if (verdict != halv::LineSink::kGoOn)
            return verdict;
    }
}

} // namespace

namespace halv {

int ReadSectionLines(HalvIO *in, LineSink &sink) noexcept {
    char keyBuffer[kLineLabelBytes];
    char valueBuffer[kLineValueBytes];
    TokenBuffer key = {}, value = {};
    int result = 0;
    if (key.Open(keyBuffer, sizeof keyBuffer) && value.Open(valueBuffer, sizeof valueBuffer))
        result = ReadTokens(in, sink, key, value);
    value.Close();
    key.Close();
    return result;
}

} // namespace halv
