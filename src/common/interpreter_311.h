// CPython 3.11.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/ref.h"

namespace typed_shapes::interpreter {

// --- Native recursion ---

// What Py_EnterRecursiveCall counts down and Py_LeaveRecursiveCall up.
inline int& levels_left(PyThreadState* thread) noexcept { return thread->recursion_remaining; }

// --- Changes of dicts and classes ---

// Whether dict_version() tells of the dict from now on.
[[nodiscard]] inline bool watch_dict(PyObject* /*dict*/) noexcept { return true; }

// A number that no earlier state of the dict had.
inline std::uint64_t dict_version(PyObject* dict) noexcept {
  return reinterpret_cast<PyDictObject*>(dict)->ma_version_tag;
}

// Whether class_version() tells of the class from now on.
[[nodiscard]] inline bool watch_class(PyTypeObject* /*type*/) noexcept { return true; }

// A number that no earlier state of the class had; 0 where nobody looked at the class since it
// changed.
inline std::uint64_t class_version(PyTypeObject* type, PyObject* /*mro*/) noexcept {
  return (type->tp_flags & Py_TPFLAGS_VALID_VERSION_TAG) != 0 ? type->tp_version_tag : 0;
}

// --- Calls of classes ---

// Nothing goes past tp_vectorcall in this version.
inline void keep_vectorcall(PyTypeObject* /*type*/) noexcept {}

// --- The attributes of an instance ---

// The array of an instance; null where a dict took its place.
inline char* values_beside(PyObject* instance) noexcept {
  return reinterpret_cast<char**>(instance)[-4];
}

// --- The pending error ---

// The error with its traceback; the indicator is clear afterwards.
inline Ref take_raised() noexcept {
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  Ref owned_type = Ref::steal(type);
  Ref owned_value = Ref::steal(value);
  Ref owned_traceback = Ref::steal(traceback);
  if (owned_traceback) PyException_SetTraceback(value, traceback);
  return owned_value;
}

// Sets the error without the interpreter's own chaining of contexts.
inline void set_raised(const Ref& error) noexcept {
  PyErr_Restore(Py_NewRef(Py_TYPE(error.get())), Py_NewRef(error.get()),
                PyException_GetTraceback(error.get()));
}

// The error is aside while the scope lasts.
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

}  // namespace typed_shapes::interpreter
