// Reading a header back: from its flat block with borrowed texts, from the
// block with copied texts, and from its header text through the manager,
// for a header whose tree holds 200 keys.  The ratios say how much faster
// the block is than the text form (target: borrowing at least 5x).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

/* An image-ext header with 200 keys in 10 sections besides its raster keys. */
std::string HeaderText() {
    std::string text = "[ID]\nformat: image-ext\nversion: 1.0\narchitecture: type 2\n[Raster]\npixels: 640\n"
                       "scanlines: 480\n[Encoding]\nimageParts: 3 0 0\nbytes/sl: 640 640 640\n"
                       "bits/sample: 8 8 8\ninterleave: scanline\n[Photometry]\nname: rgbLinear\n";
    for (int s = 0; s < 10; ++s) {
        text += "[Section" + std::to_string(s) + "]\n";
        for (int k = 0; k < 20; ++k)
            text += "key" + std::to_string(k) + ": value number " + std::to_string(s * 20 + k) + " of the header\n";
    }
    return text + "[End]\f\n";
}

struct Fixture {
    std::string text = HeaderText();
    std::vector<unsigned char> block;
    Fixture() {
        HalvIO *in = HalvIO_Str(text.data(), (uint32_t)text.size());
        HVHdrManager manager;
        HalvHeaderStruct *header = nullptr;
        HVHdrRead_Header(in, &manager, &header);
        in->close(in);
        void *buffer = nullptr;
        int32_t size = HalvBinHdrFromHdr(header, 0, &buffer, 0);
        block.assign(static_cast<unsigned char *>(buffer), static_cast<unsigned char *>(buffer) + size);
        halv_internal_free(buffer);
        header->free(header);
    }
};

const Fixture &Data() {
    static const Fixture fixture;
    return fixture;
}

void ReadBlock(benchmark::State &state, int32_t borrow) {
    const Fixture &f = Data();
    for (auto _ : state) {
        HalvHeaderStruct *header = HalvBinHdrToHdr(f.block.data(), (uint32_t)f.block.size(), borrow);
        benchmark::DoNotOptimize(header);
        header->free(header);
    }
}

void BM_BlockBorrowed(benchmark::State &state) { ReadBlock(state, 1); }
void BM_BlockCopied(benchmark::State &state) { ReadBlock(state, 0); }

void BM_HeaderText(benchmark::State &state) {
    std::string text = Data().text;
    for (auto _ : state) {
        HalvIO *in = HalvIO_Str(text.data(), (uint32_t)text.size());
        HVHdrManager manager;
        HalvHeaderStruct *header = nullptr;
        HVHdrRead_Header(in, &manager, &header);
        benchmark::DoNotOptimize(header);
        header->free(header);
        in->close(in);
    }
}

void BM_Flatten(benchmark::State &state) {
    const Fixture &f = Data();
    HalvHeaderStruct *header = HalvBinHdrToHdr(f.block.data(), (uint32_t)f.block.size(), 0);
    std::vector<unsigned char> buffer(f.block.size() + 4096);
    for (auto _ : state) {
        void *pointer = buffer.data();
        benchmark::DoNotOptimize(HalvBinHdrFromHdr(header, 0, &pointer, (uint32_t)buffer.size()));
    }
    header->free(header);
}

BENCHMARK(BM_BlockBorrowed);
BENCHMARK(BM_BlockCopied);
BENCHMARK(BM_HeaderText);
BENCHMARK(BM_Flatten);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {{"block, borrowed texts, against the header text", "BM_BlockBorrowed", "BM_HeaderText"},
                                 {"block, copied texts, against the header text", "BM_BlockCopied", "BM_HeaderText"},
                                 {"block, borrowed against copied texts", "BM_BlockBorrowed", "BM_BlockCopied"}});
}
