// What the standard library makes of a record's class body, as the fast paths know it.
#pragma once

#include "common/record.h"

namespace typed_shapes {

// Whether a record class is what `dataclass` makes of this table: the class is a plain one, and
// `dataclass` and `field` were the standard library's own functions during the import. What these
// call inside of the library is trusted.
[[nodiscard]] bool is_as_generated(PyTypeObject* type, const RecordTable& table);

// What the generated __init__ of such a class takes for an argument that was left out, where a
// factory makes the field; null where none does.
[[nodiscard]] Ref factory_mark(PyTypeObject* type, std::span<const Field> fields);

}  // namespace typed_shapes
