#pragma once

#include "common/record.h"

namespace typed_shapes {

extern Record window_spec;

void define_window_spec();

// WindowSpec.from_raw(raw), the class looked up in the module now.
[[nodiscard]] Ref coerce_window(PyObject* raw);

}  // namespace typed_shapes
