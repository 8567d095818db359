// A reader of the PNG files that rsvg-convert writes (8-bit RGB or RGBA,
// not interlaced), so that a test can look at the pixels a real renderer
// drew.  zlib inflates; the rest is the five row filters that PNG
// defines.
#ifndef HALV_TESTS_TOOLS_PNG_READER_H
#define HALV_TESTS_TOOLS_PNG_READER_H

#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace png {

struct Image {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> rgba; // 4 bytes a pixel, row after row
    std::string error;         // empty when the file was read

    const uint8_t *At(uint32_t x, uint32_t y) const { return &rgba[((size_t)y * width + x) * 4]; }
};

inline uint32_t Word(const std::string &b, size_t at) {
    return (uint32_t)(uint8_t)b[at] << 24 | (uint32_t)(uint8_t)b[at + 1] << 16 | (uint32_t)(uint8_t)b[at + 2] << 8 |
           (uint8_t)b[at + 3];
}

inline uint8_t Paeth(int a, int b, int c) {
    int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return (uint8_t)(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

inline Image Read(const std::string &file) {
    Image image;
    if (file.size() < 8 || file.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0)
        return image.error = "no PNG signature", image;
    std::string idat;
    uint32_t channels = 0;
    for (size_t at = 8; at + 12 <= file.size();) {
        uint32_t length = Word(file, at);
        std::string type = file.substr(at + 4, 4);
        if (at + 12 + length > file.size())
            return image.error = "chunk runs past the end", image;
        if (type == "IHDR") {
            image.width = Word(file, at + 8);
            image.height = Word(file, at + 12);
            uint8_t depth = (uint8_t)file[at + 16], colour = (uint8_t)file[at + 17];
            uint8_t interlace = (uint8_t)file[at + 20];
            if (depth != 8 || (colour != 2 && colour != 6) || interlace != 0)
                return image.error = "not 8-bit RGB(A) without interlace", image;
            channels = colour == 6 ? 4 : 3;
        } else if (type == "IDAT") {
            idat += file.substr(at + 8, length);
        } else if (type == "IEND") {
            break;
        }
        at += 12 + length;
    }
    if (channels == 0)
        return image.error = "no IHDR", image;
    size_t stride = (size_t)image.width * channels;
    std::vector<uint8_t> raw((stride + 1) * image.height);
    uLongf rawSize = raw.size();
    if (uncompress(raw.data(), &rawSize, reinterpret_cast<const Bytef *>(idat.data()), idat.size()) != Z_OK ||
        rawSize != raw.size())
        return image.error = "IDAT doesn't inflate to the image's size", image;
    std::vector<uint8_t> previous(stride, 0), row(stride);
    image.rgba.resize((size_t)image.width * image.height * 4);
    for (uint32_t y = 0; y < image.height; ++y) {
        const uint8_t *line = &raw[y * (stride + 1)];
        for (size_t i = 0; i < stride; ++i) {
            int a = i >= channels ? row[i - channels] : 0, b = previous[i], c = i >= channels ? previous[i - channels] : 0;
            int predictor[] = {0, a, b, (a + b) / 2, Paeth(a, b, c)};
            if (line[0] > 4)
                return image.error = "unknown row filter", image;
            row[i] = (uint8_t)(line[1 + i] + predictor[line[0]]);
        }
        for (uint32_t x = 0; x < image.width; ++x)
            for (uint32_t k = 0; k < 4; ++k)
                image.rgba[((size_t)y * image.width + x) * 4 + k] = k < channels ? row[x * channels + k] : 255;
        previous = row;
    }
    return image;
}

} // namespace png

#endif
