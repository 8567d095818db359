// Byte-order words, byte swapping of header and sample values, and the
// machine queries.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "dpk_hvsup.h"

TEST(UtilByteOrder, EndianWords) {
    EXPECT_EQ(HalvIdentifyEndian(), 0); // x86-64 is little endian
    const struct {
        const char *word;
        int endian;
    } words[] = {
        {"big", 1},   {"BIG", 1},   {"type 1", 1}, {"Type 1", 1},  {"little", 0}, {"LiTtLe", 0},
        {"type 2", 0}, {"TYPE 2", 0}, {"", -1},      {"type 3", -1}, {"type1", -1}, {"big ", -1},
        {" big", -1}, {"bigger", -1}, {"litt", -1},  {"unknown", -1}, {nullptr, -1},
    };
    for (const auto &w : words)
        EXPECT_EQ(HalvStr2Endian(w.word), w.endian) << (w.word ? w.word : "(null)");
    EXPECT_STREQ(HalvEndian2Str(0), "type 2");
    EXPECT_STREQ(HalvEndian2Str(1), "type 1");
    EXPECT_STREQ(HalvEndian2Str(-1), "unknown");
    EXPECT_STREQ(HalvEndian2Str(2), "unknown");
}

// Single values and arrays of each width at odd addresses: each value is
// reversed on its own, and the bytes around stay.
TEST(UtilByteOrder, ValuesAndArraysSwapEachValueOnItsOwn) {
    const struct {
        size_t width;
        void (*single)(void *);
        void (*array)(void *, uint32_t);
    } kinds[] = {{2, HalvSwabShort, HalvSwabShortArray},
                 {4, HalvSwabLong, HalvSwabLongArray},
                 {8, HalvSwabDouble, HalvSwabDoubleArray}};
    for (const auto &kind : kinds) {
        for (uint32_t count : {0u, 1u, 2u, 3u, 17u}) {
            std::vector<unsigned char> data(count * kind.width + 2);
            for (size_t i = 0; i < data.size(); ++i)
                data[i] = (unsigned char)(i * 7 + 1);
            std::vector<unsigned char> expected = data;
            for (uint32_t v = 0; v < count; ++v)
                for (size_t b = 0; b < kind.width; ++b)
                    expected[1 + v * kind.width + b] = data[1 + v * kind.width + (kind.width - 1 - b)];
            std::vector<unsigned char> single = data;
            kind.array(data.data() + 1, count);
            EXPECT_EQ(data, expected) << "width " << kind.width << " count " << count;
            if (count == 1) {
                kind.single(single.data() + 1);
                EXPECT_EQ(single, expected) << "width " << kind.width;
            }
        }
    }
}

TEST(UtilMachine, ProcessorAndMemory) {
    uint32_t signature = 0xDEADBEEF, features = 0xDEADBEEF, again = 0;
    EXPECT_EQ(HalvIdentifyArch(&signature, &features), 0);
    // Every x86-64 processor has a signature, the time stamp counter (bit 4)
    // and SSE2 (bit 26).
    EXPECT_NE(signature, 0u);
    EXPECT_NE(signature, 0xDEADBEEFu);
    EXPECT_EQ(features & (1u << 4 | 1u << 26), 1u << 4 | 1u << 26);
    EXPECT_EQ(HalvIdentifyArch(&again, nullptr), 0);
    EXPECT_EQ(again, signature);
    EXPECT_EQ(HalvIdentifyArch(nullptr, nullptr), 0);
    const int32_t processors = HalvIdentifyProcessorCount();
    EXPECT_GE(processors, 1);
    if (std::thread::hardware_concurrency() != 0) {
        EXPECT_LE(processors, (int32_t)std::thread::hardware_concurrency());
    }
    // Kind 0 agrees with the kernel's own figure, modulo 2^32.
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    unsigned long long kilobytes = 0;
    while (meminfo >> key && key != "MemTotal:")
        meminfo.ignore(1 << 12, '\n');
    meminfo >> kilobytes;
    if (kilobytes != 0) {
        EXPECT_EQ(HalvIdentifyMemory(0), (uint32_t)(kilobytes * 1024ull));
    }
    if (kilobytes != 0 && kilobytes * 1024ull < (1ull << 32)) {
        EXPECT_LE(HalvIdentifyMemory(1), HalvIdentifyMemory(0));
    }
    for (int kind : {4, -1, 1000})
        EXPECT_EQ(HalvIdentifyMemory(kind), 0u) << kind;
}

TEST(UtilMachine, AddressSpaceFollowsTheProcessLimit) {
    // In a child, so that the lowered limit touches nothing else: kind 2 is
    // the limit itself, kind 3 what the process hasn't mapped of it.
    EXPECT_EXIT(
        {
            const rlim_t limit = 3ull << 30;
            struct rlimit current;
            if (getrlimit(RLIMIT_AS, &current) != 0)
                _exit(2);
            if (current.rlim_max != RLIM_INFINITY && current.rlim_max < limit)
                _exit(0); // can't raise it; nothing to check
            current.rlim_cur = limit;
            if (setrlimit(RLIMIT_AS, &current) != 0)
                _exit(3);
            uint32_t total = HalvIdentifyMemory(2);
            uint32_t unused = HalvIdentifyMemory(3);
            _exit(total == (uint32_t)limit && unused <= total && (total - unused) % 4096 == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
