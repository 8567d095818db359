// Tree operations at the C interface: lookup by item, section and label,
// merging, setting, deleting, copying and freeing.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "userdata/streams.h"

using ucm_test::Dump;
using ucm_test::ReadTree;

namespace {

HalvUserCMData *Tree(const std::string &text) {
    auto read = ReadTree(text);
    EXPECT_EQ(read.result, 1) << text;
    return read.tree;
}

TEST(UserDataTreeOps, LookupByLevels) {
    EXPECT_EQ(HalvGetUserCMData(nullptr, "I", "S", "k"), nullptr);
    HalvUserCMData *tree = Tree("[A]\nx: 1\ny: 2\nx: 3\n[B]\nz:\n");
    // No names; a miss by length; a label alone searches the top list, which
    // holds sections; the node found must be of its level's kind: A is no item.
    const char *misses[][3] = {{nullptr, nullptr, nullptr}, {nullptr, "AB", nullptr}, {nullptr, "", nullptr},
                               {nullptr, nullptr, "x"},     {"A", nullptr, nullptr},  {"A", "x", nullptr}};
    for (const auto &m : misses)
        EXPECT_EQ(HalvGetUserCMData(tree, m[0], m[1], m[2]), nullptr) << "miss " << (&m - misses);
    HalvUserCMData *label = HalvGetUserCMData(tree, nullptr, "A", "x");
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(Dump(label->children), "W'1'");
    // A lookup stops at the deepest level named.
    EXPECT_EQ(HalvGetUserCMData(tree, nullptr, "b", nullptr), tree->next);
    EXPECT_EQ(HalvGetUserCMData(tree, nullptr, "a", "X"), label); // case doesn't count
    // Two labels x: GetParam gives the first, index 1 the second.
    EXPECT_STREQ(HalvGetParam(tree, nullptr, "A", "x"), "1");
    HalvUserCMData *second = HalvIndexedGetUserCMData(tree, nullptr, 0, "A", 0, "x", 1);
    ASSERT_NE(second, nullptr);
    EXPECT_STREQ(second->children->text, "3");
    for (const auto &[section, index] : {std::pair{0, 2}, std::pair{0, -1}, std::pair{1, 0}})
        EXPECT_EQ(HalvIndexedGetUserCMData(tree, nullptr, 0, "A", section, "x", index), nullptr);
    EXPECT_EQ(HalvGetParam(tree, nullptr, "B", "z"), nullptr); // a label without value
    EXPECT_EQ(HalvGetParam(tree, nullptr, "B", "missing"), nullptr);
    HalvFreeUserCMData(tree);

    // Items, and the first match's kind decides even when a later one fits.
    tree = Tree("<I>\n[S]\nk: v\n[k]\n");
    EXPECT_STREQ(HalvGetParam(tree, "i", "s", "K"), "v");
    EXPECT_EQ(HalvGetUserCMData(tree, "I", nullptr, "k"), nullptr); // item children are sections
    EXPECT_EQ(HalvGetUserCMData(tree, nullptr, "S", nullptr), nullptr);
    HalvFreeUserCMData(tree);

    // A tree of labels, and one of words, which no lookup enters.
    tree = Tree("a: 1\nb: 2\n");
    EXPECT_STREQ(HalvGetParam(tree, nullptr, nullptr, "B"), "2");
    HalvFreeUserCMData(tree);
    tree = Tree("a\nb\n");
    EXPECT_EQ(HalvGetUserCMData(tree, nullptr, nullptr, "a"), nullptr);
    HalvFreeUserCMData(tree);
}

TEST(UserDataTreeOps, GetDataAndLists) {
    HalvUserCMData *tree = Tree("[S]\nblob: \"<<<<Base64Data:AEEA>>>>\"\nword: x\nlist: 1\n2\n\"3\"\nnone:\n");
    void *data = reinterpret_cast<void *>(1);
    uint32_t size = 99;
    ASSERT_EQ(HalvGetData(tree, nullptr, "S", "blob", &data, &size), 1);
    ASSERT_EQ(size, 3u);
    EXPECT_EQ(std::memcmp(data, "\0A\0", 4), 0); // with the NUL behind
    EXPECT_EQ(HalvGetData(tree, nullptr, "S", "blob", nullptr, nullptr), 1);
    EXPECT_EQ(HalvGetData(tree, nullptr, "S", "word", &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0u);
    data = &size;
    size = 5;
    EXPECT_EQ(HalvGetData(tree, nullptr, "S", "missing", &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0u);

    char **list = nullptr;
    ASSERT_EQ(HalvGetUserCMList(tree, nullptr, "S", "list", &list), 3);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(std::vector<std::string>(list, list + 3), (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(list[3], nullptr);
    HalvFreeUserCMList(&list);
    EXPECT_EQ(list, nullptr);
    HalvFreeUserCMList(&list);
    HalvFreeUserCMList(nullptr);
    // No node or no children: 0 and the list untouched.
    char *marker[] = {nullptr};
    list = marker;
    EXPECT_EQ(HalvGetUserCMList(tree, nullptr, "S", "none", &list), 0);
    EXPECT_EQ(HalvGetUserCMList(tree, nullptr, "S", "missing", &list), 0);
    EXPECT_EQ(list, marker);
    // A list of a section: its labels.
    list = nullptr;
    EXPECT_EQ(HalvGetUserCMList(tree, nullptr, "S", nullptr, &list), 4);
    EXPECT_STREQ(list[3], "none");
    HalvFreeUserCMList(&list);
    HalvFreeUserCMData(tree);
}

TEST(UserDataTreeOps, MergeMakesPathsThatFit) {
    HalvUserCMData *node = reinterpret_cast<HalvUserCMData *>(1);
    HalvUserCMData *tree = HalvMergeUserCMData(nullptr, "I", "S", "k", &node);
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{L'k'}}");
    EXPECT_EQ(node, tree->children->children);
    // Existing item and section are found; the label is always new.
    tree = HalvMergeUserCMData(tree, "i", "s", "k", &node);
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{L'k' L'k'}}");
    EXPECT_EQ(node, tree->children->children->next);
    tree = HalvMergeUserCMData(tree, "J", nullptr, nullptr, &node);
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{L'k' L'k'}} I'J'");
    EXPECT_EQ(node, tree->next);
    // No names: nothing, and no node.
    EXPECT_EQ(HalvMergeUserCMData(tree, nullptr, nullptr, nullptr, &node), tree);
    EXPECT_EQ(node, nullptr);
    // A section or label with no item above doesn't fit a tree of items.
    EXPECT_EQ(HalvMergeUserCMData(tree, nullptr, "T", "k", &node), tree);
    EXPECT_EQ(node, nullptr);
    // A label with no section below an item is dropped; the item is reported.
    EXPECT_EQ(HalvMergeUserCMData(tree, "J", nullptr, "k", &node), tree);
    EXPECT_EQ(node, tree->next);
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{L'k' L'k'}} I'J'");
    EXPECT_EQ(HalvMergeUserCMData(tree, "I", "S", "x", nullptr), tree); // node pointer optional
    HalvFreeUserCMData(tree);

    // Trees of sections and of labels take their own levels.
    tree = HalvMergeUserCMData(nullptr, nullptr, "A", nullptr, &node);
    tree = HalvMergeUserCMData(tree, nullptr, "B", "k", &node);
    EXPECT_EQ(Dump(tree), "S'A' S'B'{L'k'}");
    EXPECT_EQ(HalvMergeUserCMData(tree, "I", "A", nullptr, &node), tree);
    EXPECT_EQ(node, nullptr);
    HalvFreeUserCMData(tree);
    tree = HalvMergeUserCMData(nullptr, nullptr, nullptr, "a", &node);
    tree = HalvMergeUserCMData(tree, nullptr, nullptr, "a", &node);
    EXPECT_EQ(Dump(tree), "L'a' L'a'");
    EXPECT_EQ(node, tree->next);
    HalvFreeUserCMData(tree);
}

TEST(UserDataTreeOps, SetStringAndSetData) {
    HalvUserCMData *tree = HalvSetString(nullptr, "I", "S", nullptr, "v");
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "I'I'{S'S'{T'v'}}");

    tree = HalvSetString(nullptr, "I", "S", "k", "first");
    tree = HalvSetString(tree, "I", "S", "k", "second");
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{L'k'{T'first'} L'k'{T'second'}}}");
    EXPECT_STREQ(HalvGetParam(tree, "I", "S", "k"), "first");
    // The value becomes the only child of the node reached.
    tree = HalvSetString(tree, "I", "S", nullptr, "over");
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{T'over'}}");
    // Paths that can't be completed store nothing.
    tree = HalvSetString(tree, "I", nullptr, "k", "lost");
    tree = HalvSetString(tree, nullptr, "T", nullptr, "lost");
    tree = HalvSetString(tree, nullptr, nullptr, nullptr, "lost");
    tree = HalvSetString(tree, "I", "S", "k", nullptr);
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "I'I'{S'S'{T'over'}}");

    const char bytes[] = {'\0', 'x', '\xFF', '\n'};
    tree = HalvSetData(nullptr, nullptr, "S", "blob", bytes, sizeof bytes);
    void *data = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(HalvGetData(tree, nullptr, "S", "blob", &data, &size), 1);
    ASSERT_EQ(size, sizeof bytes);
    EXPECT_EQ(std::memcmp(data, bytes, sizeof bytes), 0);
    EXPECT_EQ(static_cast<char *>(data)[size], '\0');
    EXPECT_NE(data, static_cast<const void *>(bytes));
    tree = HalvSetData(tree, nullptr, "S", "empty", nullptr, 0);
    ASSERT_EQ(HalvGetData(tree, nullptr, "S", "empty", &data, &size), 1);
    EXPECT_EQ(size, 0u);
    tree = HalvSetData(tree, nullptr, "S", "bad", nullptr, 4);
    EXPECT_EQ(HalvGetUserCMData(tree, nullptr, "S", "bad"), nullptr);
    EXPECT_EQ(ucm_test::WriteAndFree(tree), "[S]\nblob: \"<<<<Base64Data:AHj/Cg==>>>>\"\nempty: \"<<<<Base64Data:>>>>\"\n");
}

TEST(UserDataTreeOps, SetParamParsesItsValue) {
    HalvUserCMData *tree = HalvSetParam(nullptr, "ID", "S", "k", "1", 1);
    EXPECT_EQ(Dump(tree), "I'ID'{S'S'{L'k'{W'1'}}}");
    tree = HalvSetParam(tree, "ID", "S", "k", "2", 1);
    EXPECT_EQ(Dump(tree), "I'ID'{S'S'{L'k'{W'1'} L'k'{W'2'}}}");
    EXPECT_STREQ(HalvGetParam(tree, "ID", "S", "k"), "1");
    // The value's length counts, not its NUL.
    tree = HalvSetParam(tree, "ID", "S", "s", "\"a b\" and more", 5);
    tree = HalvSetParam(tree, "ID", "S", "d", "\"<<<<Base64Data:QUJD>>>>\"", 25);
    tree = HalvSetParam(tree, "ID", "S", "m", "one\ntwo # comment\n", 18);
    tree = HalvSetParam(tree, "ID", "S", "e", nullptr, 7);
    EXPECT_EQ(Dump(tree->children),
              "S'S'{L'k'{W'1'} L'k'{W'2'} L's'{T'a b'} L'd'{D'ABC'} L'm'{W'one' W'two '} L'e'}");
    // Replacing is delete then set: one label, now at the end.
    HalvDeleteParam(tree, "ID", "S", "K");
    tree = HalvSetParam(tree, "ID", "S", "k", "3", 1);
    EXPECT_EQ(Dump(tree->children),
              "S'S'{L'k'{W'2'} L's'{T'a b'} L'd'{D'ABC'} L'm'{W'one' W'two '} L'e' L'k'{W'3'}}");
    // Nothing given: the tree comes back as it was.
    EXPECT_EQ(HalvSetParam(tree, nullptr, nullptr, nullptr, nullptr, 0), tree);
    EXPECT_EQ(HalvSetParam(tree, nullptr, nullptr, nullptr, "x", 0), tree);
    HalvFreeUserCMData(tree);

    // Trees of sections; a value alone makes a tree of values.
    tree = HalvSetParam(nullptr, nullptr, "S", "k", "v", 1);
    EXPECT_EQ(ucm_test::WriteAndFree(tree), "[S]\nk: v\n");
    tree = HalvSetParam(nullptr, nullptr, nullptr, nullptr, "word", 4);
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "W'word'");
    // A value that breaks the reader takes the tree with it.
    tree = HalvSetParam(nullptr, nullptr, "S", "k", "v", 1);
    tree = HalvSetParam(tree, nullptr, "S", "j", "{open", 5);
    EXPECT_EQ(tree, nullptr);
}

TEST(UserDataTreeOps, DeleteNodesAndParams) {
    HalvUserCMData *tree = Tree("<I>\n[S]\nk: 1\n<J>\n[T]\n");
    HalvUserCMData *second = tree->next;
    tree = HalvDeleteUserCMData(tree, "I", nullptr, nullptr);
    EXPECT_EQ(tree, second);
    EXPECT_EQ(Dump(tree), "I'J'{S'T'}");
    // Misses and wrong kinds change nothing.
    EXPECT_EQ(HalvDeleteUserCMData(tree, "X", nullptr, nullptr), tree);
    EXPECT_EQ(HalvDeleteUserCMData(tree, nullptr, nullptr, nullptr), tree);
    EXPECT_EQ(HalvDeleteUserCMData(tree, "J", "T", "none"), tree);
    EXPECT_EQ(HalvDeleteUserCMData(tree, nullptr, "J", nullptr), tree);
    EXPECT_EQ(HalvDeleteUserCMData(nullptr, "J", nullptr, nullptr), nullptr);
    EXPECT_EQ(Dump(tree), "I'J'{S'T'}");
    EXPECT_EQ(HalvDeleteUserCMData(tree, "j", nullptr, nullptr), nullptr);

    // In the middle of a list, the rest stays in order.
    tree = Tree("[S]\na: 1\nb: 2\nc: 3\nb: 4\n");
    tree = HalvDeleteUserCMData(tree, nullptr, "S", "B");
    EXPECT_EQ(Dump(tree), "S'S'{L'a'{W'1'} L'c'{W'3'} L'b'{W'4'}}");
    // DeleteParam takes the first child of that text, of any kind.
    HalvDeleteParam(tree, nullptr, "S", "C");
    EXPECT_EQ(Dump(tree), "S'S'{L'a'{W'1'} L'b'{W'4'}}");
    HalvDeleteParam(tree, nullptr, "S", "missing");
    HalvDeleteParam(tree, nullptr, "S", nullptr);
    HalvDeleteParam(tree, nullptr, "X", "a");
    HalvDeleteParam(tree, nullptr, nullptr, "a");
    HalvDeleteParam(nullptr, nullptr, "S", "a");
    EXPECT_EQ(Dump(tree), "S'S'{L'a'{W'1'} L'b'{W'4'}}");
    HalvDeleteParam(tree, nullptr, "S", "a");
    HalvDeleteParam(tree, nullptr, "S", "b");
    EXPECT_EQ(Dump(tree), "S'S'");
    // The values of a label are its children too.
    tree = HalvSetParam(tree, nullptr, "S", "k", "x\ny\nx", 5);
    HalvDeleteParam(tree, nullptr, "S", "k");
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "S'S'");
    // A tree of words is never entered.
    tree = Tree("a\nb\n");
    EXPECT_EQ(HalvDeleteUserCMData(tree, nullptr, nullptr, "a"), tree);
    EXPECT_EQ(ucm_test::DumpAndFree(tree), "W'a' W'b'");
}

TEST(UserDataTreeOps, CopiesAndFreeing) {
    EXPECT_EQ(HalvUserCMDupData(nullptr), nullptr);
    HalvFreeUserCMData(nullptr);
    HalvUserCMData *tree = Tree("<I>\n[S]\nk: v\nd: \"<<<<Base64Data:AEEA>>>>\"\ne: \"\"\n<J>\n");
    HalvUserCMData *copy = HalvUserCMDupData(tree->children); // with no siblings
    EXPECT_EQ(ucm_test::DumpAndFree(copy), Dump(tree->children));
    copy = HalvUserCMDupData(tree);
    EXPECT_EQ(Dump(copy), Dump(tree));
    EXPECT_NE(copy->text, tree->text);
    // A value of length 0 has no text in the copy.
    HalvUserCMData *empty = HalvGetUserCMData(copy, "I", "S", "e")->children;
    EXPECT_EQ(empty->length, 0u);
    EXPECT_EQ(empty->text, nullptr);
    EXPECT_EQ(HalvGetParam(copy, "I", "S", "e"), nullptr);
    // The copy writes like the source, and freeing it leaves the source.
    EXPECT_EQ(ucm_test::WriteAndFree(copy), ucm_test::WriteTree(tree));
    EXPECT_EQ(Dump(tree), "I'I'{S'S'{L'k'{W'v'} L'd'{D'" + std::string("\0A\0", 3) + "'} L'e'{T''}}} I'J'");

    // Borrowed texts stay with their owner, in the copy too.
    std::string owner = "borrowed bytes";
    HalvUserCMData *label = HalvGetUserCMData(tree, "I", "S", "k");
    halv_internal_free(label->text);
    label->text = owner.data();
    label->length = 8;
    label->borrowed = 1;
    copy = HalvUserCMDupData(tree);
    HalvUserCMData *copied = HalvGetUserCMData(copy, "I", "S", "borrowed");
    ASSERT_NE(copied, nullptr);
    EXPECT_EQ(copied->borrowed, 0);
    EXPECT_NE(copied->text, owner.data());
    HalvFreeUserCMData(copy);
    HalvFreeUserCMData(tree);
    EXPECT_EQ(owner, "borrowed bytes");
}

TEST(UserDataTreeOps, LongSiblingListsFreeAndCopyWithoutDeepStacks) {
    // Two hundred thousand labels in one section.
    std::string text = "[S]\n";
    for (int i = 0; i < 200000; ++i)
        text += "k: v\n";
    HalvUserCMData *tree = Tree(text);
    HalvUserCMData *copy = HalvUserCMDupData(tree);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(ucm_test::WriteAndFree(copy), text);
    HalvFreeUserCMData(tree);
}

} // namespace
