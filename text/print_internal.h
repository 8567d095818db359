/*
 * text/print_internal.h - the print engine's sinks and writers.
 *
 * Every byte the engine produces goes to a PrintSink.  The public
 * HalvFormatContext sits at its head and keeps the counts; the sink's
 * operations take runs of bytes, so that a memory sink copies a whole field
 * at once while the stream sink still makes one write call per byte.
 */
#ifndef HALV_TEXT_PRINT_INTERNAL_H
#define HALV_TEXT_PRINT_INTERNAL_H

#include <stdint.h>

#include "text/format_internal.h"

namespace halv {

struct PrintSink;

struct PrintSinkOps {
    void (*bytes)(PrintSink &sink, const char *bytes, uint32_t count);
    void (*fill)(PrintSink &sink, char byte, uint32_t count);
};

struct PrintSink {
    HalvFormatContext context; /* first, so a context leads back to its sink */
    const PrintSinkOps *ops;
    char *buffer;     /* memory sinks: the start of the text */
    bool outOfMemory; /* the growing sink could not grow */
};

inline PrintSink &SinkOf(HalvFormatContext *context) noexcept {
    return *reinterpret_cast<PrintSink *>(context);
}

/* Raises a count the way the engine counts: unsigned 32-bit, wrapping. */
inline void AddCount(int32_t &count, uint32_t n) noexcept {
    count = static_cast<int32_t>(static_cast<uint32_t>(count) + n);
}

/* Collects the bytes of one field on the stack and hands them to the sink in
 * as few runs as it can.  Long fills go to the sink directly. */
class Staging {
public:
    explicit Staging(PrintSink &sink) noexcept : sink_(sink) {}
    ~Staging() { Flush(); }
    Staging(const Staging &) = delete;
    Staging &operator=(const Staging &) = delete;

    void Add(char byte) noexcept {
        if (used_ == sizeof buffer_)
            Flush();
        buffer_[used_++] = byte;
    }
    void Add(const char *bytes, uint32_t count) noexcept;
    void Fill(char byte, int64_t count) noexcept;
    void Flush() noexcept;

private:
    PrintSink &sink_;
    uint32_t used_ = 0;
    char buffer_[128];
};

/* A directive with its '*' arguments resolved. */
struct PrintField {
    uint32_t flags;
    int32_t width;
    int32_t precision; /* -1 for none */
    int32_t base;
    char conversion;
};

struct IntegerSpec {
    uint32_t flags;
    int64_t width;
    int64_t precision; /* -1 for none */
    int32_t base;      /* 2 to 36 */
    bool isSigned;
    bool wide;  /* read in 64 bits: the high word stays */
    bool upper; /* upper-case digits and prefix */
};

void WriteInteger(Staging &out, uint64_t value, const IntegerSpec &spec) noexcept;

/* Text of `length` bytes in a field, escaped under '#'. */
void WriteText(PrintSink &sink, const char *text, uint32_t length, uint32_t flags, int64_t width) noexcept;

/* A NUL-terminated string in a field, cut by precision; null is "(nil)". */
void WriteString(PrintSink &sink, const char *text, uint32_t flags, int64_t width, int64_t precision) noexcept;

void WriteFloat(PrintSink &sink, double number, const PrintField &field) noexcept;

/* The writers of the output pass, one for each parameter type. */
void PrintIntegerField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintFloatField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintCharacterField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintStringField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintPointerField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintCountField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;

/* Runs the engine over a sink that is set up: parse, fetch, output.  Result:
 * `processed`, the sink's error, or the parser's negative result, in which
 * case nothing reached the sink. */
int32_t PrintCore(PrintSink &sink, const char *format, FormatArgs &args) noexcept;

/* The four routes of the family, one for each sink.  A null locale means the
 * fixed record. */
int32_t PrintToStream(const HalvLocale *locale, HalvIO *io, const char *format, FormatArgs &args) noexcept;
int32_t PrintToBuffer(const HalvLocale *locale, char *buffer, const char *format, FormatArgs &args) noexcept;
int32_t PrintToBoundedBuffer(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                             FormatArgs &args) noexcept;
int32_t PrintToNewString(const HalvLocale *locale, char **out, const char *format, FormatArgs &args) noexcept;

} // namespace halv

#endif
