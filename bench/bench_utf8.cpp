// UTF-8 to UTF-16 and back, against ICU (u_strFromUTF8/u_strToUTF8) and
// glibc iconv in the same run, on 1 MiB of ASCII text and 1 MiB of text that
// mixes scripts sentence by sentence.
//
// Throughput is counted in UTF-8 bytes for both directions, so the figures
// of one text compare across directions.  The library allocates and returns
// each result (and the benchmark frees it); ICU and iconv write into a
// buffer made once beforehand, which favours the baselines.  A table of speed ratios
// follows the usual output.
#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <unicode/ustring.h>
#include <map>
#include <string>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr size_t kTextBytes = 1 << 20;

const char *const kAsciiSentences[] = {
    "The filter reads one chunk of scanlines at a time and passes it on. ",
    "Each header names its format, its version and the byte order of its samples. ",
    "A host builds the argument list, and the init point takes it apart by name. ",
    "Paths, settings and directory entries all cross the bridge as UTF-8 text.\n",
};

// Runs of one script each, as in a catalogue of titles in many languages.
const char *const kMixedSentences[] = {
    "Die Bildverarbeitung läuft in Blöcken über das gesamte Bild. ",
    "Η επεξεργασία εικόνας γίνεται σε τμήματα γραμμών. ",
    "Обработка изображения идёт порциями строк развёртки. ",
    "画像処理は走査線のまとまりごとに進みます。",
    "图像处理按扫描线块逐段进行。",
    "영상 처리는 주사선 묶음 단위로 진행됩니다. ",
    "معالجة الصورة تتم على دفعات من خطوط المسح. ",
    "Plain ASCII between them, as file names often are: image_0042.tif ",
    "Symbols and emoji: ✓ ★ → 😀 🎨 🖼️ ",
};

template <size_t N> std::string BuildText(const char *const (&sentences)[N]) {
    std::string text;
    text.reserve(kTextBytes + 256);
    for (size_t i = 0; text.size() < kTextBytes; ++i)
        text += sentences[i % N];
    // Cut back to 1 MiB on a character boundary.
    size_t end = kTextBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    text.resize(end);
    return text;
}

const std::string &AsciiText() {
    static const std::string text = BuildText(kAsciiSentences);
    return text;
}

const std::string &MixedText() {
    static const std::string text = BuildText(kMixedSentences);
    return text;
}

// The UTF-16 form of a text, made by the library and checked against iconv
// before any timing, so both sides are known to do the same work.
std::vector<uint16_t> Utf16Of(const std::string &text) {
    uint16_t *wide = HalvUTF8ConvertToUTF16(text.c_str());
    if (wide == nullptr) {
        std::fprintf(stderr, "bench_utf8: conversion failed\n");
        std::exit(1);
    }
    std::vector<uint16_t> units(wide, wide + HalvWideStrLen(wide) + 1);
    halv_internal_free(wide);

    iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
    std::vector<uint16_t> reference(text.size() + 1);
    char *in = const_cast<char *>(text.data());
    size_t inLeft = text.size();
    char *out = reinterpret_cast<char *>(reference.data());
    size_t outLeft = reference.size() * 2;
    if (cd == (iconv_t)-1 || iconv(cd, &in, &inLeft, &out, &outLeft) == (size_t)-1) {
        std::fprintf(stderr, "bench_utf8: iconv failed: %s\n", std::strerror(errno));
        std::exit(1);
    }
    iconv_close(cd);
    reference.resize((reinterpret_cast<uint16_t *>(out) - reference.data()));
    reference.push_back(0);
    if (reference != units) {
        std::fprintf(stderr, "bench_utf8: library and iconv disagree\n");
        std::exit(1);
    }
    return units;
}

void HalvToUtf16(benchmark::State &state, const std::string *text) {
    for (auto _ : state) {
        uint16_t *wide = HalvUTF8ConvertToUTF16(text->c_str());
        benchmark::DoNotOptimize(wide);
        halv_internal_free(wide);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text->size());
}

void HalvFromUtf16(benchmark::State &state, const std::string *text) {
    std::vector<uint16_t> wide = Utf16Of(*text);
    for (auto _ : state) {
        char *utf8 = HalvUTF8ConvertFromUTF16(wide.data());
        benchmark::DoNotOptimize(utf8);
        halv_internal_free(utf8);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text->size());
}

void IconvToUtf16(benchmark::State &state, const std::string *text) {
    iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
    std::vector<uint16_t> buffer(text->size() + 1);
    for (auto _ : state) {
        char *in = const_cast<char *>(text->data());
        size_t inLeft = text->size();
        char *out = reinterpret_cast<char *>(buffer.data());
        size_t outLeft = buffer.size() * 2;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        size_t done = iconv(cd, &in, &inLeft, &out, &outLeft);
        benchmark::DoNotOptimize(done);
        benchmark::DoNotOptimize(buffer.data());
    }
    iconv_close(cd);
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text->size());
}

void IconvFromUtf16(benchmark::State &state, const std::string *text) {
    std::vector<uint16_t> wide = Utf16Of(*text);
    iconv_t cd = iconv_open("UTF-8", "UTF-16LE");
    std::vector<char> buffer(text->size() + 1);
    for (auto _ : state) {
        char *in = reinterpret_cast<char *>(wide.data());
        size_t inLeft = (wide.size() - 1) * 2;
        char *out = buffer.data();
        size_t outLeft = buffer.size();
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        size_t done = iconv(cd, &in, &inLeft, &out, &outLeft);
        benchmark::DoNotOptimize(done);
        benchmark::DoNotOptimize(buffer.data());
    }
    iconv_close(cd);
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text->size());
}

void IcuToUtf16(benchmark::State &state, const std::string *text) {
    std::vector<UChar> buffer(text->size() + 1);
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = 0;
        u_strFromUTF8(buffer.data(), (int32_t)buffer.size(), &length, text->data(), (int32_t)text->size(), &error);
        if (U_FAILURE(error))
            state.SkipWithError("u_strFromUTF8 failed");
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text->size());
}

void IcuFromUtf16(benchmark::State &state, const std::string *text) {
    std::vector<uint16_t> wide = Utf16Of(*text);
    std::vector<char> buffer(text->size() + 1);
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = 0;
        u_strToUTF8(buffer.data(), (int32_t)buffer.size(), &length, reinterpret_cast<const UChar *>(wide.data()),
                    (int32_t)wide.size() - 1, &error);
        if (U_FAILURE(error))
            state.SkipWithError("u_strToUTF8 failed");
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text->size());
}

} // namespace

int main(int argc, char **argv) {
    const std::string *ascii = &AsciiText();
    const std::string *mixed = &MixedText();
    benchmark::RegisterBenchmark("to_utf16/ascii/halv", HalvToUtf16, ascii);
    benchmark::RegisterBenchmark("to_utf16/ascii/iconv", IconvToUtf16, ascii);
    benchmark::RegisterBenchmark("to_utf16/ascii/icu", IcuToUtf16, ascii);
    benchmark::RegisterBenchmark("to_utf16/mixed/halv", HalvToUtf16, mixed);
    benchmark::RegisterBenchmark("to_utf16/mixed/iconv", IconvToUtf16, mixed);
    benchmark::RegisterBenchmark("to_utf16/mixed/icu", IcuToUtf16, mixed);
    benchmark::RegisterBenchmark("from_utf16/ascii/halv", HalvFromUtf16, ascii);
    benchmark::RegisterBenchmark("from_utf16/ascii/iconv", IconvFromUtf16, ascii);
    benchmark::RegisterBenchmark("from_utf16/ascii/icu", IcuFromUtf16, ascii);
    benchmark::RegisterBenchmark("from_utf16/mixed/halv", HalvFromUtf16, mixed);
    benchmark::RegisterBenchmark("from_utf16/mixed/iconv", IconvFromUtf16, mixed);
    benchmark::RegisterBenchmark("from_utf16/mixed/icu", IcuFromUtf16, mixed);
    return bench::RunWithRatios(
        argc, argv,
        {
            {"to UTF-16, ASCII text / ICU", "to_utf16/ascii/halv", "to_utf16/ascii/icu"},
            {"to UTF-16, mixed scripts / ICU", "to_utf16/mixed/halv", "to_utf16/mixed/icu"},
            {"from UTF-16, ASCII text / ICU", "from_utf16/ascii/halv", "from_utf16/ascii/icu"},
            {"from UTF-16, mixed scripts / ICU", "from_utf16/mixed/halv", "from_utf16/mixed/icu"},
            {"to UTF-16, ASCII text / iconv", "to_utf16/ascii/halv", "to_utf16/ascii/iconv"},
            {"to UTF-16, mixed scripts / iconv", "to_utf16/mixed/halv", "to_utf16/mixed/iconv"},
            {"from UTF-16, ASCII text / iconv", "from_utf16/ascii/halv", "from_utf16/ascii/iconv"},
            {"from UTF-16, mixed scripts / iconv", "from_utf16/mixed/halv", "from_utf16/mixed/iconv"},
        });
}
