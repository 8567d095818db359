// Hand-built streams for the user data tests: each fills only the slot it
// needs, so a reader that touched any other slot would crash the test.
#ifndef HALV_TESTS_USERDATA_STREAMS_H
#define HALV_TESTS_USERDATA_STREAMS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace ucm_test {

/* A hand-built stream that keeps the count of every call. */
class CountingStream {
  public:
    CountingStream(const CountingStream &) = delete;
    CountingStream &operator=(const CountingStream &) = delete;
    HalvIO *io() { return &record_.io; }
    const std::vector<uint32_t> &counts() const { return counts_; }

  protected:
    CountingStream() = default;
    template <typename Stream>
    static Stream *Self(HalvIO *io, uint32_t count) {
        auto *self = static_cast<Stream *>(reinterpret_cast<Record *>(io)->self);
        self->counts_.push_back(count);
        return self;
    }

    struct Record {
        HalvIO io;
        CountingStream *self;
    } record_{{}, this};
    std::vector<uint32_t> counts_;
};

/* Bytes to read; only the read slot is set. */
class ReadStream : public CountingStream {
  public:
    explicit ReadStream(std::string bytes) : bytes_(std::move(bytes)) { record_.io.read = &Read; }
    std::string rest() const { return bytes_.substr(position_); }
    /* From now on each read gives at most this many bytes. */
    void LimitPieces(uint32_t most) { most_ = most; }

  private:
    static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
        ReadStream *self = Self<ReadStream>(io, count);
        size_t take = std::min<size_t>({count, self->most_, self->bytes_.size() - self->position_});
        std::memcpy(buffer, self->bytes_.data() + self->position_, take);
        self->position_ += take;
        return (int32_t)take;
    }

    std::string bytes_;
    size_t position_ = 0;
    uint32_t most_ = UINT32_MAX;
};

/* Collects written bytes; only the write slot is set.  Like a string stream
 * it takes what fits in its capacity and answers 0 when full. */
class WriteStream : public CountingStream {
  public:
    explicit WriteStream(size_t capacity = SIZE_MAX) : capacity_(capacity) { record_.io.write = &Write; }
    const std::string &text() const { return text_; }

  private:
    static int32_t Write(HalvIO *io, const void *bytes, uint32_t count) {
        WriteStream *self = Self<WriteStream>(io, count);
        size_t take = std::min<size_t>(count, self->capacity_ - self->text_.size());
        self->text_.append(static_cast<const char *>(bytes), take);
        return (int32_t)take;
    }

    size_t capacity_;
    std::string text_;
};

struct Token {
    int32_t code;
    std::string text;
    bool operator==(const Token &other) const { return code == other.code && text == other.text; }
};

inline std::ostream &operator<<(std::ostream &os, const Token &token) {
    return os << "{" << token.code << " '" << token.text << "'}";
}

/* Every token of bytes, up to and including the first 101 or 69. */
inline std::vector<Token> Tokens(const std::string &bytes, bool old = false) {
    ReadStream in(bytes);
    std::vector<Token> tokens;
    for (int guard = 0; guard < 10000; ++guard) {
        WriteStream out;
        int32_t code = old ? HalvReadOldUserCM(in.io(), out.io()) : HalvReadUserCM(in.io(), out.io());
        tokens.push_back({code, out.text()});
        if (code == 101 || code == 69)
            break;
    }
    return tokens;
}

/* The tree as one line: kind letter, text in quotes, children in braces. */
inline std::string Dump(const HalvUserCMData *node) {
    static const char kinds[] = "ISLWTD";
    std::string text;
    for (; node != nullptr; node = node->next) {
        text += (node->kind >= 0 && node->kind < 6) ? kinds[node->kind] : '?';
        text += '\'' + (node->text != nullptr ? std::string(node->text, node->length) : "") + '\'';
        if (node->children != nullptr)
            text += "{" + Dump(node->children) + "}";
        if (node->next != nullptr)
            text += ' ';
    }
    return text;
}

/* Reads a whole text into a tree (a new one, or more into tree). */
struct ReadResult {
    int32_t result;
    HalvUserCMData *tree;
};
inline ReadResult ReadTree(const std::string &bytes, int32_t strict = 0, HalvUserCMData *tree = nullptr) {
    ReadStream in(bytes);
    int32_t result = HalvReadUserCMData(in.io(), &tree, strict);
    return {result, tree};
}

/* A read of a whole text as its result and its tree as Dump prints it,
 * "1 S'ID'", say; the tree is freed. */
inline std::string ReadDump(const std::string &bytes, int32_t strict = 0) {
    ReadResult read = ReadTree(bytes, strict);
    const std::string dumped = std::to_string(read.result) + " " + Dump(read.tree);
    HalvFreeUserCMData(read.tree);
    return dumped;
}

/* Reads more text into a tree, which is kept; the result and tree as
 * ReadDump gives them. */
inline std::string ReadInto(HalvUserCMData *&tree, const std::string &bytes) {
    const ReadResult read = ReadTree(bytes, 0, tree);
    tree = read.tree;
    return std::to_string(read.result) + " " + Dump(tree);
}

inline std::string WriteTree(const HalvUserCMData *tree) {
    WriteStream out;
    int32_t result = HalvWriteUserCMData(tree, out.io());
    return result == 1 ? out.text() : "<failed " + std::to_string(result) + ">";
}

/* The dump or text of a tree made for one check, which is freed. */
inline std::string DumpAndFree(HalvUserCMData *tree) {
    std::string text = Dump(tree);
    HalvFreeUserCMData(tree);
    return text;
}

inline std::string WriteAndFree(HalvUserCMData *tree) {
    std::string text = WriteTree(tree);
    HalvFreeUserCMData(tree);
    return text;
}

} // namespace ucm_test

#endif
