#include "common/scopes.h"

#include <algorithm>
#include <cstdint>

#ifdef __GLIBC__
#include <pthread.h>
#endif

namespace typed_shapes {

namespace {

using Address = std::uintptr_t;

// Ends the texts of the errors.
constexpr const char* kWhere = " in quillmere.functions._typed_shapes";

// Enough for what a level calls between two checks, callbacks into Python and NumPy and the
// interpreter's own handlers included.
constexpr Address kStackReserve = Address{48} * 1024;

// Of a large stack this part is kept as well: the kernel never lets the main thread's grow into the
// last MiB above another mapping, and where there is no limit, that mapping is what ends it.
constexpr Address kReservedPart = 64;

// How far one look is good for. A stack's limits can change, so deeper levels look again.
constexpr Address kStep = Address{1024} * 1024;

struct Stack {
  Address low = 0;
  Address size = 0;  // 0 where it cannot be told
};

Stack stack_of_this_thread() noexcept {
  Stack stack;
#ifdef __GLIBC__
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return stack;
  void* lowest = nullptr;
  if (pthread_attr_getstack(&attributes, &lowest, &stack.size) != 0) stack.size = 0;
  stack.low = reinterpret_cast<Address>(lowest);
  pthread_attr_destroy(&attributes);
#endif
  return stack;
}

// Whether a level may begin at this address, which the window does not cover.
bool has_room(Address address) noexcept {
  const Stack stack = stack_of_this_thread();
  if (stack.size == 0) return true;
  const Address end = stack.low + stack.size;
  if (address < stack.low || address >= end) {
    // Not the thread's own stack, but one that a coroutine library made. Its end is not known: the
    // interpreter's count has to do. The window must not reach into the thread's own.
    const Address low = address < stack.low ? address - kStep : std::max(end, address - kStep);
    stack_window = {low, address - low + 1};
    return true;
  }
  const Address floor = stack.low + std::max(kStackReserve, stack.size / kReservedPart);
  if (address < floor) return false;
  const Address low = std::max(floor, address - kStep);
  stack_window = {low, end - low};
  return true;
}

}  // namespace

thread_local constinit StackWindow stack_window;

void RecursionLevel::enter(std::uintptr_t address) {
  // The interpreter counts levels, not bytes: a raised limit or a small thread stack needs the
  // second look.
  if (!stack_window.covers(address) && !has_room(address)) {
    raise(PyExc_RecursionError, "maximum stack depth exceeded%s", kWhere);
  }
  if (Py_EnterRecursiveCall(kWhere) != 0) throw PythonError{};
}

}  // namespace typed_shapes
