// The one place that includes NumPy's C API; numpy_api.cpp imports it.
#pragma once

#include "common/python.h"

#define NPY_NO_DEPRECATED_API NPY_1_23_API_VERSION
#define NPY_TARGET_VERSION NPY_1_23_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL quillmere_typed_shapes_array_api
#ifndef TYPED_SHAPES_IMPORTS_NUMPY
#define NO_IMPORT_ARRAY
#endif
#include <numpy/arrayobject.h>

namespace typed_shapes {

// Throws where NumPy's C API cannot be had.
void import_numpy_api();

}  // namespace typed_shapes
