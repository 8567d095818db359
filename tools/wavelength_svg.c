/*
 * wavelength_svg.c - a spectrum as an SVG plot: every measurement a line of
 * its own colour against wavelength in nm, with ticks, labelled axes and,
 * for a few measurements, a legend.
 */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "host.h"

enum { kWidth = 800, kHeight = 500, kLeft = 80, kRight = 30, kTop = 50, kBottom = 60, kLegendMax = 12 };

/* Ten colours that stay apart from each other on white, then again. */
static const char *const kPalette[] = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd",
                                       "#8c564b", "#e377c2", "#17becf", "#7f7f7f", "#bcbd22"};
enum { kColours = sizeof kPalette / sizeof kPalette[0] };

/* What the values of each type of spectrum are. */
static const char *const kValueNames[] = {"reflectance", "relative power", "transmittance", "value"};

typedef struct Axis {
    double low, high; /* the range drawn */
    double step;      /* between two ticks */
} Axis;

/* A range that holds low and high, widened to whole ticks of 1, 2 or 5
 * times a power of ten, about six of them. */
static Axis NiceAxis(double low, double high) {
    Axis axis;
    if (!(high > low)) {
        double pad = fabs(low) > 0 ? fabs(low) * 0.1 : 0.5;
        low -= pad;
        high += pad;
    }
    double rough = (high - low) / 6, power = pow(10, floor(log10(rough)));
    double steps[] = {1, 2, 5, 10};
    axis.step = power * 10;
    for (int i = 0; i < 4; ++i)
        if (power * steps[i] >= rough) {
            axis.step = power * steps[i];
            break;
        }
    axis.low = floor(low / axis.step) * axis.step;
    axis.high = ceil(high / axis.step) * axis.step;
    return axis;
}

/* Ticks past the first; a bound keeps a degenerate range from running on. */
static int TickCount(const Axis *axis) {
    double count = floor((axis->high - axis->low) / axis->step + 0.5);
    return count < 40 ? (int)count : 40;
}

static double Tick(const Axis *axis, int i) { return axis->low + i * axis->step; }

static double Place(const Axis *axis, double v, double from, double to) {
    return from + (v - axis->low) / (axis->high - axis->low) * (to - from);
}

/* The finite range of count values; false when there is none. */
static int Range(const float *values, size_t count, double *low, double *high) {
    int found = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!isfinite(values[i]))
            continue;
        if (!found || values[i] < *low)
            *low = values[i];
        if (!found || values[i] > *high)
            *high = values[i];
        found = 1;
    }
    return found;
}

/* A tick label: no more digits than the step needs. */
static void TickText(char *text, size_t size, double v, double step) {
    if (fabs(v) < step / 1e6)
        v = 0;
    if (step >= 1e6 || step < 1e-4) {
        snprintf(text, size, "%g", v);
        return;
    }
    int decimals = step >= 1 ? 0 : (int)ceil(-log10(step) - 1e-9);
    snprintf(text, size, "%.*f", decimals, v);
}

static void DrawAxes(const Axis *x, const Axis *y, const char *valueName, FILE *svg) {
    const int right = kWidth - kRight, bottom = kHeight - kBottom;
    char text[32];
    fprintf(svg, "<g stroke=\"#dddddd\" stroke-width=\"1\">\n");
    for (int i = 0; i <= TickCount(x); ++i)
        fprintf(svg, "<line x1=\"%.2f\" y1=\"%d\" x2=\"%.2f\" y2=\"%d\"/>\n", Place(x, Tick(x, i), kLeft, right), kTop,
                Place(x, Tick(x, i), kLeft, right), bottom);
    for (int i = 0; i <= TickCount(y); ++i)
        fprintf(svg, "<line x1=\"%d\" y1=\"%.2f\" x2=\"%d\" y2=\"%.2f\"/>\n", kLeft, Place(y, Tick(y, i), bottom, kTop),
                right, Place(y, Tick(y, i), bottom, kTop));
    fprintf(svg, "</g>\n<g stroke=\"#000000\" stroke-width=\"1.5\" fill=\"none\">\n"
                 "<polyline points=\"%d,%d %d,%d %d,%d\"/>\n</g>\n",
            kLeft, kTop, kLeft, bottom, right, bottom);
    fprintf(svg, "<g font-family=\"sans-serif\" font-size=\"13\" fill=\"#000000\">\n");
    for (int i = 0; i <= TickCount(x); ++i) {
        TickText(text, sizeof text, Tick(x, i), x->step);
        fprintf(svg, "<text x=\"%.2f\" y=\"%d\" text-anchor=\"middle\">%s</text>\n",
                Place(x, Tick(x, i), kLeft, right), bottom + 20, text);
    }
    for (int i = 0; i <= TickCount(y); ++i) {
        TickText(text, sizeof text, Tick(y, i), y->step);
        fprintf(svg, "<text x=\"%d\" y=\"%.2f\" text-anchor=\"end\">%s</text>\n", kLeft - 8,
                Place(y, Tick(y, i), bottom, kTop) + 4, text);
    }
    fprintf(svg, "<text x=\"%d\" y=\"%d\" text-anchor=\"middle\" font-size=\"15\">wavelength (nm)</text>\n",
            (kLeft + right) / 2, kHeight - 15);
    fprintf(svg,
            "<text x=\"20\" y=\"%d\" text-anchor=\"middle\" font-size=\"15\" transform=\"rotate(-90 20 %d)\">%s</text>\n",
            (kTop + bottom) / 2, (kTop + bottom) / 2, valueName);
    fprintf(svg, "</g>\n");
}

/* One measurement: a line through its finite samples (a dot for one). */
static void DrawMeasurement(const Spectrum *s, uint32_t m, const Axis *x, const Axis *y, FILE *svg) {
    const int right = kWidth - kRight, bottom = kHeight - kBottom;
    const float *values = s->values + (size_t)m * s->samples;
    const char *colour = kPalette[m % kColours];
    if (s->samples == 1) {
        if (isfinite(values[0]) && isfinite(s->wavelengths[0]))
            fprintf(svg, "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"4\" fill=\"%s\"/>\n",
                    Place(x, s->wavelengths[0], kLeft, right), Place(y, values[0], bottom, kTop), colour);
        return;
    }
    fprintf(svg, "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"2\" stroke-linejoin=\"round\" points=\"",
            colour);
    for (uint32_t i = 0; i < s->samples; ++i)
        if (isfinite(values[i]) && isfinite(s->wavelengths[i]))
            fprintf(svg, "%s%.2f,%.2f", i == 0 ? "" : " ", Place(x, s->wavelengths[i], kLeft, right),
                    Place(y, values[i], bottom, kTop));
    fprintf(svg, "\"/>\n");
}

static void DrawLegend(const Spectrum *s, FILE *svg) {
    if (s->measurements > kLegendMax)
        return;
    fprintf(svg, "<g font-family=\"sans-serif\" font-size=\"12\">\n"
                 "<rect x=\"%d\" y=\"%d\" width=\"126\" height=\"%u\" fill=\"#ffffff\" fill-opacity=\"0.8\"/>\n",
            kWidth - kRight - 126, kTop + 1, 16 * s->measurements + 4);
    for (uint32_t m = 0; m < s->measurements; ++m) {
        int row = kTop + 8 + 16 * (int)m, left = kWidth - kRight - 120;
        fprintf(svg, "<rect x=\"%d\" y=\"%d\" width=\"14\" height=\"3\" fill=\"%s\"/>\n", left, row - 4,
                kPalette[m % kColours]);
        fprintf(svg, "<text x=\"%d\" y=\"%d\">measurement %u</text>\n", left + 20, row, m + 1);
    }
    fprintf(svg, "</g>\n");
}

/* Text of name with the five characters XML reserves escaped. */
static void PutEscaped(const char *name, FILE *svg) {
    for (; *name != '\0'; ++name) {
        const char *entity = *name == '&' ? "&amp;" : *name == '<' ? "&lt;" : *name == '>' ? "&gt;"
                             : *name == '"' ? "&quot;" : *name == '\'' ? "&apos;" : NULL;
        if (entity != NULL)
            fputs(entity, svg);
        else
            fputc(*name, svg);
    }
}

void SpectrumWriteSvg(const Spectrum *s, FILE *svg) {
    double xLow = 0, xHigh = 1, yLow = 0, yHigh = 1;
    Range(s->wavelengths, s->samples, &xLow, &xHigh);
    Range(s->values, (size_t)s->measurements * s->samples, &yLow, &yHigh);
    if (yLow > 0 && yLow < yHigh / 2)
        yLow = 0; /* values of one sign read best from zero */
    Axis x = NiceAxis(xLow, xHigh), y = NiceAxis(yLow, yHigh);
    fprintf(svg, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\">\n"
                 "<rect width=\"%d\" height=\"%d\" fill=\"#ffffff\"/>\n",
            kWidth, kHeight, kWidth, kHeight, kWidth, kHeight);
    fprintf(svg, "<text x=\"%d\" y=\"30\" font-family=\"sans-serif\" font-size=\"16\" text-anchor=\"middle\">",
            kWidth / 2);
    PutEscaped(s->name != NULL ? s->name : "spectrum", svg);
    fprintf(svg, ": %u %s spectra of %u samples</text>\n", s->measurements, __HVHdrSpectralTypeName(s->type),
            s->samples);
    DrawAxes(&x, &y, kValueNames[s->type < 3 ? s->type : 3], svg);
    for (uint32_t m = 0; m < s->measurements; ++m)
        DrawMeasurement(s, m, &x, &y, svg);
    DrawLegend(s, svg);
    fprintf(svg, "</svg>\n");
}
