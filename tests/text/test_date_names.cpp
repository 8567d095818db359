/*
 * tests/text/test_date_names.cpp - month, weekday and morning/afternoon
 * names of date patterns in real locales against strftime_l's ("%OB", "%Ob",
 * "%A", "%a", "%p"): German in UTF-8, French in ISO-8859-1 (converted to
 * UTF-8 on the way out, compared through iconv) and Russian, whose months
 * stand alone in another form than inside a date.  The locales are compiled
 * with localedef into a temporary directory named by LOCPATH; where that
 * fails the tests skip with a message.
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
