// The processing state and its call protocol, driven as a host drives a
// plug-in: an init point, processPoint passes and an endPoint.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>
#include <tuple>

#include "dpk_hvsup.h"

static_assert(sizeof(HalvChunk) == 32 && offsetof(HalvChunk, data) == 24, "chunk layout");
static_assert(offsetof(HalvState, status) == 80 && offsetof(HalvState, queueLength) == 152, "state layout");

namespace {

// A plug-in state: HalvState at the head of a larger record.
struct UpperState {
    HalvState base;
    int passes;
    int endCalls;
    int endFailuresLeft;
};

// processPoint: upper-cases the input chunk into the plug-in's output buffer.
int UpperProcess(HalvState *state) {
    auto *self = reinterpret_cast<UpperState *>(state);
    void *data = nullptr;
    uint32_t bytes = 0, lines = 0;
    if (HalvGetChunk(state->inputChunks, 0, &data, &bytes, &lines) != 1 || bytes > 64)
        return HalvSetError(state, 0, "HV-%d: chunk of %u bytes refused", 17, bytes);
    auto *out = static_cast<char *>(state->outputChunks[0]->data);
    for (uint32_t i = 0; i < bytes; ++i) {
        char c = static_cast<const char *>(data)[i];
        out[i] = (c >= 'a' && c <= 'z') ? (char)(c - 32) : c;
    }
    HalvSetChunk(state->outputChunks, 0, out, bytes, lines);
    ++self->passes;
    return 1;
}

int UpperEnd(HalvState *state) {
    auto *self = reinterpret_cast<UpperState *>(state);
    ++self->endCalls;
    if (self->endFailuresLeft-- > 0)
        return -1;
    halv_internal_free(state->outputChunks[0]->data);
    HalvFreeArray(state->inputChunks);
    HalvFreeArray(state->outputChunks);
    return HalvFreeState(state);
}

int g_lastEndCalls = 0;
int CountingEnd(HalvState *state) {
    g_lastEndCalls = reinterpret_cast<UpperState *>(state)->endCalls + 1;
    return UpperEnd(state);
}

// The integer behind key in a list of "key:i" entries, or 0.
int IntArgument(const intptr_t *args, const char *key) {
    for (size_t i = 0; args[i] != 1; ++i)
        if (args[i] != 0 && std::strcmp(reinterpret_cast<const char *>(args[i]), key) == 0 && args[i + 1] != 0)
            return *reinterpret_cast<const int *>(args[i + 1]);
    return 0;
}

// The init point: reads "fail:i" and "endfailures:i" from the argument list.
int UpperInit(intptr_t *args, HalvState **out) {
    int fail = IntArgument(args, "fail:i");
    int endFailures = IntArgument(args, "endfailures:i");
    if (fail)
        return 0; // no state: nobody holds a status
    HalvState *state = nullptr;
    if (HalvAllocState(&state, sizeof(UpperState)) != 1)
        return 0;
    auto *self = reinterpret_cast<UpperState *>(state);
    self->endFailuresLeft = endFailures;
    state->name = "upper";
    state->processPoint = UpperProcess;
    state->endPoint = CountingEnd;
    HalvAllocArray(&state->inputChunks, 1, sizeof(HalvChunk));
    HalvAllocArray(&state->outputChunks, 1, sizeof(HalvChunk));
    state->outputChunks[0]->data = halv_internal_malloc(64);
    state->outputChunks[0]->capacity = 64;
    *out = state;
    return 2; // passed through as the status
}

TEST(CallProtocol, HostDrivesAPluginFromInitToEnd) {
    intptr_t list[1] = {HALV_ARG_END};
    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInit(UpperInit, list, &state), 2);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(HalvGetStatus(state), 2);

    char line[] = "scan line one";
    void *out = nullptr;
    uint32_t bytes = 0, lines = 0;
    ASSERT_EQ(HalvProcessSISO(state, line, 13, 1, &out, &bytes, &lines), 1);
    EXPECT_EQ(std::string(static_cast<char *>(out), bytes), "SCAN LINE ONE");
    EXPECT_EQ(lines, 1u);
    EXPECT_EQ(HalvGetStatus(state), 1);

    // A failing pass: result 0, output arguments untouched, the text accumulates.
    char big[100] = {};
    out = nullptr;
    EXPECT_EQ(HalvProcessSISO(state, big, sizeof big, 1, &out, &bytes, &lines), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(HalvProcessSISO(state, big, 65, 1, &out, &bytes, &lines), 0);
    EXPECT_STREQ(HalvGetErrorMsg(state), "HV-17: chunk of 100 bytes refused, HV-17: chunk of 65 bytes refused");
    EXPECT_EQ(HalvGetErrorCode(state), 17);

    EXPECT_EQ(reinterpret_cast<UpperState *>(state)->passes, 1);
    EXPECT_EQ(HalvCallEnd(state), 1);
}

TEST(CallProtocol, InitFormsTheirRefusalsAndEndsThatTakeSeveralCalls) {
    HalvState *state = nullptr;
    // HalvCallInitArgs copies the words, terminator included.
    int one = 1;
    EXPECT_EQ(HalvCallInitArgs(UpperInit, HALV_ARG("fail:i"), HALV_ARG(&one), HALV_ARG_NULL, HALV_ARG_END, &state), 0);
    EXPECT_EQ(state, nullptr);

    intptr_t list[2] = {1, 0};
    EXPECT_EQ(HalvCallInit(nullptr, list, &state), 0);
    EXPECT_EQ(HalvCallInit(UpperInit, nullptr, &state), 0);
    EXPECT_EQ(HalvCallInit(UpperInit, list, nullptr), 0);
    EXPECT_EQ(HalvCallInitArgs(nullptr, HALV_ARG_END, &state), 0);
    EXPECT_EQ(HalvCallInitArgs(UpperInit, HALV_ARG_END, (HalvState **)nullptr), 0);

    // An endPoint that needs several calls.
    int three = 2; // -1 twice, then 1
    ASSERT_EQ(HalvCallInitArgs(UpperInit, HALV_ARG("endfailures:i"), HALV_ARG(&three), HALV_ARG_NULL, HALV_ARG_END,
                               &state),
              2);
    EXPECT_EQ(HalvCallEnd(state), -1);
    EXPECT_EQ(HalvCallEnd(state), -1);
    EXPECT_EQ(HalvCallEnd(state), 1);

    ASSERT_EQ(HalvCallInitArgs(UpperInit, HALV_ARG("endfailures:i"), HALV_ARG(&three), HALV_ARG_NULL, HALV_ARG_END,
                               &state),
              2);
    EXPECT_EQ(HalvAbsoluteCallEnd(state), -1);
    EXPECT_EQ(g_lastEndCalls, 3);

    ASSERT_EQ(HalvCallInitArgs(UpperInit, HALV_ARG_END, &state), 2);
    EXPECT_EQ(HalvAbsoluteCallEnd(state), 1);
    EXPECT_EQ(HalvAbsoluteCallEnd(nullptr), 0);
    EXPECT_EQ(HalvCallEnd(nullptr), 0);
}

TEST(StateDefaults, FreshStateSlotsAndFailures) {
    HalvState *state = reinterpret_cast<HalvState *>(0x1);
    EXPECT_EQ(HalvAllocState(&state, (int32_t)sizeof(HalvState) - 1), 0);
    EXPECT_EQ(state, reinterpret_cast<HalvState *>(0x1));
    EXPECT_EQ(HalvAllocState(nullptr, sizeof(HalvState)), 0);

    ASSERT_EQ(HalvAllocState(&state, sizeof(HalvState)), 1);
    EXPECT_EQ(std::tuple(state->status, state->errorMessage), std::tuple(0, nullptr));
    EXPECT_EQ(HalvCallProcess(state), 0);
    EXPECT_STREQ(HalvGetErrorMsg(state), "Default process requires input");
    EXPECT_EQ(state->status, 0);

    // Default process passes inputs through by aliasing.
    HalvAllocArray(&state->inputChunks, 1, sizeof(HalvChunk));
    char data[] = "xy";
    void *out = nullptr;
    uint32_t bytes = 0, lines = 0;
    EXPECT_EQ(HalvProcessSISO(state, data, 2, 1, &out, &bytes, &lines), 1);
    EXPECT_EQ(state->outputChunks, state->inputChunks);
    EXPECT_EQ(out, data);

    // Without processPoint.
    state->processPoint = nullptr;
    out = nullptr;
    EXPECT_EQ(HalvCallProcess(state), -1);
    EXPECT_EQ(HalvProcessSO(state, &out, &bytes, &lines), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_STREQ(HalvGetErrorMsg(state),
                 "Default process requires input, No processPoint entry point defined, No processPoint entry point "
                 "defined");
    EXPECT_EQ(HalvCallProcess(nullptr), 0);
    EXPECT_EQ(HalvProcessSO(nullptr, &out, &bytes, &lines), 0);
    HalvFreeArray(state->inputChunks);
    state->inputChunks = state->outputChunks = nullptr;

    // SISO with no input chunks refuses before processPoint.
    state->processPoint = [](HalvState *) -> int { ADD_FAILURE() << "must not run"; return 1; };
    EXPECT_EQ(HalvProcessSISO(state, data, 2, 1, &out, &bytes, &lines), 0);
    EXPECT_EQ(HalvProcessSI(state, data, 2, 1), 0);

    // Without endPoint: 0 and the text is appended.
    auto endPoint = state->endPoint;
    state->endPoint = nullptr;
    EXPECT_EQ(HalvCallEnd(state), 0);
    EXPECT_EQ(HalvAbsoluteCallEnd(state), 0);
    EXPECT_EQ(state->status, 0);
    state->endPoint = endPoint;
    EXPECT_EQ(HalvCallEnd(state), 1); // releases the text, then the state
}

TEST(StateDefaults, OutputCountFlagsAndQueries) {
    HalvState *state = nullptr;
    ASSERT_EQ(HalvAllocState(&state, 512), 1);
    uint32_t count = 99, flags = 99;
    EXPECT_EQ(HalvGetStateOutputCount(state, &count), 1);
    EXPECT_EQ(count, 0u);

    state->flags = HALV_STATE_OUTPUTS_UNKNOWN;
    EXPECT_EQ(state->outputCountFn(state), -1);
    EXPECT_EQ(HalvGetStateOutputCount(state, &count) * 10 + HalvGetStateFlags(state, &flags), 11);
    EXPECT_EQ(std::tuple(count, flags), std::tuple(0u, (uint32_t)HALV_STATE_OUTPUTS_UNKNOWN));
    state->flags = 0;

    // Counting through outputHeaderFn over a headers array of three.
    void **headers = nullptr;
    ASSERT_EQ(HalvAllocArray(&headers, 3, 8), 1);
    state->headers = reinterpret_cast<struct HalvHeaderStruct **>(headers);
    EXPECT_EQ(state->outputHeaderFn(state, 2), reinterpret_cast<struct HalvHeaderStruct *>(headers[2]));
    EXPECT_EQ(state->outputHeaderFn(state, 3), nullptr);
    EXPECT_EQ(HalvGetStateOutputCount(state, &count), 1);
    EXPECT_EQ(std::tuple(count, state->outputCount), std::tuple(3u, 3));
    EXPECT_EQ(state->outputBinHeaderFn(state, 7, nullptr, 0), 0);

    int32_t outputFlags[3] = {5, 6, 7};
    EXPECT_EQ(HalvGetOutputFlags(state, 1), 0); // no flags array yet
    state->outputFlags = outputFlags;
    EXPECT_EQ(HalvGetOutputFlags(state, 1), 6);
    const int32_t refused[] = {HalvGetOutputFlags(state, 3),    HalvGetOutputFlags(state, -1),
                               HalvGetOutputFlags(nullptr, 0),  HalvGetStateFlags(state, nullptr),
                               HalvGetStateOutputCount(nullptr, &count), HalvGetStateQueueLength(state, nullptr)};
    for (size_t i = 0; i < std::size(refused); ++i)
        EXPECT_EQ(refused[i], 0) << "call " << i << " of the list";
    EXPECT_EQ(state->inputChunkFn(state, 0), nullptr);
    EXPECT_EQ(state->outputChunkFn(state, 0), nullptr);
    EXPECT_EQ(state->queueChunkFn(state), nullptr);

    HalvFreeArray(headers);
    EXPECT_EQ(HalvFreeState(state), 1);
    EXPECT_EQ(HalvFreeState(nullptr), 0);
}

TEST(Status, ErrorTextAccumulatesAndCodesParse) {
    HalvState *state = nullptr;
    ASSERT_EQ(HalvAllocState(&state, sizeof(HalvState)), 1);
    EXPECT_EQ(HalvSetError(state, 3, "first %d", 1), 3);
    EXPECT_EQ(HalvSetError(state, 4, "second %s", "two"), 4);
    EXPECT_EQ(HalvSetError(state, 5, nullptr), 5);
    EXPECT_EQ(state->status, 5);
    EXPECT_STREQ(state->errorMessage, "first 1, second two");
    EXPECT_EQ(HalvSetError(nullptr, 6, "x"), 6);
    EXPECT_EQ(HalvSetStatus(state, 9), 9);
    EXPECT_EQ(HalvGetStatus(state), 9);

    // The slot decides what HalvGetErrorMsg says; the code comes from the field.
    state->errorMessageFn = [](HalvState *) -> const char * { return "HV-77 from the slot"; };
    EXPECT_STREQ(HalvGetErrorMsg(state), "HV-77 from the slot");
    EXPECT_EQ(HalvGetErrorCode(state), 0);
    EXPECT_EQ(HalvGetErrorMsg(nullptr), nullptr);
    EXPECT_EQ(HalvGetErrorCode(nullptr), 0);

    HalvSetLoggingCallback([](const char *, int, intptr_t) {}, 0); // keep the test output quiet
    EXPECT_EQ(HalvReportError(state), -1);
    HalvSetLoggingCallback(nullptr, 0);
    EXPECT_EQ(HalvCallEnd(state), 1);

    ASSERT_EQ(HalvAllocState(&state, sizeof(HalvState)), 1);
    EXPECT_EQ(HalvReportError(state), 0);
    EXPECT_EQ(HalvReportError(nullptr), 0);
    EXPECT_EQ(HalvCallEnd(state), 1);

    // The number behind the first "H...V...-" (a second H restarts the scan).
    const struct {
        const char *text;
        int32_t code;
    } codes[] = {
        {"failed: HV-1234: bad thing", 1234}, {"failed HV-1234", 1234}, {"failed HV-", 0}, {"H1V-2", 2},
        {"HxxVyy-zz9 and HV-5", 9}, {"V-3 H", 0}, {"HV-7 then HV-8", 7}, {"HV H-3", 0}, {"", 0},
    };
    for (const auto &c : codes)
        EXPECT_EQ(HalvParseErrorCode(c.text), c.code) << c.text;
}

} // namespace
