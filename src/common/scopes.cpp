#include "common/scopes.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

#ifdef __GLIBC__
#include <pthread.h>
#endif

namespace typed_shapes {

namespace {

using Address = std::uintptr_t;

// Suffix of the error messages.
constexpr const char* kWhere = " in quillmere.functions._typed_shapes";

// Enough for what a level calls between two checks, callbacks into Python and NumPy and the
// interpreter's own handlers included. OpenBLAS picks its kernels by the processor, and those for
// Haswell and Zen take the most: a callback that inverts a small matrix needs some 60 KiB there.
constexpr Address kStackReserve = Address{128} * 1024;

// A smaller stack keeps five eighths of itself, so that flat payloads pass wherever Python starts.
constexpr Address small_stack_reserve(Address size) noexcept { return size / 8 * 5; }

// Of a large stack this part is kept as well: the kernel never lets the main thread's grow into the
// last MiB above another mapping, and where there is no limit, that mapping is what ends it.
constexpr Address kLargeStackPart = 64;

// How far one look is good for. A stack's limits can change, so deeper levels look again.
constexpr Address kStep = Address{1024} * 1024;

struct Stack {
  Address low = 0;
  Address size = 0;  // 0 where it cannot be told

  [[nodiscard]] bool holds(Address address) const noexcept { return address - low < size; }
  // The lowest address where a level may begin.
  [[nodiscard]] Address floor() const noexcept {
    return low +
           std::max(std::min(kStackReserve, small_stack_reserve(size)), size / kLargeStackPart);
  }
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
  if (!stack.holds(address)) {
    // Not the thread's own stack, but one that a coroutine library made. Its end is not known: the
    // interpreter's count has to do. The window must not reach into the thread's own.
    const Address low = address < stack.low ? address - kStep : std::max(end, address - kStep);
    stack_window = {low, address - low + 1};
    return true;
  }
  if (address < stack.floor()) return false;
  const Address low = std::max(stack.floor(), address - kStep);
  stack_window = {low, end - low};
  return true;
}

}  // namespace

thread_local constinit StackWindow stack_window;

void RecursionLevel::enter(std::uintptr_t address) {
  // The interpreter counts levels, not bytes: a raised limit or a small thread stack needs the
  // second look.
  if (!stack_window.covers(address) && !has_room(address)) raise_stack_exceeded();
  if (Py_EnterRecursiveCall(kWhere) != 0) throw PythonError{};
}

void raise_stack_exceeded() {
  raise(PyExc_RecursionError, "maximum stack depth exceeded%s", kWhere);
}

std::size_t stack_left() noexcept {
  const auto address = reinterpret_cast<Address>(__builtin_frame_address(0));
  const Stack stack = stack_of_this_thread();
  if (!stack.holds(address)) return kStackReserve;
  return address < stack.floor() ? 0 : address - stack.floor();
}

void let_others_run() {
  using Clock = std::chrono::steady_clock;
  constexpr unsigned kStepsPerLook = 64;
  // Twice the interpreter's switch interval: a thread that waits asks for the lock after one, and
  // one that was woken in vain before that begins to count anew.
  constexpr auto kTurn = std::chrono::milliseconds(10);
  static unsigned steps = 0;
  static Clock::time_point turn_began;
  check(PyErr_CheckSignals());
  if (++steps % kStepsPerLook != 0) return;
  const Clock::time_point now = Clock::now();
  if (now - turn_began < kTurn) return;
  turn_began = now;
  Py_BEGIN_ALLOW_THREADS;
  Py_END_ALLOW_THREADS;
}

}  // namespace typed_shapes
