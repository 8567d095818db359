/*
 * text/date_civil.h - the proleptic Gregorian calendar in plain arithmetic:
 * days since 1970-01-01 from a year, month and day, and back.
 *
 * UTC needs no zone data, so both directions are computed here rather than
 * through the C library, whose timegm searches for the time by repeated
 * breakdowns.  The calendar is counted from 1 March, which puts the leap
 * day at the end of the year: a month's first day is then a linear
 * function of the month, and whole 400-year eras of 146097 days repeat.
 */
#ifndef HALV_TEXT_DATE_CIVIL_H
#define HALV_TEXT_DATE_CIVIL_H

#include <stdint.h>

namespace halv {

/* Division and remainder rounding down, for counts before the epoch. */
inline int64_t FloorDiv(int64_t a, int64_t b) noexcept {
    const int64_t q = a / b;
    return q - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0);
}

inline int64_t FloorMod(int64_t a, int64_t b) noexcept {
    return a - FloorDiv(a, b) * b;
}

/* Days from 1970-01-01 to the first of `month` (1 to 12) of `year`. */
inline int64_t DaysToMonthStart(int64_t year, int64_t month) noexcept {
    const int64_t y = year - (month <= 2 ? 1 : 0);   /* years begin in March */
    const int64_t era = FloorDiv(y, 400);
    const int64_t yearOfEra = y - era * 400;                      /* 0 to 399 */
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5; /* from 1 March */
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468; /* 719468: 0000-03-01 to 1970-01-01 */
}

struct CivilDay {
    int64_t year;
    int32_t month;   /* 1 to 12 */
    int32_t day;     /* 1 to 31 */
    int32_t yearDay; /* 0 is 1 January */
    int32_t weekDay; /* 0 is Sunday */
};

inline CivilDay CivilFromDays(int64_t days) noexcept {
    const int64_t z = days + 719468;
    const int64_t era = FloorDiv(z, 146097);
    const int64_t dayOfEra = z - era * 146097; /* 0 to 146096 */
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100); /* from 1 March */
    const int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    CivilDay civil;
    civil.day = static_cast<int32_t>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    civil.month = static_cast<int32_t>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
    civil.year = yearOfEra + era * 400 + (civil.month <= 2 ? 1 : 0);
    const bool leap = civil.year % 4 == 0 && (civil.year % 100 != 0 || civil.year % 400 == 0);
    /* 1 January is day 306 from 1 March. */
    civil.yearDay = static_cast<int32_t>(monthFromMarch < 10 ? dayOfYear + 59 + (leap ? 1 : 0) : dayOfYear - 306);
    civil.weekDay = static_cast<int32_t>(FloorMod(days + 4, 7)); /* 1970-01-01 was a Thursday */
    return civil;
}

} // namespace halv

#endif
