#pragma once

#include "common/misfit_path.h"

namespace typed_shapes {

// The fast path of state equality: one walk over both operands without building anything and
// without running Python code. Null where the canonical path has to decide. Only for untouched
// state values.

// states_equal(a, b)
[[nodiscard]] Ref payloads_equal(PyObject* a, PyObject* b);
// _states_value_equal(a, b)
[[nodiscard]] Ref typed_values_equal(PyObject* a, PyObject* b, MisfitPath& path);

}  // namespace typed_shapes
