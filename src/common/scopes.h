// Guards that hold over a scope: the recursion limit and the pause of the garbage collector.
#pragma once

#include "common/errors.h"

namespace typed_shapes {

// Counts one level of native recursion and refuses, with RecursionError, where the interpreter's
// limit or the real stack of the thread runs out.
class RecursionLevel {
 public:
  explicit RecursionLevel(const char* where);
  ~RecursionLevel() { Py_LeaveRecursiveCall(); }
  RecursionLevel(const RecursionLevel&) = delete;
  RecursionLevel& operator=(const RecursionLevel&) = delete;
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
