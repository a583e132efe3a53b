// The attributes of an instance in 3.11 and 3.12: an array beside it. The version's own header says
// where that is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/python.h"

namespace typed_shapes::interpreter {

// A prefix that grows downwards holds its own size, the number of values, and the insertion order.
class InlineValues {
 public:
  explicit InlineValues(PyObject* instance) noexcept : values_(values_beside(instance)) {}

  static bool may_have(PyTypeObject* type) noexcept {
    return (type->tp_flags & Py_TPFLAGS_MANAGED_DICT) != 0;
  }

  explicit operator bool() const noexcept { return values_ != nullptr; }
  [[nodiscard]] bool is_fresh() const noexcept { return values_ != nullptr && size() == 0; }
  [[nodiscard]] bool has_room(std::size_t count) const noexcept { return bytes()[-1] >= count + 2; }
  [[nodiscard]] PyObject*& value(std::size_t i) const noexcept {
    return reinterpret_cast<PyObject**>(values_)[i];
  }
  [[nodiscard]] std::uint8_t& size() const noexcept { return bytes()[-2]; }
  [[nodiscard]] std::uint8_t& order(std::size_t i) const noexcept {
    return bytes()[-3 - static_cast<std::ptrdiff_t>(i)];
  }

 private:
  [[nodiscard]] std::uint8_t* bytes() const noexcept {
    return reinterpret_cast<std::uint8_t*>(values_);
  }

  char* values_;
};

}  // namespace typed_shapes::interpreter
