/*
 * headers/typed_lists.cpp - a key with one value line for each row of a
 * table, read as integers, floats or doubles.
 *
 * The first line decides the width.  The floating forms keep rows apart
 * (a short line leaves zeros at the end of its row); the integer form runs
 * all lines together, so a short line's successors move up behind it.
 */
#include <type_traits>

#include "halv_userdata.h"
#include "headers/internal.h"
#include "headers/number_text.h"

namespace {

/* Columns of a table: every token for integers; for the floating forms
 * only tokens that begin like a number. */
template <typename T> bool CountsAsColumn(char first) {
    if constexpr (std::is_same_v<T, int32_t>)
        return true;
    else
        return (first >= '0' && first <= '9') || first == '.' || first == '-';
}

template <typename T> uint32_t Columns(const char *line) {
    uint32_t columns = 0;
    for (const char *p = halv::SkipSpace(line); *p != '\0'; p = halv::SkipSpace(halv::SkipToken(p)))
        if (CountsAsColumn<T>(*p))
            ++columns;
    return columns;
}

/* Scans up to columns numbers of one line into table from *next on, and
 * moves *next behind the last one taken. */
template <typename T> void ScanLine(const char *line, uint32_t columns, T *table, size_t *next) {
    const char *p = line;
    for (uint32_t k = 0; k < columns; ++k) {
        p = halv::SkipSpace(p);
        if (*p == '\0')
            break;
        halv::NumberText<T>::Scan(p, &table[(*next)++]);
        p = halv::SkipToken(p);
    }
}

template <typename T>
int GetTable(HalvUserCMData *tree, const char *section, const char *key, T **values, uint32_t *perLine) {
    if (values == nullptr || perLine == nullptr)
        return 0;
    char **lines = nullptr;
    int count = HVHdrGetHeaderList(tree, section, key, &lines);
    if (count < 1 || lines == nullptr) {
        HVHdrFreeList(&lines);
        *values = nullptr;
        *perLine = 0;
        return count < 1 ? count : 0;
    }
    halv::CNumberLocale c;
    uint32_t columns = Columns<T>(lines[0]);
    size_t cells = (size_t)count * columns;
    T *table = nullptr;
    if (cells >= 1) {
        table = static_cast<T *>(halv_internal_calloc(cells, sizeof(T)));
        if (table == nullptr) {
            HVHdrFreeList(&lines);
            *values = nullptr;
            *perLine = 0;
            return 0;
        }
        size_t next = 0;
        for (int row = 0; row < count && lines[row] != nullptr; ++row) {
            if constexpr (!std::is_same_v<T, int32_t>)
                next = (size_t)row * columns;
            ScanLine(lines[row], columns, table, &next);
        }
    }
    HVHdrFreeList(&lines);
    *values = table;
    *perLine = columns;
    return count;
}

} // namespace

extern "C" {

HALV_API int HVHdrGetHeaderIntsList(HalvUserCMData *tree, const char *section, const char *key, int32_t **values,
                                    uint32_t *perLine) noexcept {
    return GetTable(tree, section, key, values, perLine);
}

HALV_API int HVHdrGetHeaderDoublesList(HalvUserCMData *tree, const char *section, const char *key, double **values,
                                       uint32_t *perLine) noexcept {
    return GetTable(tree, section, key, values, perLine);
}

HALV_API int HVHdrGetHeaderFloatsList(HalvUserCMData *tree, const char *section, const char *key, float **values,
                                      uint32_t *perLine) noexcept {
    return GetTable(tree, section, key, values, perLine);
}

} // extern "C"
