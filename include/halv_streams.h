/*
 * halv_streams.h - one stream record of function slots over files, memory,
 * smart buffers, sequences of streams, sockets and HTTP URLs.
 *
 * HalvIO is public: a host may build its own back end by filling the slots,
 * and any caller may invoke a slot directly.  Slot contract:
 *   read/write  bytes moved (> 0), 0 (end / nothing accepted), -1 failure,
 *               -2 would block; a count of 0 gives 0.
 *   flush       hands buffered data on; never null in library constructors.
 *   seek        new position from the start, or -1 when it can't seek.
 *   close       releases what the stream owns and frees the record.
 *   setAutoClose  stores the flag; null where the back end has none.
 */
#ifndef HALV_STREAMS_H
#define HALV_STREAMS_H

#include "halv_base.h"

HALV_BEGIN_DECLS

typedef struct HalvIO HalvIO;

struct HalvIO {
    void *(*copy)(void *record);   /* smart-record copy slot: always null */
    uintptr_t reservedWord;        /* smart-record word without use: 0 */
    void (*close)(HalvIO *io);
    int32_t (*read)(HalvIO *io, void *buffer, uint32_t count);
    int32_t (*write)(HalvIO *io, const void *bytes, uint32_t count);
    void (*flush)(HalvIO *io);
    int64_t (*seek)(HalvIO *io, int64_t offset, int32_t whence);
    int32_t (*setAutoClose)(HalvIO *io, int32_t flag);
    /* Back-end fields follow in the constructor's own larger record. */
};

HALV_END_DECLS

#endif /* HALV_STREAMS_H */
