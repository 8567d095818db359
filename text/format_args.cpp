/*
 * text/format_args.cpp - fetching the argument of a table entry by its type
 * and size; see format_args.h.
 */
#include <cstddef>
#include <iterator>

#include "text/format_args.h"

namespace halv {
namespace {

using Fetch = void (*)(HalvFormatParameter &, ArgumentReader &) noexcept;

/* A value of C type T: sign-extended into data when T is signed, else
 * zero-extended. */
template <typename T, typename Promoted = T>
void FetchAs(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    const Promoted value = reader.Read<T, Promoted>();
    if constexpr (static_cast<Promoted>(-1) < 0)
        p.data.i = value;
    else
        p.data.u = value;
}

/* Behind an array entry the value is a short of the conversion's sign: an
 * unsigned short read as signed would print 49989 as 4294951749, where the
 * promoted int of a va_list gives 49989. */
void FetchShort(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    if (IsSignedConversion(ConversionOf(p)))
        FetchAs<short, int>(p, reader);
    else
        FetchAs<unsigned short, int>(p, reader);
}

/* The C type of an integer argument by its size qualifier; when several
 * sizes were given, the first line that matches decides. */
constexpr struct {
    uint32_t sizes;
    Fetch fetch;
} kIntegerFetches[] = {
    {kFlagSizeLL | kFlagSizeJ, FetchAs<long long>},
    {kFlagSizeL, FetchAs<long>},
    {kFlagSizeZ, FetchAs<size_t>},
    {kFlagSizeT, FetchAs<ptrdiff_t>},
    {kFlagSizeH | kFlagSizeHH, FetchShort},
};

void FetchInteger(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    if ((p.flags & kFlagSizeMask) == 0)
        return FetchAs<int>(p, reader);
    if (p.flags & kFlagSizeI) /* I8, I16 and I32 read as no size */
        return p.varsize == 8 ? FetchAs<long long>(p, reader) : FetchAs<int>(p, reader);
    for (const auto &line : kIntegerFetches)
        if (p.flags & line.sizes)
            return line.fetch(p, reader);
    FetchAs<int>(p, reader);
}

/* A floating value is a double, also with 'L'; behind an array entry 'h'
 * points at a float. */
void FetchFloating(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    if (p.flags & kFlagSizeLD)
        p.data.d = static_cast<double>(reader.Read<long double>());
    else if (p.flags & (kFlagSizeH | kFlagSizeHH))
        p.data.d = reader.Read<float, double>();
    else
        p.data.d = reader.Read<double>();
}

void FetchPointer(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    p.data.p = reader.ReadPointer();
}

/* By parameter type, from HALV_FORMAT_INTEGER on: strings, pointers, counts
 * and groups are pointers, a character comes as an int, and a '*' argument
 * is an int. */
constexpr Fetch kFetchByType[] = {FetchPointer, FetchInteger, FetchFloating, FetchAs<char, int>, FetchPointer,
                                  FetchPointer, FetchPointer, FetchAs<int>, FetchPointer};

} // namespace

void FetchPrintArgument(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    kFetchByType[static_cast<uint32_t>(p.type) < std::size(kFetchByType) ? p.type : 0](p, reader);
}

void FetchScanArguments(FormatTable &table, int32_t count, FormatArgs &args) noexcept {
    ArgumentReader reader(args);
    for (int32_t i = 0; i < count; ++i) {
        HalvFormatParameter &p = table[i];
        if (p.type == HALV_FORMAT_STAR)
            FetchAs<int>(p, reader);
        else if ((p.flags & kFlagSuppress) == 0)
            FetchPointer(p, reader);
    }
}

int32_t DefaultBase(const HalvFormatParameter &p) noexcept {
    const char conversion = ConversionOf(p);
    return conversion == 'a' || conversion == 'A' ? 16 : 10;
}

} // namespace halv
