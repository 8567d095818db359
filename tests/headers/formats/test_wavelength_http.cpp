// Spectra through http:// URLs: written with a PUT to a server on
// 127.0.0.1, which keeps the body, and read back from it with a GET, in
// both versions, through the same calls as a file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/wavelength_support.h"
#include "streams/peer.h"

using namespace spectral_test;

TEST(SpectralHttp, RoundTripThroughAUrl) {
    for (const char *version : {"1.0-ascii", "1.0-binary"}) {
        SCOPED_TRACE(version);
        std::vector<float> values = AsPrinted(Values(81, 6));
        HVHdrManager m = Manager(version);

        // Up: header and three chunks of two measurements, each write one
        // chunk of the upload.
        peer::Server server;
        server.Receive();
        HalvIO *up = HalvIO_FileName(server.Url("/spectra/patches.hvs").c_str(), "w");
        ASSERT_NE(up, nullptr);
        HalvHeaderStruct *h = MakeHeader(m, 81, 6, 380.0f, 5.0f);
        ASSERT_EQ(HVHdrWrite_Header(h, &m, up), 1);
        for (uint32_t i = 0; i < 3; ++i) {
            HalvChunk c{0, 0, 2, 2 * 81 * 4, 2 * 81 * 4, 0, values.data() + i * 2 * 81};
            ASSERT_EQ(HVHdrFromChunk(m, h, &c, up), 1);
        }
        up->close(up);
        server.Join();
        std::string request = server.request();
        size_t body = request.find("\r\n\r\n");
        ASSERT_NE(body, std::string::npos);
        EXPECT_EQ(request.rfind("PUT /spectra/patches.hvs HTTP/1.1\r\n", 0), 0u);
        peer::Dechunked stored = peer::Dechunk(std::string_view(request).substr(body + 4));
        ASSERT_TRUE(stored.ok);
        std::string expected = Write(h, m, values, 6);
        EXPECT_EQ(stored.body, expected);
        h->free(h);

        // Down: the same bytes served back, read as any file is.
        peer::Server again;
        again.Respond(peer::Response("Content-Length: " + std::to_string(stored.body.size()) + "\r\n", stored.body));
        HalvIO *down = HalvIO_FileName(again.Url("/spectra/patches.hvs").c_str(), "r");
        ASSERT_NE(down, nullptr);
        HVHdrManager read{};
        HalvHeaderStruct *back = nullptr;
        ASSERT_EQ(HVHdrRead_Header(down, &read, &back), 1);
        EXPECT_EQ(read.loadChunk, m.loadChunk);
        EXPECT_EQ(back->dims[0], 81u);
        EXPECT_EQ(__HVHdrSpectralWavelength(back, 80), 780.0f);
        std::vector<Load> loads = LoadAll(read, back, down, 4);
        EXPECT_EQ(loads.back().flags & HALV_CHUNK_END, HALV_CHUNK_END);
        EXPECT_EQ(Samples(loads), values);
        back->free(back);
        down->close(down);
        again.Join();
    }
}
