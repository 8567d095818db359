/*
 * modules/infofield.h - what the info field files share: making a field
 * record, the size of a type, and laying a list out.
 */
#ifndef HALV_MODULES_INFOFIELD_H
#define HALV_MODULES_INFOFIELD_H

#include <cstdint>

#include "halv_modules.h"

namespace halv {

/* Bytes of one value of type: 4, 8 or 1, and 0 for any other letter. */
int32_t InfoTypeWidth(char type) noexcept;

/* count values of type in bytes; 0 for an unknown type, a count below 1,
 * or a size that doesn't fit a signed 32-bit number. */
int32_t InfoFieldSize(char type, int32_t count) noexcept;

/* A new field record with both slots set, taking name (a string of the
 * library's allocators, or null) as its own, and the size of type and
 * count; offset 0.  Null when memory runs out, name released then. */
HalvInfoField *NewInfoField(char *name, char type, int32_t count) noexcept;

/* Entries of a list up to its terminator; 0 for null. */
uint32_t InfoFieldCount(HalvInfoField *const *fields) noexcept;

/* Gives every field of the list the sum of the sizes before it.  A field
 * that would end past 0x7FFFFFFF bytes gets size 0, and the result is then
 * false: sizes of 0 say that a field is no good, wherever they come from. */
bool LayOutInfoFields(HalvInfoField **fields) noexcept;

/* HalvParseInfoFields over count texts, which all exist. */
int ParseInfoFieldTexts(const char *const *texts, uint32_t count, HalvInfoField ***fields) noexcept;

} // namespace halv

#endif
