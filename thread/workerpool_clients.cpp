/*
 * thread/workerpool_clients.cpp - client handles: local pools with a core
 * of their own, clients of the one global core, their thread counts, and
 * freeing them.
 *
 * The global core is built by the first HalvWorkerPoolCreateGlobal and
 * registers a cleanup that takes it down at the engine's last stop; the
 * next CreateGlobal after that builds a new one.  The lock key WKPL guards
 * only the pointer and the building of the core: no core mutex is taken
 * while it is held.
 */
#include <atomic>

#include "halv_core.h"
#include "core/internal.h"
#include "thread/workerpool.h"

namespace {

using halv::pool::CoreLock;
using PoolTableLock = halv::ScopedKeyLock<HALV_LOCK_WKPL>;

/* Changed only under the WKPL key; an atomic because the key is no lock
 * while the engine is stopped. */
constinit std::atomic<HalvWorkerPoolCore *> globalCore{nullptr};

HalvWorkerPool *NewHandle(int blockWhenFull) noexcept {
    auto *pool = static_cast<HalvWorkerPool *>(halv_internal_calloc(1, sizeof(HalvWorkerPool)));
    if (pool != nullptr)
        pool->blockWhenFull = blockWhenFull;
    return pool;
}

/* Registered with the engine by the CreateGlobal that built the core. */
int32_t DestroyGlobalCore(intptr_t) noexcept {
    HalvWorkerPoolCore *core;
    {
        PoolTableLock lock;
        core = globalCore.exchange(nullptr, std::memory_order_acq_rel);
    }
    if (core != nullptr)
        halv::pool::DestroyCore(core);
    return 1;
}

/* The global core, built (with its cleanup registered) when there is none.
 * Null when it can't be built. */
HalvWorkerPoolCore *AttachGlobalCore() noexcept {
    PoolTableLock lock;
    HalvWorkerPoolCore *core = globalCore.load(std::memory_order_acquire);
    if (core == nullptr && halv::pool::CreateCore(&core) == 1) {
        globalCore.store(core, std::memory_order_release);
        HalvernRegisterCleanupFunc(DestroyGlobalCore, 0);
    }
    return core;
}

bool IsGlobalCore(const HalvWorkerPoolCore *core) noexcept {
    PoolTableLock lock;
    return core == globalCore.load(std::memory_order_acquire);
}

enum CountKind { kSharedCount, kExclusiveCount };

int SetThreadCount(HalvWorkerPool *pool, CountKind kind, uint32_t count) noexcept {
    HalvWorkerPoolCore *core = pool->core;
    CoreLock hold(core);
    HalvWorkerPoolClient &client = core->clients[pool->clientIndex];
    (kind == kSharedCount ? client.sharedThreads : client.exclusiveThreads) = count;
    return halv::pool::AdjustThreads(core);
}

} // namespace

extern "C" {

HALV_API int HalvWorkerPoolCreateLocal(HalvWorkerPool **out, uint32_t queueLimit, int blockWhenFull,
                                       uint32_t threadCount, void *clientData) noexcept {
    if (out == nullptr)
        return 0;
    *out = nullptr;
    HalvWorkerPool *pool = NewHandle(blockWhenFull);
    if (pool == nullptr)
        return 0;
    if (halv::pool::CreateCore(&pool->core) != 1) {
        halv_internal_free(pool);
        return 0;
    }
    if (halv::pool::AddClient(pool, threadCount, 0, queueLimit, clientData) != 1) {
        halv::pool::DestroyCore(pool->core);
        halv_internal_free(pool);
        return 0;
    }
    *out = pool;
    return 1;
}

HALV_API int HalvWorkerPoolCreateGlobal(HalvWorkerPool **out, uint32_t queueLimit, int blockWhenFull,
                                        uint32_t sharedThreads, uint32_t exclusiveThreads,
                                        void *clientData) noexcept {
    if (out == nullptr)
        return 0;
    *out = nullptr;
    HalvWorkerPool *pool = NewHandle(blockWhenFull);
    if (pool == nullptr)
        return 0;
    pool->core = AttachGlobalCore();
    if (pool->core == nullptr ||
        halv::pool::AddClient(pool, sharedThreads, exclusiveThreads, queueLimit, clientData) != 1) {
        halv_internal_free(pool);
        return 0;
    }
    *out = pool;
    return 1;
}

HALV_API int HalvWorkerPoolSetExclusiveThreadCount(HalvWorkerPool *pool, uint32_t count) noexcept {
    return SetThreadCount(pool, kExclusiveCount, count);
}

HALV_API int HalvWorkerPoolSetSharedThreadCount(HalvWorkerPool *pool, uint32_t count) noexcept {
    return SetThreadCount(pool, kSharedCount, count);
}

HALV_API int HalvWorkerPoolFree(HalvWorkerPool *pool) noexcept {
    HalvWorkerPoolCore *core = pool->core;
    HalvWorkerPoolClearTasks(pool);
    {
        CoreLock hold(core);
        core->clients[pool->clientIndex] = {};
        halv::pool::RecountTarget(core);
    }
    int result = 1;
    if (!IsGlobalCore(core))
        result = halv::pool::DestroyCore(core);
    halv_internal_free(pool);
    return result;
}

} // extern "C"
