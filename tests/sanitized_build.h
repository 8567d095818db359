/*
 * tests/sanitized_build.h - whether this test program runs under ASan or
 * TSan, for the few tests that scale their loops down there: the
 * sanitizers make every allocation and system call several times dearer,
 * and what a loop checks (nothing leaks, nothing grows) shows at a tenth
 * of the rounds as well.
 */
#ifndef HALV_TESTS_SANITIZED_BUILD_H
#define HALV_TESTS_SANITIZED_BUILD_H

namespace halvtest {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitizedBuild = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kSanitizedBuild = true;
#else
inline constexpr bool kSanitizedBuild = false;
#endif
#else
inline constexpr bool kSanitizedBuild = false;
#endif

/* rounds, or a tenth of them under a sanitizer. */
inline constexpr int ScaledRounds(int rounds) { return kSanitizedBuild ? rounds / 10 : rounds; }

} // namespace halvtest

#endif
