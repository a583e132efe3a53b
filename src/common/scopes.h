// What the interpreter does for its own code between two steps, and what it must not do in ours:
// the recursion limit, signals, other threads, the pause of the garbage collector.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/interpreter.h"
#include "common/watch.h"

namespace typed_shapes {

// The part of a thread's stack where a level may begin without a further look; empty at first.
struct StackWindow {
  std::uintptr_t low = 0;
  std::uintptr_t size = 0;

  [[nodiscard]] bool covers(std::uintptr_t address) const noexcept { return address - low < size; }
};

extern thread_local constinit StackWindow stack_window;

// Counts one level of native recursion and refuses, with RecursionError, where the interpreter's
// limit or the real stack of the thread runs out. Every call that may run Python code takes one,
// and so must what calls itself without the interpreter's help.
class RecursionLevel {
 public:
  [[gnu::always_inline]] RecursionLevel() : thread_(PyThreadState_Get()) {
    const auto address = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    if (watches_usable && interpreter::levels_left(thread_) > 0 && stack_window.covers(address)) {
      --interpreter::levels_left(thread_);
    } else {
      enter(address);
    }
  }
  ~RecursionLevel() {
    if (watches_usable) {
      ++interpreter::levels_left(thread_);
    } else {
      Py_LeaveRecursiveCall();
    }
  }
  RecursionLevel(const RecursionLevel&) = delete;
  RecursionLevel& operator=(const RecursionLevel&) = delete;

 private:
  static void enter(std::uintptr_t address);

  PyThreadState* thread_;
};

// How many bytes of the stack may still be used by what does not count its levels; a guess on a
// stack that is not the thread's own.
[[nodiscard]] std::size_t stack_left() noexcept;

[[noreturn]] void raise_stack_exceeded();

// Called at each step of a walk that runs no bytecode by itself: handlers of signals run, and other
// threads have their turn, half as often as between bytecodes.
void let_others_run();

// No garbage collection inside the scope. For native builds that run no Python code: they make only
// live objects, so a collection in their middle finds nothing and costs a walk over everything
// made.
class CollectorPause {
 public:
  CollectorPause() noexcept : was_enabled_(PyGC_Disable() != 0) {}
  ~CollectorPause() {
    if (was_enabled_) PyGC_Enable();
  }
  CollectorPause(const CollectorPause&) = delete;
  CollectorPause& operator=(const CollectorPause&) = delete;

 private:
  bool was_enabled_;
};

}  // namespace typed_shapes
