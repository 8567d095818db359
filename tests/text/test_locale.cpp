/*
 * tests/text/test_locale.cpp - the fixed and the user locale records while
 * the engine runs: lazy filling from the process's locale (LC_ALL,
 * LC_NUMERIC, LANG; locales of our own compiled with localedef into a
 * directory named by LOCPATH), setting by the program, and the cleanup at
 * the last HalvernEnd.
 */
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "temp_dir.h"
#include "text/print_support.h"

/* The C library's newlocale keeps the search path it builds from LOCPATH
 * (glibc 2.36); that is its own memory, not the engine's. */
extern "C" const char *__lsan_default_suppressions() {
    return "leak:__argz_add_sep\n";
}

namespace {

/* Each test runs inside one engine start, so that what it fills is cleaned
 * up again by its HalvernEnd. */
class UserLocale : public ::testing::Test {
protected:
    void SetUp() override {
        ClearLocaleVariables();
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
            const std::string command = "localedef -c -i " + file + " -f " + source.charmap + " " +
                                        root.File(source.name) + " >/dev/null 2>&1";
            (void)std::system(command.c_str());
            if (root.path().empty() || !std::filesystem::exists(root.File(source.name) + "/LC_NUMERIC"))
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

} // namespace
