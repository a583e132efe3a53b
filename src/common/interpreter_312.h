// CPython 3.12 and 3.13, which differ in where an instance has its attributes, and in what a call
// of a class does.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/ref.h"

namespace typed_shapes::interpreter {

// --- Native recursion ---

// What Py_EnterRecursiveCall counts down and Py_LeaveRecursiveCall up.
inline int& levels_left(PyThreadState* thread) noexcept { return thread->c_recursion_remaining; }

// --- Changes of dicts and classes ---

// Whether dict_version() tells of the dict from now on; where not, no error is set.
[[nodiscard]] bool watch_dict(PyObject* dict) noexcept;

// The changes of all watched dicts so far. The interpreter tells of each just before it makes it,
// and runs nothing in between.
extern std::uint64_t watched_changes;

// A number that no earlier state of the dict had.
inline std::uint64_t dict_version(PyObject* /*dict*/) noexcept { return watched_changes; }

// Whether class_version() tells of the class from now on; where not, no error is set.
[[nodiscard]] inline bool watch_class(PyTypeObject* type) noexcept {
  return watch_dict(type->tp_dict);
}

// A number that no earlier state of the class had; 0 where it has other bases than those of this
// MRO. The interpreter's own numbers will not do: 3.13 gives a class a thousand of them.
inline std::uint64_t class_version(PyTypeObject* type, PyObject* mro) noexcept {
  return type->tp_mro == mro ? watched_changes : 0;
}

// --- Calls of classes, and the attributes of an instance ---

#if PY_VERSION_HEX < 0x030D0000

// Nothing goes past tp_vectorcall in this version.
inline void keep_vectorcall(PyTypeObject* /*type*/) noexcept {}

// The array of an instance; null where a dict took its place. Its address, less one, stands where
// else that of the dict is.
inline char* values_beside(PyObject* instance) noexcept {
  char* marked = reinterpret_cast<char**>(instance)[-3];
  return (reinterpret_cast<std::uintptr_t>(marked) & 1U) != 0 ? marked + 1 : nullptr;
}

#else

// A call with all arguments in place that has become hot enters the code of a Python __init__ past
// tp_vectorcall, but not where the class allocates in its own way. A subclass does not inherit the
// slot.
inline void keep_vectorcall(PyTypeObject* type) noexcept {
  type->tp_alloc = [](PyTypeObject* cls, Py_ssize_t count) {
    return PyType_GenericAlloc(cls, count);
  };
}

// An array in the instance's own block, right behind it: four bytes (room, number of values,
// whether it lies in an instance, whether it is in use), the values, the insertion order.
class InlineValues {
 public:
  explicit InlineValues(PyObject* instance) noexcept
      : instance_(instance), bytes_(reinterpret_cast<std::uint8_t*>(instance + 1)) {}

  static bool may_have(PyTypeObject* type) noexcept {
    constexpr unsigned long kNeeded = Py_TPFLAGS_MANAGED_DICT | Py_TPFLAGS_INLINE_VALUES;
    return (type->tp_flags & kNeeded) == kNeeded && type->tp_basicsize == sizeof(PyObject);
  }

  // A dict that somebody asked for shares the array until it outgrows it.
  explicit operator bool() const noexcept { return bytes_[3] != 0; }
  [[nodiscard]] bool is_fresh() const noexcept {
    return *this && size() == 0 && reinterpret_cast<PyObject**>(instance_)[-3] == nullptr;
  }
  [[nodiscard]] bool has_room(std::size_t count) const noexcept { return bytes_[0] >= count; }
  [[nodiscard]] PyObject*& value(std::size_t i) const noexcept {
    return reinterpret_cast<PyObject**>(bytes_)[1 + i];
  }
  [[nodiscard]] std::uint8_t& size() const noexcept { return bytes_[1]; }
  [[nodiscard]] std::uint8_t& order(std::size_t i) const noexcept {
    return reinterpret_cast<std::uint8_t*>(&value(bytes_[0]))[i];
  }

 private:
  PyObject* instance_;
  std::uint8_t* bytes_;
};

#endif

// --- The pending error ---

// The error with its traceback; the indicator is clear afterwards.
inline Ref take_raised() noexcept { return Ref::steal(PyErr_GetRaisedException()); }

// Sets the error without the interpreter's own chaining of contexts.
inline void set_raised(const Ref& error) noexcept {
  PyErr_SetRaisedException(Py_NewRef(error.get()));
}

// The error is aside while the scope lasts.
class SavedError {
 public:
  SavedError() noexcept : error_(take_raised()) {}
  ~SavedError() { PyErr_SetRaisedException(error_.release()); }
  SavedError(const SavedError&) = delete;
  SavedError& operator=(const SavedError&) = delete;

 private:
  Ref error_;
};

}  // namespace typed_shapes::interpreter
