/*
 * thread/waitable.cpp - the waitable cell and the entries its kinds share.
 *
 * A mutex, a semaphore and an event are one cell type with a kind.  Lock and
 * try-lock wait on a cell of any kind, free closes any kind, and the
 * conditional releases its mutex through the same table; each kind brings
 * its operations in a CellOps record.
 */
#include "thread/internal.h"

namespace {

constinit const halv::CellOps *const kOpsOfKind[kCellKinds] = {
    &halv::kMutexOps,
    &halv::kSemaphoreOps,
    &halv::kEventOps,
};

const halv::CellOps &OpsOf(const HalvWaitableCell *cell) noexcept { return *kOpsOfKind[cell->kind]; }

int FreeCell(HalvWaitableCell *cell) noexcept {
    if (cell == nullptr)
        return 1;
    int closed = OpsOf(cell).close(cell);
    halv_internal_free(cell);
    return closed;
}

} // namespace

namespace halv {

/* The cell comes first and the object is made in it, so a failure of either
 * step leaves nothing behind. */
int CreateCell(HalvWaitableCell **out, int kind, intptr_t a, intptr_t b) noexcept {
    if (out == nullptr)
        return 0;
    auto *cell = static_cast<HalvWaitableCell *>(halv_internal_calloc(1, sizeof(HalvWaitableCell)));
    if (cell == nullptr)
        return 0;
    cell->kind = kind;
    if (kOpsOfKind[kind]->init(cell, a, b) != 1) {
        halv_internal_free(cell);
        return 0;
    }
    *out = cell;
    return 1;
}

int WaitCell(HalvWaitableCell *cell, uint32_t timeoutMs) noexcept {
    return cell == nullptr ? 1 : OpsOf(cell).wait(cell, timeoutMs);
}

int SignalCell(HalvWaitableCell *cell) noexcept { return cell == nullptr ? 1 : OpsOf(cell).signal(cell); }

} // namespace halv

extern "C" {

HALV_API int HalvLockMutex(HalvMutex mutex) noexcept { return halv::WaitCell(mutex, HALV_WAIT_FOREVER); }
HALV_API int HalvWaitSemaphore(HalvSemaphore semaphore) noexcept {
    return halv::WaitCell(semaphore, HALV_WAIT_FOREVER);
}

HALV_API int HalvTryLockMutex(HalvMutex mutex) noexcept { return halv::WaitCell(mutex, 0); }
HALV_API int HalvTryWaitSemaphore(HalvSemaphore semaphore) noexcept { return halv::WaitCell(semaphore, 0); }

HALV_API int HalvFreeMutex(HalvMutex mutex) noexcept { return FreeCell(mutex); }
HALV_API int HalvFreeSemaphore(HalvSemaphore semaphore) noexcept { return FreeCell(semaphore); }
HALV_API int HalvFreeEvent(HalvEvent event) noexcept { return FreeCell(event); }

} // extern "C"
