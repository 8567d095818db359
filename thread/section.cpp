/*
 * thread/section.cpp - critical sections: recursive mutexes on the heap.
 *
 * The engine's hash locks and master lock are sections, and the engine runs
 * before its locks exist, so every operation on a null section does nothing
 * and succeeds.
 */
#include "thread/internal.h"

namespace halv {

void InitSectionRecord(HalvCriticalSectionRecord *section) noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&section->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void DestroySectionRecord(HalvCriticalSectionRecord *section) noexcept { pthread_mutex_destroy(&section->mutex); }

} // namespace halv

extern "C" {

HALV_API int HalvInitCriticalSection(HalvCriticalSection *out) noexcept {
    if (out == nullptr)
        return 0;
    auto *section = static_cast<HalvCriticalSectionRecord *>(halv_internal_malloc(sizeof(HalvCriticalSectionRecord)));
    if (section == nullptr)
        return 0;
    halv::InitSectionRecord(section);
    *out = section;
    return 1;
}

HALV_API int HalvFreeCriticalSection(HalvCriticalSection section) noexcept {
    if (section == nullptr)
        return 1;
    halv::DestroySectionRecord(section);
    halv_internal_free(section);
    return 1;
}

HALV_API int HalvEnterCriticalSection(HalvCriticalSection section) noexcept {
    if (section != nullptr)
        pthread_mutex_lock(&section->mutex);
    return 1;
}

HALV_API int HalvLeaveCriticalSection(HalvCriticalSection section) noexcept {
    if (section != nullptr)
        pthread_mutex_unlock(&section->mutex);
    return 1;
}

} // extern "C"
