// MD5 throughput over 64 MiB: the library's MD5 beside OpenSSL's, with the
// ratio of the two printed at the end of the run.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

constexpr size_t kDataBytes = 64u << 20;

const std::vector<unsigned char> &Data() {
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> bytes(kDataBytes);
        uint32_t x = 2463534242u;
        for (auto &b : bytes) {
            x ^= x << 13;
            x ^= x >> 17;
            x ^= x << 5;
            b = (unsigned char)x;
        }
        return bytes;
    }();
    return data;
}

void BM_Md5_Halv(benchmark::State &state) {
    const auto &data = Data();
    unsigned char digest[16];
    for (auto _ : state) {
        HalvMD5Context context;
        HalvMD5Init(&context);
        HalvMD5Update(&context, data.data(), (uint32_t)data.size());
        HalvMD5Final(digest, &context);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)data.size());
}

void BM_Md5_OpenSSL(benchmark::State &state) {
    const auto &data = Data();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    for (auto _ : state) {
        EVP_DigestInit_ex(context, EVP_md5(), nullptr);
        EVP_DigestUpdate(context, data.data(), data.size());
        EVP_DigestFinal_ex(context, digest, &length);
        benchmark::DoNotOptimize(digest);
    }
    EVP_MD_CTX_free(context);
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)data.size());
}

BENCHMARK(BM_Md5_Halv)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_Md5_OpenSSL)->Unit(benchmark::kMillisecond)->MinTime(1.0);

/* Console output as usual, then the library's throughput over OpenSSL's. */
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            auto it = run.counters.find("bytes_per_second");
            if (!run.error_occurred && it != run.counters.end())
                rates_[run.run_name.function_name] = it->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        double halv = rates_["BM_Md5_Halv"], openssl = rates_["BM_Md5_OpenSSL"];
        if (halv > 0 && openssl > 0) {
            char line[160];
            std::snprintf(line, sizeof line, "MD5 over 64 MiB: library %.0f MB/s, OpenSSL %.0f MB/s, ratio %.2fx\n",
                          halv / 1e6, openssl / 1e6, halv / openssl);
            GetOutputStream() << line;
        }
    }

private:
    std::map<std::string, double> rates_;
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
