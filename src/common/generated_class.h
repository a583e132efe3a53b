// What the standard library makes of a class body, as the fast paths know it.
#pragma once

#include <span>

#include "common/ref.h"

namespace typed_shapes {

// Whether a class is what `dataclass` makes of this body, a copy of the class's dictionary before:
// nobody's base, decorator or default has had a say in how instances are made and read.
[[nodiscard]] bool is_as_generated(PyTypeObject* type, PyObject* body,
                                   std::span<PyObject* const> field_names, bool is_frozen);

}  // namespace typed_shapes
