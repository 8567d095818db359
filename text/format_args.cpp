/*
 * text/format_args.cpp - fetching the arguments of a parsed format, once and
 * in order, from a va_list or from an array of pointers.
 *
 * From a va_list every value comes at its promoted C type.  From an array
 * each entry points at the value in its own type, so a short, a char and a
 * float are read as such; strings, pointers and %n targets are the entries
 * themselves.  A null array or a null entry reads as 0.
 */
#include <cstddef>

#include "text/format_internal.h"

namespace halv {
namespace {

/* The C type an integer argument has, by its size qualifier. */
enum class IntegerType { Int, Short, Long, LongLong, Size, PtrDiff };

/* When several sizes were given, the first line that matches decides. */
constexpr struct {
    uint32_t sizes;
    IntegerType type;
} kIntegerTypes[] = {
    {kFlagSizeLL | kFlagSizeJ, IntegerType::LongLong},
    {kFlagSizeL, IntegerType::Long},
    {kFlagSizeZ, IntegerType::Size},
    {kFlagSizeT, IntegerType::PtrDiff},
    {kFlagSizeH | kFlagSizeHH, IntegerType::Short},
};

IntegerType IntegerTypeOf(const HalvFormatParameter &p) noexcept {
    if ((p.flags & kFlagSizeMask) == 0)
        return IntegerType::Int;
    if (p.flags & kFlagSizeI) /* I8, I16 and I32 read as no size */
        return p.varsize == 8 ? IntegerType::LongLong : IntegerType::Int;
    for (const auto &line : kIntegerTypes)
        if (p.flags & line.sizes)
            return line.type;
    return IntegerType::Int;
}

class ArgumentReader {
public:
    explicit ArgumentReader(FormatArgs &args) noexcept : args_(args) {}

    /* The next array entry: a pointer to the value, or the value itself. */
    void *Entry() noexcept {
        if (args_.array == nullptr)
            return nullptr;
        return args_.array[next_++];
    }

    /* A value passed as Promoted in a va_list and stored as T behind an
     * array entry; nothing is narrowed to T on the va_list route. */
    template <typename T, typename Promoted = T>
    Promoted Read() noexcept {
        if (args_.list != nullptr)
            return va_arg(*args_.list, Promoted);
        const void *entry = Entry();
        return entry != nullptr ? static_cast<Promoted>(*static_cast<const T *>(entry)) : Promoted{};
    }

    void *ReadPointer() noexcept {
        if (args_.list != nullptr)
            return va_arg(*args_.list, void *);
        return Entry();
    }

private:
    FormatArgs &args_;
    size_t next_ = 0;
};

void FetchInteger(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    switch (IntegerTypeOf(p)) {
    case IntegerType::Short:
        /* Behind an array entry the value is a short of the conversion's
         * sign: an unsigned short read as signed would print 49989 as
         * 4294951749, where the promoted int of a va_list gives 49989. */
        p.data.i = IsSignedConversion(ConversionOf(p)) ? reader.Read<short, int>()
                                                       : reader.Read<unsigned short, int>();
        break;
    case IntegerType::Long:
        p.data.i = reader.Read<long>();
        break;
    case IntegerType::LongLong:
        p.data.i = reader.Read<long long>();
        break;
    case IntegerType::Size:
        p.data.u = reader.Read<size_t>();
        break;
    case IntegerType::PtrDiff:
        p.data.i = reader.Read<ptrdiff_t>();
        break;
    case IntegerType::Int:
        p.data.i = reader.Read<int>();
        break;
    }
}

void FetchFloating(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    if (p.flags & kFlagSizeLD)
        p.data.d = static_cast<double>(reader.Read<long double>());
    else if (p.flags & (kFlagSizeH | kFlagSizeHH))
        p.data.d = reader.Read<float, double>();
    else
        p.data.d = reader.Read<double>();
}

void FetchCharacter(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    p.data.i = reader.Read<char, int>();
}

void FetchPointer(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    p.data.p = reader.ReadPointer();
}

void FetchStar(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    p.data.i = reader.Read<int>();
}

/* By parameter type; strings and counts are pointers as well. */
void FetchPrintArgument(HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    switch (p.type) {
    case HALV_FORMAT_INTEGER:
        FetchInteger(p, reader);
        break;
    case HALV_FORMAT_FLOATING:
        FetchFloating(p, reader);
        break;
    case HALV_FORMAT_CHARACTER:
        FetchCharacter(p, reader);
        break;
    case HALV_FORMAT_STAR:
        FetchStar(p, reader);
        break;
    default: /* strings, pointers, counts, groups */
        FetchPointer(p, reader);
        break;
    }
}

/* Scan mode: every entry but a '*' one takes a pointer, a suppressed one
 * nothing. */
void FetchScanArguments(FormatTable &table, int32_t count, ArgumentReader &reader) noexcept {
    for (int32_t i = 0; i < count; ++i) {
        HalvFormatParameter &p = table[i];
        if (p.type == HALV_FORMAT_STAR)
            FetchStar(p, reader);
        else if ((p.flags & kFlagSuppress) == 0)
            FetchPointer(p, reader);
    }
}

void FetchPrintArguments(FormatTable &table, int32_t count, ArgumentReader &reader) noexcept {
    for (int32_t i = 0; i < count; ++i)
        FetchPrintArgument(table[i], reader);
}

} // namespace

int32_t DefaultBase(const HalvFormatParameter &p) noexcept {
    const char conversion = ConversionOf(p);
    return conversion == 'a' || conversion == 'A' ? 16 : 10;
}

void FetchArguments(FormatTable &table, int32_t count, FormatMode mode, FormatArgs &args) noexcept {
    ArgumentReader reader(args);
    if (mode == FormatMode::Scan)
        FetchScanArguments(table, count, reader);
    else
        FetchPrintArguments(table, count, reader);
}

} // namespace halv
