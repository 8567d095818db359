/*
 * tests/streams/support.h - byte helpers over memory streams, and a scripted back end
 * built as a host builds one (a record with HalvIO at its head, slots filled by hand).
 * Each read and write takes the next step of its plan: a positive step moves at most
 * that many bytes; 0, -1 and -2 are answered as they are.  With the plan used up, read
 * delivers what is asked (0 at the end) and write takes everything.  Every slot call is
 * logged, so a test sees exactly the calls a generic operation made.
 */
#ifndef HALV_TESTS_STREAMS_SUPPORT_H
#define HALV_TESTS_STREAMS_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "streams/file_fixture.h"

namespace scripted {

using Counts = std::vector<uint32_t>;

using files_test::Pattern;

/* A memory stream holding bytes, positioned at their start. */
inline HalvIO *MemOver(const std::string &bytes) {
    HalvIO *io = HalvIO_Mem(0);
    HalvIOWriteBytes(io, bytes.data(), static_cast<uint32_t>(bytes.size()));
    io->seek(io, 0, 0);
    return io;
}

inline std::string MemBytes(HalvIO *io) {
    return std::string(static_cast<const char *>(HalvIOMemBuffer(io)), HalvIOMemLength(io));
}

/* Seeks made one after another, each with the position it must give. */
struct Seek {
    int64_t offset;
    int32_t whence;
    int64_t result;
};
inline void ExpectSeeks(HalvIO *io, std::initializer_list<Seek> seeks) {
    for (const Seek &seek : seeks)
        EXPECT_EQ(io->seek(io, seek.offset, seek.whence), seek.result)
            << seek.offset << " from " << seek.whence;
}

struct Call {
    char slot; /* 'r' read, 'w' write, 's' seek, 'f' flush */
    uint32_t count;
    int64_t offset;
    int32_t whence;
};

struct Script {
    std::string source;
    size_t position = 0;
    std::deque<int32_t> readPlan;
    std::deque<int32_t> writePlan;
    std::string sink;
    bool seekable = false;
    std::vector<Call> calls;
    int closes = 0;

    std::vector<uint32_t> Counts(char slot) const {
        std::vector<uint32_t> counts;
        for (const Call &call : calls)
            if (call.slot == slot)
                counts.push_back(call.count);
        return counts;
    }
};

/* The record: slots, then the descriptor (-1: none) as the first back-end
 * field, as a back end that answers would-block must keep it. */
struct Stream {
    HalvIO io;
    int32_t fd;
    Script *script;
};

inline Script &Of(HalvIO *io) { return *reinterpret_cast<Stream *>(io)->script; }

inline int32_t Take(std::deque<int32_t> &plan, uint32_t count) {
    if (plan.empty())
        return static_cast<int32_t>(std::min<uint32_t>(count, 0x7FFFFFFF));
    int32_t step = plan.front();
    plan.pop_front();
    return step > 0 ? static_cast<int32_t>(std::min<uint32_t>(count, static_cast<uint32_t>(step))) : step;
}

inline int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
    Script &s = Of(io);
    s.calls.push_back({'r', count, 0, 0});
    if (count == 0)
        return 0;
    int32_t step = Take(s.readPlan, count);
    if (step <= 0)
        return step;
    size_t n = std::min<size_t>(static_cast<size_t>(step), s.source.size() - s.position);
    std::memcpy(buffer, s.source.data() + s.position, n);
    s.position += n;
    return static_cast<int32_t>(n);
}

inline int32_t Write(HalvIO *io, const void *bytes, uint32_t count) {
    Script &s = Of(io);
    s.calls.push_back({'w', count, 0, 0});
    if (count == 0)
        return 0;
    int32_t step = Take(s.writePlan, count);
    if (step > 0)
        s.sink.append(static_cast<const char *>(bytes), static_cast<size_t>(step));
    return step;
}

inline int64_t Seek(HalvIO *io, int64_t offset, int32_t whence) {
    Script &s = Of(io);
    s.calls.push_back({'s', 0, offset, whence});
    if (!s.seekable || whence < 0 || whence > 2)
        return -1;
    int64_t reference = whence == 0   ? 0
                        : whence == 1 ? static_cast<int64_t>(s.position)
                                      : static_cast<int64_t>(s.source.size());
    int64_t target = reference + offset;
    if (target < 0 || target > static_cast<int64_t>(s.source.size()))
        return -1;
    s.position = static_cast<size_t>(target);
    return target;
}

inline void Flush(HalvIO *io) { Of(io).calls.push_back({'f', 0, 0, 0}); }

inline void Close(HalvIO *io) {
    Of(io).closes++;
    halv_internal_free(io);
}

/* A new stream over script; close frees the record, the script stays. */
inline HalvIO *Open(Script &script, int32_t fd = -1) {
    auto *stream = static_cast<Stream *>(halv_internal_calloc(1, sizeof(Stream)));
    stream->io.close = Close;
    stream->io.read = Read;
    stream->io.write = Write;
    stream->io.flush = Flush;
    stream->io.seek = Seek;
    stream->fd = fd;
    stream->script = &script;
    return &stream->io;
}

} // namespace scripted

#endif
