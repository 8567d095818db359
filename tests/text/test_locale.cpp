/*
 * tests/text/test_locale.cpp - what the engine takes from locales.
 *
 * The fixed and the user locale records while the engine runs: lazy filling
 * from the process's locale (LC_ALL, LC_NUMERIC, LANG), setting by the
 * program, and the cleanup at the last HalvernEnd.  And month, weekday and
 * morning/afternoon names of date patterns against strftime_l's ("%OB",
 * "%Ob", "%A", "%a", "%p"): German in UTF-8, French in ISO-8859-1 (converted
 * to UTF-8 on the way out, compared through iconv) and Russian, whose months
 * stand alone in another form than inside a date.
 *
 * Locales are compiled with localedef into temporary directories named by
 * LOCPATH, so the tests don't depend on what the machine has generated;
 * where localedef can't make them the tests skip with a message.
 */
#include <gtest/gtest.h>

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "temp_dir.h"
#include "text/date_support.h"
#include "text/print_support.h"

/* The C library's newlocale keeps the search path it builds from LOCPATH
 * (glibc 2.36); that is its own memory, not the engine's. */
extern "C" const char *__lsan_default_suppressions() {
    return "leak:__argz_add_sep\n";
}

namespace {

/* localedef of one locale (input: a source name or file) into directory;
 * whether its category file is there afterwards. */
bool CompileLocale(const std::string &directory, const std::string &name, const std::string &input,
                   const std::string &charmap, const char *category) {
    const std::string command =
        "localedef -c -i " + input + " -f " + charmap + " " + directory + "/" + name + " >/dev/null 2>&1";
    (void)std::system(command.c_str());
    return !directory.empty() && std::filesystem::exists(directory + "/" + name + "/" + category);
}

/* Each test runs inside one engine start, so that what it fills is cleaned
 * up again by its HalvernEnd. */
class UserLocale : public ::testing::Test {
protected:
    void SetUp() override {
        ClearLocaleVariables();
        HalvernDisableRegistryLoad(1); /* no bundles needed here */
        ASSERT_EQ(HalvernInit(), 1);
    }
    void TearDown() override {
        EXPECT_EQ(HalvernEnd(), 1);
        ClearLocaleVariables();
    }
    static void ClearLocaleVariables() {
        for (const char *name : {"LC_ALL", "LC_NUMERIC", "LANG"})
            unsetenv(name);
    }
    /* Makes the record be read from the process again. */
    static void Refill() {
        ASSERT_EQ(HalvernEnd(), 1);
        ASSERT_EQ(HalvernInit(), 1);
    }
};

void ExpectRecord(const HalvLocale *record, const char *point, const char *separator, const char *grouping) {
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(std::string(record->decimalPoint ? record->decimalPoint : "(null)") + "|" +
                  (record->thousandSeparator ? record->thousandSeparator : "(null)") + "|" +
                  (record->grouping ? record->grouping : "(null)"),
              std::string(point) + "|" + separator + "|" + grouping);
}

TEST_F(UserLocale, PlainProcessGivesTheFallbacks) {
    HalvLocale *first = HalvGetUserLocale();
    ExpectRecord(first, ".", ",", "");
    EXPECT_NE(first, HalvGetHalvernLocale());
    EXPECT_EQ(HalvGetUserLocale(), first);
    for (const char *name : {"no_SUCH.locale", "C.UTF-8"}) {
        Refill();
        setenv("LC_ALL", name, 1);
        ExpectRecord(HalvGetUserLocale(), ".", ",", "");
    }
}

TEST_F(UserLocale, SetReplacesTheStringsAndSticks) {
    char point[] = ",";
    char separator[] = ".";
    char grouping[] = "3;0";
    const HalvLocale comma = {point, separator, grouping};
    HalvSetUserLocale(&comma);
    HalvLocale *user = HalvGetUserLocale();
    ExpectRecord(user, ",", ".", "3;0");
    EXPECT_NE(user->decimalPoint, point);  /* copies */
    point[0] = '#';
    EXPECT_STREQ(user->decimalPoint, ",");
    char buffer[32];
    EXPECT_EQ(HalvSPrintfl(user, buffer, "%.1f", 1.5), 3);
    EXPECT_STREQ(buffer, "1,5");
    EXPECT_EQ(HalvSPrintf(buffer, "%.1f", 1.5), 3);
    EXPECT_STREQ(buffer, "1.5");
    HalvSetUserLocale(nullptr);  /* changes nothing */
    ExpectRecord(HalvGetUserLocale(), ",", ".", "3;0");
    EXPECT_EQ(HalvGetUserLocale(), user);
    /* A set record is kept: the process's locale is not read over it. */
    setenv("LC_ALL", "no_SUCH.locale", 1);
    ExpectRecord(HalvGetUserLocale(), ",", ".", "3;0");
    /* Setting the record from itself, and with missing fields. */
    HalvSetUserLocale(user);
    ExpectRecord(HalvGetUserLocale(), ",", ".", "3;0");
    const HalvLocale partial = {"::", nullptr, nullptr};
    HalvSetUserLocale(&partial);
    ExpectRecord(HalvGetUserLocale(), "::", ",", "");
    EXPECT_EQ(HalvSNPrintfl(HalvGetUserLocale(), buffer, sizeof buffer, "%.2f", 0.5), 5);
    EXPECT_STREQ(buffer, "0::50");
    /* An inner stop is not the last one; the last empties the record, and
     * the next get reads the process again. */
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvernEnd(), 1);
    ExpectRecord(HalvGetUserLocale(), "::", ",", "");
    unsetenv("LC_ALL");
    Refill();
    ExpectRecord(HalvGetUserLocale(), ".", ",", "");
}

TEST_F(UserLocale, ManyThreadsGetOneRecord) {
    std::vector<std::thread> threads;
    std::vector<HalvLocale *> seen(8, nullptr);
    std::vector<std::string> printed(8);
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&, i] {
            seen[i] = HalvGetUserLocale();
            printed[i] = PrintWith(seen[i], "%.2f", 0.25 * static_cast<double>(i)).text;
        });
    for (std::thread &thread : threads)
        thread.join();
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i], seen[0]);
        EXPECT_EQ(printed[i], Text("%.2f", 0.25 * static_cast<double>(i)));
    }
}

/* Two small locales compiled into a temporary directory, removed again at
 * the end: one in UTF-8 with an Arabic decimal point, and one in ISO-8859-1
 * whose no-break space needs converting.  `directory` is empty when
 * localedef can't build them here. */
struct CompiledLocales {
    halvtest::TempDir root{"halv_locales"};
    std::string directory;
    CompiledLocales() {
        struct Source {
            const char *name, *charmap, *numeric;
        } sources[] = {
            {"xx_YY.UTF-8", "UTF-8", "decimal_point \"<U066B>\"\nthousands_sep \"<U00A0>\"\ngrouping 3;2\n"},
            {"xx_ZZ.ISO-8859-1", "ISO-8859-1",
             "decimal_point \"<U002C>\"\nthousands_sep \"<U00A0>\"\ngrouping 3;-1\n"},
        };
        for (const Source &source : sources) {
            const std::string file = root.Write(std::string(source.name) + ".src",
                                                std::string("LC_CTYPE\ncopy \"i18n\"\nEND LC_CTYPE\nLC_NUMERIC\n") +
                                                    source.numeric + "END LC_NUMERIC\n");
            if (!CompileLocale(root.path(), source.name, file, source.charmap, "LC_NUMERIC"))
                return;
        }
        directory = root.path();
    }
};

TEST_F(UserLocale, ReadsTheNamedLocaleOfTheProcess) {
    const CompiledLocales locales;
    if (locales.directory.empty())
        GTEST_SKIP() << "localedef could not build the test locales";
    setenv("LOCPATH", locales.directory.c_str(), 1);
    setenv("LC_ALL", "xx_YY.UTF-8", 1);
    HalvLocale *user = HalvGetUserLocale();
    ExpectRecord(user, "\xd9\xab", "\xc2\xa0", "3;2;0");
    char buffer[32];
    EXPECT_EQ(HalvSPrintfl(user, buffer, "%.1f", 1.5), 4);
    EXPECT_STREQ(buffer, "1\xd9\xab" "5");
    /* Asked once: a change of the environment shows only after a refill. */
    setenv("LC_ALL", "xx_ZZ.ISO-8859-1", 1);
    ExpectRecord(HalvGetUserLocale(), "\xd9\xab", "\xc2\xa0", "3;2;0");
    Refill();
    ExpectRecord(HalvGetUserLocale(), ",", "\xc2\xa0", "3");
    /* LC_ALL comes first, then LC_NUMERIC, then LANG. */
    Refill();
    unsetenv("LC_ALL");
    setenv("LC_NUMERIC", "xx_YY.UTF-8", 1);
    setenv("LANG", "xx_ZZ.ISO-8859-1", 1);
    ExpectRecord(HalvGetUserLocale(), "\xd9\xab", "\xc2\xa0", "3;2;0");
    Refill();
    setenv("LC_NUMERIC", "", 1);  /* empty counts as unset */
    ExpectRecord(HalvGetUserLocale(), ",", "\xc2\xa0", "3");
    Refill();
    setenv("LC_ALL", "C", 1);
    ExpectRecord(HalvGetUserLocale(), ".", ",", "");
    /* The library's own engines never follow the process's locale. */
    EXPECT_EQ(Text("%.1f", 1.5), "1.5");
    unsetenv("LOCPATH");
}

using date_test::Date;
using date_test::Format;

constexpr const char *kLocales[] = {"de_DE.UTF-8", "fr_FR.ISO-8859-1", "ru_RU.UTF-8"};

/* The date-name locales from the C library's sources, compiled once for the
 * program; empty where localedef can't make them. */
const std::string &DateLocales() {
    static const halvtest::TempDir root{"halv_date_locales"};
    static const std::string directory = [] {
        for (const std::string name : kLocales) {
            const size_t dot = name.find('.');
            if (!CompileLocale(root.path(), name, name.substr(0, dot), name.substr(dot + 1), "LC_TIME"))
                return std::string();
        }
        return root.path();
    }();
    return directory;
}

class DateNames : public ::testing::Test {
protected:
    void SetUp() override {
        if (DateLocales().empty())
            GTEST_SKIP() << "localedef could not make the test locales (package locales)";
        setenv("LOCPATH", DateLocales().c_str(), 1);
        ClearLocaleVariables();
    }
    void TearDown() override {
        ClearLocaleVariables();
        unsetenv("LOCPATH");
    }
    static void ClearLocaleVariables() {
        for (const char *name : {"LC_ALL", "LC_TIME", "LANG", "LC_CTYPE"})
            unsetenv(name);
    }
};

/* strftime_l in the named locale, as UTF-8. */
std::string Expected(const char *localeName, const char *directive, const struct tm &record) {
    locale_t locale = newlocale(LC_ALL_MASK, localeName, static_cast<locale_t>(0));
    EXPECT_NE(locale, static_cast<locale_t>(0)) << localeName;
    if (locale == static_cast<locale_t>(0))
        return "";
    char text[256];
    const size_t length = strftime_l(text, sizeof text, directive, &record, locale);
    std::string result(text, length);
    const std::string codeSet = nl_langinfo_l(CODESET, locale);
    freelocale(locale);
    if (codeSet == "UTF-8")
        return result;
    iconv_t converter = iconv_open("UTF-8", codeSet.c_str());
    EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1));
    char out[1024];
    char *in = result.data();
    char *to = out;
    size_t inLeft = result.size(), outLeft = sizeof out;
    EXPECT_NE(iconv(converter, &in, &inLeft, &to, &outLeft), static_cast<size_t>(-1));
    iconv_close(converter);
    return std::string(out, static_cast<size_t>(to - out));
}

TEST_F(DateNames, EveryNameInThreeLocalesAgreesWithStrftime) {
    for (const char *locale : kLocales) {
        SCOPED_TRACE(locale);
        setenv("LC_ALL", locale, 1);
        for (int month = 1; month <= 12; ++month) {
            /* The 10th of each month, at 09:00 and 21:00: every weekday comes up. */
            for (int hour : {9, 21}) {
                HalvDate date = Date(2026, month, 10, hour);
                ASSERT_EQ(HalvMakeTime(nullptr, 1, &date), 1);
                struct tm record = date_test::TmOf(date);
                record.tm_wday = date.weekDay;
                record.tm_yday = date.yearDay;
                EXPECT_EQ(Format(date, "MMMM|MMM|EEEE|EEE|E|a"),
                          Expected(locale, "%OB|%Ob|%A|%a|%a|%p", record)) << "month " << month;
            }
        }
    }
}

TEST_F(DateNames, WhichVariableNamesTheLocale) {
    const HalvDate march = Date(2026, 3, 5, 15);
    /* LC_ALL first, then LC_TIME, then LANG. */
    setenv("LANG", "fr_FR.ISO-8859-1", 1);
    EXPECT_EQ(Format(march, "MMMM"), "mars");
    setenv("LC_TIME", "de_DE.UTF-8", 1);
    EXPECT_EQ(Format(march, "MMMM"), "M\xc3\xa4rz");
    setenv("LC_ALL", "ru_RU.UTF-8", 1);
    EXPECT_EQ(Format(march, "EEE"), "\xd0\xa7\xd1\x82");
    /* Empty counts as unset. */
    setenv("LC_ALL", "", 1);
    EXPECT_EQ(Format(march, "MMMM"), "M\xc3\xa4rz");
    /* Other categories don't decide the names. */
    unsetenv("LC_TIME");
    unsetenv("LANG");
    setenv("LC_CTYPE", "de_DE.UTF-8", 1);
    EXPECT_EQ(Format(march, "MMMM"), "March");
    /* A locale that doesn't exist gives the names of "C", not a failure. */
    setenv("LC_ALL", "xx_NOWHERE.UTF-8", 1);
    EXPECT_EQ(Format(march, "EEEE MMMM a"), "Thursday March PM");
    /* The names are looked up at each call. */
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    EXPECT_EQ(Format(march, "EEE"), "Do");
}

} // namespace
