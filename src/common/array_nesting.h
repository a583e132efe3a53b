// Object arrays may hold arrays, and themselves. NumPy's arithmetic follows them on the C stack and
// counts no levels, so the depth is checked first.
#pragma once

#include "common/numpy_api.h"

namespace typed_shapes {

// Throws RecursionError where the arrays inside of an object array are nested deeper than NumPy
// could follow on this stack.
void check_array_nesting(PyArrayObject* array);

// The same for an array of any kind, and nothing for what is not an array. Cheap where nothing is
// nested.
inline void check_nesting(PyObject* object) {
  constexpr unsigned long kBuiltins = Py_TPFLAGS_LONG_SUBCLASS | Py_TPFLAGS_UNICODE_SUBCLASS |
                                      Py_TPFLAGS_LIST_SUBCLASS | Py_TPFLAGS_TUPLE_SUBCLASS |
                                      Py_TPFLAGS_DICT_SUBCLASS;
  if ((Py_TYPE(object)->tp_flags & kBuiltins) != 0 || !PyArray_Check(object)) return;
  if (PyDataType_REFCHK(PyArray_DESCR(as_array(object)))) check_array_nesting(as_array(object));
}

// What comes before an operation on both.
inline void check_operands(PyObject* left, PyObject* right) {
  check_nesting(left);
  check_nesting(right);
}

}  // namespace typed_shapes
