/*
 * tests/text/test_print_sinks.cpp - the four sinks (stream, buffer, bounded
 * buffer, new string) and the three argument forms of the print family, each
 * with and without a locale.
 */
#include <gtest/gtest.h>

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "text/print_support.h"

namespace {

const HalvLocale kComma = {",", ".", ""};

/* One member of the family, called with the format "%s=%d %.1f" and the
 * values "x", 5, 1.5; it returns its result and the text it made. */
using Member = std::function<Printed(const HalvLocale *locale)>;

const char kFormat[] = "%s=%d %.1f";

Printed FromBuffer(int32_t result, const char *buffer) { return Printed{result, buffer}; }

/* Takes the text a new-string member stored in *out, and frees it. */
Printed FromAllocated(int32_t result, char *&out) {
    Printed printed{result, out != nullptr ? out : "<null>"};
    halv_internal_free(std::exchange(out, nullptr));
    return printed;
}

/* Calls a V member through a real va_list. */
template <typename Call>
int32_t WithList(Call call, ...) {
    va_list list;
    va_start(list, call);
    const int32_t result = call(list);
    va_end(list);
    return result;
}

struct StreamText {
    RecordingStream stream;
    Printed Done(int32_t result) { return Printed{result, stream.taken}; }
};

TEST(PrintFamily, EveryMemberPrintsTheSameText) {
    int value = 5;
    double number = 1.5;
    void *array[] = {const_cast<char *>("x"), &value, &number};
    char buffer[64];
    char *out = nullptr;
    const std::vector<std::pair<const char *, Member>> members = {
        {"IOPrintf", [&](const HalvLocale *) { StreamText s; return s.Done(HalvIOPrintf(s.stream.io, kFormat, "x", 5, 1.5)); }},
        {"IOPrintfl", [&](const HalvLocale *l) { StreamText s; return s.Done(HalvIOPrintfl(l, s.stream.io, kFormat, "x", 5, 1.5)); }},
        {"IOVPrintf", [&](const HalvLocale *) { StreamText s; return s.Done(WithList([&](va_list a) { return HalvIOVPrintf(s.stream.io, kFormat, a); }, "x", 5, 1.5)); }},
        {"IOVPrintfl", [&](const HalvLocale *l) { StreamText s; return s.Done(WithList([&](va_list a) { return HalvIOVPrintfl(l, s.stream.io, kFormat, a); }, "x", 5, 1.5)); }},
        {"IOLPrintf", [&](const HalvLocale *) { StreamText s; return s.Done(HalvIOLPrintf(s.stream.io, kFormat, array)); }},
        {"IOLPrintfl", [&](const HalvLocale *l) { StreamText s; return s.Done(HalvIOLPrintfl(l, s.stream.io, kFormat, array)); }},
        {"SPrintf", [&](const HalvLocale *) { return FromBuffer(HalvSPrintf(buffer, kFormat, "x", 5, 1.5), buffer); }},
        {"SPrintfl", [&](const HalvLocale *l) { return FromBuffer(HalvSPrintfl(l, buffer, kFormat, "x", 5, 1.5), buffer); }},
        {"VSPrintf", [&](const HalvLocale *) { return FromBuffer(WithList([&](va_list a) { return HalvVSPrintf(buffer, kFormat, a); }, "x", 5, 1.5), buffer); }},
        {"VSPrintfl", [&](const HalvLocale *l) { return FromBuffer(WithList([&](va_list a) { return HalvVSPrintfl(l, buffer, kFormat, a); }, "x", 5, 1.5), buffer); }},
        {"LSPrintf", [&](const HalvLocale *) { return FromBuffer(HalvLSPrintf(buffer, kFormat, array), buffer); }},
        {"LSPrintfl", [&](const HalvLocale *l) { return FromBuffer(HalvLSPrintfl(l, buffer, kFormat, array), buffer); }},
        {"SNPrintf", [&](const HalvLocale *) { return FromBuffer(HalvSNPrintf(buffer, sizeof buffer, kFormat, "x", 5, 1.5), buffer); }},
        {"SNPrintfl", [&](const HalvLocale *l) { return FromBuffer(HalvSNPrintfl(l, buffer, sizeof buffer, kFormat, "x", 5, 1.5), buffer); }},
        {"VSNPrintf", [&](const HalvLocale *) { return FromBuffer(WithList([&](va_list a) { return HalvVSNPrintf(buffer, sizeof buffer, kFormat, a); }, "x", 5, 1.5), buffer); }},
        {"VSNPrintfl", [&](const HalvLocale *l) { return FromBuffer(WithList([&](va_list a) { return HalvVSNPrintfl(l, buffer, sizeof buffer, kFormat, a); }, "x", 5, 1.5), buffer); }},
        {"LSNPrintf", [&](const HalvLocale *) { return FromBuffer(HalvLSNPrintf(buffer, sizeof buffer, kFormat, array), buffer); }},
        {"LSNPrintfl", [&](const HalvLocale *l) { return FromBuffer(HalvLSNPrintfl(l, buffer, sizeof buffer, kFormat, array), buffer); }},
        {"ASPrintf", [&](const HalvLocale *) { return FromAllocated(HalvASPrintf(&out, kFormat, "x", 5, 1.5), out); }},
        {"ASPrintfl", [&](const HalvLocale *l) { return FromAllocated(HalvASPrintfl(l, &out, kFormat, "x", 5, 1.5), out); }},
        {"VASPrintf", [&](const HalvLocale *) { return FromAllocated(WithList([&](va_list a) { return HalvVASPrintf(&out, kFormat, a); }, "x", 5, 1.5), out); }},
        {"VASPrintfl", [&](const HalvLocale *l) { return FromAllocated(WithList([&](va_list a) { return HalvVASPrintfl(l, &out, kFormat, a); }, "x", 5, 1.5), out); }},
        {"LASPrintf", [&](const HalvLocale *) { return FromAllocated(HalvLASPrintf(&out, kFormat, array), out); }},
        {"LASPrintfl", [&](const HalvLocale *l) { return FromAllocated(HalvLASPrintfl(l, &out, kFormat, array), out); }},
    };
    ASSERT_EQ(members.size(), 24u);
    for (const auto &[name, member] : members) {
        SCOPED_TRACE(name);
        const bool takesLocale = name[std::strlen(name) - 1] == 'l';
        EXPECT_EQ(member(takesLocale ? &kComma : nullptr), (Printed{7, takesLocale ? "x=5 1,5" : "x=5 1.5"}));
        EXPECT_EQ(member(nullptr), (Printed{7, "x=5 1.5"})); /* a null locale is the fixed record */
    }
}

/* Every bound from 0 to past the end, against the C library, which stores
 * the same bytes and terminator and returns the same length for these
 * formats; the bytes behind the terminator must stay as they were.  The
 * other sinks must make the full text: the new string, the buffer without
 * bound, and the stream one call per byte, also when a stream refuses from
 * some byte on. */
template <typename... Args>
void CheckEverySink(const char *format, Args... args) {
    SCOPED_TRACE(format);
    std::vector<char> full(4096);
    const int length = std::snprintf(full.data(), full.size(), format, args...);
    ASSERT_GE(length, 0);
    ASSERT_LT(length, static_cast<int>(full.size()));
    const std::string text(full.data(), static_cast<size_t>(length));
    for (uint32_t size = 0; size <= static_cast<uint32_t>(length) + 2; ++size) {
        std::vector<char> engine(size + 8, 'Z');
        std::vector<char> libc(size + 8, 'Z');
        ASSERT_EQ(HalvSNPrintf(engine.data(), size, format, args...),
                  std::snprintf(libc.data(), size, format, args...)) << "size " << size;
        ASSERT_EQ(engine, libc) << "size " << size;
    }
    EXPECT_EQ(HalvSNPrintf(nullptr, 0, format, args...), length);
    std::vector<char> unbounded(text.size() + 8, 'Z');
    EXPECT_EQ(HalvSPrintf(unbounded.data(), format, args...), length);
    EXPECT_EQ(std::string(unbounded.data()), text);
    EXPECT_EQ(unbounded[text.size() + 1], 'Z');
    char *out = nullptr;
    EXPECT_EQ(FromAllocated(HalvASPrintf(&out, format, args...), out), (Printed{length, text}));
    RecordingStream stream;
    EXPECT_EQ(HalvIOPrintf(stream.io, format, args...), length);
    EXPECT_EQ(stream.taken, text);
    EXPECT_EQ(stream.callCounts, std::vector<uint32_t>(text.size(), 1u));
    for (long refuseFrom : {0L, 1L, static_cast<long>(length / 2), static_cast<long>(length) - 1}) {
        if (refuseFrom < 0 || refuseFrom >= length)
            continue;
        RecordingStream refusing;
        refusing.refuseFrom = refuseFrom;
        EXPECT_EQ(HalvIOPrintf(refusing.io, format, args...), HALV_FORMAT_STREAM_ERROR);
        EXPECT_EQ(refusing.taken, text.substr(0, static_cast<size_t>(refuseFrom)));
        EXPECT_EQ(refusing.offered, length);
    }
    EXPECT_EQ(HalvIOPrintf(nullptr, format, args...), length);
}

TEST(PrintSinks, EveryBoundAndEverySinkAgree) {
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    const std::string longText(600, 'L');
    CheckEverySink("plain literal text, no directive");
    CheckEverySink("");
    CheckEverySink("%d", -2147483647 - 1);
    CheckEverySink("%d|%u|%x|%X|%o", 0, 4000000000u, 0xbeefu, 0xbeefu, 8u);
    CheckEverySink("[%-12d] [%+08d] [% 5d] [%.7d] [%12.5d]", 42, -42, 7, -3, 99);
    CheckEverySink("%lld %llu %#llx %#o %#X", -9223372036854775807LL - 1, 18446744073709551615ULL,
                   0x123456789abcULL, 8u, 255u);
    CheckEverySink("100%% sure: %s and [%20s] then [%-7.3s]", "yes", "right", "cutting");
    CheckEverySink("%c%c%c|%5c|%-5c|", 'a', 'b', 'c', 'x', 'y');
    CheckEverySink("caf\xc3\xa9 %d \xe2\x82\xac %s", 5, "\xc3\xbc");
    CheckEverySink("%300d|", 12345);
    CheckEverySink("%-280s|%s", "left", "tail");
    CheckEverySink("<%s>", longText.c_str());
    CheckEverySink("%0250d", -1);
    CheckEverySink("%.3f %e %10.4f %-12.2e| %g %g", 2.5, 12345.678, -0.5, 1e-7, 100000.0, 0.0001);
    CheckEverySink("%.40f", 0.25);
}

/* Formats made only of text and the everyday directives, with and without
 * a '-', a width or a precision, next to ones where a single directive asks
 * for more: each must come out as the C library makes it at every bound. */
TEST(PrintSinks, EverydayFormatsAndTheirNeighboursAgree) {
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    CheckEverySink("%d%i%u%x%X", -1, -2147483647 - 1, -1, 0xabcdefu, 0xabcdefu);
    CheckEverySink("[%-9d][%9d][%-1x][%12X][%3u]", -123456789, -5, 0u, 0xdeadbeefu, 4294967295u);
    CheckEverySink("[%s][%-8s][%8s][%.0s][%.2s][%-6.3s][%6.9s]", "", "ab", "ab", "skip", "cut", "cut here", "abc");
    CheckEverySink("%%%d%%%s%%", 7, "t");
    CheckEverySink("[%08d][%05d][%00012x][%03u][%01d]", -42, 123456, 0xbeefu, 7u, -3);
    CheckEverySink("%ld|%lld|%lu|%llx|%020ld|%-22lld|", -9223372036854775807L - 1, 42LL, 18446744073709551615UL,
                   0xfeedfacecafebeefULL, -5L, -9223372036854775807LL);
    /* One directive beyond the everyday ones: the rest is printed the same. */
    CheckEverySink("%s %d %5x %08d", "a", 1, 2u, 3);
    CheckEverySink("%d %s %+d", 4, "b", 5);
    CheckEverySink("%s %.3d %d", "c", 6, 7);
    CheckEverySink("%d %ld %d", 8, 9L, 10);
    CheckEverySink("%d %-05d %0-5d %hd %lld", 11, 12, 13, 14, 15LL);
    /* Many "%%" between everyday directives: literal runs that are no plain
     * copies of the format. */
    std::string percents;
    for (int i = 0; i < 90; ++i)
        percents += i % 9 == 0 ? "%d%%" : "%%";
    CheckEverySink(percents.c_str(), 1, 22, 333, 4444, 55555, 666666, 7777777, 88888888, 999999999, -1);
    /* A precision stops the reading of unterminated text; null prints as
     * "(nil)", cut and padded like any text. */
    const char unterminated[3] = {'x', 'y', 'z'};
    char buffer[32];
    EXPECT_EQ(HalvSNPrintf(buffer, sizeof buffer, "<%.3s|%-4.2s>", unterminated, unterminated), 10);
    EXPECT_STREQ(buffer, "<xyz|xy  >");
    const char *none = nullptr;
    EXPECT_EQ(HalvSNPrintf(buffer, sizeof buffer, "%s|%.3s|%7s|%-6s|", none, none, none, none), 25);
    EXPECT_STREQ(buffer, "(nil)|(ni|  (nil)|(nil) |");
    void *array[] = {nullptr, nullptr, const_cast<char *>("s")};
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, "%d|%-3s|%s", array), 9);
    EXPECT_STREQ(buffer, "0|(nil)|s");
}

TEST(PrintSinks, WhatEachSinkAddsToTheSharedChecks) {
    /* A null buffer, with a size or without a bound, only measures. */
    EXPECT_EQ(HalvSNPrintf(nullptr, 100, "%.3f", 2.0), 5);
    EXPECT_EQ(HalvSPrintf(nullptr, "%d", 123), 3);
    /* Rounding is half up (the C library rounds 2.25 to even). */
    char buffer[64];
    EXPECT_EQ(HalvSPrintf(buffer, "%05.1f|%-3s|%c", 2.25, "a", 'q'), 11);
    EXPECT_STREQ(buffer, "002.3|a  |q");
    /* New strings: empty, and lengths around the doubling steps. */
    char *out = reinterpret_cast<char *>(1);
    for (int length : {0, 1, 31, 32, 33, 63, 64, 65, 1000, 5000}) {
        const std::string text(static_cast<size_t>(length), 'k');
        EXPECT_EQ(FromAllocated(HalvASPrintf(&out, "%s", text.c_str()), out), (Printed{length, text}));
    }
    /* Many small pieces. */
    std::string format, expected;
    std::vector<int> values(60);
    std::vector<void *> pointers(60);
    for (int i = 0; i < 60; ++i) {
        format += "%d;";
        expected += std::to_string(i * i) + ";";
        values[i] = i * i;
        pointers[i] = &values[i];
    }
    EXPECT_EQ(FromAllocated(HalvLASPrintf(&out, format.c_str(), pointers.data()), out),
              (Printed{static_cast<int32_t>(expected.size()), expected}));
    int32_t count = -1;
    EXPECT_EQ(FromAllocated(HalvASPrintf(&out, "%40s%n!", "", &count), out),
              (Printed{41, std::string(40, ' ') + "!"}));
    EXPECT_EQ(count, 40);
    EXPECT_EQ(HalvASPrintf(nullptr, "abc"), -1);
    /* A null stream only counts, and %n sees nothing taken. */
    count = -1;
    EXPECT_EQ(HalvIOPrintf(nullptr, "hello %s%n", "world", &count), 11);
    EXPECT_EQ(count, 0);
}

TEST(PrintStream, RefusedBytesGiveMinusEightAndTheRestIsOffered) {
    for (int32_t refusal : {0, -1, -2}) {
        SCOPED_TRACE(refusal);
        RecordingStream stream;
        stream.refuseFrom = 3;
        stream.refuseResult = refusal;
        int32_t count = -1;
        EXPECT_EQ(HalvIOPrintf(stream.io, "abcdef%ngh", &count), HALV_FORMAT_STREAM_ERROR);
        EXPECT_EQ(stream.taken, "abc");
        EXPECT_EQ(stream.offered, 8);  /* every byte was still offered */
        EXPECT_EQ(count, 3);           /* %n counts what was taken */
    }
    /* A write that claims more than one byte doesn't count as taken either. */
    struct Greedy {
        static int32_t Write(HalvIO *, const void *, uint32_t) { return 2; }
    };
    HalvIO greedy{};
    greedy.write = Greedy::Write;
    EXPECT_EQ(HalvIOPrintf(&greedy, "x"), HALV_FORMAT_STREAM_ERROR);
    /* A stream without a write slot takes nothing. */
    HalvIO readOnly{};
    EXPECT_EQ(HalvIOPrintf(&readOnly, "x"), HALV_FORMAT_STREAM_ERROR);
    EXPECT_EQ(HalvIOPrintf(&readOnly, ""), 0);
    /* A malformed format makes no write call. */
    RecordingStream stream;
    EXPECT_EQ(HalvIOPrintf(stream.io, "text before %q", 1), HALV_FORMAT_MALFORMED);
    EXPECT_EQ(HalvIOPrintf(stream.io, "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d"
                                      "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d"),
              HALV_FORMAT_TOO_MANY_ARGS);
    EXPECT_TRUE(stream.callCounts.empty());
}

TEST(PrintArrayForm, EntriesPointAtValuesInTheirOwnTypes) {
    char c = 'Q';
    short s = -5;
    int i = 70000;
    long long ll = -1234567890123LL;
    size_t z = 42;
    int width = 6;
    int32_t count = -1;
    void *args[] = {&c, &s, &i, &ll, &z, &width, &i, const_cast<char *>("str"), nullptr, &count};
    char buffer[128];
    const int32_t result = HalvLSNPrintf(buffer, sizeof buffer, "%c|%hd|%d|%lld|%zu|%*d|%s|%p%n", args);
    EXPECT_STREQ(buffer, "Q|-5|70000|-1234567890123|42| 70000|str|(nil)");
    EXPECT_EQ(result, 45);
    EXPECT_EQ(count, 45);
    /* A null array or a null entry reads as zero. */
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, "%d|%s|%f", nullptr), 16);
    EXPECT_STREQ(buffer, "0|(nil)|0.000000");
    /* h reads a short of the conversion's sign, so the array form prints
     * what the variable form prints for the same value. */
    unsigned short us = 49989;
    short negative = -15547;
    void *shorts[] = {&us, &us, &us, &negative, &negative};
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, "%hu|%hx|%ho|%hd|%hhi", shorts), 31);
    EXPECT_STREQ(buffer, "49989|c345|141505|-15547|-15547");
    char variable[64];
    HalvSNPrintf(variable, sizeof variable, "%hu|%hx|%ho|%hd|%hhi", us, us, us, negative, negative);
    EXPECT_STREQ(buffer, variable);
    void *holes[] = {nullptr, nullptr};
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, "%d|%.1f", holes), 5);
    EXPECT_STREQ(buffer, "0|0.0");
}

std::string lastMessage;

void KeepMessage(const char *text, int, intptr_t) {
    lastMessage = text;
}

TEST(PrintLogging, MessagesAreFormattedByTheEngine) {
    HalvSetLoggingCallback(KeepMessage, 0);
    HalvError("%..2i|%s|%#s|%hd", 5, static_cast<char *>(nullptr), "a\nb", 70000);
    EXPECT_EQ(lastMessage, "101|(nil)|a\\nb|70000");
    /* A message longer than the funnel's 1024 bytes is cut, not overrun. */
    HalvError("%2000d|", 1);
    EXPECT_EQ(lastMessage.size(), 1023u);
    HalvError("%y");
    EXPECT_EQ(lastMessage, "");
    HalvSetLoggingCallback(nullptr, 0);
}

} // namespace
