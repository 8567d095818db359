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
 * It can fail or report would-block at a given offset, and counts reads. */
struct ByteStream {
    HalvIO io;
    std::string data;
    size_t position;
    size_t stopAt;     /* offset where the stop result is given */
    int32_t stopResult; /* -1 failure, -2 would block */
    int reads;
    int widerReads;    /* reads that asked for more than one byte */
};

int32_t ReadSlot(HalvIO *io, void *buffer, uint32_t count) {
    ByteStream *s = (ByteStream *)io;
    ++s->reads;
    if (count != 1)
        ++s->widerReads;
    if (s->position == s->stopAt)
        return s->stopResult;
    if (count == 0 || s->position >= s->data.size())
        return 0;
    ((unsigned char *)buffer)[0] = (unsigned char)s->data[s->position++];
    return 1;
}

ByteStream MakeStream(const std::string &data, size_t stopAt = std::string::npos,
                      int32_t stopResult = -1) {
    ByteStream s{};
    s.io.read = ReadSlot;
    s.data = data;
    s.stopAt = stopAt;
    s.stopResult = stopResult;
    return s;
}

std::string Rest(const ByteStream &s) {
    return s.data.substr(s.position);
}

TEST(TextScanStream, LookAheadIsConsumed) {
    ByteStream s = MakeStream("12 34");
    int a = 0;
    EXPECT_EQ(HalvIOScanf(&s.io, "%d", &a), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(Rest(s), "34");
    EXPECT_EQ(s.widerReads, 0);
    EXPECT_EQ(s.reads, 3);

    /* Two scans in a row lose the byte between them. */
    ByteStream t = MakeStream("123456");
    int b = 0;
    EXPECT_EQ(HalvIOScanf(&t.io, "%2d", &a), 1);
    EXPECT_EQ(HalvIOScanf(&t.io, "%2d", &b), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, 45);
    EXPECT_EQ(Rest(t), "");
}

TEST(TextScanStream, ExponentOnlyBehindAPoint) {
    double d = 0;
    ByteStream s = MakeStream("1e5;");
    EXPECT_EQ(HalvIOScanf(&s.io, "%f", &d), 1);
    EXPECT_EQ(d, 1.0);
    EXPECT_EQ(Rest(s), "5;"); /* the e was the look-ahead, and is gone */

    ByteStream t = MakeStream("1.5e2;");
    EXPECT_EQ(HalvIOScanf(&t.io, "%f", &d), 1);
    EXPECT_EQ(d, 150.0);
    EXPECT_EQ(Rest(t), "");

    /* A partial locale point keeps what it consumed. */
    const HalvLocale arrow = {"->", ",", ""};
    ByteStream u = MakeStream("7-x9");
    EXPECT_EQ(HalvIOScanfl(&arrow, &u.io, "%f", &d), 1);
    EXPECT_EQ(d, 7.0);
    EXPECT_EQ(Rest(u), "9");
}

TEST(TextScanStream, WhatEmptyAndMalformedFormatsRead) {
    ByteStream s = MakeStream("abc");
    EXPECT_EQ(HalvIOScanf(&s.io, ""), 0);
    EXPECT_EQ(Rest(s), "bc"); /* the look-ahead is read even for nothing */
    int a = 0;
    EXPECT_EQ(HalvIOScanf(&s.io, "%y", &a), HALV_SCAN_MALFORMED);
    EXPECT_EQ(Rest(s), "bc"); /* a format that fails to parse reads nothing */
    EXPECT_EQ(HalvIOScanf(&s.io, "%c", (char *)&a), 1);
    EXPECT_EQ((char)a, 'b');
    EXPECT_EQ(Rest(s), ""); /* the byte behind %c was the next look-ahead */
}

TEST(TextScanStream, ReadFailureReplacesTheCount) {
    int a = 0, b = 0;
    ByteStream s = MakeStream("12 34", 4);
    EXPECT_EQ(HalvIOScanf(&s.io, "%d %d", &a, &b), HALV_SCAN_STREAM_FAILED);
    EXPECT_EQ(a, 12); /* stored before the failure, and stays */
    EXPECT_EQ(b, 3);  /* the field ended at the failure */

    ByteStream first = MakeStream("12", 0);
    EXPECT_EQ(HalvIOScanf(&first.io, ""), HALV_SCAN_STREAM_FAILED);
    EXPECT_EQ(first.reads, 1);

    /* Would-block is no failure: the input just ends there. */
    ByteStream blocked = MakeStream("12 34", 3, -2);
    EXPECT_EQ(HalvIOScanf(&blocked.io, "%d %d", &a, &b), 1);
    ByteStream blockedFirst = MakeStream("9", 0, -2);
    EXPECT_EQ(HalvIOScanf(&blockedFirst.io, "%d", &a), HALV_SCAN_END);
    /* Nothing is read again once the input has ended. */
    EXPECT_EQ(blockedFirst.reads, 1);
}

TEST(TextScanStream, EndAndZeroBytes) {
    int a = 0, b = 0;
    ByteStream s = MakeStream(std::string("12\xFF" "34", 5));
    EXPECT_EQ(HalvIOScanf(&s.io, "%d%d", &a, &b), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(Rest(s), "34");

    /* A zero byte is an ordinary byte on a stream. */
    char text[8];
    memset(text, '#', sizeof text);
    ByteStream z = MakeStream(std::string("a\0b c", 5));
    EXPECT_EQ(HalvIOScanf(&z.io, "%s", text), 1);
    EXPECT_EQ(std::string(text, 4), std::string("a\0b\0", 4));
    ByteStream zc = MakeStream(std::string("\0", 1));
    EXPECT_EQ(HalvIOScanf(&zc.io, "%c", text), 1);
    EXPECT_EQ(text[0], '\0');

    /* The end of the stream ends the input: count, then -1. */
    ByteStream e = MakeStream("5");
    EXPECT_EQ(HalvIOScanf(&e.io, "%d,%d", &a, &b), 1);
    ByteStream empty = MakeStream("");
    EXPECT_EQ(HalvIOScanf(&empty.io, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(empty.reads, 1);

    /* A null stream, or one without a read slot, has ended. */
    EXPECT_EQ(HalvIOScanf(nullptr, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(HalvIOScanf(nullptr, ""), 0);
    ByteStream noRead = MakeStream("1");
    noRead.io.read = nullptr;
    EXPECT_EQ(HalvIOScanf(&noRead.io, "%d", &a), HALV_SCAN_END);
}

TEST(TextScanStream, DirectivesOverAStream) {
    ByteStream s = MakeStream("id=0x2A name:[alpha beta] ptr (nil) 3.25 tail");
    unsigned id = 0;
    char name[32] = "";
    void *p = &id;
    double d = 0;
    int n = 0;
    EXPECT_EQ(HalvIOScanf(&s.io, "id=%#x name:[%[^]]] ptr %p %lf%n", &id, name, &p, &d, &n), 4);
    EXPECT_EQ(id, 42u);
    EXPECT_STREQ(name, "alpha beta");
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(d, 3.25);
    EXPECT_EQ(n, 40);
    EXPECT_EQ(Rest(s), "tail");
}

int32_t CallIOV(HalvIO *io, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t result = HalvIOVScanf(io, format, args);
    va_end(args);
    return result;
}

int32_t CallIOVl(const HalvLocale *locale, HalvIO *io, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t result = HalvIOVScanfl(locale, io, format, args);
    va_end(args);
    return result;
}

TEST(TextScanStream, AllStreamForms) {
    const HalvLocale comma = {",", ".", ""};
    int a = 0;
    double d = 0;
    ByteStream s1 = MakeStream("5 6,5");
    EXPECT_EQ(CallIOV(&s1.io, "%d", &a), 1);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(CallIOVl(&comma, &s1.io, "%lf", &d), 1);
    EXPECT_EQ(d, 6.5);

    ByteStream s2 = MakeStream("8 1,5 9");
    void *args[] = {&a, &d};
    EXPECT_EQ(HalvIOLScanfl(&comma, &s2.io, "%d %f", args), 2);
    EXPECT_EQ(a, 8);
    EXPECT_EQ(d, 1.5);
    void *one[] = {&a};
    EXPECT_EQ(HalvIOLScanf(&s2.io, "%d", one), 1);
    EXPECT_EQ(a, 9);
}

} // namespace
