// The info-field tests' shared pieces: a field list the test owns, and the
// parser run over a vector of texts.
#ifndef HALV_TESTS_INFOFIELD_SUPPORT_H
#define HALV_TESTS_INFOFIELD_SUPPORT_H

#include <vector>

#include "dpk_hvsup.h"

namespace infotest {

/* A field list the test owns; released through the smart array. */
struct List {
    HalvInfoField **fields = nullptr;
    List() = default;
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    ~List() { HalvFreeSmartArray(fields); }
    uint32_t size() const { return HalvGetArraySize(fields); }
    HalvInfoField *operator[](uint32_t i) const { return fields[i]; }
};

/* HalvParseInfoFields over texts; its result. */
inline int Parse(List &list, const std::vector<const char *> &texts) {
    std::vector<const char *> strings(texts);
    strings.push_back(nullptr);
    return HalvParseInfoFields(strings.data(), &list.fields);
}

} // namespace infotest

#endif
