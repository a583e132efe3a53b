// Python errors as C++ exceptions: raised at the call that failed, turned back into NULL at one
// edge.
#pragma once

#include "common/ref.h"

namespace typed_shapes {

// Thrown when the interpreter's error indicator is set; carries nothing, the indicator has it all.
struct PythonError {};

// The result of an API call that returns a new reference, or NULL with an error set.
[[nodiscard]] inline Ref own(PyObject* result) {
  if (result == nullptr) throw PythonError{};
  return Ref::steal(result);
}

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

// Sets a Python exception with a printf-style text and throws.
[[noreturn]] void raise(PyObject* type, const char* format, ...);

// Makes the pending error the cause and the context of a new one, as `raise ... from` does.
[[noreturn]] void raise_from_pending(PyObject* type, const char* text);

// Puts the pending Python error aside while the scope runs code of its own.
class SavedError {
 public:
  SavedError() noexcept { PyErr_Fetch(&type_, &value_, &traceback_); }
  ~SavedError() { PyErr_Restore(type_, value_, traceback_); }
  SavedError(const SavedError&) = delete;
  SavedError& operator=(const SavedError&) = delete;

 private:
  PyObject* type_ = nullptr;
  PyObject* value_ = nullptr;
  PyObject* traceback_ = nullptr;
};

// The pending error as an exception object with its traceback; the indicator is clear afterwards.
[[nodiscard]] Ref take_pending();

// Makes a caught error the context of the pending one, as if that had been raised in an `except`
// clause.
void add_context(PyObject* caught);

// Sets the Python exception that stands for the C++ exception being handled.
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
    return std::forward<Body>(body)().release();
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
  } catch (...) {
    translate_current_exception();
    return -1;
  }
}

}  // namespace typed_shapes
