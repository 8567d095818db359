// Fuzz target for the function-description reader.
//
// Each input is read by HalvReadFuncDesc from a library memory stream, and
// walked here token by token to work out, by the table of labels, what the
// record must hold: the first section names the function and a second one
// ends the description; init, description and documentation keep their
// first line; arg, test and format collect every line; cspace..., bit...
// and interleave... (by prefix), categories and category take word lists,
// the last non-empty one winning, with "any" meaning all; input and output
// keep their first number; synchronous its last answer; a label with no
// value at the end fails the read.  The record must match field by field,
// and a copy of it must match it in depth.
#include <optional>
#include <vector>

#include "fuzz/support.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;

using Words = std::optional<std::vector<std::string>>;

struct Expected {
    int result = 1;
    std::optional<std::string> name, init, description, documentation;
    Words args, tests, formats, cspaces, categories;
    std::optional<std::vector<int32_t>> bits;
    int32_t inputs = 1, outputs = 1, synchronous = 1, interleave = 15;
    bool inputsGiven = false, outputsGiven = false;
};

bool IsSpace(char c) { return c == ' ' || (c >= 9 && c <= 13); }

std::vector<std::string> Split(const std::string &text) {
    std::vector<std::string> words;
    size_t at = 0;
    for (;;) {
        while (at < text.size() && IsSpace(text[at]))
            ++at;
        if (at == text.size())
            return words;
        size_t end = at;
        while (end < text.size() && !IsSpace(text[end]))
            ++end;
        words.push_back(text.substr(at, end - at));
        at = end;
    }
}

bool StartsWith(const std::string &text, const char *prefix) { return text.rfind(prefix, 0) == 0; }

void Apply(Expected &e, const std::string &label, const std::string &value) {
    /* Labels that keep their first line, and labels that collect them all. */
    static const std::pair<const char *, std::optional<std::string> Expected::*> kFirst[] = {
        {"init", &Expected::init},
        {"description", &Expected::description},
        {"documentation", &Expected::documentation}};
    static const std::pair<const char *, Words Expected::*> kEvery[] = {
        {"arg", &Expected::args}, {"test", &Expected::tests}, {"format", &Expected::formats}};
    auto replace = [&](Words &field) {
        std::vector<std::string> words = Split(value);
        if (!words.empty())
            field = words;
    };
    for (const auto &[name, field] : kFirst)
        if (label == name && !(e.*field))
            e.*field = value;
    for (const auto &[name, field] : kEvery)
        if (label == name)
            (e.*field ? *(e.*field) : (e.*field).emplace()).push_back(value);
    if (StartsWith(label, "cspace")) {
        if (StartsWith(value, "any"))
            e.cspaces.reset();
        else
            replace(e.cspaces);
    } else if (label == "categories" || label == "category") {
        replace(e.categories);
    } else if (StartsWith(label, "bit")) {
        if (StartsWith(value, "any")) {
            e.bits.reset();
        } else if (std::vector<std::string> words = Split(value); !words.empty()) {
            /* The array ends at its first -1, so a word that reads as -1
             * ends it for every reader, and a copy, early. */
            e.bits.emplace();
            for (const std::string &w : words) {
                const auto bits = (int32_t)std::strtol(w.c_str(), nullptr, 10);
                if (bits == -1)
                    break;
                e.bits->push_back(bits);
            }
        }
    } else if (StartsWith(label, "interleave")) {
        if (StartsWith(value, "any")) {
            e.interleave = 15;
        } else if (std::vector<std::string> words = Split(value); !words.empty()) {
            static const char *const kWords[] = {"scanline", "pixel", "frame", "compression"};
            int32_t mask = 0;
            for (const std::string &w : words) {
                int32_t bit = 0;
                for (int i = 0; i < 4; ++i)
                    if (w == kWords[i])
                        bit = 1 << i;
                if (bit == 0)
                    break;
                mask |= bit;
            }
            e.interleave = mask;
        }
    } else if (label == "input") {
        if (!e.inputsGiven)
            e.inputs = (int32_t)std::strtol(value.c_str(), nullptr, 10);
        e.inputsGiven = true;
    } else if (label == "output") {
        if (!e.outputsGiven)
            e.outputs = (int32_t)std::strtol(value.c_str(), nullptr, 10);
        e.outputsGiven = true;
    } else if (label == "synchronous") {
        e.synchronous = !value.empty() && std::strchr("YyTt1", value[0]) != nullptr ? 1 : 0;
    }
}

Expected Model(const uint8_t *data, size_t size) {
    Expected e;
    HalvIO *in = fuzz::OpenBytes(data, size);
    fuzz::TokenText key(512), value(2048);
    for (bool reading = true; reading;) {
        switch (key.Next(in)) {
        case HALV_UCM_TOKEN_SECTION:
            if (e.name)
                reading = false;
            else
                e.name = key.Text();
            break;
        case HALV_UCM_TOKEN_LABEL:
            if (value.Next(in) == HALV_UCM_TOKEN_END) {
                e.result = 0;
                reading = false;
            } else {
                Apply(e, key.Text(), value.Text());
            }
            break;
        case HALV_UCM_TOKEN_END:
            reading = false;
            break;
        default:
            break;
        }
    }
    in->close(in);
    return e;
}

void Same(const std::optional<std::string> &expected, const char *text, const char *what) {
    FailIf(expected.has_value() != (text != nullptr) || (text != nullptr && *expected != text), what);
}

void Same(const Words &expected, char **array, const char *what) {
    FailIf(expected.has_value() != (array != nullptr), what);
    if (array == nullptr)
        return;
    for (size_t i = 0; i < expected->size(); ++i)
        FailIf(array[i] == nullptr || (*expected)[i] != array[i], what);
    FailIf(array[expected->size()] != nullptr, what);
}

void CheckRecord(const Expected &e, const HalvFuncDesc *d) {
    Same(e.name, d->name, "name");
    Same(e.init, d->init, "init");
    Same(e.description, d->description, "description");
    Same(e.documentation, d->documentation, "documentation");
    Same(e.args, d->args, "args");
    Same(e.tests, d->tests, "tests");
    Same(e.formats, d->formats, "formats");
    Same(e.cspaces, d->cspaces, "cspaces");
    Same(e.categories, d->categories, "categories");
    FailIf(e.bits.has_value() != (d->bits != nullptr), "bits");
    if (d->bits != nullptr) {
        for (size_t i = 0; i < e.bits->size(); ++i)
            FailIf(d->bits[i] != (*e.bits)[i], "bits");
        FailIf(d->bits[e.bits->size()] != -1, "bits end");
    }
    if (d->inputs != e.inputs || d->outputs != e.outputs || d->synchronous != e.synchronous ||
        d->interleave != e.interleave)
        Fail("numbers");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 16))
        return 0;
    const Expected expected = Model(data, size);
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    HalvIO *in = fuzz::OpenBytes(data, size);
    const int result = HalvReadFuncDesc(in, desc);
    in->close(in);
    FailIf(result != expected.result, "result");
    CheckRecord(expected, desc);
    HalvFuncDesc *copy = HalvCopyFuncDesc(desc);
    FailIf(copy == nullptr, "copy");
    CheckRecord(expected, copy);
    HalvFreeFuncDesc(copy);
    HalvFreeFuncDesc(desc);
    return 0;
}
