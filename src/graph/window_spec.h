#pragma once

#include "common/record.h"

namespace typed_shapes {

inline const struct {
  Name maximum{"maximum"};
  Name max{"max"};
  Name minimum{"minimum"};
  Name min{"min"};
  Name variadic{"variadic"};
  Name window{"window"};
} window_names;

inline constexpr std::size_t kWindowFields = 4;
extern RecordOf<kWindowFields> window_spec;

// WindowSpec.from_raw(raw), the class looked up in the module now.
[[nodiscard]] Result coerce_window(PyObject* raw);

}  // namespace typed_shapes
