// Owning references. A plain PyObject* is a borrowed reference everywhere in this code base;
// whatever owns one is a Ref (a scope) or a Slot (the life of the module).
#pragma once

#include <utility>

#include "common/python.h"

namespace typed_shapes {

class Ref {
 public:
  Ref() noexcept = default;
  Ref(const Ref&) = delete;
  Ref(Ref&& other) noexcept : object_(other.release()) {}
  ~Ref() { Py_XDECREF(object_); }

  Ref& operator=(const Ref&) = delete;
  // Lets go of the old object last: its finalizer may run code that looks at this reference.
  Ref& operator=(Ref&& other) noexcept {
    PyObject* old = std::exchange(object_, other.release());
    Py_XDECREF(old);
    return *this;
  }

  // Takes over a reference that the caller owns; null stays null.
  [[nodiscard]] static Ref steal(PyObject* object) noexcept { return Ref(object); }
  // Adds a reference to an object that somebody else owns; null stays null.
  [[nodiscard]] static Ref borrow(PyObject* object) noexcept { return Ref(Py_XNewRef(object)); }

  [[nodiscard]] PyObject* get() const noexcept { return object_; }
  // Hands the reference to the caller.
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(object_, nullptr); }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  explicit Ref(PyObject* object) noexcept : object_(object) {}

  PyObject* object_ = nullptr;
};

// A reference with static storage that lives as long as the loaded module. It has no destructor,
// since the interpreter is gone when those of statics run; clear_all() empties every slot when an
// import fails.
class Slot {
 public:
  constexpr Slot() noexcept = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  [[nodiscard]] PyObject* get() const noexcept { return object_; }
  PyObject* set(Ref value) noexcept;
  static void clear_all() noexcept;

 private:
  static void drop_what_was_taken_out() noexcept;

  PyObject* object_ = nullptr;
  PyObject* taken_out_ = nullptr;  // by clear_all(), which lets go of it later
  Slot* next_ = nullptr;
  bool listed_ = false;
};

}  // namespace typed_shapes
