// What the standard library makes of a record's class body, as the fast paths know it.
#pragma once

#include "common/record.h"

namespace typed_shapes {

// Whether a class is what `dataclass` makes of this table where nobody changed `dataclass`, `field`
// or `object` before the import. The body is a copy of the class's dictionary before.
[[nodiscard]] bool is_as_generated(PyTypeObject* type, PyObject* body, const RecordTable& table);

// What the generated __init__ of such a class takes for an argument that was left out, where a
// factory makes the field; null where none does.
[[nodiscard]] Ref factory_mark(PyTypeObject* type, std::span<const Field> fields);

}  // namespace typed_shapes
