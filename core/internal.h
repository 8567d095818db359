/*
 * core/internal.h - helpers the engine core shares with the rest of the
 * library but does not export.
 */
#ifndef HALV_CORE_INTERNAL_H
#define HALV_CORE_INTERNAL_H

#include <stdarg.h>
#include <stddef.h>

#include "halv_core.h"
#include "halv_thread.h"

namespace halv {

/* Holds one engine hash lock by key for a scope: the one way the library
 * takes a key.  Before the first HalvernInit and after the last HalvernEnd
 * the locks don't exist and this does nothing. */
template <uint32_t Key>
class ScopedKeyLock {
  public:
    ScopedKeyLock() noexcept { HalvernLock(Key); }
    ~ScopedKeyLock() { HalvernUnlock(Key); }
    ScopedKeyLock(const ScopedKeyLock &) = delete;
    ScopedKeyLock &operator=(const ScopedKeyLock &) = delete;
};

/* Holds a critical section for a scope; a null section does nothing, as
 * the section operations accept null. */
class ScopedSection {
  public:
    explicit ScopedSection(HalvCriticalSection section) noexcept : section_(section) {
        HalvEnterCriticalSection(section_);
    }
    ~ScopedSection() { HalvLeaveCriticalSection(section_); }
    ScopedSection(const ScopedSection &) = delete;
    ScopedSection &operator=(const ScopedSection &) = delete;

  private:
    HalvCriticalSection section_;
};

/* Formats like vsnprintf into buffer (which may be null when size is 0) and
 * returns the length the whole text has, or a negative value when the format
 * fails.  The one place where the core turns a format into text. */
int FormatV(char *buffer, size_t size, const char *format, va_list args) noexcept;

/* Scans a decimal integer as "%d" does; 1 when one was read, else 0. */
int ScanInt(const char *text, int *value) noexcept;

/* Zeroed scratch memory of `bytes` for a table that lives within one call
 * and never crosses the interface; null when memory runs out.  Large blocks
 * are pages of their own, so that growing a table does not make the heap
 * merge the small blocks the call is busy reusing.  Give it back with
 * ScratchFree (null is a no-op), never with halv_internal_free. */
void *ScratchAlloc(size_t bytes) noexcept;
void ScratchFree(void *block) noexcept;

/* The three debug switches set by the first HalvernInit. */
int EngineEnvDebug() noexcept;
int EngineSharedDebug() noexcept;
int EngineFindFileDebug() noexcept;

/* Whether HalvernDisableRegistryLoad asked the next first start to leave
 * the registry file unread. */
bool EngineRegistryLoadDisabled() noexcept;

/* A step of the engine's start and stop that a layer above the core adds:
 * start runs in the first HalvernInit, under the master lock, after the
 * hash locks exist (1, or the start fails with 0); stop runs in the last
 * HalvernEnd, before the cleanup functions (1, or the end pass fails with
 * its result and is taken up again by the next pass).
 *
 * A layer declares its step with HALV_ENGINE_STEP, which places it in a
 * table the linker gathers: the core walks the table and names no layer
 * above it, and nothing runs at load time to fill it. */
struct EngineStep {
    int (*start)() noexcept;
    int (*stop)() noexcept;
};

} // namespace halv

#define HALV_ENGINE_STEP(name) \
    extern const halv::EngineStep name; \
    __attribute__((used, section("halv_engine_steps"))) const halv::EngineStep name

namespace halv {

} // namespace halv

#endif
