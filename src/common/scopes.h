// Guards that hold over a scope: the recursion limit and the pause of the garbage collector.
#pragma once

#include <cstdint>

#include "common/watch.h"

namespace typed_shapes {

// The part of a stack where a level may begin without a further look, for the thread that had the
// last one. The interpreter's lock guards it.
struct KnownStack {
  std::uint64_t thread = 0;  // its number, which no other thread ever has; 0: none
  std::uintptr_t low = 0;
  std::uintptr_t size = 0;
};

// Counts one level of native recursion and refuses, with RecursionError, where the interpreter's
// limit or the real stack of the thread runs out. Every call of the module takes one, and so must
// what calls itself without the interpreter's help.
class RecursionLevel {
 public:
  RecursionLevel() : thread_(PyThreadState_Get()) {
    const auto address = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const bool is_known = thread_->id == known_.thread && address - known_.low < known_.size;
    if (is_known && thread_->recursion_remaining > 0) {
      --thread_->recursion_remaining;  // as Py_EnterRecursiveCall does
    } else {
      enter(address);
    }
  }
  ~RecursionLevel() {
    if (watches_usable) {
      ++thread_->recursion_remaining;
    } else {
      Py_LeaveRecursiveCall();
    }
  }
  RecursionLevel(const RecursionLevel&) = delete;
  RecursionLevel& operator=(const RecursionLevel&) = delete;

 private:
  void enter(std::uintptr_t address);

  static KnownStack known_;
  PyThreadState* thread_;
};

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
