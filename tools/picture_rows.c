/*
 * picture_rows.c - stored images seen as pictures and back: which stored
 * images are pictures, their scanlines as rows of the common layout, and
 * the stored header that a picture is imported under.
 */
#include <string.h>

#include "picture.h"

int PictureFromImage(const Image *image, PictureInfo *info) {
    if (ImageCheckRaster(image) != kExitOk)
        return kExitFailed;
    const HalvHeaderStruct *h = image->header;
    memset(info, 0, sizeof *info);
    info->width = image->width;
    info->height = image->height;
    info->colours = h->parts[0];
    info->alpha = h->parts[1];
    info->bits = ImageCommonBits(image);
    if ((info->colours != 1 && info->colours != 3) || info->alpha > 1 || h->parts[2] != 0)
        return Complain("%s has %u colour, %u mask and %u other separations; a picture has 1 or 3 colours and at "
                        "most one alpha",
                        image->path, h->parts[0], h->parts[1], h->parts[2]);
    if (info->bits == 0)
        return Complain("%s has separations of different depths; a picture has one depth", image->path);
    if (info->bits != 8 && info->bits != 16)
        return Complain("%s has %u-bit samples; pictures are written from 8 or 16 bits", image->path, info->bits);
    if (info->height == 0)
        return Complain("%s doesn't say how many scanlines it has, and a picture's header must", image->path);
    return PictureCheck(image->path, info);
}

void PictureRowFromLine(const Image *image, const PictureInfo *info, const unsigned char *line, unsigned char *row) {
    const HalvHeaderStruct *h = image->header;
    uint32_t samples = PictureSamples(info), bytes = info->bits / 8;
    if (h->interleave == 1) {
        memcpy(row, line, PictureRowBytes(info));
        return;
    }
    /* Scanline interleave: separation after separation, each on its own
     * byte count; gather every pixel's samples. */
    uint32_t offset = 0;
    for (uint32_t s = 0; s < samples; offset += h->bytesPerSep[s], ++s) {
        const unsigned char *from = line + offset;
        unsigned char *to = row + (size_t)s * bytes;
        size_t step = (size_t)samples * bytes;
        for (uint32_t p = 0; p < info->width; ++p, from += bytes, to += step)
            memcpy(to, from, bytes);
    }
}

HalvHeaderStruct *PictureHeader(const PictureInfo *info, const char *format, int byteOrder, HVHdrManager *manager) {
    const char *version = WritableVersion(format, NULL);
    HalvHeaderStruct *header = NULL;
    if (version == NULL || strcmp(format, "spectral") == 0 || HVHdrGetManager_Str(format, version, manager) != 1 ||
        HVHdrCreateHeader(*manager, &header) != 1 || header == NULL) {
        Complain("pictures are imported as internal or image-ext images, not %s", format);
        return NULL;
    }
    header->parts[0] = info->colours;
    header->parts[1] = info->alpha;
    header->parts[2] = 0;
    for (uint32_t s = 0; s < PictureSamples(info); ++s)
        header->bitsPerSample[s] = info->bits;
    header->dimCount = 2;
    header->dims[0] = info->width;
    header->dims[1] = info->height;
    header->interleave = 1;
    header->endian = byteOrder;
    /* The field's pictures are sRGB unless they say otherwise; its grey
     * counterpart is sLum. */
    header->color = HalvStr2Clr(info->colours == 3 ? "sRGB" : "sLum");
    HalvHeaderFillInBytes(header);
    return header;
}

void PictureSwapRows(const PictureInfo *info, unsigned char *rows, uint32_t count) {
    if (info->bits != 16)
        return;
    size_t bytes = PictureRowBytes(info) * count;
    for (size_t i = 0; i + 1 < bytes; i += 2) {
        unsigned char t = rows[i];
        rows[i] = rows[i + 1];
        rows[i + 1] = t;
    }
}
