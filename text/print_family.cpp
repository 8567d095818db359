/*
 * text/print_family.cpp - the 24 exported print functions.
 *
 * Each one only says where its arguments come from and which sink it
 * prints to; all of them end in one of the four routes of print_sinks.cpp.
 * Their contracts are in halv_text.h.
 */
#include "text/format_family.h"
#include "text/print_internal.h"

extern "C" {

HALV_FORMAT_FAMILY(halv::PrintToStream, (HalvIO *io), (io), HalvIOPrintf, HalvIOPrintfl, HalvIOVPrintf,
                   HalvIOVPrintfl, HalvIOLPrintf, HalvIOLPrintfl)

HALV_FORMAT_FAMILY(halv::PrintToBuffer, (char *buffer), (buffer), HalvSPrintf, HalvSPrintfl, HalvVSPrintf,
                   HalvVSPrintfl, HalvLSPrintf, HalvLSPrintfl)

HALV_FORMAT_FAMILY(halv::PrintToBoundedBuffer, (char *buffer, uint32_t size), (buffer, size), HalvSNPrintf,
                   HalvSNPrintfl, HalvVSNPrintf, HalvVSNPrintfl, HalvLSNPrintf, HalvLSNPrintfl)

HALV_FORMAT_FAMILY(halv::PrintToNewString, (char **out), (out), HalvASPrintf, HalvASPrintfl, HalvVASPrintf,
                   HalvVASPrintfl, HalvLASPrintf, HalvLASPrintfl)

} // extern "C"
