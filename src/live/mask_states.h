// The three-state rule of float16 masks: NaN, positive zero or positive one.
#pragma once

#include "common/numpy_api.h"

namespace typed_shapes {

// For an exact, aligned, C-contiguous float16 array of native byte order: whether every entry is
// one of the three states, told from the bits.
[[nodiscard]] bool has_valid_states(PyArrayObject* mask) noexcept;

// For any array, with NumPy's operations: the int index of the first entry that is none of the
// three; null where there is none.
[[nodiscard]] Ref invalid_state_index(PyObject* mask);

}  // namespace typed_shapes
