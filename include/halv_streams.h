/*
 * halv_streams.h - one stream record of function slots over files, memory,
 * smart buffers, sequences of streams, sockets and HTTP URLs.
 *
 * HalvIO is public: a host may build its own back end by filling the slots,
 * and any caller may invoke a slot directly, so each slot's contract (given
 * at its field) is public too.  The generic operations use only the slots,
 * so they work on any back end, hand-built ones included.  None of them
 * tolerates a null stream; they report by their result alone, and nothing
 * here writes to a state's error text.  A stream has no lock: one thread
 * uses it at a time.
 */
#ifndef HALV_STREAMS_H
#define HALV_STREAMS_H

#include "halv_base.h"

HALV_BEGIN_DECLS

typedef struct HalvIO HalvIO;

/* A stream: a record of function slots, behind the two words of a smart
 * record, followed by the back end's own fields in the constructor's
 * larger record.  A constructor allocates it zeroed with
 * halv_internal_calloc; a slot it doesn't fill stays null. */
struct HalvIO {
    void *(*copy)(void *record);   /* smart-record copy slot: always null, a stream can't be copied */
    uintptr_t reservedWord;        /* smart-record word without use: 0 */
    /* Releases what the stream owns and frees the record; the record is
     * gone afterwards.  It stands in the place of a smart record's free
     * slot, so an array of streams goes through HalvFreeSmartArray. */
    void (*close)(HalvIO *io);
    /* Delivers up to count bytes into buffer, without text translation; it
     * may deliver fewer, and only the caller loops.  Result: the bytes
     * delivered (> 0); 0 at the end of the stream (a smart buffer: nothing
     * available now) and for a count of 0; -1 failure; -2 the operation
     * would block (non-blocking sockets).  One call moves at most
     * 0x7FFFFFFF bytes. */
    int32_t (*read)(HalvIO *io, void *buffer, uint32_t count);
    /* Accepts up to count bytes; it may accept fewer.  Result: the bytes
     * accepted (> 0); 0 nothing accepted (a full buffer, a failed write on
     * a handle stream) and for a count of 0; -1 failure; -2 would block. */
    int32_t (*write)(HalvIO *io, const void *bytes, uint32_t count);
    /* Hands buffered data on; does nothing on streams without a buffer of
     * their own.  Never null in a library constructor. */
    void (*flush)(HalvIO *io);
    /* Moves the position: whence 0 from the start, 1 from the current
     * position, 2 from the end.  Result: the new position from the start,
     * or -1 when the stream can't seek or the target is refused.  The -1 is
     * a working signal: the generic operations then fall back to reading,
     * so a back end without positions must give it. */
    int64_t (*seek)(HalvIO *io, int64_t offset, int32_t whence);
    /* Stores the flag and returns it; with a nonzero flag close also
     * releases the descriptor, FILE*, handle or string buffer underneath.
     * Null where the back end has none (memory, smart-buffer, multiplex
     * and socket streams). */
    int32_t (*setAutoClose)(HalvIO *io, int32_t flag);
    /* Back-end fields follow in the constructor's own larger record.  A
     * back end whose read or write answers -2 keeps its descriptor (an int,
     * or a machine word) as the first of them: HalvIOCopyBytes waits on
     * it. */
};

/* ------------------------------------------------------------------------
 * Generic operations on any stream
 * ------------------------------------------------------------------------ */

/* Calls read until count bytes have arrived or the stream ends.  Result: the
 * bytes read (short only at end of stream), 0 for a count of 0 (no slot
 * call), or the first negative slot result unchanged; bytes of earlier passes
 * are then not reported. */
HALV_API int32_t HalvIOReadBytes(HalvIO *io, void *buffer, uint32_t count) HALV_NOEXCEPT;

/* The same loop over write.  A write result of 0 ends the loop and the short
 * total is the result. */
HALV_API int32_t HalvIOWriteBytes(HalvIO *io, const void *bytes, uint32_t count) HALV_NOEXCEPT;

/* Reads one line, one byte per read call.  At most max bytes are consumed,
 * CR and LF included; LF ends the line and is not stored, CR is dropped
 * wherever it stands.  The buffer needs max + 1 bytes and is always left
 * NUL-terminated.  Result: bytes consumed (an empty line gives 1, end of
 * stream 0), or the negative read result on failure; max < 1 gives 0 and
 * reads nothing. */
HALV_API int32_t HalvIOReadString(HalvIO *io, char *buffer, int32_t max) HALV_NOEXCEPT;

/* Reads one line, one byte per read call, storing at most max bytes: LF is
 * stored and ends the line, CR is dropped and not counted.  Any read result
 * other than 1 ends the line.  The buffer needs max + 1 bytes and is always
 * left NUL-terminated.  Result: 1 if at least one byte was stored, else 0. */
HALV_API int32_t HalvIOGets(HalvIO *io, char *buffer, uint32_t max) HALV_NOEXCEPT;

/* One single write call with the whole NUL-terminated text, no loop; the
 * result is the slot's.  A null text gives 0 with no call. */
HALV_API int32_t HalvIOWriteString(HalvIO *io, const char *text) HALV_NOEXCEPT;

/* Copies from src to dst (destination first) through a 4096-byte buffer,
 * count bytes or, with count 0, until src ends.  Would-block results wait
 * until the stream is ready.  Result: bytes copied, or -1 on a failed read or
 * write, a destination that accepts nothing, or a negative count. */
HALV_API int64_t HalvIOCopyBytes(HalvIO *dst, HalvIO *src, int64_t count) HALV_NOEXCEPT;

/* Moves forward by count bytes: by seek(io, count, 1) when the stream can
 * seek (result count, whatever position it reported), else by reading in
 * passes of 1024 bytes.  Result: bytes skipped (short at end of stream, 0
 * for count <= 0 on a stream that can't seek), -1 on a failed read, -2 when
 * the read would block. */
HALV_API int64_t HalvIOSkipBytes(HalvIO *io, int64_t count) HALV_NOEXCEPT;

/* Reads a whole stream into one new NUL-terminated buffer that the caller
 * frees with halv_internal_free; *size doesn't count the NUL.  A seekable
 * stream is read from position 0, whatever its position was; one that can't
 * seek is read from where it stands.  Result 1, or 0 (null out-pointer, a
 * stream longer than 0x7FFFFFFE bytes, a failed read or allocation) with
 * *data null where a buffer had been made. */
HALV_API int32_t HalvIOReadBlock(HalvIO *io, char **data, uint32_t *size) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * String streams over a caller's buffer
 * ------------------------------------------------------------------------ */

/* A stream over buffer, which must outlive it unless setAutoClose(io, 1)
 * hands it over (close then frees it with halv_internal_free).  With size
 * above 0 neither pointer passes the buffer's end: a read runs to the end of
 * the capacity, a write that leaves room stores one NUL behind its bytes.
 * Size 0 means the buffer holds NUL-terminated text and nothing guards its
 * end.  Separate read and write pointers start at the buffer's start.
 * Result: the stream, or null for a null buffer or no memory. */
HALV_API HalvIO *HalvIO_Str(void *buffer, uint32_t size) HALV_NOEXCEPT;

/* Sets both pointers of a string stream back to the buffer's start; clears
 * nothing.  Does nothing for null or any other stream. */
HALV_API void HalvIOStrReset(HalvIO *io) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Growing memory streams
 * ------------------------------------------------------------------------ */

/* A stream over a buffer of its own, which grows on write to the larger of
 * what is needed and twice its capacity.  Reading and writing share one
 * cursor, so written bytes are read back after a seek.  With capacity 0 (or
 * a failed first allocation) there is no buffer until the first write.
 * close frees the buffer.  Result: the stream, or null if no memory. */
HALV_API HalvIO *HalvIO_Mem(uint32_t initialCapacity) HALV_NOEXCEPT;

/* The memory stream's buffer (null before its first allocation), which the
 * stream keeps owning and may move on the next write; null for null or any
 * other stream. */
HALV_API void *HalvIOMemBuffer(HalvIO *io) HALV_NOEXCEPT;

/* Bytes written so far (the highest position reached by a write); 0 for
 * null or any other stream. */
HALV_API uint32_t HalvIOMemLength(HalvIO *io) HALV_NOEXCEPT;

/* Bytes allocated for the buffer; 0 for null or any other stream. */
HALV_API uint32_t HalvIOMemCapacity(HalvIO *io) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Multiplex streams over a sequence of streams
 * ------------------------------------------------------------------------ */

/* A stream that reads and writes its components one after another, moving
 * on when one answers 0.  The array of count pointers is copied; the
 * components stay the caller's, and close frees only the copy and the
 * record.  The end of the last component reads as -1; a write always gives
 * the requested count.  flush flushes every component, seek(io, index, any)
 * selects one.  Result: the stream, or null for a null array with count
 * above 0 or no memory. */
HALV_API HalvIO *HalvIO_Multiplex(HalvIO *const *streams, uint32_t count) HALV_NOEXCEPT;

/* Makes component index the current one; index equal to the count means
 * past the last.  Result: 1, or 0 (nothing changed) for an index above the
 * count, or a null stream or one that is no multiplex stream. */
HALV_API int32_t HalvIOMultiplexSet(HalvIO *io, uint32_t index) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Sockets and URLs
 *
 * IPv4 TCP streams and a small HTTP/1.1 client, as streams.  The socket
 * descriptor is the first back-end field, a machine word right behind the
 * slots.  flush does nothing, seek gives -1, setAutoClose is null; close
 * sets a linger of 5 seconds, closes the socket and frees the record.  In
 * non-blocking mode read and write give -2 where they would wait; -1 is any
 * other socket failure, and a read of 0 means the peer has closed (or an
 * HTTP body has ended).  A stream is used by one thread at a time.
 * ------------------------------------------------------------------------ */

/* A TCP stream.  With a nonzero backlog it listens on host (null: every
 * local address) and port, and each read of sizeof(HalvIO *) bytes accepts
 * a connection and stores a pointer to a new stream for it in the buffer
 * (any other count gives -1, would-block -2); its write gives -1.  With
 * backlog 0 it connects to host and port, and reads and writes raw bytes.
 * blocking 0 puts the socket in non-blocking mode once it is set up;
 * accepted connections take the listener's mode.  Result: the stream, or
 * null when the socket, the look-up, the bind, the listen or the connect
 * fails, or memory runs out. */
HALV_API HalvIO *HalvIO_TcpSocket(const char *host, uint16_t port, int32_t backlog, int32_t blocking) HALV_NOEXCEPT;

/* An HTTP/1.1 stream for url, which must begin with "http://" in any case
 * of its letters; host[:port] follows, then the path ("/" when none).
 * mode holding 'w' makes a PUT: every write of n > 0 bytes is sent as one
 * chunk, and close ends the body with the last chunk and an empty trailer,
 * "0\r\n\r\n"; the server's answer is never read.  Otherwise a GET: the response must have status 200 (no
 * redirect is followed), and read gives its body, bounded by Content-Length
 * or by the chunks, else up to the server's close, and 0 from then on.
 * 'n' in mode makes the socket non-blocking once the request (and a GET's
 * head) is done; other letters have no effect.  Connecting, sending the
 * request and reading a GET's head must be done within HV_URL_TIMEOUT
 * milliseconds (default 60000; a value that is no positive number gives
 * the default), else the result is null: a server that accepts and never
 * answers can't hold the call for ever.  Reads of the body have no such
 * bound; on a non-blocking stream the caller bounds them with
 * HalvIOSelect.  HV_PROXY, as host[:port],
 * sends the request there with the whole URL as its target.  Result: the
 * stream, or null for another scheme, an unknown host, a failed connection,
 * a request line or Host line over 511 bytes, control bytes in the URL,
 * the time bound passed, another status, a head line over 511 bytes, or a Content-Length that is
 * no number from 0 to 2^31 - 1.  A read of a chunk size that is no such
 * number gives -1, and so does every read after it. */
HALV_API HalvIO *HalvIO_URL(const char *url, const char *mode) HALV_NOEXCEPT;

/* 1 when name begins with "http://", in any case of its letters: a name
 * that HalvIO_FileName and HalvFindFile open as a URL through HalvIO_URL.
 * 0 otherwise, and for null. */
HALV_API int HalvIsURL(const char *name) HALV_NOEXCEPT;

/* Waits until a stream of readStreams can be read (a listening one: can
 * accept) or one of writeStreams can be written.  A peer that has closed
 * counts as ready; the read then gives 0.  Both arrays hold streams of
 * HalvIO_TcpSocket or HalvIO_URL; either may be null with its count 0.  A
 * stream may be in one wait at a time.  timeout in milliseconds, negative
 * without limit.  Result: 1 ready (the caller tries which), 2 timed out,
 * -1 failed, also for a null or foreign stream in a list and for empty
 * lists with no time limit. */
HALV_API int32_t HalvIOSelect(HalvIO *const *readStreams, uint32_t readCount, HalvIO *const *writeStreams,
                              uint32_t writeCount, int32_t timeout) HALV_NOEXCEPT;

HALV_END_DECLS

/* ------------------------------------------------------------------------
 * File streams
 *
 * Every name is UTF-8 and every file binary.  A stream over a descriptor, a
 * FILE* or a handle leaves it open at close unless setAutoClose(io, 1) was
 * called, so a caller may wrap stdout and throw the wrapper away; streams
 * opened by name or made on a temporary file own their descriptor.
 * ------------------------------------------------------------------------ */

#include <stdio.h>

HALV_BEGIN_DECLS

/* A stream over descriptor fd.  read, write and seek give the system's
 * results (-1 on failure); seek works when fd was a regular file when the
 * stream was made, and gives -1 otherwise or for a whence outside 0 to 2;
 * flush does nothing.  Result: the stream, or null when memory runs out. */
HALV_API HalvIO *HalvIO_FD(int fd) HALV_NOEXCEPT;

/* A stream over fp.  read and write give the bytes moved; when nothing
 * moved, -1 if ferror(fp) is set, else 0.  flush is fflush; seek works as
 * on HalvIO_FD and gives the new position by ftello.  Result: the stream,
 * or null for a null fp or when memory runs out. */
HALV_API HalvIO *HalvIO_FP(FILE *fp) HALV_NOEXCEPT;

/* A stream over a platform file handle: on this platform a descriptor in a
 * machine word.  Failed reads and writes give 0, never -1.  seek passes any
 * position to the system, which refuses it on pipes (-1); a whence outside
 * 0 to 2 counts as 0.  Result: the stream, or null when memory runs out. */
HALV_API HalvIO *HalvIO_HANDLE(intptr_t handle) HALV_NOEXCEPT;

/* Opens the file name as mode says, looking for letters anywhere in it:
 * "r" an existing file for reading, else "w" emptied or created for
 * writing, else "a" created if missing, every write going to the end; "+"
 * makes any of them read and write; "b" and "t" change nothing.  Names that
 * begin with "http://", in any case, give HalvIO_URL(name, mode) instead.
 * The stream behaves as HalvIO_HANDLE and owns its descriptor.  Result: the
 * stream, or null for a null name or mode, a mode without r, w or a, or a
 * failed open (traced by HalvDebug "CreateFileW failed with code %d for
 * file %s\n" with errno). */
HALV_API HalvIO *HalvIO_FileName(const char *name, const char *mode) HALV_NOEXCEPT;

/* Creates a new empty file with a unique name "_ha??????.tmp" and returns
 * that full name, which the caller frees with halv_internal_free and
 * deletes.  A template that holds a '/' selects the directory in front of
 * its last '/'; otherwise the directory is the entry of the comma list
 * HALV_TEMP (references expanded) with the most free space, else "/tmp".
 * A directory that is missing, no directory or not writable is replaced by
 * "." (HalvError tells which check failed).  Result: the name, or null
 * when no directory is usable or the file can't be made. */
HALV_API char *HalvMktemp(const char *templ) HALV_NOEXCEPT;

/* A read-write stream on a new temporary file in the directory HalvMktemp
 * would choose.  The file has no name left on disk, so it disappears when
 * the stream is closed, and also when the process dies.  Result: the
 * stream, or null. */
HALV_API HalvIO *HalvIO_Mktemp(const char *templ) HALV_NOEXCEPT;

/* fopen of a UTF-8 name; the descriptor isn't inherited by child
 * processes.  The FILE*, or null for a null argument or a failed open. */
HALV_API FILE *HalvFOpen(const char *name, const char *mode) HALV_NOEXCEPT;

HALV_END_DECLS

/* ------------------------------------------------------------------------
 * Smart buffers
 *
 * A first-in first-out byte queue of any size.  Bytes stay in memory up to
 * memoryMax (HALV_MEMORY_MAX); what goes beyond spills into temporary files
 * of at most tempFileMax bytes each (HALV_TEMPFILE_MAX), which are deleted
 * as soon as their last byte has been consumed.  A buffer belongs to one
 * thread at a time.
 * ------------------------------------------------------------------------ */

HALV_BEGIN_DECLS

typedef struct HalvSmartBufferBlock HalvSmartBufferBlock;

/* One block: a memory part, then a file part, read in that order. */
struct HalvSmartBufferBlock {
    char *readPtr;        /* first unread byte of the memory part; null when none */
    char *writePtr;       /* end of the valid bytes of the memory part */
    char *allocation;     /* start of the memory part's allocation */
    uint32_t capacity;    /* bytes allocated, 0 when there is no allocation */
    char *fileName;       /* the file part's temporary file, or null */
    void *platformName;   /* platform form of fileName: not needed here, null */
    int64_t fileOffset;   /* bytes of the file part already consumed */
    int64_t fileSize;     /* bytes written to the file part */
    HalvSmartBufferBlock *next; /* the following block, or null */
};

/* A smart buffer: the limits and counts of the queue, and its blocks. */
typedef struct HalvSmartBuffer {
    int32_t memoryOnly;   /* nonzero: never spill, no memory limit */
    uint32_t memoryMax;   /* most bytes held in memory */
    int64_t tempFileMax;  /* most bytes in one temporary file */
    uint32_t blockSize;   /* smallest allocation of a memory block */
    int64_t available;    /* bytes in the buffer, in memory and in files */
    uint32_t inMemory;    /* bytes held in memory */
    HalvSmartBufferBlock *head; /* the first block, read first; null when empty */
    HalvSmartBufferBlock *tail; /* the last block, appended to */
} HalvSmartBuffer;

/* A new empty buffer.  memoryMax comes from HALV_MEMORY_MAX and tempFileMax
 * from HALV_TEMPFILE_MAX (decimal byte counts; 20000000 and 1000000 when a
 * value isn't a number).  blockSize is the argument with memoryOnly set,
 * else the smaller of the argument and memoryMax.  Result: the buffer, or
 * null when memory runs out. */
HALV_API HalvSmartBuffer *HalvSBInit(int32_t memoryOnly, uint32_t blockSize) HALV_NOEXCEPT;

/* Appends count bytes at the tail: to memory while inMemory stays within
 * memoryMax (the limit is filled exactly), the rest to temporary files.
 * Result: the bytes stored, short only on failure (no memory, no temporary
 * file, a full disk), with everything stored before still readable in
 * order; 0 for a null argument or count 0.  One call stores at most
 * 0x7FFFFFFF bytes. */
HALV_API int32_t HalvSBAppend(HalvSmartBuffer *sb, const void *bytes, uint32_t count) HALV_NOEXCEPT;

/* Copies up to count bytes, starting offset bytes behind the head, without
 * consuming them.  Result: the bytes copied; 0 beyond the last byte, for a
 * null argument or a negative offset; short when a temporary file can't be
 * read. */
HALV_API uint32_t HalvSBPeek(HalvSmartBuffer *sb, int64_t offset, void *buffer, uint32_t count) HALV_NOEXCEPT;

/* Drops up to count bytes from the head, freeing memory blocks and
 * deleting temporary files as they are used up.  Result: the bytes
 * dropped, less than count when the buffer runs empty; 0 for count <= 0 or
 * a null buffer. */
HALV_API int64_t HalvSBAdvance(HalvSmartBuffer *sb, int64_t count) HALV_NOEXCEPT;

/* Peeks at offset 0, then advances over what was copied.  Result: the
 * bytes read; 0 when the buffer is empty. */
HALV_API uint32_t HalvSBRead(HalvSmartBuffer *sb, void *buffer, uint32_t count) HALV_NOEXCEPT;

/* Bytes in the buffer, in memory and in files (0 for null). */
HALV_API int64_t HalvSBBytesAvailable(const HalvSmartBuffer *sb) HALV_NOEXCEPT;

/* Bytes held in memory (0 for null). */
HALV_API uint32_t HalvSBBytesInMemory(const HalvSmartBuffer *sb) HALV_NOEXCEPT;

/* Drops all that is left, which deletes the temporary files, and frees the
 * buffer.  Does nothing for null. */
HALV_API void HalvSBFree(HalvSmartBuffer *sb) HALV_NOEXCEPT;

/* A stream over sb, which stays the caller's: read is HalvSBRead (0 means
 * nothing available now; more may come), write is HalvSBAppend, seek gives
 * -1, flush does nothing, there is no setAutoClose, and close frees only
 * the stream.  Result: the stream, or null for a null buffer or when
 * memory runs out. */
HALV_API HalvIO *HalvIO_SB(HalvSmartBuffer *sb) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_STREAMS_H */
