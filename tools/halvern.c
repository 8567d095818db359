/*
 * halvern - the command-line host of the Halvern engine.
 *
 * For now it starts the engine, runs a pass-through processing state over a
 * few lines of data and stops the engine again: the smallest complete road of
 * a host through the call protocol.
 */
#include <stdio.h>
#include <string.h>

#include "dpk_hvsup.h"

static int RunPassThrough(void) {
    HalvState *state = NULL;
    if (HalvAllocState(&state, (int32_t)sizeof(HalvState)) != 1)
        return HalvError("halvern: cannot allocate a state\n");
    state->name = "pass-through";
    if (HalvAllocArray(&state->inputChunks, 1, (uint32_t)sizeof(HalvChunk)) != 1) {
        HalvCallEnd(state);
        return HalvError("halvern: cannot allocate chunks\n");
    }
    char line[] = "scanline data";
    void *out = NULL;
    uint32_t bytes = 0, lines = 0;
    int result = HalvProcessSISO(state, line, (uint32_t)strlen(line), 1, &out, &bytes, &lines);
    if (result == 1)
        HalvPrintf("processed %u line(s), %u bytes: %.*s\n", lines, bytes, (int)bytes, (const char *)out);
    else
        HalvError("halvern: processing failed: %s\n", HalvGetErrorMsg(state) ? HalvGetErrorMsg(state) : "");
    HalvFreeArray(state->inputChunks);
    HalvCallEnd(state);
    return result == 1 ? 0 : 1;
}

int main(int argc, char **argv) {
    (void)argc;
    (void)argv;
    if (HalvernInit() != 1) {
        fprintf(stderr, "halvern: the engine did not start\n");
        return 1;
    }
    int status = RunPassThrough();
    HalvernEnd();
    return status;
}
