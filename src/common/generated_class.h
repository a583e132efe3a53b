// What the standard library makes of a record's class body, as the fast paths know it.
#pragma once

#include "common/record.h"

namespace typed_shapes {

// The __init__ of a record class that is what `dataclass` makes of this table, else null: the class
// is a plain one, and `dataclass` and `field` were the standard library's own functions during the
// import. What these call inside of the library is trusted with all but the methods of the class.
[[nodiscard]] Ref generated_init(PyTypeObject* type, const RecordTable& table);

// What that __init__ takes for an argument that was left out, where a factory makes the field; null
// where none does.
[[nodiscard]] Ref factory_mark(PyObject* init, std::span<const Field> fields);

}  // namespace typed_shapes
