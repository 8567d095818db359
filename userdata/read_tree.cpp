/*
 * userdata/read_tree.cpp - HalvReadUserCMData: tokens into a tree.
 *
 * The reader tracks the current item, section and label.  An item or
 * section name that its list already holds (any kind, ignoring case)
 * reopens that node, which is how text merges into an existing tree; labels
 * and values are always new and go to the end of their list.  The root's
 * kind decides what may stand at the top: a node that fits nowhere stops the
 * read with -1.  Nothing resets the current section or label when a new item
 * opens.
 */
#include "userdata/internal.h"
#include "userdata/list_index.h"

namespace halv {
namespace {

constexpr int32_t kGoOn = 2; // not a result: the next token follows

class TreeReader {
  public:
    TreeReader(HalvUserCMData *root, bool strict) noexcept : root_(root), strict_(strict) {
        lists_.Open(top_, &root_, true);
    }

    int32_t Read(ByteSource &source) noexcept {
        for (;;) {
            const int32_t code = ReadToken(source, text_, Dialect::Current);
            const int32_t result = Take(code);
            if (result != kGoOn)
                return result;
        }
    }

    HalvUserCMData *Root() const noexcept { return root_; }

  private:
    int32_t Take(int32_t code) noexcept {
        switch (code) {
        case HALV_UCM_TOKEN_ITEM:
            return TakeItem();
        case HALV_UCM_TOKEN_SECTION:
            return TakeSection();
        case HALV_UCM_TOKEN_LABEL:
            return TakeLabel();
        case HALV_UCM_TOKEN_WORD:
            return TakeValue(HALV_UCM_WORD);
        case HALV_UCM_TOKEN_STRING:
            return TakeValue(HALV_UCM_STRING);
        case HALV_UCM_TOKEN_DATA:
            return TakeValue(HALV_UCM_DATA);
        case HALV_UCM_TOKEN_ERROR:
            return 0;
        case HALV_UCM_TOKEN_END:
            return strict_ ? 0 : 1;
        default:
            // '=' and anything else: the text stays collected and becomes
            // the front of the next node's text.
            return kGoOn;
        }
    }

    /* The collected text as a new node; the collector is empty again. */
    HalvUserCMData *NodeFromText(int32_t kind) noexcept {
        HalvUserCMData *node = NewNode(kind, text_.Bytes(), text_.Length());
        text_.Clear();
        return node;
    }

    /* The node found in list under the collected name, which is dropped. */
    HalvUserCMData *Reopen(ListCursor &cursor) noexcept {
        HalvUserCMData *found = lists_.Find(cursor, text_.Bytes(), text_.Length());
        if (found != nullptr)
            text_.Clear();
        return found;
    }

    /* The first node of all; a strict read demands that it is ID. */
    int32_t MakeRoot(HalvUserCMData *node) noexcept {
        root_ = node;
        top_.tail = node;
        if (strict_) {
            if (!NodeNamed(node, "ID", 2))
                return 0;
            strict_ = false;
        }
        return kGoOn;
    }

    int32_t Drop(HalvUserCMData *node) noexcept {
        HalvFreeUserCMData(node);
        return -1;
    }

    /* Makes owner the current item or section, whose children list the
     * cursor then follows. */
    void Enter(HalvUserCMData *&current, ListCursor &cursor, HalvUserCMData *owner, bool reopened) noexcept {
        if (current != nullptr)
            lists_.Close(cursor);
        current = owner;
        lists_.Open(cursor, &owner->children, reopened);
    }

    int32_t TakeItem() noexcept {
        if (HalvUserCMData *found = Reopen(top_)) {
            Enter(item_, items_, found, true);
            return kGoOn;
        }
        HalvUserCMData *node = NodeFromText(HALV_UCM_ITEM);
        if (node == nullptr)
            return -1;
        if (root_ == nullptr) {
            if (int32_t result = MakeRoot(node); result != kGoOn)
                return result;
        } else if (root_->kind == HALV_UCM_ITEM) {
            lists_.Append(top_, node);
        } else {
            return Drop(node);
        }
        Enter(item_, items_, node, false);
        return root_->kind == HALV_UCM_ITEM && NodeIsEnd(node) ? 1 : kGoOn;
    }

    int32_t TakeSection() noexcept {
        if (HalvUserCMData *found = Reopen(item_ != nullptr ? items_ : top_)) {
            Enter(section_, sections_, found, true);
            return kGoOn;
        }
        HalvUserCMData *node = NodeFromText(HALV_UCM_SECTION);
        if (node == nullptr)
            return -1;
        if (root_ == nullptr) {
            if (int32_t result = MakeRoot(node); result != kGoOn)
                return result;
        } else if (item_ != nullptr) {
            lists_.Append(items_, node);
        } else if (root_->kind == HALV_UCM_SECTION) {
            lists_.Append(top_, node);
        } else {
            return Drop(node);
        }
        Enter(section_, sections_, node, false);
        return root_->kind == HALV_UCM_SECTION && NodeIsEnd(node) ? 1 : kGoOn;
    }

    int32_t TakeLabel() noexcept {
        if (strict_)
            return 0;
        HalvUserCMData *node = NodeFromText(HALV_UCM_LABEL);
        if (node == nullptr)
            return -1;
        if (root_ == nullptr)
            MakeRoot(node);
        else if (section_ != nullptr)
            lists_.Append(sections_, node);
        else if (root_->kind == HALV_UCM_LABEL)
            lists_.Append(top_, node);
        else
            return Drop(node);
        // A label is never reopened: the list of the one before is done.
        label_ = node;
        lists_.Open(labels_, &node->children, false);
        return kGoOn;
    }

    int32_t TakeValue(int32_t kind) noexcept {
        if (strict_)
            return 0;
        HalvUserCMData *node = NodeFromText(kind);
        if (node == nullptr)
            return -1;
        if (root_ == nullptr)
            MakeRoot(node);
        else if (label_ != nullptr)
            lists_.Append(labels_, node);
        else if (root_->kind >= HALV_UCM_WORD && root_->kind <= HALV_UCM_DATA)
            lists_.Append(top_, node);
        else
            return Drop(node);
        return kGoOn;
    }

    HalvUserCMData *root_;
    bool strict_;
    HalvUserCMData *item_ = nullptr;
    HalvUserCMData *section_ = nullptr;
    HalvUserCMData *label_ = nullptr;
    ListCursor top_, items_, sections_, labels_;
    SiblingLists lists_;
    TextBuffer text_;
};

} // namespace
} // namespace halv

extern "C" {

HALV_API int32_t HalvReadUserCMData(HalvIO *in, HalvUserCMData **tree, int32_t strict) noexcept {
    if (in == nullptr || tree == nullptr)
        return 0;
    halv::ByteSource source(in, true);
    halv::TreeReader reader(*tree, strict != 0);
    const int32_t result = reader.Read(source);
    if (result == 0) {
        HalvFreeUserCMData(reader.Root());
        *tree = nullptr;
    } else {
        *tree = reader.Root();
    }
    return result;
}

} // extern "C"
