#pragma once

#include "common/python.h"

namespace typed_shapes {

// Whether coerce_state takes the whole payload without running Python code. Throws RecursionError
// for one that is too deep or contains itself. Only for untouched state values.
[[nodiscard]] bool is_plain_payload(PyObject* raw);

}  // namespace typed_shapes
