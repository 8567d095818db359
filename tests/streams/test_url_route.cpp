// Names with the URL scheme reach the URL stream, from HalvIO_FileName and
// from HalvFindFile.  This program brings its own HalvIO_URL, a stream over
// a small table of documents, in place of the socket back end: the library
// calls whichever HalvIO_URL the process has.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "streams/file_fixture.h"

using namespace files_test;

namespace {

struct UrlCall {
    std::string url, mode;
};

std::vector<UrlCall> &Calls() {
    static std::vector<UrlCall> calls;
    return calls;
}

bool Served(const std::string &url) { return url == "http://example.test/data/hit.dot"; }

} // namespace

extern "C" HalvIO *HalvIO_URL(const char *url, const char *mode) noexcept {
    Calls().push_back({url, mode});
    if (!Served(url))
        return nullptr;
    static char document[] = "document";
    return HalvIO_Str(document, sizeof document - 1);
}

TEST(UrlRoute, FileNamesWithTheSchemeOpenUrls) {
    Calls().clear();
    HalvIO *io = HalvIO_FileName("http://example.test/data/hit.dot", "rb");
    ASSERT_NE(io, nullptr);
    char text[16] = {};
    EXPECT_EQ(HalvIOReadBytes(io, text, 15), 8);
    EXPECT_STREQ(text, "document");
    io->close(io);
    EXPECT_EQ(HalvIO_FileName("HTTP://Example.test/x", "wb"), nullptr);
    ASSERT_EQ(Calls().size(), 2u);
    EXPECT_EQ(Calls()[1].url, "HTTP://Example.test/x");
    EXPECT_EQ(Calls()[1].mode, "wb");
    // Other schemes and plain names never reach it.
    EXPECT_EQ(HalvIO_FileName("https://example.test/data/hit.dot", "rb"), nullptr);
    EXPECT_EQ(HalvIO_FileName("/no/such/http://x", "rb"), nullptr);
    EXPECT_EQ(Calls().size(), 2u);
}

TEST(UrlRoute, SearchFindsUrlsOnlyWhenNoFileIsThere) {
    ScratchDir dir;
    Calls().clear();
    HalvSetenv("HV_OS", "");
    HalvSetenv("HALV_URL_ROOT", "http://example.test/data");
    // A URL element is tried after the file test and found through the URL
    // stream, which is closed again at once.
    char *found = HalvFindFile("hit", "dot", (dir.path() + ",${HALV_URL_ROOT}").c_str());
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found, "http://example.test/data/hit.dot");
    halv_internal_free(found);
    ASSERT_FALSE(Calls().empty());
    EXPECT_EQ(Calls().back().mode, "rb");
    // Plain directories never ask the URL stream.
    Calls().clear();
    ASSERT_TRUE(WriteFile(dir / "hit.dot", ""));
    found = HalvFindFile("hit", "dot", (dir.path() + ",${HALV_URL_ROOT}").c_str());
    EXPECT_EQ(std::string(found), dir / "hit.dot");
    halv_internal_free(found);
    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(HalvFindFile("miss", "dot", "${HALV_URL_ROOT}"), nullptr);
    EXPECT_EQ(Calls().size(), 2u); // both suffixes tried
    HalvSetenv("HALV_URL_ROOT", nullptr);
    HalvSetenv("HV_OS", nullptr);
}
