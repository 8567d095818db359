/*
 * tests/text/date_support.h - helpers shared by the date tests: choosing the
 * process's zone, building dates, formatting into std::string, comparing
 * dates with the C library's broken-down records, and running a piece of a
 * test in a child process (the zone identifier is filled once a process).
 */
#ifndef HALV_TESTS_TEXT_DATE_SUPPORT_H
#define HALV_TESTS_TEXT_DATE_SUPPORT_H

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <optional>
#include <ostream>
#include <string>

#include "dpk_hvsup.h"

namespace date_test {

/* Makes `zone` the process's zone for the C library (and so for the
 * library's local conversions), restoring the previous TZ on destruction. */
class ZoneScope {
public:
    explicit ZoneScope(const char *zone) {
        if (const char *old = std::getenv("TZ"))
            old_ = old;
        Set(zone);
    }
    ~ZoneScope() { Set(old_ ? old_->c_str() : nullptr); }
    ZoneScope(const ZoneScope &) = delete;
    ZoneScope &operator=(const ZoneScope &) = delete;

private:
    static void Set(const char *zone) {
        (void)(zone != nullptr ? setenv("TZ", zone, 1) : unsetenv("TZ"));
        tzset();
    }
    std::optional<std::string> old_;
};

/* The zone's standard offset as the C library gives it, seconds west. */
inline long StandardOffset() {
    tzset();
    return timezone;
}

inline bool ZoneInstalled(const char *name) {
    return access((std::string("/usr/share/zoneinfo/") + name).c_str(), R_OK) == 0;
}

#define SKIP_WITHOUT_ZONE(name)                                                                   \
    if (!date_test::ZoneInstalled(name)) {                                                        \
        GTEST_SKIP() << "zone " << (name) << " is not installed (package tzdata)";               \
    }

inline HalvDate Date(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                     int zoneOffset = 0) {
    HalvDate date;
    std::memset(&date, 0, sizeof date);
    date.year = year, date.month = month, date.day = day;
    date.hour = hour, date.minute = minute, date.second = second;
    date.zoneOffset = zoneOffset;
    return date;
}

/* The C library's record of a date's calendar fields and time of day. */
inline struct tm TmOf(const HalvDate &d, int isDst = 0) {
    struct tm record = {};
    record.tm_year = d.year - 1900, record.tm_mon = d.month - 1, record.tm_mday = d.day;
    record.tm_hour = d.hour, record.tm_min = d.minute, record.tm_sec = d.second;
    record.tm_isdst = isDst;
    return record;
}

/* HalvFormatDate as a string, "(null)" for a null result: of the caller's
 * record, which the call normalises, or of a copy. */
inline std::string Format(HalvDate *date, const char *pattern) {
    char *text = HalvFormatDate(date, pattern);
    const std::string result = text != nullptr ? text : "(null)";
    halv_internal_free(text);
    return result;
}

inline std::string Format(HalvDate date, const char *pattern) {
    return Format(&date, pattern);
}

inline std::string Describe(const HalvDate &d) {
    char text[200];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d off%d \"%s\"", d.year, d.month,
                  d.day, d.hour, d.minute, d.second, d.weekDay, d.yearDay, d.isDST, d.zoneOffset, d.zoneName);
    return text;
}

inline std::string Describe(const struct tm &t) {
    char text[200];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d wd%d yd%d dst%d gmtoff%ld \"%s\"",
                  t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday,
                  t.tm_isdst, t.tm_gmtoff, t.tm_zone ? t.tm_zone : "");
    return text;
}

/* The calendar fields, weekday and year day of a date against a record of
 * the C library. */
inline ::testing::AssertionResult SameFields(const HalvDate &d, const struct tm &t) {
    if (d.second == t.tm_sec && d.minute == t.tm_min && d.hour == t.tm_hour && d.day == t.tm_mday &&
        d.month == t.tm_mon + 1 && d.year == t.tm_year + 1900 && d.weekDay == t.tm_wday && d.yearDay == t.tm_yday)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "date " << Describe(d) << ", C library " << Describe(t);
}

/* A local date against localtime_r's record: fields, summer time, the
 * standard offset and the abbreviation in force. */
inline ::testing::AssertionResult SameLocal(const HalvDate &d, const struct tm &t, long standardOffset) {
    if (SameFields(d, t) && (d.isDST != 0) == (t.tm_isdst > 0) && d.zoneOffset == standardOffset &&
        std::strcmp(d.zoneName, t.tm_zone) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "date " << Describe(d) << ", C library " << Describe(t)
                                         << ", timezone " << standardOffset;
}

inline ::testing::AssertionResult SameUtc(const HalvDate &d, const struct tm &t) {
    if (SameFields(d, t) && d.isDST == 0 && d.zoneOffset == 0 && std::strcmp(d.zoneName, "GMT") == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "UTC date " << Describe(d) << ", C library " << Describe(t);
}

/* What a child process printed and how it ended. */
struct ChildResult {
    int status = -1;
    std::string out;
};

/* Runs body in a forked child and collects the text it returns; the child
 * ends with _exit, so nothing of the parent's state is torn down twice.
 * Only for test programs that have started no threads. */
inline ChildResult InChild(const std::function<std::string()> &body) {
    ChildResult result;
    int fds[2];
    if (pipe(fds) != 0)
        return result;
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        const std::string text = body();
        for (size_t done = 0; done < text.size();) {
            const ssize_t n = write(fds[1], text.data() + done, text.size() - done);
            if (n <= 0)
                _exit(3);
            done += static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(fds[1]);
    char buffer[512];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;)
        result.out.append(buffer, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid)
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

} // namespace date_test

inline void PrintTo(const HalvDate &date, std::ostream *os) {
    *os << date_test::Describe(date);
}

#endif
