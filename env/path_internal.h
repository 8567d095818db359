/*
 * env/path_internal.h - what the file search and the file operations share
 * without exporting it.
 */
#ifndef HALV_ENV_PATH_INTERNAL_H
#define HALV_ENV_PATH_INTERNAL_H

#include <cstddef>

namespace halv {

/* A new string of the texts one after the other, or null when memory runs
 * out.  Null pieces count as empty. */
char *JoinTexts(const char *const *pieces, size_t count) noexcept;

/* Copies the regular file source to destination, with its permission bits
 * and times.  The destination must not exist unless overwrite is set.
 * true when done; a destination this call created is removed on failure. */
bool CopyRegularFile(const char *destination, const char *source, bool overwrite) noexcept;

} // namespace halv

#endif
