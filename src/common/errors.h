// Python errors in C++. A refusal is a value that functions return; an error in the middle of an
// expression is a C++ exception. Both become what the interpreter expects at one edge.
#pragma once

#include "common/interpreter.h"
#include "common/ref.h"

namespace typed_shapes {

// Thrown when the interpreter's error indicator is set; carries nothing, the indicator has it all.
struct PythonError {};

// What a refusal returns once the error is set: false from a check, an empty Result from a
// function.
struct [[nodiscard]] Refused {
  // NOLINTNEXTLINE(*-explicit-*)
  constexpr operator bool() const noexcept { return false; }
};

// A new reference, or none and the error set. To return one hands the error on without a throw;
// to use it as a reference throws the error.
class [[nodiscard]] Result {
 public:
  // NOLINTBEGIN(*-explicit-*)
  Result(Ref object) noexcept : object_(std::move(object)) {}
  Result(Refused /*unused*/) noexcept {}
  operator Ref() && {
    if (!object_) throw PythonError{};
    return std::move(object_);
  }
  // NOLINTEND(*-explicit-*)

  [[nodiscard]] PyObject* get() const {
    if (!object_) throw PythonError{};
    return object_.get();
  }
  [[nodiscard]] PyObject* release() {
    if (!object_) throw PythonError{};
    return object_.release();
  }
  // What the interpreter expects: the reference, or NULL with the error set.
  [[nodiscard]] PyObject* release_or_null() noexcept { return object_.release(); }
  explicit operator bool() const noexcept { return static_cast<bool>(object_); }

 private:
  Ref object_;
};

// The result of an API call that returns a new reference, or NULL with an error set.
inline Result own(PyObject* result) noexcept { return Ref::steal(result); }

// The result of an API call that returns a negative number with an error set.
template <typename Integer>
inline Integer check(Integer result) {
  if (result < 0) throw PythonError{};
  return result;
}

// The result of an attribute read; null, and no error, where there is no such attribute.
[[nodiscard]] inline Ref own_attribute(PyObject* result) {
  if (result == nullptr) {
    if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) throw PythonError{};
    PyErr_Clear();
  }
  return Ref::steal(result);
}

// Throws the error that a borrowed look-up may have left behind when it found nothing.
inline void check_indicator() {
  if (PyErr_Occurred() != nullptr) throw PythonError{};
}

// Sets a Python exception with a printf-style text.
Refused set_error(PyObject* type, const char* format, ...);
// The same in the middle of an expression: throws.
template <typename... Values>
[[noreturn]] void raise(PyObject* type, const char* format, Values... values) {
  static_cast<void>(set_error(type, format, values...));
  throw PythonError{};
}

// Makes the pending error the cause and the context of a new one, as `raise ... from` does.
[[noreturn]] void raise_from_pending(PyObject* type, const char* text);

// Puts the pending Python error aside while the scope runs code of its own.
using interpreter::SavedError;

// The pending error as an exception object with its traceback; the indicator is clear afterwards.
[[nodiscard]] Ref take_pending();

// Makes a caught error the context of the pending one, as if that had been raised in an `except`
// clause.
void add_context(PyObject* caught);

// Sets the Python exception that stands for the C++ exception being handled, which is none of ours.
void translate_current_exception() noexcept;

// Whether an exception can be thrown in this thread without asking for memory first. The C++
// runtime keeps them in storage that the dynamic linker makes at a thread's first use, and where
// there is no memory for it the linker ends the process.
extern thread_local constinit bool thread_can_throw;

// Has that storage made while there is memory; false, with MemoryError set, where there is none.
[[nodiscard]] bool prepare_thread() noexcept;

// The edge: runs the body and returns what the interpreter expects, NULL (or -1) with an error set.
template <typename Body>
PyObject* guarded(Body&& body) noexcept {
  if (!thread_can_throw && !prepare_thread()) return nullptr;
  try {
    return Result(std::forward<Body>(body)()).release_or_null();
  } catch (const PythonError&) {  // by itself: to throw it on would cost as much as the first throw
    return nullptr;
  } catch (...) {
    translate_current_exception();
    return nullptr;
  }
}

template <typename Body>
int guarded_status(Body&& body) noexcept {
  if (!thread_can_throw && !prepare_thread()) return -1;
  try {
    std::forward<Body>(body)();
    return 0;
  } catch (const PythonError&) {
    return -1;
  } catch (...) {
    translate_current_exception();
    return -1;
  }
}

}  // namespace typed_shapes
