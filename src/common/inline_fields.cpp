#include "common/inline_fields.h"

#include <array>
#include <cstdint>

#include "common/binder.h"

namespace typed_shapes {

namespace {

// PyDictValues of 3.11: a prefix that grows downwards holds its own size, the number of values, and
// the insertion order.
class InlineValues {
 public:
  explicit InlineValues(PyObject* instance) noexcept
      : values_(reinterpret_cast<PyObject***>(instance)[-4]) {}

  explicit operator bool() const noexcept { return values_ != nullptr; }
  [[nodiscard]] PyObject*& value(std::size_t i) const noexcept { return values_[i]; }
  [[nodiscard]] std::uint8_t room() const noexcept { return bytes()[-1]; }
  [[nodiscard]] std::uint8_t& size() const noexcept { return bytes()[-2]; }
  [[nodiscard]] std::uint8_t& order(std::size_t i) const noexcept {
    return bytes()[-3 - static_cast<std::ptrdiff_t>(i)];
  }

 private:
  [[nodiscard]] std::uint8_t* bytes() const noexcept {
    return reinterpret_cast<std::uint8_t*>(values_);
  }

  PyObject** values_;
};

bool looks_as_filled(PyObject* instance, std::span<const Ref> values) noexcept {
  const InlineValues fields(instance);
  if (!fields || fields.room() < values.size() + 2 || fields.size() != values.size()) return false;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (fields.value(i) != values[i].get() || fields.order(i) != i) return false;
  }
  return true;
}

}  // namespace

bool proves_inline_fields(PyTypeObject* type, std::span<PyObject* const> field_names) {
  if ((type->tp_flags & Py_TPFLAGS_MANAGED_DICT) == 0) return false;
  Ref no_arguments = own(PyTuple_New(0));
  Ref probe = own(PyBaseObject_Type.tp_new(type, no_arguments.get(), nullptr));
  std::array<Ref, kMaxParameters> values;
  for (std::size_t i = 0; i < field_names.size(); ++i) {
    values[i] = own(PyList_New(0));
    check(PyObject_GenericSetAttr(probe.get(), field_names[i], values[i].get()));
  }
  return looks_as_filled(probe.get(), {values.data(), field_names.size()});
}

bool store_inline_fields(PyObject* instance, PyObject* const* values, std::size_t count) noexcept {
  const InlineValues fields(instance);
  if (!fields || fields.size() != 0) return false;
  for (std::size_t i = 0; i < count; ++i) {
    fields.value(i) = Py_NewRef(values[i]);
    fields.order(i) = static_cast<std::uint8_t>(i);
  }
  fields.size() = static_cast<std::uint8_t>(count);
  return true;
}

bool has_inline_array(PyObject* instance) noexcept {
  return static_cast<bool>(InlineValues(instance));
}

PyObject* inline_field(PyObject* instance, std::size_t index) noexcept {
  return InlineValues(instance).value(index);
}

}  // namespace typed_shapes
