// What becomes of a failed check of the C++ library, such as an index past the end: a line that
// names it, and the end of the process. The library has a routine for that, but one that is newer
// than the oldest library which the wheel is for: the linker puts this in its place
// (CMakeLists.txt).
#include <version>

#if defined(__linux__) && defined(__GLIBCXX__)

#include <cstdio>
#include <cstdlib>

extern "C" [[noreturn, gnu::used]] void __wrap__ZSt21__glibcxx_assert_failPKciS0_S0_(
    const char* file, int line, const char* function, const char* condition) noexcept {
  std::fprintf(stderr, "%s:%d: %s: failed: %s\n", file, line, function, condition);
  std::abort();
}

#endif
