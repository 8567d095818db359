// Names with the URL scheme reach the URL stream, from HalvIO_FileName and
// from HalvFindFile.  This program brings its own HalvIO_URL, a stream over
// one document, in place of the socket back end: the library calls
// whichever HalvIO_URL the process has.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "streams/file_fixture.h"

using namespace files_test;

namespace {

struct UrlCall {
    std::string url, mode;
};
std::vector<UrlCall> calls;

} // namespace

extern "C" HalvIO *HalvIO_URL(const char *url, const char *mode) noexcept {
    calls.push_back({url, mode});
    static char document[] = "document";
    return std::string(url) == "http://example.test/data/hit.dot" ? HalvIO_Str(document, sizeof document - 1)
                                                                  : nullptr;
}

TEST(UrlRoute, FileNamesWithTheSchemeInAnyCaseOpenUrlsNeverFiles) {
    ScratchDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    // As file names these would name files under the directories "HTTP:"
    // and "ftp:"; only the latter are files.
    for (const char *name : {"HTTP:/Example.test/x", "ftp:/example.test/x"}) {
        std::error_code ignored;
        fs::create_directories(fs::path(name).parent_path(), ignored);
        ASSERT_TRUE(WriteFile(name, "file"));
    }
    calls.clear();
    HalvIO *io = HalvIO_FileName("http://example.test/data/hit.dot", "rb");
    ASSERT_NE(io, nullptr);
    char text[16] = {};
    EXPECT_EQ(HalvIOReadBytes(io, text, 15), 8);
    EXPECT_STREQ(text, "document");
    io->close(io);
    EXPECT_EQ(HalvIO_FileName("HTTP://Example.test/x", "wb"), nullptr);
    EXPECT_EQ(HalvIO_FileName("hTtP://Example.test/x", "rb"), nullptr);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].url, "HTTP://Example.test/x");
    EXPECT_EQ(calls[1].mode, "wb");
    EXPECT_EQ(calls[2].url, "hTtP://Example.test/x");
    // Other schemes and plain names never reach it.
    EXPECT_EQ(HalvIO_FileName("https://example.test/data/hit.dot", "rb"), nullptr);
    EXPECT_EQ(HalvIO_FileName("/no/such/http://x", "rb"), nullptr);
    io = HalvIO_FileName("ftp://example.test/x", "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(HalvIOReadBytes(io, text, 15), 4);
    io->close(io);
    EXPECT_EQ(calls.size(), 3u);
    ASSERT_EQ(chdir("/"), 0);
}

TEST(UrlRoute, SearchFindsUrlsOnlyWhenNoFileIsThere) {
    ScratchDir dir;
    calls.clear();
    HalvSetenv("HV_OS", "");
    HalvSetenv("HALV_URL_ROOT", "http://example.test/data");
    // A URL element is tried after the file test and found through the URL
    // stream, which is closed again at once.
    const std::string path = dir.path() + ",${HALV_URL_ROOT}";
    char *found = HalvFindFile("hit", "dot", path.c_str());
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found, "http://example.test/data/hit.dot");
    halv_internal_free(found);
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back().mode, "rb");
    // Plain directories never ask the URL stream.
    calls.clear();
    ASSERT_TRUE(WriteFile(dir / "hit.dot", ""));
    found = HalvFindFile("hit", "dot", path.c_str());
    EXPECT_EQ(std::string(found), dir / "hit.dot");
    halv_internal_free(found);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(HalvFindFile("miss", "dot", "${HALV_URL_ROOT}"), nullptr);
    EXPECT_EQ(calls.size(), 2u); // both suffixes tried
    HalvSetenv("HALV_URL_ROOT", nullptr);
    HalvSetenv("HV_OS", nullptr);
}
