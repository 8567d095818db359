/*
 * text/date_civil.h - the proleptic Gregorian calendar in plain arithmetic:
 * seconds since 1970-01-01 from a date's fields, and the fields back from
 * seconds.
 *
 * UTC needs no zone data, so both directions are computed here rather than
 * through the C library, whose timegm searches for the time by repeated
 * breakdowns.  The calendar is counted from 1 March, which puts the leap
 * day at the end of the year: a month's first day is then a linear
 * function of the month, and whole 400-year eras of 146097 days repeat.
 *
 * Counts are first moved up by a whole number of eras, so that everything
 * is divided as unsigned, and what lies within one era in 32 bits: the
 * divisions by constants become short multiplications, with none of the
 * corrections that rounding a negative count down would need.
 */
#ifndef HALV_TEXT_DATE_CIVIL_H
#define HALV_TEXT_DATE_CIVIL_H

#include <stdint.h>

namespace halv {

namespace civil_detail {

constexpr uint64_t kDaysPerEra = 146097; /* 400 years; a whole number of weeks */
constexpr uint64_t kSecondsPerDay = 86400;

/* The shift of years: 6 million eras, more than any 32-bit year and the
 * months that 32 bits can add to it. */
constexpr uint64_t kShiftEras = 6000000;
constexpr uint64_t kShiftYears = kShiftEras * 400;
/* The shift of seconds: 800000 eras, more than the 292 million years that
 * 64-bit milliseconds reach either way. */
constexpr uint64_t kShiftDays = 800000 * kDaysPerEra;
constexpr uint64_t kShiftSeconds = kShiftDays * kSecondsPerDay;
constexpr int64_t kEpochFromMarch = 719468; /* 0000-03-01 to 1970-01-01 */

/* Days from 1 March to the first of a month counted from March (0 to 11). */
inline uint32_t DaysBeforeMonth(uint32_t monthFromMarch) noexcept {
    return (153 * monthFromMarch + 2) / 5;
}

} // namespace civil_detail

/* Seconds from 1970-01-01 00:00:00 of a date whose fields may lie outside
 * their ranges: months carry into years, everything below counts on
 * linearly.  Any 32-bit fields give a count within 64 bits. */
inline int64_t SecondsFromFields(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                                 int32_t second) noexcept {
    using namespace civil_detail;
    /* Months from March of year 0 of the shifted calendar. */
    const uint64_t months = static_cast<uint64_t>(static_cast<int64_t>(year) * 12 + month - 3 +
                                                  static_cast<int64_t>(kShiftYears * 12));
    const uint64_t shiftedYear = months / 12; /* begins in March */
    const auto monthFromMarch = static_cast<uint32_t>(months % 12);
    const uint64_t era = shiftedYear / 400;
    const auto yearOfEra = static_cast<uint32_t>(shiftedYear % 400);
    const uint32_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + DaysBeforeMonth(monthFromMarch);
    const int64_t days = (static_cast<int64_t>(era) - static_cast<int64_t>(kShiftEras)) *
                             static_cast<int64_t>(kDaysPerEra) +
                         dayOfEra - kEpochFromMarch + (static_cast<int64_t>(day) - 1);
    return days * static_cast<int64_t>(kSecondsPerDay) + static_cast<int64_t>(hour) * 3600 +
           static_cast<int64_t>(minute) * 60 + second;
}

struct CivilTime {
    int64_t year;
    int32_t month;   /* 1 to 12 */
    int32_t day;     /* 1 to 31 */
    int32_t yearDay; /* 0 is 1 January */
    int32_t weekDay; /* 0 is Sunday */
    int32_t hour;
    int32_t minute;
    int32_t second;
};

/* The fields of a count of seconds, for any count whose milliseconds fit
 * 64 bits. */
inline CivilTime FieldsFromSeconds(int64_t seconds) noexcept {
    using namespace civil_detail;
    const uint64_t shifted = static_cast<uint64_t>(seconds) + kShiftSeconds;
    const uint64_t days = shifted / kSecondsPerDay;
    const auto ofDay = static_cast<uint32_t>(shifted - days * kSecondsPerDay);
    const uint64_t fromMarch = days + static_cast<uint64_t>(kEpochFromMarch);
    const uint64_t era = fromMarch / kDaysPerEra;
    const auto dayOfEra = static_cast<uint32_t>(fromMarch - era * kDaysPerEra); /* 0 to 146096 */
    const uint32_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const uint32_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100); /* from 1 March */
    const uint32_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const bool january = monthFromMarch >= 10; /* January or February: the next civil year */
    /* From March on, the civil year is the year yearOfEra counts, and
     * whether its February had 29 days follows from that count alone: an
     * era is a whole cycle of the leap rule. */
    const bool leap = yearOfEra % 4 == 0 && (yearOfEra % 100 != 0 || yearOfEra == 0);
    CivilTime civil;
    civil.year = (static_cast<int64_t>(era) - static_cast<int64_t>(800000)) * 400 + yearOfEra + (january ? 1 : 0);
    civil.month = static_cast<int32_t>(january ? monthFromMarch - 9 : monthFromMarch + 3);
    civil.day = static_cast<int32_t>(dayOfYear - DaysBeforeMonth(monthFromMarch) + 1);
    /* 1 January is day 306 from 1 March. */
    civil.yearDay = static_cast<int32_t>(january ? dayOfYear - 306 : dayOfYear + 59 + (leap ? 1 : 0));
    civil.weekDay = static_cast<int32_t>((days + 4) % 7); /* the shift is whole weeks; 1970-01-01 was a Thursday */
    civil.hour = static_cast<int32_t>(ofDay / 3600);
    civil.minute = static_cast<int32_t>(ofDay / 60 % 60);
    civil.second = static_cast<int32_t>(ofDay % 60);
    return civil;
}

inline bool IsLeapYear(int64_t year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

/* The day of the year (0 is 1 January) of a date whose month is 1 to 12. */
inline int32_t YearDay(int64_t year, int32_t month, int32_t day) noexcept {
    static constexpr int32_t kDaysBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return kDaysBefore[month - 1] + day - 1 + (month > 2 && IsLeapYear(year) ? 1 : 0);
}

/* Whether every field of a date lies in its range, so that normalising it
 * changes nothing but its weekday and year day.  A leap second (60) is not
 * in range: it counts on into the next minute. */
inline bool FieldsInRange(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                          int32_t second) noexcept {
    static constexpr int32_t kMonthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (static_cast<uint32_t>(second) > 59 || static_cast<uint32_t>(minute) > 59 ||
        static_cast<uint32_t>(hour) > 23 || static_cast<uint32_t>(month) - 1 > 11 || day < 1)
        return false;
    return day <= kMonthDays[month - 1] || (month == 2 && day == 29 && IsLeapYear(year));
}

} // namespace halv

#endif
