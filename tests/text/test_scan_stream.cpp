/*
 * The scan engine over streams: what a scan takes from a stream and what it
 * leaves there, read failures, and the look-alike end byte 0xFF.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "dpk_hvsup.h"

namespace {

/* A stream over a fixed byte string, built by filling the record's slots.
 * It gives stopResult (-1 failure, -2 would block) at offset stopAt, and
 * counts reads. */
struct ByteStream {
    HalvIO io{};
    std::string data;
    size_t stopAt = std::string::npos;
    int32_t stopResult = -1;
    size_t position = 0;
    int reads = 0;
    int widerReads = 0; /* reads that asked for more than one byte */

    ByteStream(const std::string &bytes, size_t stop = std::string::npos, int32_t result = -1)
        : data(bytes), stopAt(stop), stopResult(result) {
        io.read = Read;
    }
    std::string Rest() const { return data.substr(position); }

    static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
        ByteStream *s = reinterpret_cast<ByteStream *>(io);
        ++s->reads;
        s->widerReads += count != 1;
        if (s->position == s->stopAt)
            return s->stopResult;
        if (count == 0 || s->position >= s->data.size())
            return 0;
        static_cast<unsigned char *>(buffer)[0] = static_cast<unsigned char>(s->data[s->position++]);
        return 1;
    }
};

TEST(TextScanStream, WhatAScanTakesAndLeaves) {
    int a = 0, b = 0;
    ByteStream s("12 34");
    EXPECT_EQ(HalvIOScanf(&s.io, "%d", &a), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(s.Rest(), "34"); /* the look-ahead is consumed */
    EXPECT_EQ(s.widerReads, 0);
    EXPECT_EQ(s.reads, 3);
    /* Two scans in a row lose the byte between them. */
    ByteStream t("123456");
    EXPECT_EQ(HalvIOScanf(&t.io, "%2d", &a), 1);
    EXPECT_EQ(HalvIOScanf(&t.io, "%2d", &b), 1);
    EXPECT_EQ(a * 100 + b, 1245);
    EXPECT_EQ(t.Rest(), "");

    double d = 0;
    ByteStream e("1e5;");
    EXPECT_EQ(HalvIOScanf(&e.io, "%f", &d), 1);
    EXPECT_EQ(d, 1.0);
    EXPECT_EQ(e.Rest(), "5;"); /* no point, no exponent; the e was the look-ahead, and is gone */
    ByteStream f("1.5e2;");
    EXPECT_EQ(HalvIOScanf(&f.io, "%f", &d), 1);
    EXPECT_EQ(d, 150.0);
    EXPECT_EQ(f.Rest(), "");
    /* A partial locale point keeps what it consumed. */
    const HalvLocale arrow = {"->", ",", ""};
    ByteStream u("7-x9");
    EXPECT_EQ(HalvIOScanfl(&arrow, &u.io, "%f", &d), 1);
    EXPECT_EQ(d, 7.0);
    EXPECT_EQ(u.Rest(), "9");

    ByteStream v("abc");
    EXPECT_EQ(HalvIOScanf(&v.io, ""), 0);
    EXPECT_EQ(v.Rest(), "bc"); /* the look-ahead is read even for nothing */
    EXPECT_EQ(HalvIOScanf(&v.io, "%y", &a), HALV_SCAN_MALFORMED);
    EXPECT_EQ(v.Rest(), "bc"); /* a format that fails to parse reads nothing */
    EXPECT_EQ(HalvIOScanf(&v.io, "%c", (char *)&a), 1);
    EXPECT_EQ((char)a, 'b');
    EXPECT_EQ(v.Rest(), ""); /* the byte behind %c was the next look-ahead */
}

TEST(TextScanStream, FailuresEndsAndZeroBytes) {
    int a = 0, b = 0;
    ByteStream s("12 34", 4);
    EXPECT_EQ(HalvIOScanf(&s.io, "%d %d", &a, &b), HALV_SCAN_STREAM_FAILED);
    EXPECT_EQ(a, 12); /* stored before the failure, and stays */
    EXPECT_EQ(b, 3);  /* the field ended at the failure */
    ByteStream first("12", 0);
    EXPECT_EQ(HalvIOScanf(&first.io, ""), HALV_SCAN_STREAM_FAILED);
    EXPECT_EQ(first.reads, 1);
    /* Would-block is no failure: the input just ends there, and nothing is
     * read again once it has ended. */
    ByteStream blocked("12 34", 3, -2);
    EXPECT_EQ(HalvIOScanf(&blocked.io, "%d %d", &a, &b), 1);
    ByteStream blockedFirst("9", 0, -2);
    EXPECT_EQ(HalvIOScanf(&blockedFirst.io, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(blockedFirst.reads, 1);

    ByteStream end(std::string("12\xFF" "34", 5));
    EXPECT_EQ(HalvIOScanf(&end.io, "%d%d", &a, &b), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(end.Rest(), "34");
    /* A zero byte is an ordinary byte on a stream. */
    char text[8];
    memset(text, '#', sizeof text);
    ByteStream z(std::string("a\0b c", 5));
    EXPECT_EQ(HalvIOScanf(&z.io, "%s", text), 1);
    EXPECT_EQ(std::string(text, 4), std::string("a\0b\0", 4));
    ByteStream zc(std::string("\0", 1));
    EXPECT_EQ(HalvIOScanf(&zc.io, "%c", text), 1);
    EXPECT_EQ(text[0], '\0');
    /* The end of the stream ends the input: count, then -1. */
    ByteStream e("5");
    EXPECT_EQ(HalvIOScanf(&e.io, "%d,%d", &a, &b), 1);
    ByteStream empty("");
    EXPECT_EQ(HalvIOScanf(&empty.io, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(empty.reads, 1);
    /* A null stream, or one without a read slot, has ended. */
    EXPECT_EQ(HalvIOScanf(nullptr, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(HalvIOScanf(nullptr, ""), 0);
    ByteStream noRead("1");
    noRead.io.read = nullptr;
    EXPECT_EQ(HalvIOScanf(&noRead.io, "%d", &a), HALV_SCAN_END);
}

int32_t CallIOV(const HalvLocale *locale, HalvIO *io, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result =
        locale != nullptr ? HalvIOVScanfl(locale, io, format, args) : HalvIOVScanf(io, format, args);
    va_end(args);
    return result;
}

TEST(TextScanStream, DirectivesAndEveryStreamForm) {
    ByteStream s("id=0x2A name:[alpha beta] ptr (nil) 3.25 tail");
    unsigned id = 0;
    char name[32] = "";
    void *p = &id;
    double d = 0;
    int n = 0, a = 0;
    EXPECT_EQ(HalvIOScanf(&s.io, "id=%#x name:[%[^]]] ptr %p %lf%n", &id, name, &p, &d, &n), 4);
    EXPECT_EQ(id, 42u);
    EXPECT_STREQ(name, "alpha beta");
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(d, 3.25);
    EXPECT_EQ(n, 40);
    EXPECT_EQ(s.Rest(), "tail");

    const HalvLocale comma = {",", ".", ""};
    ByteStream s1("5 6,5");
    EXPECT_EQ(CallIOV(nullptr, &s1.io, "%d", &a), 1);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(CallIOV(&comma, &s1.io, "%lf", &d), 1);
    EXPECT_EQ(d, 6.5);
    ByteStream s2("8 1,5 9");
    void *args[] = {&a, &d}, *one[] = {&a};
    EXPECT_EQ(HalvIOLScanfl(&comma, &s2.io, "%d %f", args), 2);
    EXPECT_EQ(a, 8);
    EXPECT_EQ(d, 1.5);
    EXPECT_EQ(HalvIOLScanf(&s2.io, "%d", one), 1);
    EXPECT_EQ(a, 9);
}

} // namespace
