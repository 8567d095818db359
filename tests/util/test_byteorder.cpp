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
    // Each word names its order and reads back as it.
    const char *const names[] = {"type 2", "type 1", "unknown", "unknown"};
    for (int endian : {0, 1, -1, 2}) {
        EXPECT_STREQ(HalvEndian2Str(endian), names[endian < 0 ? 2 : endian]) << endian;
        if (endian == 0 || endian == 1) {
            EXPECT_EQ(HalvStr2Endian(HalvEndian2Str(endian)), endian);
        }
    }
}

TEST(UtilByteOrder, SingleValuesSwapInPlace) {
    unsigned char bytes[9] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    HalvSwabShort(bytes + 1); // unaligned on purpose
    EXPECT_EQ(std::vector<int>(bytes, bytes + 9), (std::vector<int>{0, 2, 1, 3, 4, 5, 6, 7, 8}));

    unsigned char word[5] = {9, 1, 2, 3, 4};
    HalvSwabLong(word + 1);
    EXPECT_EQ(std::vector<int>(word, word + 5), (std::vector<int>{9, 4, 3, 2, 1}));

    // A double reverses its 8 bytes, and a second swap gives it back.
    double value = 1.5, back;
    unsigned char raw[8], block[9];
    std::memcpy(raw, &value, 8);
    std::memcpy(block + 1, &value, 8);
    HalvSwabDouble(block + 1);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(block[1 + i], raw[7 - i]) << i;
    HalvSwabDouble(block + 1);
    std::memcpy(&back, block + 1, 8);
    EXPECT_EQ(back, 1.5);
}

TEST(UtilByteOrder, ArraysSwapEachValueOnItsOwn) {
    // Odd counts and odd addresses: values must not be mixed, and the bytes
    // around the array must stay.
    for (size_t width : {2u, 4u, 8u}) {
        for (uint32_t count : {0u, 1u, 2u, 3u, 17u}) {
            std::vector<unsigned char> data(count * width + 2);
            for (size_t i = 0; i < data.size(); ++i)
                data[i] = (unsigned char)(i * 7 + 1);
            std::vector<unsigned char> expected = data;
            for (uint32_t v = 0; v < count; ++v)
                for (size_t b = 0; b < width; ++b)
                    expected[1 + v * width + b] = data[1 + v * width + (width - 1 - b)];
            void *start = data.data() + 1;
            if (width == 2)
                HalvSwabShortArray(start, count);
            else if (width == 4)
                HalvSwabLongArray(start, count);
            else
                HalvSwabDoubleArray(start, count);
            EXPECT_EQ(data, expected) << "width " << width << " count " << count;
        }
    }
}

TEST(UtilMachine, ProcessorIdentification) {
    uint32_t signature = 0xDEADBEEF, features = 0xDEADBEEF;
    EXPECT_EQ(HalvIdentifyArch(&signature, &features), 0);
#if defined(__x86_64__)
    // Every x86-64 processor has a signature, and features include the
    // time stamp counter (bit 4) and SSE2 (bit 26).
    EXPECT_NE(signature, 0u);
    EXPECT_NE(signature, 0xDEADBEEFu);
    EXPECT_EQ(features & (1u << 4), 1u << 4);
    EXPECT_EQ(features & (1u << 26), 1u << 26);
#endif
    uint32_t again = 0;
    EXPECT_EQ(HalvIdentifyArch(&again, nullptr), 0);
    EXPECT_EQ(again, signature);
    EXPECT_EQ(HalvIdentifyArch(nullptr, nullptr), 0);

    int32_t processors = HalvIdentifyProcessorCount();
    EXPECT_GE(processors, 1);
    unsigned hardware = std::thread::hardware_concurrency();
    if (hardware != 0) {
        EXPECT_LE(processors, (int32_t)hardware);
    }
}

TEST(UtilMachine, MemoryFigures) {
    // Kind 0 must agree with the kernel's own figure, modulo 2^32.
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    unsigned long long kilobytes = 0;
    while (meminfo >> key) {
        if (key == "MemTotal:") {
            meminfo >> kilobytes;
            break;
        }
        meminfo.ignore(1 << 12, '\n');
    }
    if (kilobytes != 0) {
        EXPECT_EQ(HalvIdentifyMemory(0), (uint32_t)(kilobytes * 1024ull));
    }
    EXPECT_EQ(HalvIdentifyMemory(4), 0u);
    EXPECT_EQ(HalvIdentifyMemory(-1), 0u);
    EXPECT_EQ(HalvIdentifyMemory(1000), 0u);
    uint32_t available = HalvIdentifyMemory(1);
    if (kilobytes != 0 && kilobytes * 1024ull < (1ull << 32)) {
        EXPECT_LE(available, HalvIdentifyMemory(0));
    }
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
            bool ok = total == (uint32_t)limit && unused <= total && (total - unused) % 4096 == 0;
            _exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
