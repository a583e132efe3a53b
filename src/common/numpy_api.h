// The one place that includes NumPy's C API; numpy_api.cpp imports it.
#pragma once

#include "common/errors.h"

#define NPY_NO_DEPRECATED_API NPY_1_23_API_VERSION
#define NPY_TARGET_VERSION NPY_1_23_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL quillmere_typed_shapes_array_api
#ifndef TYPED_SHAPES_IMPORTS_NUMPY
#define NO_IMPORT_ARRAY
#endif
#include <numpy/arrayobject.h>

namespace typed_shapes {

// Imports the C API and starts to watch the names of the numpy module that the checks look up.
void import_numpy_api(PyObject* numpy);

// Whether native code may stand for what the checks look up on `np`: nothing was rebound there or
// in the module.
[[nodiscard]] bool numpy_untouched() noexcept;

// isinstance(object, np.ndarray)
[[nodiscard]] bool is_array(PyObject* object);
// np.name, looked up in the module now
[[nodiscard]] Ref numpy_attr(PyObject* name);

[[nodiscard]] inline PyArrayObject* as_array(PyObject* object) noexcept {
  return reinterpret_cast<PyArrayObject*>(object);
}

}  // namespace typed_shapes
