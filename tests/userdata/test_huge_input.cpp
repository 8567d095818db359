// Inputs of hostile size for the tree reader and the header reader: a
// million opening brackets, a million sections, a header with a million
// keys, a line of 100 MB.  Each gives a bounded result, costs memory in
// proportion to its input (checked against the peak resident size), and
// uses no stack in proportion to its depth: the reader keeps at most the
// four levels of item, section, label and value, and a {group} is counted,
// not recursed into.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <string>

#include "dpk_hvsup.h"
#include "sanitized_build.h"
#include "userdata/streams.h"

namespace {

constexpr size_t kMillion = 1000000;
// A million sections or keys cost some seconds even in a plain build (nodes
// and name tables); a sanitizer build reads a tenth of them.
constexpr size_t kNames = halvtest::ScaledRounds(1000000);
constexpr size_t kMiB = 1u << 20;

// Peak resident size of the process so far, in bytes.
size_t PeakResident() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<size_t>(usage.ru_maxrss) * 1024;
}

// The peak may grow by some multiple of the input (the input itself, the
// tree's nodes, a collector that doubles), plus a fixed allowance for the
// sanitizers' own bookkeeping.  What must not happen is growth without
// bound, or by the square of the input.
void ExpectMemoryInProportion(size_t peakBefore, size_t inputBytes) {
    size_t grown = PeakResident() > peakBefore ? PeakResident() - peakBefore : 0;
    EXPECT_LE(grown, 12 * inputBytes + 512 * kMiB) << "peak grew by " << grown / kMiB << " MiB";
}

/* The tree reader over a string stream, which it scans in place. */
ucm_test::ReadResult ReadText(std::string &text) {
    HalvIO *in = HalvIO_Str(text.data(), static_cast<uint32_t>(text.size()));
    ucm_test::ReadResult out = {0, nullptr};
    out.result = HalvReadUserCMData(in, &out.tree, 0);
    in->close(in);
    return out;
}

size_t CountList(const HalvUserCMData *node) {
    size_t count = 0;
    for (; node != nullptr; node = node->next)
        count++;
    return count;
}

TEST(HugeInput, AMillionOpeningBracketsEndInABoundedResult) {
    size_t peak = PeakResident();
    // Brackets of every kind, never closed: each is one unterminated name
    // or group that runs to the end of the input.
    for (char open : {'[', '<', '{', '"'}) {
        SCOPED_TRACE(std::string(1, open));
        std::string text(kMillion, open);
        auto r = ReadText(text);
        EXPECT_TRUE(r.result == 0 || r.result == 1 || r.result == -1) << r.result;
        HalvFreeUserCMData(r.tree);
    }
    // A group nested a million deep, then closed: one value, read whole.
    std::string nested = "key: " + std::string(kMillion, '{') + std::string(kMillion, '}') + "\n";
    auto r = ReadText(nested);
    EXPECT_EQ(r.result, 1);
    ASSERT_NE(r.tree, nullptr);
    ASSERT_NE(r.tree->children, nullptr);
    EXPECT_EQ(r.tree->children->length, 2 * kMillion);
    HalvFreeUserCMData(r.tree);
    ExpectMemoryInProportion(peak, 2 * kMillion);
}

TEST(HugeInput, AMillionSectionsAndAMillionKeysAreReadWhole) {
    size_t peak = PeakResident();
    // A million distinct sections, each reopened once more by name: the
    // second mention merges into the first, which a name index finds.
    std::string text;
    for (size_t i = 0; i < kNames; i++)
        text += "[S" + std::to_string(i) + "]\nk: v\n";
    for (size_t i = 0; i < kNames; i += 1000)
        text += "[s" + std::to_string(i) + "]\nk2: w\n";
    size_t inputBytes = text.size();
    auto r = ReadText(text);
    ASSERT_EQ(r.result, 1);
    EXPECT_EQ(CountList(r.tree), kNames);
    std::string lastReopened = "S" + std::to_string(kNames - 1000);
    HalvUserCMData *reopened = HalvGetUserCMData(r.tree, nullptr, lastReopened.c_str(), nullptr);
    ASSERT_NE(reopened, nullptr);
    EXPECT_EQ(CountList(reopened->children), 2u);
    HalvFreeUserCMData(r.tree);

    // An image header whose one section holds a million keys.
    std::string header = "[ID]\nformat: internal\nversion: 2.1\n\n[Extra]\n";
    for (size_t i = 0; i < kNames; i++)
        header += "key" + std::to_string(i) + ": " + std::to_string(i) + "\n";
    header += "\n[End]\f\nDATA";
    inputBytes += header.size();
    HalvIO *in = HalvIO_Str(header.data(), static_cast<uint32_t>(header.size()));
    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrRead(in, &tree), 1);
    HalvUserCMData *extra = HalvGetUserCMData(tree, nullptr, "Extra", nullptr);
    ASSERT_NE(extra, nullptr);
    EXPECT_EQ(CountList(extra->children), kNames);
    std::string lastKey = std::to_string(kNames - 1);
    const char *last = HalvGetParam(tree, nullptr, "Extra", ("key" + lastKey).c_str());
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(std::string(last), lastKey);
    // The stream stands at the data behind the header.
    char data[4];
    EXPECT_EQ(HalvIOReadBytes(in, data, 4), 4);
    EXPECT_EQ(std::string(data, 4), "DATA");
    in->close(in);
    HVHdrFree(tree);
    ExpectMemoryInProportion(peak, inputBytes);
}

TEST(HugeInput, ALineOf100MegabytesIsOneValue) {
    size_t peak = PeakResident();
    constexpr size_t kLine = 100 * kMiB;
    std::string text = "[ID]\nformat: internal\nversion: 2.1\n\n[Data]\nlong: ";
    size_t valueAt = text.size();
    text.append(kLine, 'x');
    text[valueAt + kLine / 2] = 'y';
    text += "\nafter: 1\n\n[End]\f\n";
    HalvIO *in = HalvIO_Str(text.data(), static_cast<uint32_t>(text.size()));
    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrRead(in, &tree), 1);
    in->close(in);
    HalvUserCMData *label = HalvGetUserCMData(tree, nullptr, "Data", "long");
    ASSERT_NE(label, nullptr);
    ASSERT_NE(label->children, nullptr);
    EXPECT_EQ(label->children->length, kLine);
    EXPECT_EQ(label->children->text[kLine / 2], 'y');
    const char *after = HalvGetParam(tree, nullptr, "Data", "after");
    ASSERT_NE(after, nullptr);
    EXPECT_STREQ(after, "1");
    HVHdrFree(tree);
    ExpectMemoryInProportion(peak, text.size());
}

}  // namespace
