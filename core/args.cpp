/*
 * core/args.cpp - argument lists: flat arrays of machine words that carry
 * an init point's parameters by name.
 *
 * An entry is a key word pointing to "name:format", its value words, and a
 * null word (two for an array format); the list ends with the word 1, since
 * null already marks the end of every entry.  A word is a key when it is
 * non-null and stands first or directly behind a null.
 *
 * The format after the colon is read item by item.  Each item takes value
 * words from the entry and, when parsing, output pointers from the caller:
 *   i I b B        int32_t   from a pointer to it
 *   f F d          double    from a pointer to it
 *   s S            a new copy of the string
 *   h H v V        the word itself
 *   p + bBiIfFd    the machine word a value word points to
 *   p + sSvV       the word itself, no copy
 *   w + iI / fFd   4 int32_t / 4 doubles from a pointer to the window
 *   # + letter     every word up to the next null: a count and a new array
 * Any other character takes nothing.
 */
#include <cstdarg>
#include <cstring>

#include "halv_core.h"
#include "halv_util.h"

namespace {

constexpr intptr_t kTerminator = 1;

/* ---- Format items ------------------------------------------------------ */

/* What a letter asks for, which depends on the prefix in front of it. */
enum class Value : unsigned char {
    None,        /* not an item in this place */
    Int32,       /* int32_t behind a pointer */
    Double,      /* double behind a pointer */
    String,      /* a string, copied */
    Word,        /* the word itself */
    MachineWord, /* the machine word behind a pointer */
};

struct ItemLetters {
    const char *letters;
    Value value;
};

/* Letters valid in each place of a format, plain and behind p, w and #. */
constexpr ItemLetters kPlainItems[] = {
    {"iIbB", Value::Int32}, {"fFd", Value::Double}, {"sS", Value::String}, {"hHvV", Value::Word}};
constexpr ItemLetters kPointerItems[] = {{"bBiIfFd", Value::MachineWord}, {"sSvV", Value::Word}};
constexpr ItemLetters kWindowItems[] = {{"iI", Value::Int32}, {"fFd", Value::Double}};
constexpr ItemLetters kArrayItems[] = {
    {"bBiI", Value::Int32}, {"fFd", Value::Double}, {"sS", Value::String}, {"vV", Value::Word}};

template <size_t N>
Value Classify(const ItemLetters (&table)[N], char letter) noexcept {
    if (letter == '\0')
        return Value::None;
    for (const ItemLetters &row : table)
        if (std::strchr(row.letters, letter) != nullptr)
            return row.value;
    return Value::None;
}

bool IsPointerPrefix(char c) noexcept { return c == 'p' || c == 'P'; }
bool IsWindowPrefix(char c) noexcept { return c == 'w' || c == 'W'; }

/* Bytes of one window of 4 values. */
size_t WindowBytes(Value value) noexcept { return value == Value::Int32 ? 4 * sizeof(int32_t) : 4 * sizeof(double); }

/* Results of one key. */
constexpr int kHandled = 1, kRefused = 0, kRanIntoEnd = -1;

/* ---- Finding entries --------------------------------------------------- */

bool IsKeyAt(const intptr_t *list, size_t i) noexcept { return list[i] != 0 && (i == 0 || list[i - 1] == 0); }

/* Value words of the first entry whose key equals key (name and format, any
 * case), or null. */
const intptr_t *FindEntry(const intptr_t *list, const char *key) noexcept {
    if (list == nullptr)
        return nullptr;
    uint32_t length = HalvStrLen(key);
    for (size_t i = 0; list[i] != kTerminator; ++i) {
        if (!IsKeyAt(list, i))
            continue;
        auto *candidate = reinterpret_cast<const char *>(list[i]);
        /* The prefix matched without a NUL, so candidate[length] exists. */
        if (HalvStrNCaseCmp(candidate, key, length) == 0 && candidate[length] == '\0')
            return list + i + 1;
    }
    return nullptr;
}

/* Words of the entry that starts at list[start]: the key, its value words
 * and every null word behind them. */
size_t EntryLength(const intptr_t *list, size_t start) noexcept {
    size_t i = start + 1;
    while (list[i] != 0 && list[i] != kTerminator)
        ++i;
    while (list[i] == 0)
        ++i;
    return i - start;
}

/* ---- Parsing one found entry ------------------------------------------- */

class EntryReader {
public:
    EntryReader(const intptr_t *values, va_list *outputs) noexcept : word_(values), outputs_(outputs) {}

    int Read(const char *format) noexcept {
        for (const char *f = format; *f != '\0'; ++f) {
            char c = *f;
            int result = kHandled;
            if (IsPointerPrefix(c) || IsWindowPrefix(c) || c == '#') {
                char letter = *++f;
                if (letter == '\0')
                    return kRefused; /* format cut short */
                result = c == '#' ? ReadArray(Classify(kArrayItems, letter))
                         : IsWindowPrefix(c) ? ReadWindow(Classify(kWindowItems, letter))
                                             : ReadSingle(Classify(kPointerItems, letter));
            } else {
                result = ReadSingle(Classify(kPlainItems, c));
            }
            if (result != kHandled)
                return result;
        }
        return kHandled;
    }

private:
    void *NextOutput() noexcept { return va_arg(*outputs_, void *); }

    /* The next value word, or 0 when the entry has no more: the list's
     * builder owes enough of them, but a short entry must not be read as
     * pointers. */
    intptr_t NextValue() noexcept {
        intptr_t word = *word_;
        if (word == 0 || word == kTerminator)
            return 0;
        ++word_;
        return word;
    }

    int ReadSingle(Value value) noexcept {
        if (value == Value::None)
            return kHandled; /* not an item: takes nothing */
        intptr_t word = NextValue();
        if (word == 0)
            return kRefused;
        void *out = NextOutput();
        if (out == nullptr)
            return kHandled;
        auto *source = reinterpret_cast<const void *>(word);
        switch (value) {
        case Value::Int32: std::memcpy(out, source, sizeof(int32_t)); break;
        case Value::Double: std::memcpy(out, source, sizeof(double)); break;
        case Value::MachineWord: std::memcpy(out, source, sizeof(intptr_t)); break;
        case Value::String: {
            /* A failed copy leaves null in the output and doesn't fail. */
            char *copy = HalvStrDup(static_cast<const char *>(source));
            std::memcpy(out, &copy, sizeof copy);
            break;
        }
        default: std::memcpy(out, &word, sizeof word); break;
        }
        return kHandled;
    }

    int ReadWindow(Value value) noexcept {
        if (value == Value::None)
            return kRefused; /* no such window */
        intptr_t word = NextValue();
        if (word == 0)
            return kRefused;
        void *out = NextOutput();
        if (out != nullptr)
            std::memcpy(out, reinterpret_cast<const void *>(word), WindowBytes(value));
        return kHandled;
    }

    int ReadArray(Value value) noexcept {
        if (value == Value::None)
            return kHandled; /* not an item: takes nothing */
        size_t count = 0;
        while (word_[count] != 0 && word_[count] != kTerminator)
            ++count;
        auto *countOut = static_cast<int32_t *>(NextOutput());
        void *arrayOut = NextOutput();
        if (countOut != nullptr)
            *countOut = (int32_t)count;
        if (word_[count] == kTerminator)
            return kRanIntoEnd;
        if (arrayOut == nullptr) {
            word_ += count + 1; /* nowhere to put an array: only step over it */
            return kHandled;
        }
        void *array = CopyRun(value, count);
        if (array == nullptr)
            return kRefused;
        std::memcpy(arrayOut, &array, sizeof array);
        word_ += count + 1; /* the run and the null behind it */
        return kHandled;
    }

    void *CopyRun(Value value, size_t count) noexcept {
        switch (value) {
        case Value::Int32: return CopyNumbers<int32_t>(count);
        case Value::Double: return CopyNumbers<double>(count);
        case Value::String: return CopyStrings(count);
        default: return CopyWords(count);
        }
    }

    /* Numbers behind count value words; none to copy is a refusal, since
     * there is nothing to allocate. */
    template <typename Number>
    Number *CopyNumbers(size_t count) noexcept {
        if (count == 0)
            return nullptr;
        auto *numbers = static_cast<Number *>(halv_internal_malloc(count * sizeof(Number)));
        if (numbers != nullptr)
            for (size_t i = 0; i < count; ++i)
                std::memcpy(&numbers[i], reinterpret_cast<const void *>(word_[i]), sizeof(Number));
        return numbers;
    }

    /* count string copies and a null slot, freed as a whole if one copy fails. */
    char **CopyStrings(size_t count) noexcept {
        auto **strings = static_cast<char **>(halv_internal_malloc((count + 1) * sizeof(char *)));
        if (strings == nullptr)
            return nullptr;
        for (size_t i = 0; i < count; ++i) {
            strings[i] = HalvStrDup(reinterpret_cast<const char *>(word_[i]));
            if (strings[i] == nullptr) {
                for (size_t j = 0; j < i; ++j)
                    halv_internal_free(strings[j]);
                halv_internal_free(strings);
                return nullptr;
            }
        }
        strings[count] = nullptr;
        return strings;
    }

    intptr_t *CopyWords(size_t count) noexcept {
        auto *words = static_cast<intptr_t *>(halv_internal_malloc((count + 1) * sizeof(intptr_t)));
        if (words != nullptr) {
            std::memcpy(words, word_, count * sizeof(intptr_t));
            words[count] = 0;
        }
        return words;
    }

    const intptr_t *word_;
    va_list *outputs_;
};

/* For a key that isn't in the list: steps over the outputs that the format
 * calls for and stores nothing, so preset defaults survive.  Here p and #
 * count their outputs whatever letter follows them, where the reader of a
 * found entry takes nothing for a letter that isn't theirs. */
int SkipOutputs(const char *format, va_list *outputs) noexcept {
    for (const char *f = format; *f != '\0'; ++f) {
        char c = *f;
        int skipped = 0;
        if (IsPointerPrefix(c) || IsWindowPrefix(c) || c == '#') {
            char letter = *++f;
            if (letter == '\0')
                return kRefused;
            if (IsWindowPrefix(c) && Classify(kWindowItems, letter) == Value::None)
                return kRefused;
            skipped = c == '#' ? 2 : 1;
        } else if (Classify(kPlainItems, c) != Value::None) {
            skipped = 1;
        }
        while (skipped-- > 0)
            (void)va_arg(*outputs, void *);
    }
    return kHandled;
}

/* ---- Binary arguments -------------------------------------------------- */

enum BinArgType : int32_t {
    kBinInt32 = 0,
    kBinStrings = 1,
    kBinNone = 2,
    kBinDoubles = 3,
    kBinPointers = 4,
    kBinSwitches = 5,
};

/* Places the value words of one binary argument at out and returns how
 * many.  Numbers go in by address, one for each value or, with a window
 * format, one for each complete group of 4; pointers go in as they are. */
size_t PlaceValues(const HalvBinArg &arg, bool window, intptr_t *out) noexcept {
    size_t count = arg.count > 0 && arg.data != nullptr ? (size_t)arg.count : 0;
    size_t stride = 0;
    switch (arg.type) {
    case kBinInt32:
    case kBinSwitches: stride = sizeof(int32_t); break;
    case kBinDoubles: stride = sizeof(double); break;
    case kBinStrings:
    case kBinPointers: std::memcpy(out, arg.data, count * sizeof(intptr_t)); return count;
    default: return 0;
    }
    if (window) {
        stride *= 4;
        count /= 4;
    }
    auto *base = static_cast<const unsigned char *>(arg.data);
    for (size_t i = 0; i < count; ++i)
        out[i] = reinterpret_cast<intptr_t>(base + i * stride);
    return count;
}

/* Places one entry at out and returns its words; 0 when it is left out. */
size_t PlaceEntry(const HalvBinArg &arg, intptr_t *out) noexcept {
    if (arg.key == nullptr)
        return 0; /* a null key would read as the end of an entry */
    const char *colon = std::strchr(arg.key, ':');
    const char *format = colon != nullptr ? colon + 1 : "";
    bool array = colon != nullptr && format[0] == '#';
    bool window = colon != nullptr && format[array ? 1 : 0] == 'w';
    /* A switch with nothing after the colon is there when set, absent when
     * clear, and carries no value. */
    bool bareSwitch = arg.type == kBinSwitches && format[0] == '\0';
    if (bareSwitch && (arg.count <= 0 || arg.data == nullptr || *static_cast<const int32_t *>(arg.data) == 0))
        return 0;
    size_t n = 0;
    out[n++] = reinterpret_cast<intptr_t>(arg.key);
    if (!bareSwitch)
        n += PlaceValues(arg, window, out + n);
    if (array)
        out[n++] = 0;
    out[n++] = 0;
    return n;
}

/* Stores the words of a variable list at `to`, up to and with the
 * terminator. */
void CopyWords(intptr_t *to, va_list words) noexcept {
    for (intptr_t word = 0; word != kTerminator; ++to) {
        word = va_arg(words, intptr_t);
        *to = word;
    }
}

} // namespace

extern "C" {

HALV_API int HalvBuildArgs(intptr_t *list, ...) noexcept {
    if (list == nullptr)
        return 0;
    va_list words;
    va_start(words, list);
    CopyWords(list, words);
    va_end(words);
    return 1;
}

HALV_API int HalvAppendArgs(intptr_t *list, ...) noexcept {
    if (list == nullptr)
        return 0;
    intptr_t *end = list;
    while (*end != kTerminator)
        ++end;
    va_list words;
    va_start(words, list);
    CopyWords(end, words);
    va_end(words);
    return 1;
}

HALV_API int HalvRemoveArgs(intptr_t *list, ...) noexcept {
    if (list == nullptr)
        return 0;
    va_list keys;
    va_start(keys, list);
    for (intptr_t keyWord; (keyWord = va_arg(keys, intptr_t)) != kTerminator;) {
        auto *key = reinterpret_cast<const char *>(keyWord);
        if (key == nullptr)
            continue;
        size_t read = 0, write = 0;
        while (list[read] != kTerminator) {
            size_t length = list[read] == 0 ? 1 : EntryLength(list, read);
            bool drop = list[read] != 0 && HalvStrCaseCmp(reinterpret_cast<const char *>(list[read]), key) == 0;
            if (!drop) {
                std::memmove(list + write, list + read, length * sizeof(intptr_t));
                write += length;
            }
            read += length;
        }
        list[write] = kTerminator;
    }
    va_end(keys);
    return 1;
}

HALV_API int HalvParseArgs(const intptr_t *list, ...) noexcept {
    va_list args;
    va_start(args, list);
    int result = kHandled;
    for (intptr_t keyWord; result == kHandled && (keyWord = va_arg(args, intptr_t)) != kTerminator;) {
        auto *key = reinterpret_cast<const char *>(keyWord);
        auto *found = va_arg(args, int32_t *);
        const char *colon = key != nullptr ? std::strchr(key, ':') : nullptr;
        if (colon == nullptr) {
            result = kRefused;
            break;
        }
        const intptr_t *values = FindEntry(list, key);
        if (found != nullptr)
            *found = values != nullptr;
        if (values != nullptr)
            result = EntryReader(values, &args).Read(colon + 1);
        else
            result = SkipOutputs(colon + 1, &args);
    }
    va_end(args);
    return result;
}

HALV_API intptr_t *HalvBinArgToArgs(int32_t count, const HalvBinArg *args, int32_t extraWords) noexcept {
    if (count < 0 || (count > 0 && args == nullptr))
        return nullptr;
    size_t words = 1 + (extraWords > 0 ? (size_t)extraWords : 0);
    for (int32_t i = 0; i < count; ++i)
        words += (args[i].count > 0 ? (size_t)args[i].count : 0) + 3;
    if (words > SIZE_MAX / sizeof(intptr_t))
        return nullptr;
    auto *list = static_cast<intptr_t *>(halv_internal_malloc(words * sizeof(intptr_t)));
    if (list == nullptr)
        return nullptr;
    size_t n = 0;
    for (int32_t i = 0; i < count; ++i)
        n += PlaceEntry(args[i], list + n);
    list[n] = kTerminator;
    return list;
}

HALV_API int HalvBinArgFromArgs(const intptr_t *list, int32_t *count, HalvBinArg **args) noexcept {
    (void)list;
    (void)count;
    (void)args;
    return -1;
}

} // extern "C"
