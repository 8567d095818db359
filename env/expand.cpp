/*
 * env/expand.cpp - HalvExpandString: ${NAME} and $NAME references in text.
 *
 * One scan serves two passes: the first only counts, the second writes into
 * a block of the counted size.  The passes look variables up separately, so
 * the write pass is bounded by the block in case a value changed between
 * them.
 */
#include <cstring>

#include "env/environment_internal.h"

namespace {

constexpr size_t kNameLimit = 255;
constexpr char kSeparator = '/';

/* Where the scan puts its text: counts always, stores while room is left. */
class Output {
public:
    Output(char *buffer, size_t capacity) noexcept : buffer_(buffer), capacity_(capacity) {}

    void Put(char c) noexcept {
        if (length_ < capacity_)
            buffer_[length_] = c;
        ++length_;
    }
    void Put(const char *text) noexcept {
        for (; *text != '\0'; ++text)
            Put(*text);
    }
    size_t Length() const noexcept { return length_; }

private:
    char *buffer_;
    size_t capacity_;
    size_t length_ = 0;
};

/* A reference's name, cut at kNameLimit bytes. */
class Name {
public:
    void Reset() noexcept { length_ = 0; }
    void Append(char c) noexcept {
        if (length_ < kNameLimit)
            text_[length_++] = c;
    }
    const char *Text() noexcept {
        text_[length_] = '\0';
        return text_;
    }

private:
    char text_[kNameLimit + 1];
    size_t length_ = 0;
};

/* Puts the value of name in its place; an unknown name puts nothing. */
void Substitute(Name &name, Output &out) noexcept {
    if (const char *value = HalvGetenv(name.Text()))
        out.Put(value);
}

/* The scan.  A '$' opens a reference that ends at '}' when a '{' follows it
 * and at the next '/' otherwise.  The closing '}' is consumed; a closing '/'
 * is left to be written as a separator.  A reference open at the end of the
 * text is closed there.  '$' has no escape. */
void Expand(const char *text, Output &out) noexcept {
    Name name;
    char end = '\0'; /* '\0' while outside a reference */
    const char *p = text;
    while (*p != '\0') {
        char c = *p;
        if (end == '\0') {
            ++p;
            if (c == '$') {
                name.Reset();
                end = kSeparator;
                if (*p == '{') {
                    end = '}';
                    ++p;
                }
            } else {
                out.Put(c == '/' ? kSeparator : c);
            }
        } else if (c == end) {
            Substitute(name, out);
            end = '\0';
            if (c == '}')
                ++p;
        } else {
            name.Append(c);
            ++p;
        }
    }
    if (end != '\0')
        Substitute(name, out);
}

} // namespace

extern "C" {

HALV_API char *HalvExpandString(const char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    Output counter(nullptr, 0);
    Expand(text, counter);
    size_t capacity = counter.Length();
    if (capacity == 0)
        return nullptr;
    auto *result = static_cast<char *>(halv_internal_malloc(capacity + 1));
    if (result == nullptr)
        return nullptr;
    Output writer(result, capacity);
    Expand(text, writer);
    size_t length = writer.Length() < capacity ? writer.Length() : capacity;
    if (length == 0) {
        halv_internal_free(result);
        return nullptr;
    }
    result[length] = '\0';
    return result;
}

} // extern "C"
