/*
 * userdata/text_buffer.cpp - growth of the buffer that collects token text.
 */
#include "userdata/internal.h"

namespace halv {

/* Doubles, starting at 256 bytes, so collecting a token costs amortised
 * constant time per byte; the length stays within 32 bits. */
bool TextBuffer::Grow(uint32_t more) noexcept {
    const uint64_t needed = (uint64_t)length_ + more;
    if (needed > UINT32_MAX)
        return false;
    uint64_t capacity = capacity_ < 256 ? 256 : capacity_;
    while (capacity < needed)
        capacity *= 2;
    if (capacity > UINT32_MAX)
        capacity = UINT32_MAX;
    auto *grown = static_cast<char *>(halv_internal_realloc(bytes_, (size_t)capacity));
    if (grown == nullptr)
        return false;
    bytes_ = grown;
    capacity_ = (uint32_t)capacity;
    return true;
}

} // namespace halv
