// MD5 throughput over 64 MiB: the library's MD5 beside OpenSSL's, with the
// ratio of the two printed at the end of the run.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/ratio_report.h"
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

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv, {{"MD5 over 64 MiB / OpenSSL", "BM_Md5_Halv", "BM_Md5_OpenSSL"}});
}
