/*
 * headers/window.cpp - conversions between fractional and pixel windows,
 * and cropping a pixel window to the image.
 *
 * Near edges round with 0.4999 and far edges with 0.5: a near edge a hair
 * above a half rounds down where a far edge would round up.  Stored windows
 * depend on these exact constants.
 */
#include <cstdint>

#include "halv_headers.h"

namespace {

double AsUnsigned(int32_t value) { return (double)(uint32_t)value; }

int32_t NearEdge(double fraction, double size) {
    double position = fraction * size;
    position += fraction < 0.0 ? -0.4999 : 0.4999;
    return (int32_t)position;
}

int32_t FarEdgeLength(double start, double extent, double size, int32_t near) {
    int64_t far = (int64_t)((start + extent) * size + 0.5);
    return (int32_t)((uint32_t)far - (uint32_t)near);
}

int32_t Clamp(int32_t value, int32_t limit, int &result) {
    int32_t clamped = value < 0 ? 0 : value > limit ? limit : value;
    if (clamped != value)
        result = 2;
    return clamped;
}

} // namespace

extern "C" {

HALV_API int HalvFWinToWin(int32_t width, int32_t height, const double *fwin, int32_t *win) noexcept {
    if (fwin[2] < 0.0 || fwin[3] < 0.0)
        return 0;
    double w = AsUnsigned(width), h = AsUnsigned(height);
    win[0] = NearEdge(fwin[0], w);
    win[1] = NearEdge(fwin[1], h);
    win[2] = FarEdgeLength(fwin[0], fwin[2], w, win[0]);
    win[3] = FarEdgeLength(fwin[1], fwin[3], h, win[1]);
    return 1;
}

HALV_API int HalvWinToFWin(int32_t width, int32_t height, const int32_t *win, double *fwin) noexcept {
    if (width == 0 || height == 0)
        return 0;
    double w = AsUnsigned(width), h = AsUnsigned(height);
    fwin[0] = (double)win[0] / w;
    fwin[1] = (double)win[1] / h;
    fwin[2] = AsUnsigned(win[2]) / w;
    fwin[3] = AsUnsigned(win[3]) / h;
    return 1;
}

HALV_API int HalvCropWin(int32_t width, uint32_t height, int32_t *win) noexcept {
    if (width == 0 || height == 0)
        return 0;
    int result = 1;
    int32_t limitY = (int32_t)height;
    int32_t x0 = win[0], y0 = win[1];
    int32_t x1 = (int32_t)((uint32_t)x0 + (uint32_t)win[2]);
    int32_t y1 = (int32_t)((uint32_t)y0 + (uint32_t)win[3]);
    x0 = Clamp(x0, width, result);
    x1 = Clamp(x1, width, result);
    y0 = Clamp(y0, limitY, result);
    y1 = Clamp(y1, limitY, result);
    if (x1 < x0) {
        x1 = x0;
        result = 2;
    }
    if (y1 < y0) {
        y1 = y0;
        result = 2;
    }
    if (result == 2) {
        win[0] = x0;
        win[1] = y0;
        win[2] = x1 - x0;
        win[3] = y1 - y0;
    }
    return result;
}

} // extern "C"
