/*
 * Coroutine switch cost: one resume/yield round trip (two switches) of a
 * coroutine that yields for ever, beside
 *   - the same round trip with swapcontext, and
 *   - the same with Boost.Context's fcontext (jump_fcontext).
 * The ratios are the library's speed over the baseline's: the aims are 20x
 * or more over swapcontext and 0.50x or more of fcontext.
 */
#include <benchmark/benchmark.h>

#include <ucontext.h>

#include <boost/context/detail/fcontext.hpp>

#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr size_t kStack = 64 * 1024;

int32_t YieldForEver(HalvCoro *self, void *) {
    for (;;)
        HalvCoroYield(self);
}

void BM_Coro_Halv(benchmark::State &state) {
    HalvCoro *coro = nullptr;
    HalvCoroCreate(&coro, YieldForEver, nullptr, kStack);
    for (auto _ : state)
        HalvCoroResume(coro);
    HalvCoroFree(coro);
}

ucontext_t mainContext, coroContext;

void SwapForEver() {
    for (;;)
        swapcontext(&coroContext, &mainContext);
}

void BM_Coro_Swapcontext(benchmark::State &state) {
    std::vector<char> stack(kStack);
    getcontext(&coroContext);
    coroContext.uc_stack.ss_sp = stack.data();
    coroContext.uc_stack.ss_size = stack.size();
    coroContext.uc_link = nullptr;
    makecontext(&coroContext, SwapForEver, 0);
    for (auto _ : state)
        swapcontext(&mainContext, &coroContext);
}

namespace ctx = boost::context::detail;

void JumpForEver(ctx::transfer_t from) {
    for (;;)
        from = ctx::jump_fcontext(from.fctx, nullptr);
}

void BM_Coro_Fcontext(benchmark::State &state) {
    std::vector<char> stack(kStack);
    ctx::fcontext_t coro = ctx::make_fcontext(stack.data() + stack.size(), stack.size(), JumpForEver);
    for (auto _ : state)
        coro = ctx::jump_fcontext(coro, nullptr).fctx;
}

BENCHMARK(BM_Coro_Halv);
BENCHMARK(BM_Coro_Swapcontext);
BENCHMARK(BM_Coro_Fcontext);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {
                                    {"resume/yield round trip vs swapcontext", "BM_Coro_Halv", "BM_Coro_Swapcontext"},
                                    {"resume/yield round trip vs Boost.Context fcontext", "BM_Coro_Halv",
                                     "BM_Coro_Fcontext"},
                                });
}
