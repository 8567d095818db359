/*
 * sample_filter.h - the point operations of the halv bundle.
 *
 * Each function of the bundle maps every sample of a chunk of scanlines to a
 * new value, independently of its neighbours.  They share one state record
 * and one pass; what differs is the operation on one sample and the
 * arguments it reads.
 */
#ifndef HALV_SAMPLE_FILTER_H
#define HALV_SAMPLE_FILTER_H

#include "dpk_hvsup.h"

namespace sample {

struct FilterState;

/* One function of the bundle. */
struct Operation {
    const char *name;
    /* Reads the operation's own arguments into state; false after
     * HalvSetError has said what is wrong. */
    bool (*readArguments)(FilterState *state, const intptr_t *args);
    /* The new value of one sample, given the largest sample value. */
    uint32_t (*apply)(const FilterState *state, uint32_t sample, uint32_t maxValue);
    /* True when every sample keeps its value: the pass is a plain copy. */
    bool identity;
};

/* The bundle's state: the library's record first, then the function's
 * settings and the output buffer it owns. */
struct FilterState {
    HalvState base;
    const Operation *operation;
    int32_t bits;      /* 8 or 16; 16-bit samples are in the machine's order */
    double factor;     /* gain */
    int32_t level;     /* threshold */
    void *output;      /* the output chunk's bytes, reused from pass to pass */
    uint32_t outputCapacity;
    void *table;       /* apply's result for every sample value, made at init */
    bool descending;   /* the table is table[0] - sample: no lookup needed */
};

/* The init point shared by all functions: parses the common arguments,
 * then the operation's own, and sets up one input and one output chunk.
 * 1 with the state in *out; 0 with a state carrying the error text, or
 * with *out null when no state could be made. */
int InitFilter(const Operation *operation, intptr_t *args, HalvState **out) noexcept;

extern const Operation kCopy, kInvert, kGain, kThreshold;

} // namespace sample

#endif
