// CPython keeps the attributes of an ordinary instance in an array beside it, in the order in
// which the first instance of the class got them. Filling that array at once is a good deal cheaper
// than one PyObject_GenericSetAttr a field, and leaves the very same object.
#pragma once

#include <span>

#include "common/errors.h"

namespace typed_shapes {

// Whether this interpreter lays out instances of the class that way, found out on a first instance:
// the class must have had none before. Where it does not, records fall back to
// PyObject_GenericSetAttr.
[[nodiscard]] bool proves_inline_fields(PyTypeObject* type, std::span<PyObject* const> field_names);

// Fills the fields of an instance fresh from object.__new__, whose class has inline fields. False,
// and nothing done, where this instance came without the array.
bool store_inline_fields(PyObject* instance, PyObject* const* values, std::size_t count) noexcept;

// Whether the instance, whose class has inline fields, still has the array: somebody who asks for
// __dict__ takes it away.
[[nodiscard]] bool has_inline_array(PyObject* instance) noexcept;

// A field in the array, borrowed; null where it is unset.
[[nodiscard]] PyObject* inline_field(PyObject* instance, std::size_t index) noexcept;

}  // namespace typed_shapes
