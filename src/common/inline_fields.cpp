#include "common/inline_fields.h"

#include <array>
#include <cstdint>

#include "common/binder.h"
#include "common/interpreter.h"

namespace typed_shapes {

using interpreter::InlineValues;

namespace {

bool looks_as_filled(PyObject* instance, std::span<const Ref> values) noexcept {
  const InlineValues fields(instance);
  if (!fields || !fields.has_room(values.size()) || fields.size() != values.size()) return false;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (fields.value(i) != values[i].get() || fields.order(i) != i) return false;
  }
  return true;
}

}  // namespace

bool proves_inline_fields(PyTypeObject* type, std::span<PyObject* const> field_names) {
  if (!InlineValues::may_have(type)) return false;
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
  if (!fields.is_fresh()) return false;
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
