/*
 * tests/text/test_date_zone_id.cpp - the zone identifier that "ZZZ" prints
 * for a local date: from TZ, and from the system's configuration when TZ
 * is not set, Windows zone names translated.
 *
 * The identifier is worked out once a process, so every case runs in a
 * child process of its own.  The system's configuration is changed only
 * inside a private mount namespace of the child, where a directory of our
 * own is mounted over /etc; where the machine doesn't allow that, those
 * cases skip with a message.
 */
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "text/date_support.h"

namespace {

using date_test::InChild;

/* The C library's zone in every child: an hour west of Greenwich, so that
 * local dates keep a zoneOffset other than 0 and "ZZZ" prints the
 * identifier rather than "UTC". */
constexpr const char *kLocalZone = "<-01>1";

/* "ZZZ" of a local date, formatted in a child after `prepare` has run
 * there.  Twice: the second call must give the kept text. */
date_test::ChildResult Identifier(const std::function<bool()> &prepare) {
    return InChild([&]() -> std::string {
        if (!prepare())
            return "<prepare failed>";
        tzset();
        HalvDate date;
        HalvMakeDate(&date, 0, 1767268800000);
        const std::string first = date_test::Format(date, "ZZZ");
        HalvSetenv("TZ", "Asia/Tokyo");
        return first + "|" + date_test::Format(date, "'['ZZZZZ']'");
    });
}

/* TZ as the library sees it (through HalvGetenv), the C library's zone
 * kept at kLocalZone. */
date_test::ChildResult IdentifierForTz(const char *tz) {
    return Identifier([tz] {
        setenv("TZ", kLocalZone, 1);
        return HalvSetenv("TZ", tz) == 1;
    });
}

TEST(DateZoneIdentifier, FromTz) {
    struct Case {
        const char *tz;
        const char *identifier;
    } cases[] = {
        {"Europe/Berlin", "Europe/Berlin"},
        {":America/New_York", "America/New_York"}, /* the POSIX mark goes */
        {"::Odd", ":Odd"},                         /* only one */
        {"'Pacific/Chatham'", "Pacific/Chatham"},  /* quotes go */
        {"\"Asia/Kolkata\"", "Asia/Kolkata"}, {"CET-1CEST,M3.5.0,M10.5.0/3", "CET-1CEST,M3.5.0,M10.5.0/3"},
        {"W. Europe Standard Time", "W. Europe Standard Time"}, /* the table is for the system's name only */
        {"Nowhere/Atlantis", "Nowhere/Atlantis"},
    };
    for (const Case &c : cases) {
        const date_test::ChildResult result = IdentifierForTz(c.tz);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, std::string(c.identifier) + "|[" + c.identifier + "]") << "TZ=" << c.tz;
    }
    /* A TZ longer than the kept text is cut to 255 bytes. */
    const std::string longName = "Zone/" + std::string(400, 'x');
    const std::string cut = longName.substr(0, 255);
    EXPECT_EQ(IdentifierForTz(longName.c_str()).out, cut + "|[" + cut + "]");
    /* TZ of the process itself, which the C library reads too.  (A UTC
     * date's "UTC" is checked in test_date_zones.) */
    const date_test::ChildResult result = Identifier([] { return setenv("TZ", ":America/New_York", 1) == 0; });
    EXPECT_EQ(result.out, "America/New_York|[America/New_York]");
}

/* What the system names as its zone, read as the library should. */
std::string SystemZone() {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink("/etc/localtime", error).string();
    const size_t at = target.rfind("zoneinfo/");
    if (!error && at != std::string::npos)
        return target.substr(at + 9);
    std::ifstream file("/etc/timezone");
    std::string line;
    std::getline(file, line);
    return line;
}

TEST(DateZoneIdentifier, SystemZoneWhenTzIsUnset) {
    const date_test::ChildResult result = Identifier([] { return unsetenv("TZ") == 0; });
    /* A local date of a zone whose standard time is UTC counts as UTC. */
    unsetenv("TZ");
    const std::string expected = date_test::StandardOffset() == 0 ? "UTC" : SystemZone();
    EXPECT_EQ(result.out.substr(0, result.out.find('|')), expected);
}

/* Mounts a directory of our own over /etc inside a private mount
 * namespace of this (child) process; false where that isn't allowed. */
bool PrivateEtc(const std::string &directory) {
    if (unshare(CLONE_NEWNS) != 0)
        return false;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    return mount(directory.c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0;
}

/* A directory that stands in for /etc.  Zone data for the C library is a
 * copy of Europe/Berlin under names of our choosing, so that local dates
 * keep their offset whatever name the configuration gives. */
class SystemConfiguration : public ::testing::Test {
protected:
    void SetUp() override {
        if (access(kZoneData, R_OK) != 0)
            GTEST_SKIP() << kZoneData << " is not installed (package tzdata)";
        char pattern[] = "/tmp/halv_etc_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        etc_ = pattern;
        const date_test::ChildResult probe = InChild([this] { return PrivateEtc(etc_) ? "yes" : "no"; });
        if (probe.out != "yes")
            GTEST_SKIP() << "no private mount namespace here (needs CAP_SYS_ADMIN)";
    }
    void TearDown() override {
        if (!etc_.empty())
            std::filesystem::remove_all(etc_);
    }
    static constexpr const char *kZoneData = "/usr/share/zoneinfo/Europe/Berlin";
    std::string etc_;
};

/* One configuration a row: /etc/localtime as a link to zone data at a path
 * under /etc, or a plain file (no name to read from it), or none; and
 * /etc/timezone's text, or none. */
TEST_F(SystemConfiguration, WhereTheIdentifierComesFrom) {
    const struct {
        const char *link; /* "" for a plain file */
        const char *timezone;
        const char *identifier;
    } rows[] = {
        /* The link comes first; the text behind its last "zoneinfo/" counts; Windows names translated. */
        {"share/zoneinfo/America/Sao_Paulo", "Europe/Paris\n", "America/Sao_Paulo"},
        {"zoneinfo/share/zoneinfo/posix/Asia/Tokyo", nullptr, "posix/Asia/Tokyo"},
        {"zoneinfo/W. Europe Standard Time", nullptr, "Europe/Berlin"},
        {"", "Tokyo Standard Time\r\nsecond line\n", "Asia/Tokyo"}, {"", "America/Bogota", "America/Bogota"},
        {"else/Berlin", "Singapore Standard Time\n", "Asia/Singapore"}, /* a link outside zoneinfo */
        {"", nullptr, ""},                                                /* nothing names the zone */
        /* Exact comparison: another case is no match and stays as it is. */
        {"", "w. europe standard time\n", "w. europe standard time"},
        /* The first and the last row, and two names of one identifier. */
        {"", "AUS Central Standard Time\n", "Australia/Darwin"},
        {"", "Yakutsk Standard Time\n", "Asia/Yakutsk"},
        {"", "Mexico Standard Time\n", "America/Mexico_City"},
        {"", "Central Standard Time (Mexico)\n", "America/Mexico_City"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.link) + " | " + (row.timezone ? row.timezone : "-"));
        for (const auto &entry : std::filesystem::directory_iterator(etc_))
            std::filesystem::remove_all(entry.path());
        const std::string data = etc_ + "/" + (*row.link ? row.link : "localtime");
        std::filesystem::create_directories(std::filesystem::path(data).parent_path());
        std::filesystem::copy_file(kZoneData, data);
        if (*row.link)
            std::filesystem::create_symlink(std::string("/etc/") + row.link, etc_ + "/localtime");
        if (row.timezone != nullptr)
            std::ofstream(etc_ + "/timezone") << row.timezone;
        const date_test::ChildResult result =
            Identifier([this] { return unsetenv("TZ") == 0 && PrivateEtc(etc_); });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out.substr(0, result.out.find('|')), row.identifier);
    }
}

} // namespace
