/*
 * text/print_family.cpp - the 24 exported print functions.
 *
 * Each one only says where its arguments come from and which sink it
 * prints to; all of them end in one of the four routes of print_sinks.cpp.
 */
#include "text/format_family.h"
#include "text/print_internal.h"

extern "C" {

/* Stream: each byte is one write call on the stream; a byte it refuses
 * makes the result HALV_FORMAT_STREAM_ERROR while the rest is still
 * offered.  A null stream only counts. */
HALV_FORMAT_FAMILY(halv::PrintToStream, (HalvIO *io), (io), HalvIOPrintf, HalvIOPrintfl, HalvIOVPrintf,
                   HalvIOVPrintfl, HalvIOLPrintf, HalvIOLPrintfl)

/* Buffer without bound: the text and a terminator; the buffer must hold
 * them.  On a parse failure the buffer holds an empty string. */
HALV_FORMAT_FAMILY(halv::PrintToBuffer, (char *buffer), (buffer), HalvSPrintf, HalvSPrintfl, HalvVSPrintf,
                   HalvVSPrintfl, HalvLSPrintf, HalvLSPrintfl)

/* Bounded buffer: at most size - 1 bytes and a terminator, none at all for
 * size 0; the result is the full length, so a null buffer of size 0
 * measures. */
HALV_FORMAT_FAMILY(halv::PrintToBoundedBuffer, (char *buffer, uint32_t size), (buffer, size), HalvSNPrintf,
                   HalvSNPrintfl, HalvVSNPrintf, HalvVSNPrintfl, HalvLSNPrintf, HalvLSNPrintfl)

/* New string: *out gets a new string (never null on success, "" for no
 * text) that the caller frees with halv_internal_free; on failure *out is
 * null. */
HALV_FORMAT_FAMILY(halv::PrintToNewString, (char **out), (out), HalvASPrintf, HalvASPrintfl, HalvVASPrintf,
                   HalvVASPrintfl, HalvLASPrintf, HalvLASPrintfl)

} // extern "C"
