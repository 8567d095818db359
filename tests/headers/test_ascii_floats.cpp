// Float samples as text against glibc itself: every float written by the
// codec must be the text of snprintf(" %g"), and every token read must be
// the float of sscanf("%lf") narrowed, bit for bit.  Millions of floats of
// every exponent, the neighbours of every power of ten, the exact ties of
// the sixth digit, and decimals of every shape.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

/* The codec's text of values, one " %g" after the other. */
std::string Written(const std::vector<float> &values) {
    HalvIO *out = HalvIO_Mem(0);
    for (float v : values)
        EXPECT_EQ(__HVHdrWriteAsciiFloat(out, &v), 0);
    std::string text(static_cast<const char *>(HalvIOMemBuffer(out)), HalvIOMemLength(out));
    out->close(out);
    return text;
}

std::string Glibc(const std::vector<float> &values) {
    std::string text;
    char number[64];
    for (float v : values) {
        std::snprintf(number, sizeof number, " %g", (double)v);
        text += number;
    }
    return text;
}

/* Compares the two texts value by value, naming the first few that differ. */
void ExpectSameText(const std::vector<float> &values) {
    std::string ours = Written(values), theirs = Glibc(values);
    if (ours == theirs)
        return;
    int shown = 0;
    char number[64];
    for (float v : values) {
        std::snprintf(number, sizeof number, " %g", (double)v);
        std::string one = Written({v});
        if (one != number && shown++ < 10)
            ADD_FAILURE() << "float " << std::hexfloat << v << ": " << one << " against " << number;
    }
    EXPECT_GT(shown, 0) << "the texts differ but no single value does";
}

uint32_t Bits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

/* Each token read by the codec against sscanf("%lf") narrowed. */
void ExpectSameFloats(const std::vector<std::string> &tokens) {
    std::string text;
    for (const std::string &t : tokens)
        text += t + "\n";
    HalvIO *in = HalvIO_Str(text.data(), (uint32_t)text.size());
    int shown = 0;
    for (const std::string &t : tokens) {
        float ours = -12345.0f;
        int result = __HVHdrReadAsciiFloat(in, &ours);
        double d = 0;
        bool scanned = std::sscanf(t.c_str(), "%lf", &d) == 1;
        bool bothNan = std::isnan(ours) && std::isnan(d);
        bool same = scanned ? result == 0 && (Bits(ours) == Bits((float)d) || bothNan)
                            : result == 1 && ours == -12345.0f;
        if (!same && shown++ < 10)
            ADD_FAILURE() << "\"" << t << "\": " << result << " " << ours << " against " << scanned << " "
                          << (float)d;
    }
    in->close(in);
}

/* The values written, and every stride-th one's "%g" text read back. */
void ExpectBothWays(const std::vector<float> &values, size_t stride) {
    ExpectSameText(values);
    std::vector<std::string> tokens;
    char number[64];
    for (size_t i = 0; i < values.size(); i += stride) {
        std::snprintf(number, sizeof number, "%g", (double)values[i]);
        tokens.push_back(number);
    }
    ExpectSameFloats(tokens);
}

TEST(AsciiFloats, RandomBitsOfEveryExponentAndValuesOfMeasurements) {
    std::mt19937 random(20240607);
    std::vector<float> values;
    for (int i = 0; i < 1500000; ++i) {
        uint32_t bits = random();
        float f;
        std::memcpy(&f, &bits, sizeof f);
        values.push_back(f);
    }
    ExpectBothWays(values, 5);

    // Fractions and powers with few digits, as measurements have them.
    random.seed(7);
    values.clear();
    for (int i = 0; i < 500000; ++i) {
        int digits = (int)(random() % 8);
        double scale = std::pow(10.0, (int)(random() % 12) - 6);
        values.push_back((float)((double)(random() % (uint32_t)std::pow(10.0, digits)) * scale));
        values.push_back((float)(random() % 1000000) / 1e6f);
    }
    ExpectBothWays(values, 3);
}

TEST(AsciiFloats, PowersOfTenTheirNeighboursAndTies) {
    std::vector<float> values = {0.0f, -0.0f, 1.0f, -1.0f, 1e-4f, 1e-5f, 999999.5f, 999999.4f, 9999995.0f,
                                 INFINITY, -INFINITY, NAN, 1e-45f, 1.17549435e-38f, 3.4028235e38f};
    for (int k = -45; k <= 38; ++k) {
        float f = (float)std::pow(10.0, k);
        for (int step = 0; step < 8; ++step) {
            values.push_back(f);
            values.push_back(-f);
            f = std::nextafter(f, INFINITY);
        }
        f = (float)std::pow(10.0, k);
        for (int step = 0; step < 8; ++step, f = std::nextafter(f, 0.0f))
            values.push_back(f);
    }
    // Exact ties of the sixth digit: n + 0.5 at every scale where a float
    // holds it, and the halves below 1.
    for (uint32_t n = 100000; n < 1000000; n += 3) {
        values.push_back((float)n + 0.5f);
        values.push_back((float)(n * 10 + 5));
        values.push_back((float)(n * 100 + 50));
        values.push_back(((float)n + 0.5f) / 1024.0f);
    }
    for (int i = 1; i < 4096; ++i)
        values.push_back((float)i / 4096.0f);
    ExpectSameText(values);
}

TEST(AsciiFloats, DecimalsOfEveryShape) {
    std::mt19937 random(99);
    std::vector<std::string> tokens = {
        "0",     "-0",     "+0.0",  "00012", "1.",  ".5",   "-.25",   "1e5",   "1E-5",  "1e+05", "1.5e",
        "1e+",   "e5",     ".",     "-",     "+",   "inf",  "1.5abc", "0x1p3", "-Infinity", "nan",
        "1e400", "1e-400", "12345678901234567890", "0.000000000000000000001", "9007199254740993",
        "9007199254740992", "123456789012345678901234567890e-20", "1e22", "1e23", "4.5e-23", "0.1",
        "3.4028235e38", "3.4028236e38", "1.17549435e-38", "7.0064923e-46", "1e-45", "99999999999999999999"};
    // A hair above and below the midpoints of two floats, in 19 digits:
    // past what the quick road takes, at the edge where it hands over.
    for (uint32_t odd = (1u << 24) + 1; odd < (1u << 24) + 4000; odd += 2) {
        tokens.push_back(std::to_string(odd) + "00000000001e-11");
        tokens.push_back(std::to_string(odd - 1) + "99999999999e-11");
        tokens.push_back("0." + std::to_string(odd) + "00000000001e8");
    }
    for (int i = 0; i < 300000; ++i) {
        std::string t;
        if (random() % 4 == 0)
            t += random() % 2 ? "-" : "+";
        int whole = (int)(random() % 22), fraction = (int)(random() % 22);
        for (int d = 0; d < whole; ++d)
            t += (char)('0' + random() % 10);
        if (random() % 3 != 0) {
            t += '.';
            for (int d = 0; d < fraction; ++d)
                t += (char)('0' + (random() % 5 == 0 ? 0 : random() % 10));
        }
        if (random() % 3 == 0)
            t += "e" + std::to_string((int)(random() % 80) - 40);
        if (t.empty())
            t = "7";
        tokens.push_back(t);
    }
    ExpectSameFloats(tokens);
}

} // namespace
