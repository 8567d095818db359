/*
 * streams/smartbuffer.cpp - making, measuring and freeing smart buffers.
 *
 * The limits come from HalvGetenv, whose defaults for both names make a
 * buffer spill early (15360 bytes in memory, files of 10240 bytes) unless a
 * site raises them; the start values below only hold for a value that
 * isn't a number.
 */
#include "halv_core.h"
#include "halv_env.h"
#include "streams/smartbuffer_internal.h"

namespace halv {
namespace {

constexpr uint32_t kStartMemoryMax = 20000000;
constexpr int64_t kStartTempFileMax = 1000000;

bool IsScanSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

/* Reads an unsigned decimal number as "%u" does: leading white space, an
 * optional sign (a minus negates modulo 2^64), digits with the value held
 * at 2^64 - 1 on overflow, then cut to 32 bits.  True when a digit was
 * read. */
bool ScanUnsigned(const char *text, uint32_t *value) noexcept {
    if (text == nullptr)
        return false;
    while (IsScanSpace(*text))
        ++text;
    bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    if (*text < '0' || *text > '9')
        return false;
    uint64_t number = 0;
    bool overflow = false;
    for (; *text >= '0' && *text <= '9'; ++text) {
        unsigned digit = static_cast<unsigned>(*text - '0');
        if (number > (UINT64_MAX - digit) / 10)
            overflow = true;
        else
            number = number * 10 + digit;
    }
    if (overflow)
        number = UINT64_MAX;
    else if (negative)
        number = 0 - number;
    *value = static_cast<uint32_t>(number);
    return true;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvSmartBuffer *HalvSBInit(int32_t memoryOnly, uint32_t blockSize) noexcept {
    using namespace halv;
    auto *sb = static_cast<HalvSmartBuffer *>(halv_internal_calloc(1, sizeof(HalvSmartBuffer)));
    if (sb == nullptr)
        return nullptr;
    sb->memoryOnly = memoryOnly;
    sb->memoryMax = kStartMemoryMax;
    sb->tempFileMax = kStartTempFileMax;
    uint32_t value;
    if (ScanUnsigned(HalvGetenv("HALV_MEMORY_MAX"), &value))
        sb->memoryMax = value;
    if (ScanUnsigned(HalvGetenv("HALV_TEMPFILE_MAX"), &value))
        sb->tempFileMax = value;
    sb->blockSize = memoryOnly || blockSize < sb->memoryMax ? blockSize : sb->memoryMax;
    return sb;
}

HALV_API int64_t HalvSBBytesAvailable(const HalvSmartBuffer *sb) noexcept {
    return sb != nullptr ? sb->available : 0;
}

HALV_API uint32_t HalvSBBytesInMemory(const HalvSmartBuffer *sb) noexcept {
    return sb != nullptr ? sb->inMemory : 0;
}

HALV_API void HalvSBFree(HalvSmartBuffer *sb) noexcept {
    if (sb == nullptr)
        return;
    HalvSBAdvance(sb, sb->available);
    /* Blocks the count didn't reach (none while the books are right). */
    while (sb->head != nullptr) {
        HalvSmartBufferBlock *block = sb->head;
        sb->head = block->next;
        halv::FreeBlock(block);
    }
    halv_internal_free(sb);
}

} // extern "C"
