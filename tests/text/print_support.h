/* tests/text/print_support.h - helpers shared by the print engine tests. */
#ifndef HALV_TESTS_TEXT_PRINT_SUPPORT_H
#define HALV_TESTS_TEXT_PRINT_SUPPORT_H

#include <cstdarg>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

/* What one print call gave: its result and the text it stored. */
struct Printed {
    int32_t result;
    std::string text;
    bool operator==(const Printed &) const = default;
};

inline void PrintTo(const Printed &printed, std::ostream *os) {
    *os << printed.result << " \"" << printed.text << "\"";
}

/* HalvVSNPrintfl into a large buffer; the text is what the buffer holds. */
inline Printed VPrintWith(const HalvLocale *locale, const char *format, va_list args) {
    std::vector<char> buffer(1 << 16, '\x7f');
    const int32_t result = HalvVSNPrintfl(locale, buffer.data(), static_cast<uint32_t>(buffer.size()), format, args);
    return Printed{result, std::string(buffer.data())};
}

inline Printed PrintWith(const HalvLocale *locale, const char *format, ...) {
    va_list args;
    va_start(args, format);
    Printed printed = VPrintWith(locale, format, args);
    va_end(args);
    return printed;
}

#define Print(...) PrintWith(nullptr, __VA_ARGS__)
/* The text alone, for formats that are expected to succeed. */
#define Text(...) PrintWith(nullptr, __VA_ARGS__).text

/* A stream built by hand: only the write slot, which records every call.
 * refuseFrom: the byte position from which write takes nothing (returns
 * refuseResult); -1 never refuses. */
struct RecordingStream {
    struct Record { /* the record the library sees, with the way back */
        HalvIO io;
        RecordingStream *owner;
    } record;
    HalvIO *io = &record.io;
    std::string taken;
    std::vector<uint32_t> callCounts;
    long refuseFrom = -1;
    int32_t refuseResult = 0;
    long offered = 0;
    RecordingStream() {
        std::memset(&record.io, 0, sizeof record.io);
        record.io.write = Write;
        record.owner = this;
    }
    RecordingStream(const RecordingStream &) = delete;
    RecordingStream &operator=(const RecordingStream &) = delete;
    static int32_t Write(HalvIO *io, const void *bytes, uint32_t count) {
        RecordingStream *self = reinterpret_cast<Record *>(io)->owner;
        self->callCounts.push_back(count);
        const long position = self->offered;
        self->offered += count;
        if (self->refuseFrom >= 0 && position >= self->refuseFrom)
            return self->refuseResult;
        self->taken.append(static_cast<const char *>(bytes), count);
        return static_cast<int32_t>(count);
    }
};

#endif
