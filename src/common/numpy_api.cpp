#define TYPED_SHAPES_IMPORTS_NUMPY
#include "common/numpy_api.h"

#include "common/globals.h"

namespace typed_shapes {

namespace {

const struct {
  Name core{"core"};
  Name ndarray{"ndarray"};
  Name np{"np"};
  Name underscored_core{"_core"};
} own_names;

DictWatch numpy_names;

// Where `numpy` has its functions from: what somebody else bound there before us differs from it.
// It is `_core` since NumPy 2; before, `core`, beside which there may be a near-empty `_core`.
Ref numpy_core(PyObject* numpy) {
  for (const Name* name : {&own_names.underscored_core, &own_names.core}) {
    Ref core = own_attribute(PyObject_GetAttr(numpy, *name));
    if (core && own_attribute(PyObject_GetAttr(core.get(), names.allclose))) return core;
  }
  return Ref::borrow(numpy);
}

}  // namespace

void import_numpy_api(PyObject* numpy) {
  check(_import_array());
  numpy_names.start_module(numpy);
  const Ref core = numpy_core(numpy);
  PyObject* const looked_up[] = {
      names.allclose,    names.any,     names.array_equal, names.asarray, names.bool_,
      names.flatnonzero, names.float16, names.float64,     names.isnan,   names.signbit};
  for (PyObject* name : looked_up) {
    Ref value = own_attribute(PyObject_GetAttr(core.get(), name));
    if (!value) value = get_attr(numpy, name);
    numpy_names.expect(name, value.get());
  }
  // The type that native code tests for.
  numpy_names.expect(own_names.ndarray, reinterpret_cast<PyObject*>(&PyArray_Type));
}

bool numpy_untouched() noexcept { return globals::untouched() && numpy_names.untouched(); }

bool is_array(PyObject* object) {
  if (PyArray_CheckExact(object) && numpy_untouched()) return true;
  return is_instance(object, numpy_attr(own_names.ndarray).get());
}

Ref numpy_attr(PyObject* name) { return get_attr(globals::lookup(own_names.np).get(), name); }

}  // namespace typed_shapes
