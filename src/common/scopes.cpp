#include "common/scopes.h"

#include <cstdint>

#ifdef __GLIBC__
#include <pthread.h>
#endif

namespace typed_shapes {

namespace {

// Enough for what a level calls between two checks, the interpreter's own handlers included.
constexpr std::uintptr_t kStackReserve = std::uintptr_t{48} * 1024;

// The lowest address that native recursion of this thread may reach; 0 where it cannot be told.
std::uintptr_t stack_floor() noexcept {
#ifdef __GLIBC__
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  void* lowest = nullptr;
  std::size_t size = 0;
  const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
  pthread_attr_destroy(&attributes);
  return known ? reinterpret_cast<std::uintptr_t>(lowest) + kStackReserve : 0;
#else
  return 0;
#endif
}

}  // namespace

RecursionLevel::RecursionLevel(const char* where) {
  // The interpreter counts levels, not bytes: a raised limit or a small thread stack needs the
  // second look.
  thread_local const std::uintptr_t floor = stack_floor();
  if (reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) < floor) {
    raise(PyExc_RecursionError, "maximum stack depth exceeded%s", where);
  }
  if (Py_EnterRecursiveCall(where) != 0) throw PythonError{};
}

}  // namespace typed_shapes
