/*
 * tests/text/test_date_format.cpp - the date pattern language: every field
 * letter at runs of 1 to 5, quoting, literal text, the zone fields in real
 * zones, refusals, texts longer than the formatter's stage, and random
 * dates against the C library's strftime.
 *
 * Names here are those of the "C" locale (the locale variables are
 * cleared); tests/text/test_date_names.cpp covers other locales.
 */
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>

#include "text/date_support.h"

namespace {

using date_test::Date;
using date_test::Format;
using date_test::ZoneScope;

class DateFormat : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char *name : {"LC_ALL", "LC_TIME", "LANG"})
            unsetenv(name);
    }
};

/* Thursday 5 March 2026, 00:30:07 UTC: day 64 of the year, week 9, the
 * hour 0 (12 on a clock), one-digit day and second. */
struct LetterCase {
    char letter;
    const char *runs[5]; /* the text of a run of 1, 2, 3, 4, 5 letters */
};

constexpr LetterCase kLetters[] = {
    {'y', {"2026", "126", "2026", "2026", "2026"}},
    {'Y', {"2026", "126", "2026", "2026", "2026"}},
    {'M', {" 3", "03", "Mar", "March", "March"}},
    {'d', {" 5", "05", "05", "05", "05"}},
    {'D', {" 64", "064", "064", "064", "064"}},
    {'e', {" 4", "04", "04", "04", "04"}},
    {'E', {"Thu", "Thu", "Thu", "Thursday", "Thursday"}},
    {'w', {" 9", "09", "09", "09", "09"}},
    {'H', {" 0", "00", "00", "00", "00"}},
    {'k', {" 1", "01", "01", "01", "01"}},
    {'K', {" 0", "00", "00", "00", "00"}},
    {'h', {"12", "12", "12", "12", "12"}},
    {'m', {"30", "30", "30", "30", "30"}},
    {'s', {" 7", "07", "07", "07", "07"}},
    {'a', {"AM", "AM", "AM", "AM", "AM"}},
    {'Z', {"+0000", "+00:00", "UTC", "UTC", "UTC"}},
};

TEST_F(DateFormat, EveryLetterAtRunsOfOneToFive) {
    const HalvDate date = Date(2026, 3, 5, 0, 30, 7);
    for (const LetterCase &c : kLetters)
        for (int run = 1; run <= 5; ++run) {
            const std::string pattern(static_cast<size_t>(run), c.letter);
            EXPECT_EQ(Format(date, pattern.c_str()), c.runs[run - 1]) << "pattern " << pattern;
        }
}

/* The other side of each choice: afternoon, two-digit values, a year
 * beyond four digits, the last day of a leap year. */
TEST_F(DateFormat, SecondDateTakesTheOtherBranches) {
    const HalvDate date = Date(2024, 12, 31, 23, 59, 58);
    EXPECT_EQ(Format(date, "y yy M MM d D DD e E EEEE w H k K h m s a"),
              "2024 124 12 12 31 366 366  2 Tue Tuesday 52 23 24 11 11 59 58 PM");
    EXPECT_EQ(Format(Date(2026, 1, 1, 12), "h K k a"), "12  0 13 PM");
    EXPECT_EQ(Format(Date(2026, 1, 1, 11), "h K k a"), "11 11 12 AM");
    EXPECT_EQ(Format(Date(12345, 6, 7), "y yy yyyy"), "12345 10445 12345");
    EXPECT_EQ(Format(Date(1999, 1, 3), "yy w ww e"), "99  1 01  0");
    /* 1 January on a Saturday is still in week 0. */
    EXPECT_EQ(Format(Date(2000, 1, 1), "w EEE D"), " 0 Sat   1");
}

TEST_F(DateFormat, QuotesAndLiteralText) {
    const HalvDate date = Date(2026, 11, 18, 21, 9, 42);
    const struct {
        const char *pattern, *text;
    } rows[] = {
        {"yyyy-MM-dd HH:mm:ss", "2026-11-18 21:09:42"}, {"", ""}, {"'yyyy'", "yyyy"}, {"''", "'"},
        {"'at' HH", "at 21"}, {"HH 'o''clock'", "21 o'clock"}, {"HH''mm", "21'09"}, {"'''", "'"},
        {"''''", "''"}, {"'It''s' h:mm a", "It's  9:09 PM"},
        /* An open quote runs to the end, letters and all, but must have
         * something behind it. */
        {"HH 'xyz HH", "21 xyz HH"}, {"'", "(null)"}, {"HH'", "(null)"}, {"HH ,'", "21 ,"}, {"HH'x'", "21x"},
        /* Digits, punctuation and non-ASCII bytes are literal as they stand. */
        {"HH:mm 123 \xc3\xa0 \xe2\x82\xac!", "21:09 123 \xc3\xa0 \xe2\x82\xac!"}, {"\t[HH]\n", "\t[21]\n"},
        /* Runs of different letters don't join; a run ends at another letter. */
        {"HHmmss", "210942"}, {"dMy", "18112026"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(Format(date, row.pattern), row.text) << row.pattern;
}

TEST_F(DateFormat, OnlyTheFieldLettersAreAccepted) {
    const std::string fields = "yYMdDeEwHkKhmsaZ";
    const HalvDate date = Date(2026, 1, 1);
    for (char letter = 'A'; letter <= 'z'; ++letter) {
        if (!((letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z')))
            continue;
        const bool known = fields.find(letter) != std::string::npos;
        for (const std::string &pattern : {std::string(1, letter), "HH:" + std::string(3, letter) + ":mm"}) {
            const std::string text = Format(date, pattern.c_str());
            EXPECT_EQ(text == "(null)", !known) << "pattern " << pattern << " gave " << text;
        }
        /* Quoted, any letter is text. */
        EXPECT_EQ(Format(date, ("'" + std::string(1, letter) + "'").c_str()), std::string(1, letter));
    }
}

TEST_F(DateFormat, RefusalsAndNormalisationInPlace) {
    HalvDate date = Date(2026, 1, 32, 25, 61, 61); /* 2 February 02:02:01 */
    EXPECT_EQ(Format(&date, "yyyy-MM-dd HH:mm:ss EEE D"), "2026-02-02 02:02:01 Mon  33");
    EXPECT_EQ(date_test::Describe(date), "2026-02-02 02:02:01 wd1 yd32 dst0 off0 \"GMT\"");
    /* A refused pattern still normalises first. */
    HalvDate refused = Date(2026, 1, 32);
    EXPECT_EQ(Format(&refused, "yyyy q"), "(null)");
    EXPECT_EQ(refused.month, 2);
    /* Before the epoch: no text, the date as it was. */
    HalvDate early = Date(1969, 12, 31, 23, 59, 59);
    const HalvDate before = early;
    EXPECT_EQ(Format(&early, "yyyy"), "(null)");
    EXPECT_EQ(std::memcmp(&early, &before, sizeof early), 0);
    EXPECT_EQ(Format(Date(1970, 1, 1), "yyyy-MM-dd HH:mm:ss EEEE"), "1970-01-01 00:00:00 Thursday");
    EXPECT_EQ(HalvFormatDate(nullptr, "yyyy"), nullptr);
    HalvDate untouched = Date(2026, 1, 32);
    EXPECT_EQ(HalvFormatDate(&untouched, nullptr), nullptr);
}

/* The zone fields print the standard offset of the process's zone as it
 * stands, west positive, without summer time; the identifier is the
 * process's own and checked in test_date_zone_id.cpp. */
TEST_F(DateFormat, ZoneOffsetsInRealZonesAndOfAnySize) {
    struct Case {
        const char *zone;
        const char *one, *two;
    } cases[] = {
        {"Europe/Berlin", "-0100", "-01:00"},  {"America/New_York", "+0500", "+05:00"},
        {"Asia/Kolkata", "-0530", "-05:30"},   {"Pacific/Chatham", "-1245", "-12:45"},
        {"Atlantic/Azores", "+0100", "+01:00"}, {"<-01>1", "+0100", "+01:00"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.zone);
        const ZoneScope scope(c.zone);
        if (date_test::StandardOffset() == 0)
            GTEST_SKIP() << "zone " << c.zone << " is not installed (package tzdata)";
        for (int month : {1, 7}) {
            HalvDate local;
            HalvMakeDate(&local, 0, (month == 1 ? 1767268800 : 1782820800) * int64_t{1000});
            EXPECT_EQ(Format(local, "Z"), c.one);
            EXPECT_EQ(Format(local, "ZZ"), c.two);
        }
    }
    /* A UTC date prints +0000 and "UTC" whatever TZ says. */
    const ZoneScope scope("Asia/Kolkata");
    EXPECT_EQ(Format(Date(2026, 7, 1), "Z ZZ ZZZ ZZZZ"), "+0000 +00:00 UTC UTC");
    /* An offset east with minutes. */
    HalvDate local;
    const ZoneScope east("<+0945>-9:45");
    HalvMakeDate(&local, 0, 1767268800000);
    ASSERT_EQ(local.zoneOffset, -35100);
    EXPECT_EQ(Format(local, "Z|ZZ"), "-0945|-09:45");
}

std::string Repeat(const std::string &piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += piece;
    return text;
}

/* Texts far longer than the 256-byte stage go on through a smart buffer. */
TEST_F(DateFormat, LongTexts) {
    const HalvDate date = Date(2026, 11, 18, 21, 9, 42);
    EXPECT_EQ(Format(date, Repeat("yyyy-MM-dd ", 1000).c_str()), Repeat("2026-11-18 ", 1000));
    const std::string literal(100000, '-');
    EXPECT_EQ(Format(date, (literal + "HH" + literal).c_str()), literal + "21" + literal);
    const std::string quoted = "'" + Repeat("text ", 20000) + "'";
    EXPECT_EQ(Format(date, ("HH" + quoted + "mm").c_str()), "21" + Repeat("text ", 20000) + "09");
    /* A run of any length is one field. */
    EXPECT_EQ(Format(date, std::string(5000, 'M').c_str()), "November");
    for (size_t length : {255, 256, 257, 511, 512, 513}) {
        const std::string pattern = std::string(length - 4, '.') + "yyyy";
        EXPECT_EQ(Format(date, pattern.c_str()), std::string(length - 4, '.') + "2026") << length;
    }
}

/* Random dates of 1970 to 2100, UTC and local, against strftime in the C
 * locale for every field it has an equal of. */
TEST_F(DateFormat, RandomDatesAgreeWithStrftime) {
    const char *pattern = "yyyy-MM-dd HH:mm:ss|DDD|EEE|EEEE|MMM|MMMM|hh|a|ww|yy";
    /* "yy" has no equal: it is year - 1900, added behind. */
    const char *strftimeFormat = "%Y-%m-%d %H:%M:%S|%j|%a|%A|%b|%B|%I|%p|%U|";
    std::mt19937_64 random(99);
    std::uniform_int_distribution<int64_t> seconds(0, 4102444799);
    for (const char *zone : {"UTC", "Europe/Berlin", "Australia/Lord_Howe"}) {
        SCOPED_TRACE(zone);
        const ZoneScope scope(zone);
        for (int i = 0; i < 20000; ++i) {
            const time_t t = seconds(random);
            const bool utc = i % 2 == 0;
            HalvDate date;
            HalvMakeDate(&date, utc ? 1 : 0, static_cast<int64_t>(t) * 1000);
            struct tm record;
            if (utc || date.zoneOffset == 0)
                gmtime_r(&t, &record);
            else
                localtime_r(&t, &record);
            /* Inside a doubled hour the local normalisation may pick the other
             * of the two instants; the fields stay the same. */
            char expected[128];
            ASSERT_GT(strftime(expected, sizeof expected, strftimeFormat, &record), 0u);
            const std::string want = expected + std::to_string(record.tm_year);
            const std::string got = Format(date, pattern);
            ASSERT_EQ(got, want) << "time " << t << (utc ? " UTC" : " local");
        }
    }
}

} // namespace
