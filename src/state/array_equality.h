#pragma once

#include "common/numpy_api.h"
#include "state/verdict.h"

namespace typed_shapes {

// What shape, dtype and np.allclose(a, b, rtol=0, atol=0, equal_nan=True) would say of two exact
// ndarrays, warnings included: unsure wherever NumPy might word it differently.
[[nodiscard]] Verdict arrays_equal(PyArrayObject* a, PyArrayObject* b) noexcept;

}  // namespace typed_shapes
