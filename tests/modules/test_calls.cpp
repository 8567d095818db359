/*
 * tests/modules/test_calls.cpp - a function driven from flat data only:
 * binary arguments and 'B' 'H' blocks in, the output header out as a block.
 */
#include <cstring>
#include <string>
#include <vector>

#include "modules/support.h"

namespace {

/* What the init point below saw. */
struct Seen {
    int calls = 0;
    int32_t bits = -1;
    bool hadHeaders = false;
    std::vector<std::string> sites; /* Origin/site of each input header */
    std::vector<uint32_t> widths;
};
Seen seen;

/* An init point that reads its list as a plug-in does and leaves a state
 * whose output header is a copy of the first input header. */
int InitRecorder(intptr_t *args, HalvState **out) {
    ++seen.calls;
    int found = 0;
    HalvHeaderStruct **inputs = nullptr;
    HalvParseArgs(args, "bits:i", (int *)nullptr, &seen.bits, "input:h", &found, &inputs, HALV_ARG_END);
    seen.hadHeaders = found == 1;
    for (uint32_t i = 0; inputs != nullptr && inputs[i] != nullptr; ++i) {
        const char *site = HVHdrGetHeaderParam(inputs[i]->userData, "Origin", "site");
        seen.sites.push_back(site != nullptr ? site : "");
        seen.widths.push_back(inputs[i]->dims[0]);
    }
    if (HalvAllocState(out, (int32_t)sizeof(HalvState)) != 1)
        return 0;
    if (inputs != nullptr && inputs[0] != nullptr) {
        HalvAllocArray(&(*out)->headers, 1, 0);
        (*out)->headers[0] = inputs[0]->copy(inputs[0]);
    }
    return 2;
}

/* The state's end: its header array, then the state. */
void EndRecorder(HalvState *state) {
    HalvFreeSmartArray(state->headers);
    state->headers = nullptr;
    EXPECT_EQ(HalvCallEnd(state), 1);
}

const HalvBundleModule kModule = {"recorder", 0, nullptr, 1, 1, nullptr, nullptr, nullptr,
                                  "records", "records its arguments", 0, InitRecorder};

/* A flat block of a small header: width 9 + n, Origin/site "site n". */
std::vector<unsigned char> Block(int n) {
    HalvHeaderStruct header;
    std::memset(&header, 0, sizeof header);
    HalvInitGenericHeader(&header);
    header.dimCount = 2;
    header.dims[0] = 9 + (uint32_t)n;
    header.dims[1] = 4;
    header.userData = HVHdrSetHeaderParam(nullptr, "Origin", "site", ("site " + std::to_string(n)).c_str());
    std::vector<unsigned char> block((size_t)HalvBinHdrFromHdr(&header, 0, nullptr, 0));
    void *pointer = block.data();
    block.resize((size_t)HalvBinHdrFromHdr(&header, 0, &pointer, (uint32_t)block.size()));
    HVHdrFree(header.userData);
    return block;
}

} // namespace

TEST(ModuleCalls, BinaryArgumentsAndHeadersReachTheInitPointOnlyForTheCall) {
    int32_t bits = 16;
    HalvBinArg args[] = {{"bits:i", 0, 1, &bits}};
    std::vector<unsigned char> first = Block(1), second = Block(2);
    void *blocks[] = {first.data(), second.data()};
    const std::vector<unsigned char> firstBefore = first;

    seen = Seen{};
    HalvState *state = nullptr;
    EXPECT_EQ(HalvCallInitBin(&kModule, 1, args, 2, blocks, 0, &state), 2);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(HalvGetStatus(state), 2) << "the status rule";
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.bits, 16);
    EXPECT_TRUE(seen.hadHeaders);
    EXPECT_EQ(seen.sites, (std::vector<std::string>{"site 1", "site 2"}));
    EXPECT_EQ(seen.widths, (std::vector<uint32_t>{10, 11}));
    EXPECT_EQ(first, firstBefore) << "the blocks are only read";

    /* The output header goes out as a block: size first, then into a
     * buffer of that size; the state's header is a copy, so the blocks
     * may go now. */
    first.assign(first.size(), 0xDD);
    int32_t size = state->outputBinHeaderFn(state, 0, nullptr, 0);
    ASSERT_GT(size, 556);
    std::vector<unsigned char> out((size_t)size);
    EXPECT_EQ(state->outputBinHeaderFn(state, 0, out.data(), (uintptr_t)size - 1), -1);
    int32_t written = state->outputBinHeaderFn(state, 0, out.data(), out.size());
    ASSERT_GT(written, 556);
    EXPECT_LE(written, size);
    HalvHeaderStruct *back = HalvBinHdrToHdr(out.data(), (uint32_t)written, 0);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->dims[0], 10u);
    EXPECT_STREQ(HVHdrGetHeaderParam(back->userData, "Origin", "site"), "site 1");
    back->free(back);
    EXPECT_EQ(state->outputBinHeaderFn(state, 1, nullptr, 0), 0) << "past the end of headers";
    EXPECT_EQ(state->outputBinHeaderFn(state, 7, out.data(), out.size()), 0);
    EndRecorder(state);

    seen = Seen{};
    state = nullptr;
    EXPECT_EQ(HalvCallInitBin(&kModule, 1, args, 0, nullptr, 0, &state), 2);
    EXPECT_FALSE(seen.hadHeaders) << "no header argument, no input:h";
    EXPECT_EQ(state->outputBinHeaderFn(state, 0, nullptr, 0), 0) << "a state without headers";
    EndRecorder(state);
}

TEST(ModuleCalls, RefusalsReleaseEverything) {
    std::vector<unsigned char> block = Block(3);
    void *blocks[] = {block.data()};
    HalvBundleModule noInit = kModule;
    noInit.init = nullptr;
    seen = Seen{};
    HalvState *state = reinterpret_cast<HalvState *>(&seen);
    EXPECT_EQ(HalvCallInitBin(&noInit, 0, nullptr, 1, blocks, 0, &state), 0);
    EXPECT_EQ(HalvCallInitBin(nullptr, 0, nullptr, 1, blocks, 0, &state), 0);
    EXPECT_EQ(HalvCallInitBin(&kModule, 0, nullptr, 1, blocks, 0, nullptr), 0);
    EXPECT_EQ(seen.calls, 0);

    /* a block that doesn't read is left out of input:h */
    std::vector<unsigned char> broken = block;
    broken[0] = 'X';
    void *mixed[] = {broken.data(), block.data()};
    state = nullptr;
    EXPECT_EQ(HalvCallInitBin(&kModule, 0, nullptr, 2, mixed, 0, &state), 2);
    EXPECT_EQ(seen.sites, std::vector<std::string>{"site 3"});
    EndRecorder(state);
}
