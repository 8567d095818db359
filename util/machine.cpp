/*
 * util/machine.cpp - what the library can tell about the machine: the
 * processor's signature and features, its logical processors, and memory.
 *
 * Sizes are handed out as their low 32 bits, so on a machine with more than
 * 4 GiB they wrap; callers that need real figures must ask the system.
 */
#include <cstdio>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "halv_util.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define HALV_HAVE_CPUID 1
#endif

namespace {

/* The user half of the x86-64 address space, for a process without an
 * address-space limit. */
constexpr uint64_t kUserAddressSpace = 0x7FFFFFFFF000ull;

uint64_t AddressSpaceTotal() noexcept {
    struct rlimit limit;
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        return limit.rlim_cur;
    return kUserAddressSpace;
}

/* Virtual size of this process: the first figure of /proc/self/statm, in
 * pages; 0 when it can't be read. */
uint64_t AddressSpaceInUse() noexcept {
    FILE *statm = std::fopen("/proc/self/statm", "re");
    if (statm == nullptr)
        return 0;
    unsigned long long pages = 0;
    if (std::fscanf(statm, "%llu", &pages) != 1)
        pages = 0;
    std::fclose(statm);
    long pageSize = sysconf(_SC_PAGESIZE);
    return pages * (uint64_t)(pageSize > 0 ? pageSize : 4096);
}

uint64_t MemoryFigure(int kind) noexcept {
    struct sysinfo info;
    switch (kind) {
    case 0:
        return sysinfo(&info) == 0 ? (uint64_t)info.totalram * info.mem_unit : 0;
    case 1:
        return sysinfo(&info) == 0 ? (uint64_t)info.freeram * info.mem_unit : 0;
    case 2:
        return AddressSpaceTotal();
    case 3: {
        uint64_t total = AddressSpaceTotal(), inUse = AddressSpaceInUse();
        return total > inUse ? total - inUse : 0;
    }
    default:
        return 0;
    }
}

} // namespace

extern "C" {

HALV_API int HalvIdentifyArch(uint32_t *signature, uint32_t *features) noexcept {
    unsigned eax = 0, edx = 0;
#ifdef HALV_HAVE_CPUID
    unsigned ebx = 0, ecx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0)
        eax = edx = 0;
#endif
    if (signature != nullptr)
        *signature = eax;
    if (features != nullptr)
        *features = edx;
    return 0;
}

HALV_API int32_t HalvIdentifyProcessorCount(void) noexcept {
    long count = sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? (int32_t)count : 1;
}

HALV_API uint32_t HalvIdentifyMemory(int kind) noexcept { return (uint32_t)MemoryFigure(kind); }

} // extern "C"
