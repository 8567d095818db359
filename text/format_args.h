/*
 * text/format_args.h - reading the arguments of a parsed format, once and in
 * order, from a va_list or from an array of pointers.
 *
 * From a va_list every value comes at its promoted C type.  From an array
 * each entry points at the value in its own type, so a short, a char and a
 * float are read as such; strings, pointers and %n targets are the entries
 * themselves.  A null array or a null entry reads as 0.
 *
 * The print core reads each entry's argument as its walk reaches it; the
 * scan core reads all of them before its loop.  Either way they come in
 * table order, which is the order of the arguments.
 */
#ifndef HALV_TEXT_FORMAT_ARGS_H
#define HALV_TEXT_FORMAT_ARGS_H

#include <stddef.h>

#include "text/format_internal.h"

namespace halv {

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

/* Print mode: the argument of one entry, by type and size, into its data. */
void FetchPrintArgument(HalvFormatParameter &p, ArgumentReader &reader) noexcept;

/* The argument of an integer entry of no size or an 'l' or "ll" size, as
 * its data would hold it. */
inline uint64_t ReadEverydayInteger(const HalvFormatParameter &p, ArgumentReader &reader) noexcept {
    if (p.flags & kFlagSizeLL)
        return static_cast<uint64_t>(reader.Read<long long>());
    if (p.flags & kFlagSizeL)
        return static_cast<uint64_t>(reader.Read<long>());
    return static_cast<uint64_t>(static_cast<int64_t>(reader.Read<int>()));
}

/* Scan mode: a pointer for every entry but a '*' one, nothing for a
 * suppressed one. */
void FetchScanArguments(FormatTable &table, int32_t count, FormatArgs &args) noexcept;

} // namespace halv

#endif
