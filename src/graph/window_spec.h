#pragma once

#include "common/record.h"

namespace typed_shapes {

inline constexpr std::size_t kWindowFields = 4;
extern RecordOf<kWindowFields> window_spec;

// WindowSpec.from_raw(raw), the class looked up in the module now.
[[nodiscard]] Result coerce_window(PyObject* raw);

}  // namespace typed_shapes
