// The tree reader and the writer: exact text, round trips, merging,
// strictness, where reading stops, and every way a read can fail.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "userdata/faithful.h"
#include "userdata/streams.h"

using ucm_test::Dump;
using ucm_test::ReadDump;
using ucm_test::ReadInto;
using ucm_test::ReadStream;
using ucm_test::ReadTree;
using ucm_test::WriteAndFree;
using ucm_test::WriteStream;
using ucm_test::WriteTree;

namespace {

const char kHeader[] = "[ID]\n"
                       "format: sample\n"
                       "version: 1\n"
                       "\n"
                       "[Data]\n"
                       "Name: word value\n"
                       "Title: \"a string: with a colon\"\n"
                       "Sample: \"<<<<Base64Data:QUJD>>>>\"\n"
                       "Empty: Count: 12\n"
                       "\n"
                       "[End]";

/* A node made by hand, as a host would. */
HalvUserCMData *Node(int32_t kind, const std::string &text, HalvUserCMData *children = nullptr,
                     HalvUserCMData *next = nullptr) {
    auto *node = static_cast<HalvUserCMData *>(halv_internal_calloc(1, sizeof(HalvUserCMData)));
    node->text = static_cast<char *>(halv_internal_malloc(text.size() + 1));
    std::memcpy(node->text, text.data(), text.size());
    node->text[text.size()] = '\0';
    node->length = (uint32_t)text.size();
    node->kind = kind;
    node->children = children;
    node->next = next;
    return node;
}

TEST(UserDataTreeText, TheSampleHeaderReadsAndWritesBackByteForByte) {
    auto [result, tree] = ReadTree(kHeader, 1);
    ASSERT_EQ(result, 1);
    EXPECT_EQ(Dump(tree), "S'ID'{L'format'{W'sample'} L'version'{W'1'}} "
                          "S'Data'{L'Name'{W'word value'} L'Title'{T'a string: with a colon'} "
                          "L'Sample'{D'ABC'} L'Empty' L'Count'{W'12'}} S'End'");
    EXPECT_EQ(ucm_test::WriteAndFree(tree), kHeader);
}

TEST(UserDataTreeText, WriterText) {
    // A node of a kind the language doesn't know prints nothing but its
    // children; a null text prints as empty.
    HalvUserCMData *unknown = Node(9, "ignored", Node(3, "child"), Node(3, ""));
    halv_internal_free(unknown->next->text);
    unknown->next->text = nullptr;
    const struct {
        HalvUserCMData *tree;
        std::string text;
    } cases[] = {
        // Empty lines only in front of names that aren't first in their list.
        {Node(0, "I",
              Node(1, "S", Node(2, "k", Node(3, "v", nullptr, Node(4, "s: x", nullptr, Node(5, "AB")))),
                   Node(1, "T")),
              Node(0, "J")),
         "<I>\n[S]\nk: v\n\"s: x\"\n\"<<<<Base64Data:QUI=>>>>\"\n\n[T]\n\n<J>\n"},
        // A label without value runs on into the next node's text.
        {Node(2, "a", nullptr, Node(2, "b", nullptr, Node(2, "c", Node(3, "d")))), "a: b: c: d\n"},
        // Texts go out with their length and unescaped, NULs and syntax alike.
        {Node(1, std::string("a\0]", 3), Node(2, "k:", Node(3, "x # y\\"))),
         std::string("[a\0]]\nk:: x # y\\\n", 17)},
        // Empty data and padding of one and two final bytes.
        {Node(5, "", nullptr, Node(5, "A", nullptr, Node(5, "AB", nullptr, Node(5, "ABC")))),
         "\"<<<<Base64Data:>>>>\"\n\"<<<<Base64Data:QQ==>>>>\"\n"
         "\"<<<<Base64Data:QUI=>>>>\"\n\"<<<<Base64Data:QUJD>>>>\"\n"},
        {unknown, "child\n\n"},
        // Sections at the top: [End] has no line end, and nothing behind it
        // is written, siblings and children alike.
        {Node(1, "A", Node(2, "k", Node(3, "v")),
              Node(1, "eNd", Node(2, "hidden", Node(3, "x")), Node(1, "After"))),
         "[A]\nk: v\n\n[eNd]"},
        // Items at the top: a section End is ordinary, an item End stops.
        {Node(0, "I", Node(1, "End", Node(2, "k", Node(3, "v")), Node(1, "S")),
              Node(0, "End", Node(1, "never"), Node(0, "never"))),
         "<I>\n[End]\nk: v\n\n[S]\n\n<End>"},
        // A first node that is End writes just that; "Ends" or "En" are no End.
        {Node(1, "End", nullptr, Node(1, "X")), "[End]"},
        {Node(1, "Ends", nullptr, Node(1, "En")), "[Ends]\n\n[En]\n"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(WriteAndFree(c.tree), c.text);
}

TEST(UserDataTreeText, WriterPiecesAndResults) {
    // Base64 goes out in pieces of at most 68 characters.
    std::string bytes;
    for (int i = 0; i < 200; ++i)
        bytes += (char)(i * 7);
    HalvUserCMData *tree = Node(2, "blob", Node(5, bytes));
    WriteStream out;
    ASSERT_EQ(HalvWriteUserCMData(tree, out.io()), 1);
    // 200 bytes: three pieces of 51 bytes (68 characters) and one of 47.
    std::vector<uint32_t> pieces(out.counts().end() - 5, out.counts().end() - 1);
    EXPECT_EQ(pieces, (std::vector<uint32_t>{68, 68, 68, 64}));
    EXPECT_EQ(out.text().find('\n'), out.text().size() - 1); // no line break inside
    HalvFreeUserCMData(tree);

    tree = Node(1, "S", Node(2, "k", Node(5, std::string(300, 'x'))));
    EXPECT_EQ(HalvWriteUserCMData(tree, nullptr), 0);
    WriteStream none;
    EXPECT_EQ(HalvWriteUserCMData(nullptr, none.io()), 1);
    EXPECT_TRUE(none.counts().empty());
    // A write that takes fewer bytes than given fails the output, before,
    // within and after the Base64 block.
    const std::string full = WriteTree(tree);
    for (size_t capacity : {size_t(0), size_t(3), size_t(30), size_t(100), full.size() - 1}) {
        WriteStream limited(capacity);
        EXPECT_EQ(HalvWriteUserCMData(tree, limited.io()), -1) << capacity;
        EXPECT_EQ(limited.text(), full.substr(0, capacity));
    }
    WriteStream exact(full.size());
    EXPECT_EQ(HalvWriteUserCMData(tree, exact.io()), 1);
    HalvFreeUserCMData(tree);
}

TEST(UserDataTreeText, EmptyStreamsAndStrictness) {
    const struct {
        const char *text;
        int32_t strict;
        const char *read;
    } cases[] = {
        {"", 0, "1 "}, {"# nothing\n\n", 0, "1 "}, {"", 1, "0 "}, {"[ID]\nk: v\n", 1, "1 S'ID'{L'k'{W'v'}}"},
        {"<ID>\n[S]\nk: v\n", 1, "1 I'ID'{S'S'{L'k'{W'v'}}}"}, {"[id]\n", 1, "1 S'id'"},
        {"[Head]\nk: v\n", 1, "0 "}, {"name: x\n[ID]\n", 1, "0 "}, {"word\n", 1, "0 "},
        {"\"string\"", 1, "0 "}, {"[IDs]", 1, "0 "}, {"<I D>", 1, "0 "},
    };
    for (const auto &c : cases)
        EXPECT_EQ(ReadDump(c.text, c.strict), c.read) << c.text << " strict " << c.strict;
    // Strict goes off only where the root is made: a strict read into a
    // tree fails at its first label, and frees the caller's nodes as well.
    auto base = ReadTree("[ID]\nk: v\n");
    ASSERT_EQ(base.result, 1);
    auto more = ReadTree("[ID]\nj: w\n", 1, base.tree);
    EXPECT_EQ(more.result, 0);
    EXPECT_EQ(more.tree, nullptr);
}

TEST(UserDataTreeText, EndStopsReadingRightBehindItsBracket) {
    const std::string text = std::string("[ID]\nk: v\n[End]") + "\x01\xFF\x00[More]\nx: y";
    ReadStream in(text);
    HalvUserCMData *tree = nullptr;
    EXPECT_EQ(HalvReadUserCMData(in.io(), &tree, 1), 1);
    EXPECT_EQ(in.rest(), text.substr(text.find("[End]") + 5));
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "S'ID'{L'k'{W'v'}} S'End'");
    for (uint32_t count : in.counts())
        EXPECT_EQ(count, 1u);

    // With items at the top [End] is an ordinary section; <End> stops.
    ReadStream items("<I>\n[End]\nk: v\n<end>tail");
    tree = nullptr;
    EXPECT_EQ(HalvReadUserCMData(items.io(), &tree, 0), 1);
    EXPECT_EQ(items.rest(), "tail");
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "I'I'{S'End'{L'k'{W'v'}}} I'end'");

    // A first node End stops at once.
    auto endOnly = ReadTree("[End]\n[Other]");
    EXPECT_EQ(endOnly.result, 1);
    EXPECT_EQ(ucm_test::DumpAndFree(endOnly.tree), "S'End'");
}

/* The bytes a stream still holds, read to its end. */
std::string RestOf(HalvIO *io) {
    std::string rest;
    char buffer[64];
    for (int32_t got; (got = io->read(io, buffer, sizeof buffer)) > 0;)
        rest.append(buffer, (size_t)got);
    return rest;
}

TEST(UserDataTreeText, LibraryMemoryStreamsReadAsByteStreamsDo) {
    // The library's memory streams are scanned in place; the tree, the result
    // and the bytes left behind must be those of a stream read a byte per call.
    std::string groups, decoded; // 150 decoded bytes: more than one batch
    for (int i = 0; i < 50; ++i) {
        groups += "QUJD";
        decoded += "ABC";
    }
    const std::string inputs[] = {
        "k: \"<<<<Base64Data:" + groups + ">>>>\"\nl: x",
        "k: \"<<<<Base64Data:" + groups + "QU",
        std::string(kHeader) + std::string("\x01\xFF\x00 binary tail", 14),
        "[ID]\r\nk: \"<<<<Base64Data:QUI=>>>>\"\r\nl: \"a\\\"b\" c\\\nd # note: x\r\n[End]\r\nrest",
        "k: a\xFF" "b\nm: {x {y} z}\nn: 'q' \"r: s\"",
        "<I>\n[S]\na=b c\n<End>tail",
        "k: \"<<<<Base64Data:QU",
        "[ID]\nk: \"" + std::string(40, 'x') + "\\\" y\"\n[End]" + std::string(3000, 'z'),
        "",
    };
    for (const std::string &input : inputs) {
        SCOPED_TRACE(input);
        ReadStream hand(input);
        HalvUserCMData *expected = nullptr;
        const int32_t result = HalvReadUserCMData(hand.io(), &expected, 0);

        std::string bytes = input; // size 0 makes a string stream read up to a NUL: "" too
        HalvIO *str = HalvIO_Str(bytes.data(), (uint32_t)bytes.size());
        HalvIO *mem = HalvIO_Mem(0);
        ASSERT_NE(str, nullptr);
        ASSERT_NE(mem, nullptr);
        ASSERT_EQ(mem->write(mem, input.data(), (uint32_t)input.size()), (int32_t)input.size());
        ASSERT_EQ(mem->seek(mem, 0, 0), 0);
        for (HalvIO *io : {str, mem}) {
            HalvUserCMData *tree = nullptr;
            EXPECT_EQ(HalvReadUserCMData(io, &tree, 0), result);
            EXPECT_EQ(Dump(tree), Dump(expected));
            EXPECT_EQ(RestOf(io), hand.rest());
            HalvFreeUserCMData(tree);
            io->close(io);
        }
        HalvFreeUserCMData(expected);
    }

    // The long block decodes whole.
    auto block = ReadTree(inputs[0]);
    EXPECT_EQ(block.result, 1);
    EXPECT_EQ(ucm_test::DumpAndFree(block.tree), "L'k'{D'" + decoded + "'} L'l'{W'x'}");

    // A token reader writing into the memory stream it reads from sees the
    // bytes its writes change, as with any stream, and nothing else.
    HalvIO *both = HalvIO_Mem(0);
    ASSERT_NE(both, nullptr);
    const std::string word(5000, 'w');
    ASSERT_EQ(both->write(both, word.data(), (uint32_t)word.size()), (int32_t)word.size());
    ASSERT_EQ(both->seek(both, 0, 0), 0);
    EXPECT_EQ(HalvReadUserCM(both, both), HALV_UCM_TOKEN_WORD);
    EXPECT_EQ(HalvIOMemLength(both), 5000u);
    EXPECT_EQ(both->seek(both, 0, 1), 5000); // each read and each write moved it once
    both->close(both);
}

TEST(UserDataTreeText, WhereTheReaderPutsEachNode) {
    const std::pair<const char *, const char *> cases[] = {
        // Names reopen, labels repeat.
        {"[A]\nx: 1\n[B]\ny: 2\n[a]\nz: 3\nx: 4\n",
         "1 S'A'{L'x'{W'1'} L'z'{W'3'} L'x'{W'4'}} S'B'{L'y'{W'2'}}"},
        // Sections are found below the current item; a name needs the same
        // length, so "ab" doesn't reopen "abc".
        {"<I>\n[S]\n[abc]\n<J>\n[S]\n<i>\n[s]\nk: v\n[ab]\n",
         "1 I'I'{S'S'{L'k'{W'v'}} S'abc' S'ab'} I'J'{S'S'}"},
        // <a> finds the section A and makes it the current item, so B
        // becomes its child.
        {"[A]\n<a>\n[B]\nk: v\n", "1 S'A'{S'B'{L'k'{W'v'}}}"},
        // A label after an item with no section lands in the previous
        // section; a value after a new section with no label goes to the
        // last label.
        {"<I1>\n[S]\n<I2>\nk: v\n", "1 I'I1'{S'S'{L'k'{W'v'}}} I'I2'"},
        {"[S]\nk: v\n[T]\n\"more\"\n", "1 S'S'{L'k'{W'v' T'more'}} S'T'"},
        // Assignment text joins the next node.
        {"name=value", "1 W'namevalue'"},
        {"[S]\nk: a=b\nx=[T]\n", "1 S'S'{L'k'{W'ab'}} S'xT'"},
        // Trees start at any level.
        {"a: 1\nb: \"2\"\n", "1 L'a'{W'1'} L'b'{T'2'}"},
        {"one\n\"two\"\n\"<<<<Base64Data:QUJD>>>>\"\nthree", "1 W'one' T'two' D'ABC' W'three'"},
        // Nodes that fit nowhere give -1 and keep the tree read so far.
        {"[S]\nk: v\n<I>\n", "-1 S'S'{L'k'{W'v'}}"},
        {"k: v\n[S]\n", "-1 L'k'{W'v'}"}, {"k: v\n<I>\n", "-1 L'k'{W'v'}"}, {"w\nk: v\n", "-1 W'w'"},
        {"w\n[S]\n", "-1 W'w'"}, {"<I>\nword\n", "-1 I'I'"}, {"<I>\nk: v\n", "-1 I'I'"},
        // Malformed streams give 0 and free everything.
        {"[S]\nk: {never closed", "0 "}, {"[S]\nk: {a}", "0 "}, {"[S]\nk: \"<<<<Base64Data:QUJ", "0 "},
        {"k: \"<<<<Base64Data:QUJD\n>>>>\"", "0 "},
    };
    for (const auto &[text, read] : cases)
        EXPECT_EQ(ReadDump(text), read) << text;

    // The writer prints a section below a section as a first section.
    auto nested = ReadTree("[A]\n<a>\n[B]\nk: v\n");
    EXPECT_EQ(WriteAndFree(nested.tree), "[A]\n[B]\nk: v\n");
    auto labels = ReadTree("a: 1\nb: \"2\"\n");
    EXPECT_EQ(WriteAndFree(labels.tree), "a: 1\nb: \"2\"\n");
    // Reading more text into a tree merges it.
    HalvUserCMData *tree = ReadTree("[A]\nx: 1\n[B]\ny: 2\n").tree;
    EXPECT_EQ(ReadInto(tree, "[b]\nw: 5\n[C]\n"),
              "1 S'A'{L'x'{W'1'}} S'B'{L'y'{W'2'} L'w'{W'5'}} S'C'");
    HalvFreeUserCMData(tree);
    // An End that is found again only reopens: reading goes on.
    tree = ReadTree("[S]\n[End]").tree;
    ReadStream in("[end]\nk: v\n[T]\n");
    EXPECT_EQ(HalvReadUserCMData(in.io(), &tree, 0), 1);
    EXPECT_EQ(Dump(tree), "S'S' S'End'{L'k'{W'v'}} S'T'");
    EXPECT_EQ(in.rest(), "");
    HalvFreeUserCMData(tree);
    // A caller's tree of sections with no current section for a label.
    tree = ReadTree("[S]\n").tree;
    EXPECT_EQ(ReadInto(tree, "k: v\n"), "-1 S'S'");
    HalvFreeUserCMData(tree);
    // The caller's old nodes go with a malformed text (the sanitizer build
    // checks the frees).
    tree = ReadTree("[S]\nk: v\n").tree;
    EXPECT_EQ(ReadInto(tree, "[T]\nj: {x"), "0 ");
    EXPECT_EQ(tree, nullptr);
    // Null arguments are refused and leave the tree alone.
    EXPECT_EQ(HalvReadUserCMData(nullptr, &tree, 0), 0);
    ReadStream some("[S]");
    EXPECT_EQ(HalvReadUserCMData(some.io(), nullptr, 0), 0);
}

TEST(UserDataTreeText, LongListsReopenTheFirstNodeOfEachName) {
    // Enough sections for the reader to index them; names are reopened
    // whatever the order and case, and a duplicate a host put in a tree is
    // never the one found.
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "[S" + std::to_string(i) + "]\nk: " + std::to_string(i) + "\n";
    auto base = ReadTree(text);
    ASSERT_EQ(base.result, 1);
    HalvUserCMData *last = base.tree;
    while (last->next != nullptr)
        last = last->next;
    last->next = Node(1, "s7"); // a second S7, behind the first
    std::mt19937 random(5);
    std::string more;
    std::vector<int> added(300, 0);
    for (int i = 0; i < 2000; ++i) {
        int n = (int)(random() % 300);
        ++added[n];
        more += "[s" + std::to_string(n) + "]\nj: x\n";
    }
    more += "[New]\n";
    ReadStream in(more);
    ASSERT_EQ(HalvReadUserCMData(in.io(), &base.tree, 0), 1);
    int sections = 0;
    for (HalvUserCMData *s = base.tree; s != nullptr; s = s->next, ++sections) {
        if (sections == 300) {
            EXPECT_EQ(Dump(s->children), ""); // the duplicate stays empty
            continue;
        }
        if (sections == 301) {
            EXPECT_STREQ(s->text, "New");
            continue;
        }
        int labels = 0;
        for (HalvUserCMData *l = s->children; l != nullptr; l = l->next)
            ++labels;
        EXPECT_EQ(labels, 1 + added[sections]) << s->text;
    }
    EXPECT_EQ(sections, 302);
    HalvFreeUserCMData(base.tree);
}

TEST(UserDataTreeText, ManyItemsWithManySectionsAlternating) {
    // Reopening items and sections in turn, each time adding below them,
    // keeps every label in order behind the earlier ones.
    std::string text;
    for (int round = 0; round < 40; ++round)
        for (int item = 0; item < 20; ++item)
            for (int section = 0; section < 20; section += 7)
                text += "<I" + std::to_string(item) + ">\n[S" + std::to_string(section) + "]\nr: " +
                        std::to_string(round) + "\n";
    auto read = ReadTree(text);
    ASSERT_EQ(read.result, 1);
    int items = 0;
    for (HalvUserCMData *i = read.tree; i != nullptr; i = i->next, ++items) {
        int sections = 0;
        for (HalvUserCMData *s = i->children; s != nullptr; s = s->next, ++sections) {
            int round = 0;
            for (HalvUserCMData *l = s->children; l != nullptr; l = l->next, ++round)
                ASSERT_EQ(std::string(l->children->text), std::to_string(round));
            EXPECT_EQ(round, 40);
        }
        EXPECT_EQ(sections, 3);
    }
    EXPECT_EQ(items, 20);
    HalvFreeUserCMData(read.tree);
}

/* A random tree of the shape and texts the writer renders faithfully. */
class TreeMaker {
  public:
    explicit TreeMaker(uint32_t seed) : random_(seed) {}

    HalvUserCMData *Make() {
        const int32_t rootKind = (int32_t)(random_() % 4);
        return List(rootKind);
    }

  private:
    std::string Text(const char *alphabet, size_t most) {
        std::string text;
        const size_t length = 1 + random_() % most;
        const size_t size = std::strlen(alphabet);
        for (size_t i = 0; i < length; ++i)
            text += alphabet[random_() % size];
        return text;
    }

    HalvUserCMData *Value() {
        switch (random_() % 3) {
        case 0:
            return Node(3, Text("abcXYZ019 .,;!?'()/+-_*&%$@~<>[]{}", 20).insert(0, "w"));
        case 1:
            return Node(4, Text("abc XYZ 019:#=\n<>[]{}',;", 40));
        default: {
            std::string bytes;
            for (size_t i = random_() % 120; i > 0; --i)
                bytes += (char)random_();
            return Node(5, bytes);
        }
        }
    }

    HalvUserCMData *List(int32_t kind) {
        HalvUserCMData *head = nullptr, **link = &head;
        const int count = kind == 0 ? 1 + (int)(random_() % 3) : (int)(random_() % 5);
        for (int i = 0; i < count; ++i) {
            HalvUserCMData *node;
            if (kind >= 3) {
                node = Value();
            } else {
                // Item and section names stay unique through a counter;
                // labels may repeat.
                std::string name = kind == 2 ? "L" + Text("abcXYZ019 _-.<>[]", 12)
                                             : Text("abcXYZ019 _-.:#<[\n", 12) + "-" +
                                                   std::to_string(serial_++);
                node = Node(kind, name);
                node->children = List(kind + 1);
            }
            *link = node;
            link = &node->next;
        }
        return head;
    }

    std::mt19937 random_;
    int serial_ = 0;
};

TEST(UserDataTreeText, RandomFaithfulTreesRoundTrip) {
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        TreeMaker maker(seed);
        HalvUserCMData *tree = maker.Make();
        ASSERT_TRUE(ucm_test::Faithful(tree)) << Dump(tree);
        const std::string text = WriteTree(tree);
        auto back = ReadTree(text);
        ASSERT_EQ(back.result, 1) << text;
        EXPECT_TRUE(ucm_test::SameTree(tree, back.tree)) << text << "\n" << Dump(back.tree);
        EXPECT_EQ(ucm_test::WriteAndFree(back.tree), text);
        HalvFreeUserCMData(tree);
    }
}

} // namespace
