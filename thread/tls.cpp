/*
 * thread/tls.cpp - thread-local storage over pthread keys.  A key fits the
 * 32-bit key of the interface; a value never set reads as null.
 */
#include "thread/internal.h"

extern "C" {

HALV_API int HalvTLSAlloc(uint32_t *key) noexcept {
    if (key == nullptr)
        return 0;
    pthread_key_t made;
    if (pthread_key_create(&made, nullptr) != 0)
        return 0;
    *key = (uint32_t)made;
    return 1;
}

HALV_API int HalvTLSFree(uint32_t key) noexcept { return pthread_key_delete((pthread_key_t)key) == 0 ? 1 : 0; }

HALV_API int HalvTLSSetValue(uint32_t key, void *value) noexcept {
    return pthread_setspecific((pthread_key_t)key, value) == 0 ? 1 : 0;
}

HALV_API void *HalvTLSGetValue(uint32_t key) noexcept { return pthread_getspecific((pthread_key_t)key); }

} // extern "C"
