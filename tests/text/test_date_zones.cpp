/*
 * tests/text/test_date_zones.cpp - dates and times against glibc's
 * localtime_r, gmtime_r, mktime, timegm, strftime and `timezone` on the real
 * zone database: HalvMakeDate and HalvMakeTime over random times from 1970
 * to 2100 and around every change of summer time in six zones, the UTC
 * arithmetic over fields far out of range, HalvToLocalTime, HalvToUTC and
 * HalvGetCurrentDate.  And the date pattern language: every field letter at
 * runs of 1 to 5, quoting, literal text, the zone fields in real zones,
 * refusals, texts longer than the formatter's stage, and random dates
 * against strftime, all with the names of the "C" locale (test_locale.cpp
 * covers other locales).
 */
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "text/date_support.h"

namespace {

using date_test::Date;
using date_test::SameLocal;
using date_test::SameUtc;
using date_test::ZoneScope;

constexpr int64_t kYear2100 = 4102444800; /* 2100-01-01 00:00:00 UTC */

struct Zone {
    const char *name;
    long standardOffset; /* seconds west, as glibc's timezone gives it */
};

/* Half-hour summer time on Lord Howe; 45-minute offsets on Chatham. */
constexpr Zone kZones[] = {
    {"UTC", 0}, {"Europe/Berlin", -3600}, {"America/New_York", 18000}, {"Asia/Kolkata", -19800},
    {"Australia/Lord_Howe", -37800}, {"Pacific/Chatham", -45900},
};

struct tm LocalRecord(time_t t) {
    struct tm record;
    EXPECT_NE(localtime_r(&t, &record), nullptr);
    return record;
}

struct tm UtcRecord(time_t t) {
    struct tm record;
    EXPECT_NE(gmtime_r(&t, &record), nullptr);
    return record;
}

/* mktime of a local date's wall time, summer time left to it: what the
 * library promises to agree with where a wall time is skipped or doubled. */
time_t MktimeOf(const HalvDate &d) {
    struct tm record = date_test::TmOf(d, -1);
    return mktime(&record);
}

/* One instant through both breakdowns and back through both inversions. */
void CheckInstant(int64_t milliseconds, long standardOffset, int *ambiguous) {
    const time_t t = milliseconds / 1000;
    SCOPED_TRACE(::testing::Message() << "time " << milliseconds << " ms");
    HalvDate utc;
    HalvMakeDate(&utc, 1, milliseconds);
    ASSERT_TRUE(SameUtc(utc, UtcRecord(t)));
    int64_t back = -1;
    HalvDate again = utc;
    ASSERT_EQ(HalvMakeTime(&back, 1, &again), 1);
    EXPECT_EQ(back, static_cast<int64_t>(t) * 1000);
    EXPECT_EQ(std::memcmp(&again, &utc, sizeof utc), 0) << date_test::Describe(again);
    HalvDate local;
    HalvMakeDate(&local, 0, milliseconds);
    ASSERT_TRUE(SameLocal(local, LocalRecord(t), standardOffset));
    again = local;
    back = -1;
    ASSERT_EQ(HalvMakeTime(&back, 0, &again), 1);
    /* Away from a doubled hour the wall time names one instant; inside it
     * mktime picks one of two, and the library takes its choice. */
    const time_t chosen = MktimeOf(local);
    EXPECT_EQ(back, static_cast<int64_t>(chosen) * 1000);
    if (chosen != t)
        ++*ambiguous;
    ASSERT_TRUE(SameLocal(again, LocalRecord(chosen), standardOffset));
}

TEST(DateZones, RandomTimesAgreeWithTheCLibraryInSixZones) {
    std::mt19937_64 random(20261118);
    std::uniform_int_distribution<int64_t> seconds(0, kYear2100 - 1);
    std::uniform_int_distribution<int64_t> millis(0, 999);
    for (const Zone &zone : kZones) {
        SKIP_WITHOUT_ZONE(zone.name);
        SCOPED_TRACE(zone.name);
        const ZoneScope scope(zone.name);
        ASSERT_EQ(date_test::StandardOffset(), zone.standardOffset) << "the C library reads another zone";
        int ambiguous = 0;
        for (int i = 0; i < 100000; ++i) {
            CheckInstant(seconds(random) * 1000 + millis(random), zone.standardOffset, &ambiguous);
            if (HasFatalFailure())
                return;
        }
        /* A doubled hour is a small part of a year. */
        EXPECT_LT(ambiguous, 200);
    }
}

/* The instants from 1970 to 2100 at which the zone's offset, summer time
 * or abbreviation changes: a day-by-day walk, then bisection. */
std::vector<time_t> Transitions() {
    auto same = [](const struct tm &a, const struct tm &b) {
        return a.tm_gmtoff == b.tm_gmtoff && a.tm_isdst == b.tm_isdst && std::strcmp(a.tm_zone, b.tm_zone) == 0;
    };
    std::vector<time_t> found;
    struct tm before = LocalRecord(0);
    for (time_t day = 86400; day <= kYear2100; day += 86400) {
        const struct tm after = LocalRecord(day);
        if (!same(before, after)) {
            time_t low = day - 86400, high = day; /* low like before, high like after */
            while (high - low > 1) {
                const time_t middle = low + (high - low) / 2;
                (same(LocalRecord(middle), before) ? low : high) = middle;
            }
            found.push_back(high);
        }
        before = after;
    }
    return found;
}

TEST(DateZones, SummerTimeChangesAgreeWithTheCLibrary) {
    for (const Zone &zone : kZones) {
        SKIP_WITHOUT_ZONE(zone.name);
        SCOPED_TRACE(zone.name);
        const ZoneScope scope(zone.name);
        const std::vector<time_t> changes = Transitions();
        if (zone.standardOffset != 0 && zone.standardOffset != -19800) { /* all but UTC and Kolkata */
            EXPECT_GT(changes.size(), 100u) << "too few summer-time changes found";
        }
        int ambiguous = 0;
        for (const time_t change : changes) {
            SCOPED_TRACE(::testing::Message() << "change at " << change);
            /* Instants on both sides of the change. */
            for (const time_t t : {change - 3601, change - 1801, change - 1, change, change + 1, change + 1800,
                                   change + 3600})
                CheckInstant(static_cast<int64_t>(t) * 1000, zone.standardOffset, &ambiguous);
            /* Every wall time in the half hours around the change, the skipped
             * and the doubled ones included, taken as a local date.  Where a
             * wall time doesn't name exactly one instant the result is left to
             * the C library's mktime, so the expectation is its answer. */
            const struct tm edge = LocalRecord(change - 1);
            for (int minutes = -90; minutes <= 90; minutes += 15) {
                HalvDate wall = Date(edge.tm_year + 1900, edge.tm_mon + 1, edge.tm_mday, edge.tm_hour,
                                     edge.tm_min + minutes, 0, 1);
                const time_t expected = MktimeOf(wall);
                int64_t milliseconds = -1;
                ASSERT_EQ(HalvMakeTime(&milliseconds, 0, &wall), 1);
                EXPECT_EQ(milliseconds, static_cast<int64_t>(expected) * 1000);
                EXPECT_TRUE(SameLocal(wall, LocalRecord(expected), zone.standardOffset));
            }
            /* The same wall times read as UTC have exactly one answer. */
            HalvDate asUtc = Date(edge.tm_year + 1900, edge.tm_mon + 1, edge.tm_mday, edge.tm_hour, edge.tm_min + 30);
            struct tm record = date_test::TmOf(asUtc);
            const time_t expected = timegm(&record);
            int64_t milliseconds = -1;
            ASSERT_EQ(HalvMakeTime(&milliseconds, 1, &asUtc), 1);
            EXPECT_EQ(milliseconds, static_cast<int64_t>(expected) * 1000);
            EXPECT_TRUE(SameUtc(asUtc, record));
        }
        if (!changes.empty()) {
            EXPECT_GT(ambiguous, 0) << "no doubled wall time was met";
        }
    }
}

TEST(DateZones, SummerTimeFlagOfTheDateIsNotRead) {
    SKIP_WITHOUT_ZONE("Europe/Berlin");
    const ZoneScope scope("Europe/Berlin");
    for (int flag : {0, 1, -1, 7}) {
        HalvDate summer = Date(2024, 7, 1, 12, 0, 0, 1);
        summer.isDST = flag;
        int64_t milliseconds = 0;
        ASSERT_EQ(HalvMakeTime(&milliseconds, 0, &summer), 1);
        EXPECT_EQ(milliseconds, 1719828000000); /* 10:00 UTC */
        EXPECT_EQ(summer.isDST, 1);
        EXPECT_STREQ(summer.zoneName, "CEST");
        EXPECT_EQ(summer.zoneOffset, -3600);
        HalvDate winter = Date(2024, 1, 1, 12, 0, 0, 1);
        winter.isDST = flag;
        ASSERT_EQ(HalvMakeTime(&milliseconds, 0, &winter), 1);
        EXPECT_EQ(milliseconds, 1704106800000); /* 11:00 UTC */
        EXPECT_EQ(winter.isDST, 0);
        EXPECT_STREQ(winter.zoneName, "CET");
    }
}

/* Random field values, most of them out of range, read as UTC. */
TEST(DateZones, UtcFieldsOutOfRangeAgreeWithTimegm) {
    std::mt19937_64 random(7);
    auto in = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int i = 0; i < 200000; ++i) {
        HalvDate date = Date(in(1890, 2600), in(-40, 50), in(-400, 800), in(-100, 200), in(-5000, 5000),
                             in(-200000, 200000));
        date.weekDay = in(-9, 9);
        date.yearDay = in(-999, 999);
        date.isDST = in(-1, 1);
        date.zoneOffset = in(-50000, 50000);
        std::strcpy(date.zoneName, "untouched");
        struct tm record = date_test::TmOf(date);
        const time_t expected = timegm(&record);
        const HalvDate before = date;
        int64_t milliseconds = 12345;
        const int32_t result = HalvMakeTime(&milliseconds, 1, &date);
        SCOPED_TRACE(date_test::Describe(before));
        if (expected < 0) {
            ASSERT_EQ(result, 0);
            EXPECT_EQ(milliseconds, 12345);
            EXPECT_EQ(std::memcmp(&date, &before, sizeof date), 0) << "a refused date was changed";
        } else {
            ASSERT_EQ(result, 1);
            EXPECT_EQ(milliseconds, static_cast<int64_t>(expected) * 1000);
            ASSERT_TRUE(SameUtc(date, record));
            for (size_t b = 4; b < sizeof date.zoneName; ++b)
                ASSERT_EQ(date.zoneName[b], 0);
        }
    }
}

TEST(DateZones, EdgesOfTheTimeRange) {
    /* The first day, the last seconds before the epoch (refused, the date
     * left alone), 31 February as 3 March with weekday and year day filled
     * in, a leap second counting on into the next minute. */
    const struct {
        HalvDate date;
        int32_t result;
        int64_t milliseconds;
        const char *normalised;
    } rows[] = {
        {Date(1970, 1, 2), 1, 86400000, "1970-01-02 00:00:00 wd5 yd1 dst0 off0 \"GMT\""},
        {Date(1970, 1, 1), 1, 0, "1970-01-01 00:00:00 wd4 yd0 dst0 off0 \"GMT\""},
        {Date(1969, 12, 31, 23, 59, 59), 0, -5, "1969-12-31 23:59:59 wd0 yd0 dst0 off0 \"\""},
        {Date(1970, 1, 1, 0, 0, -1), 0, -5, "1970-01-01 00:00:-1 wd0 yd0 dst0 off0 \"\""},
        {Date(2026, 2, 31, 10), 1, 1772532000000, "2026-03-03 10:00:00 wd2 yd61 dst0 off0 \"GMT\""},
        {Date(2016, 12, 31, 23, 59, 60), 1, 1483228800000, "2017-01-01 00:00:00 wd0 yd0 dst0 off0 \"GMT\""},
    };
    for (auto row : rows) {
        int64_t milliseconds = -5;
        EXPECT_EQ(HalvMakeTime(&milliseconds, 1, &row.date), row.result) << row.normalised;
        EXPECT_EQ(milliseconds, row.milliseconds) << row.normalised;
        EXPECT_EQ(date_test::Describe(row.date), row.normalised);
    }
    int64_t milliseconds = 0;
    HalvDate date;
    /* Milliseconds are dropped towards zero. */
    for (int64_t ms : {1500, 1999, -1500}) {
        HalvMakeDate(&date, 1, ms);
        EXPECT_EQ(date.year * 100 + date.second, ms < 0 ? 196959 : 197001) << ms;
    }
    HalvMakeDate(nullptr, 1, 0);
    /* The largest times: the last whole second whose milliseconds fit 64
     * bits has a date that goes back; one more second has none. */
    const int64_t lastSecond = INT64_MAX / 1000;
    HalvMakeDate(&date, 1, lastSecond * 1000);
    const time_t last = static_cast<time_t>(lastSecond);
    struct tm record;
    ASSERT_NE(gmtime_r(&last, &record), nullptr);
    EXPECT_TRUE(SameUtc(date, record));
    ASSERT_EQ(HalvMakeTime(&milliseconds, 1, &date), 1);
    EXPECT_EQ(milliseconds, lastSecond * 1000);
    ++date.second;
    EXPECT_EQ(HalvMakeTime(&milliseconds, 1, &date), 0);
    HalvMakeDate(&date, 1, INT64_MAX);
    EXPECT_EQ(date.year, record.tm_year + 1900);
    HalvMakeDate(&date, 1, INT64_MIN);
    EXPECT_LT(date.year, -292000000);
    /* Fields at the ends of 32 bits don't overflow: far past the range, or
     * before the epoch, they are refused. */
    for (int32_t extreme : {INT32_MAX, INT32_MIN}) {
        for (int field = 0; field < 6; ++field) {
            HalvDate far = Date(2000, 6, 15, 12, 30, 30);
            int32_t *fields[] = {&far.second, &far.minute, &far.hour, &far.day, &far.month, &far.year};
            *fields[field] = extreme;
            const HalvDate original = far;
            const int32_t result = HalvMakeTime(&milliseconds, 1, &far);
            /* INT32_MAX seconds to months reach no further than about 180
             * million years; INT32_MAX years pass the range. */
            if (extreme == INT32_MIN || field == 5) {
                EXPECT_EQ(result, 0) << "field " << field << " " << extreme;
                EXPECT_EQ(std::memcmp(&far, &original, sizeof far), 0);
            } else {
                EXPECT_EQ(result, 1) << "field " << field;
            }
            far = original;
            EXPECT_EQ(HalvMakeTime(&milliseconds, 0, &far), result) << "local, field " << field;
        }
    }
    EXPECT_EQ(HalvMakeTime(&milliseconds, 1, nullptr), -1);
    EXPECT_EQ(HalvMakeTime(&milliseconds, 0, nullptr), -1);
}

TEST(DateZones, LocalDatesBeforeTheEpochAreRefused) {
    SKIP_WITHOUT_ZONE("America/New_York");
    const ZoneScope scope("America/New_York");
    /* 1969-12-31 19:00 in New York is the epoch itself; a second less is not. */
    HalvDate date = Date(1969, 12, 31, 19, 0, 0, 1);
    int64_t milliseconds = -5;
    ASSERT_EQ(HalvMakeTime(&milliseconds, 0, &date), 1);
    EXPECT_EQ(milliseconds, 0);
    EXPECT_STREQ(date.zoneName, "EST");
    EXPECT_EQ(date.zoneOffset, 18000);
    date = Date(1969, 12, 31, 18, 59, 59, 1);
    const HalvDate before = date;
    EXPECT_EQ(HalvMakeTime(&milliseconds, 0, &date), 0);
    EXPECT_EQ(std::memcmp(&date, &before, sizeof date), 0);
    EXPECT_EQ(milliseconds, 0);
}

TEST(DateZones, ToLocalTimeAndToUtc) {
    SKIP_WITHOUT_ZONE("Pacific/Chatham");
    const ZoneScope scope("Pacific/Chatham");
    const time_t t = 1767225600; /* 2026-01-01 00:00:00 UTC, summer in Chatham */
    /* A UTC date becomes the local date of the same moment. */
    HalvDate source = Date(2025, 12, 31, 24); /* one hour past the end of the day */
    HalvDate result;
    std::memset(&result, 0x55, sizeof result);
    ASSERT_EQ(HalvToLocalTime(&source, &result), 1);
    EXPECT_TRUE(SameLocal(result, LocalRecord(t), -45900));
    EXPECT_STREQ(result.zoneName, "+1345");
    EXPECT_TRUE(SameUtc(source, UtcRecord(t))) << "the source is normalised in place";
    /* And back. */
    HalvDate utc;
    ASSERT_EQ(HalvToUTC(&result, &utc), 1);
    EXPECT_TRUE(SameUtc(utc, UtcRecord(t)));
    /* A date already of the wanted kind is normalised and copied. */
    HalvDate local = Date(2025, 12, 32, 13, 45, 0, 1); /* 1 January, local */
    ASSERT_EQ(HalvToLocalTime(&local, &result), 1);
    EXPECT_TRUE(SameLocal(result, LocalRecord(t), -45900));
    EXPECT_EQ(std::memcmp(&local, &result, sizeof local), 0);
    HalvDate plain = Date(2026, 1, 1, 0, 0, 0);
    ASSERT_EQ(HalvToUTC(&plain, &result), 1);
    EXPECT_TRUE(SameUtc(result, UtcRecord(t)));
    /* Source and result may be one record. */
    HalvDate both = Date(2026, 1, 1);
    ASSERT_EQ(HalvToLocalTime(&both, &both), 1);
    EXPECT_TRUE(SameLocal(both, LocalRecord(t), -45900));
    ASSERT_EQ(HalvToUTC(&both, &both), 1);
    EXPECT_TRUE(SameUtc(both, UtcRecord(t)));
    /* A source without a time leaves the result alone. */
    HalvDate early = Date(1960, 1, 1);
    std::memset(&result, 0x55, sizeof result);
    const HalvDate untouched = result;
    EXPECT_EQ(HalvToLocalTime(&early, &result), 0);
    EXPECT_EQ(HalvToUTC(&early, &result), 0);
    early.zoneOffset = 1;
    EXPECT_EQ(HalvToLocalTime(&early, &result), 0);
    EXPECT_EQ(HalvToUTC(&early, &result), 0);
    EXPECT_EQ(std::memcmp(&result, &untouched, sizeof result), 0);
    EXPECT_EQ(HalvToLocalTime(nullptr, &result), -1);
    EXPECT_EQ(HalvToLocalTime(&source, nullptr), -1);
    EXPECT_EQ(HalvToUTC(nullptr, &result), -1);
    EXPECT_EQ(HalvToUTC(&source, nullptr), -1);
}

/* In a zone whose standard time is UTC, a local date counts as UTC. */
TEST(DateZones, LocalDatesOfAZoneAtGreenwichCountAsUtc) {
    SKIP_WITHOUT_ZONE("Europe/London");
    const ZoneScope scope("Europe/London");
    HalvDate summer;
    HalvMakeDate(&summer, 0, 1719835200000); /* 2024-07-01 12:00 UTC */
    EXPECT_EQ(summer.hour, 13);
    EXPECT_EQ(summer.zoneOffset, 0);
    EXPECT_STREQ(summer.zoneName, "BST");
    HalvDate result;
    ASSERT_EQ(HalvToUTC(&summer, &result), 1);
    /* Read as UTC: 13:00 stays 13:00, and the name becomes GMT. */
    EXPECT_EQ(result.hour, 13);
    EXPECT_STREQ(result.zoneName, "GMT");
    EXPECT_EQ(result.isDST, 0);
}

TEST(DateZones, CurrentDate) {
    const ZoneScope scope("Asia/Kolkata");
    const int64_t before = static_cast<int64_t>(time(nullptr)) * 1000;
    HalvDate utc, local;
    HalvGetCurrentDate(&utc, 1);
    HalvGetCurrentDate(&local, 0);
    const int64_t after = static_cast<int64_t>(time(nullptr)) * 1000;
    EXPECT_STREQ(utc.zoneName, "GMT");
    int64_t milliseconds = 0;
    ASSERT_EQ(HalvMakeTime(&milliseconds, 1, &utc), 1);
    EXPECT_GE(milliseconds, before);
    EXPECT_LE(milliseconds, after);
    if (date_test::ZoneInstalled("Asia/Kolkata")) {
        EXPECT_STREQ(local.zoneName, "IST");
        EXPECT_EQ(local.zoneOffset, -19800);
        ASSERT_EQ(HalvMakeTime(&milliseconds, 0, &local), 1);
        EXPECT_GE(milliseconds, before);
        EXPECT_LE(milliseconds, after);
    }
    HalvGetCurrentDate(nullptr, 0);
    HalvGetCurrentDate(nullptr, 1);
}

} // namespace

namespace {

using date_test::Format;

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
