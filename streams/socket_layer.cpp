/*
 * streams/socket_layer.cpp - the socket layer's one-time start-up.
 *
 * Linux sockets need no start-up call, but the layer keeps the same life
 * cycle as everywhere else: the first constructor marks it started under
 * the WSAK lock and registers a cleanup, and the engine's last stop runs
 * that cleanup, which marks it stopped, so the next start registers anew.
 * The mark is atomic because the hash locks are absent before HalvernInit
 * and two threads may then start the layer at once.
 */
#include <atomic>

#include "core/internal.h"
#include "streams/socket_internal.h"

namespace halv {

namespace {

constinit std::atomic<int> socketLayerStarted{0};

int32_t StopSocketLayer(intptr_t) noexcept {
    socketLayerStarted.store(0, std::memory_order_relaxed);
    return 1;
}

} // namespace

void StartSocketLayer() noexcept {
    ScopedKeyLock<HALV_LOCK_WSAK> lock;
    if (socketLayerStarted.load(std::memory_order_relaxed) == 0) {
        /* Refused while the engine is stopped: then there is no last stop
         * to clean up after. */
        HalvernRegisterCleanupFunc(StopSocketLayer, 0);
        socketLayerStarted.store(1, std::memory_order_relaxed);
    }
}

} // namespace halv
