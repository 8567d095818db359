/*
 * text/date_convert.cpp - dates to times and back, in UTC and in the
 * process's zone.
 *
 * UTC is plain calendar arithmetic (text/date_civil.h) in 64 bits, which
 * takes any field values without overflow and agrees with the C library's
 * timegm and gmtime_r wherever those answer.  Local time goes through the
 * C library's zone data: localtime_r one way, mktime the other.  Both read
 * the zone's name from the broken-down record they fill, which belongs to
 * the call, and the standard offset from `timezone` right after tzset (or
 * mktime, which runs it); nothing here keeps state between calls.
 */
#include <climits>
#include <cstring>
#include <ctime>

#include "halv_text.h"
#include "text/date_civil.h"

namespace halv {
namespace {

/* The last second whose milliseconds fit a signed 64-bit count. */
constexpr int64_t kLastSecond = INT64_MAX / 1000;

/* A UTC date's name, with the zeros behind it: stored in one move. */
constexpr char kUtcZoneName[sizeof(HalvDate::zoneName)] = "GMT";

void SetZoneName(HalvDate &date, const char *name) noexcept {
    const size_t length = strnlen(name, sizeof date.zoneName - 1);
    std::memcpy(date.zoneName, name, length);
    std::memset(date.zoneName + length, 0, sizeof date.zoneName - length);
}

/* The UTC breakdown of a count of seconds within kLastSecond either way. */
void BreakDownUtc(HalvDate &date, int64_t seconds) noexcept {
    const CivilTime civil = FieldsFromSeconds(seconds);
    date.second = civil.second;
    date.minute = civil.minute;
    date.hour = civil.hour;
    date.day = civil.day;
    date.month = civil.month;
    date.year = static_cast<int32_t>(civil.year);
    date.weekDay = civil.weekDay;
    date.yearDay = civil.yearDay;
    date.isDST = 0;
    date.zoneOffset = 0;
    std::memcpy(date.zoneName, kUtcZoneName, sizeof date.zoneName);
}

/* Fills date from a record of the C library's local conversion. */
void StoreLocal(HalvDate &date, const struct tm &local) noexcept {
    date.second = local.tm_sec;
    date.minute = local.tm_min;
    date.hour = local.tm_hour;
    date.day = local.tm_mday;
    date.month = local.tm_mon + 1;
    date.year = local.tm_year + 1900;
    date.weekDay = local.tm_wday;
    date.yearDay = local.tm_yday;
    date.isDST = local.tm_isdst > 0 ? 1 : 0;
    date.zoneOffset = static_cast<int32_t>(timezone);
    SetZoneName(date, local.tm_zone != nullptr ? local.tm_zone : "");
}

int32_t MakeUtcTime(int64_t *milliseconds, HalvDate &date) noexcept {
    const int64_t seconds =
        SecondsFromFields(date.year, date.month, date.day, date.hour, date.minute, date.second);
    if (seconds < 0 || seconds > kLastSecond)
        return 0;
    if (FieldsInRange(date.year, date.month, date.day, date.hour, date.minute, date.second)) {
        /* Already normal, as most dates are: only what is derived changes. */
        date.weekDay = static_cast<int32_t>((seconds / 86400 + 4) % 7); /* 1970-01-01 was a Thursday */
        date.yearDay = YearDay(date.year, date.month, date.day);
        date.isDST = 0;
        date.zoneOffset = 0;
        std::memcpy(date.zoneName, kUtcZoneName, sizeof date.zoneName);
    } else {
        BreakDownUtc(date, seconds);
    }
    if (milliseconds != nullptr)
        *milliseconds = seconds * 1000;
    return 1;
}

/* mktime on a copy, summer time left to the C library.  The month carries
 * into the year here, in 64 bits, so that neither field overflows on the
 * way in; the C library would carry it the same way. */
int32_t MakeLocalTime(int64_t *milliseconds, HalvDate &date) noexcept {
    const int64_t months = static_cast<int64_t>(date.year) * 12 + date.month - 1 - 1900 * 12;
    const int64_t year = months >= 0 ? months / 12 : -((11 - months) / 12); /* rounded down */
    if (year < INT_MIN || year > INT_MAX)
        return 0;
    struct tm local = {};
    local.tm_sec = date.second;
    local.tm_min = date.minute;
    local.tm_hour = date.hour;
    local.tm_mday = date.day;
    local.tm_mon = static_cast<int>(months - year * 12);
    local.tm_year = static_cast<int>(year);
    local.tm_wday = date.weekDay;
    local.tm_yday = date.yearDay;
    local.tm_isdst = -1;
    const time_t seconds = mktime(&local);
    /* -1 is also the last second of 1969, which is refused all the same. */
    if (seconds < 0 || seconds > kLastSecond)
        return 0;
    StoreLocal(date, local);
    if (milliseconds != nullptr)
        *milliseconds = static_cast<int64_t>(seconds) * 1000;
    return 1;
}

void MakeDate(HalvDate *date, bool utc, int64_t seconds) noexcept {
    if (date == nullptr)
        return;
    if (utc) {
        BreakDownUtc(*date, seconds);
        return;
    }
    tzset();
    const time_t when = seconds;
    struct tm local;
    if (localtime_r(&when, &local) != nullptr)
        StoreLocal(*date, local);
}

/* Normalises source and copies it when it is already of the wanted kind,
 * else takes it through its time into the other kind. */
int32_t Convert(HalvDate *source, HalvDate *result, bool toUtc) noexcept {
    if (source == nullptr || result == nullptr)
        return -1;
    const bool sourceIsUtc = source->zoneOffset == 0;
    int64_t milliseconds = 0;
    if (HalvMakeTime(&milliseconds, sourceIsUtc ? 1 : 0, source) != 1)
        return 0;
    if (sourceIsUtc == toUtc)
        *result = *source;
    else
        HalvMakeDate(result, toUtc ? 1 : 0, milliseconds);
    return 1;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API void HalvGetCurrentDate(HalvDate *date, int32_t utc) noexcept {
    halv::MakeDate(date, utc != 0, static_cast<int64_t>(time(nullptr)));
}

HALV_API void HalvMakeDate(HalvDate *date, int32_t utc, int64_t milliseconds) noexcept {
    halv::MakeDate(date, utc != 0, milliseconds / 1000);
}

HALV_API int32_t HalvMakeTime(int64_t *milliseconds, int32_t utc, HalvDate *date) noexcept {
    if (date == nullptr)
        return -1;
    return utc != 0 ? halv::MakeUtcTime(milliseconds, *date) : halv::MakeLocalTime(milliseconds, *date);
}

HALV_API int32_t HalvToLocalTime(HalvDate *source, HalvDate *result) noexcept {
    return halv::Convert(source, result, false);
}

HALV_API int32_t HalvToUTC(HalvDate *source, HalvDate *result) noexcept {
    return halv::Convert(source, result, true);
}

} // extern "C"
