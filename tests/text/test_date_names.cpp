/*
 * tests/text/test_date_names.cpp - month, weekday and morning/afternoon
 * names of date patterns in real locales: German in UTF-8, French in
 * ISO-8859-1 (converted to UTF-8 on the way out) and Russian, whose months
 * stand alone in another form than inside a date.
 *
 * The locales are compiled from the C library's sources with localedef
 * into a temporary directory named by LOCPATH, so the test doesn't depend
 * on what the machine has generated; where localedef can't make them it
 * skips with a message.  The expected names come from strftime_l in the
 * same locale ("%OB", "%Ob", "%A", "%a", "%p"), converted with iconv.
 */
#include <gtest/gtest.h>

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "text/date_support.h"

/* The C library's newlocale keeps the search path it builds from LOCPATH
 * (glibc 2.36); that is its own memory, not the library's. */
extern "C" const char *__lsan_default_suppressions() {
    return "leak:__argz_add_sep\n";
}

namespace {

using date_test::Date;
using date_test::Format;

constexpr const char *kLocales[] = {"de_DE.UTF-8", "fr_FR.ISO-8859-1", "ru_RU.UTF-8"};

/* The test locales, compiled once for the whole program. */
class Locales : public ::testing::Environment {
public:
    static std::string directory;

    void SetUp() override {
        char pattern[] = "/tmp/halv_date_locales_XXXXXX";
        if (mkdtemp(pattern) == nullptr)
            return;
        root_ = pattern;
        for (const std::string name : kLocales) {
            const std::string source = name.substr(0, name.find('.'));
            const std::string charmap = name.substr(name.find('.') + 1);
            const std::string command =
                "localedef -i " + source + " -f " + charmap + " " + root_ + "/" + name + " >/dev/null 2>&1";
            (void)std::system(command.c_str());
            if (!std::filesystem::exists(root_ + "/" + name + "/LC_TIME"))
                return;
        }
        directory = root_;
    }
    void TearDown() override {
        if (!root_.empty())
            std::filesystem::remove_all(root_);
    }

private:
    std::string root_;
};

std::string Locales::directory;

const auto *const kEnvironment = ::testing::AddGlobalTestEnvironment(new Locales);

class DateNames : public ::testing::Test {
protected:
    void SetUp() override {
        if (Locales::directory.empty())
            GTEST_SKIP() << "localedef could not make the test locales (package locales)";
        setenv("LOCPATH", Locales::directory.c_str(), 1);
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

/* strftime_l of one directive in the named locale, as UTF-8. */
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
                const time_t t = 0;
                struct tm record;
                gmtime_r(&t, &record);
                record.tm_year = date.year - 1900;
                record.tm_mon = date.month - 1;
                record.tm_mday = date.day;
                record.tm_hour = date.hour;
                record.tm_wday = date.weekDay;
                record.tm_yday = date.yearDay;
                EXPECT_EQ(Format(date, "MMMM|MMM|EEEE|EEE|E|a"),
                          Expected(locale, "%OB", record) + "|" + Expected(locale, "%Ob", record) + "|" +
                              Expected(locale, "%A", record) + "|" + Expected(locale, "%a", record) + "|" +
                              Expected(locale, "%a", record) + "|" + Expected(locale, "%p", record))
                    << "month " << month;
            }
        }
    }
}

TEST_F(DateNames, KnownNames) {
    const HalvDate march = Date(2026, 3, 5, 15); /* a Thursday afternoon */
    const HalvDate august = Date(2026, 8, 5, 15);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    EXPECT_EQ(Format(march, "EEEE, d. MMMM yyyy"), "Donnerstag,  5. M\xc3\xa4rz 2026");
    /* No afternoon text in German: the field is empty, not a failure. */
    EXPECT_EQ(Format(march, "[a]"), "[]");
    setenv("LC_ALL", "fr_FR.ISO-8859-1", 1);
    EXPECT_EQ(Format(august, "EEEE dd MMMM"), "mercredi 05 ao\xc3\xbbt");
    EXPECT_EQ(Format(Date(2026, 2, 1), "MMMM"), "f\xc3\xa9vrier");
    setenv("LC_ALL", "ru_RU.UTF-8", 1);
    /* The month standing alone: "Март", not "марта" as inside a date. */
    EXPECT_EQ(Format(march, "MMMM"), "\xd0\x9c\xd0\xb0\xd1\x80\xd1\x82");
    /* The C locale. */
    setenv("LC_ALL", "C", 1);
    EXPECT_EQ(Format(march, "EEE MMM a|EEEE MMMM"), "Thu Mar PM|Thursday March");
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
