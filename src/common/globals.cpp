#include "common/globals.h"

namespace typed_shapes::globals {

DictWatch bound_names;

namespace {

Slot module_slot;
Slot builtins_slot;

Ref builtin(PyObject* name) {
  Ref value = own_attribute(PyObject_GetAttr(held(builtins_slot).get(), name));
  if (!value) raise(PyExc_NameError, "name '%U' is not defined", name);
  return value;
}

}  // namespace

void open(PyObject* module, PyObject* builtins) {
  module_slot.set(Ref::borrow(module));
  builtins_slot.set(Ref::borrow(builtins));
  bound_names.start(PyModule_GetDict(module));
}

PyObject* module() noexcept { return module_slot.get(); }

PyObject* dict() noexcept { return PyModule_GetDict(module_slot.get()); }

void bind(PyObject* name, PyObject* value) {
  check(PyDict_SetItem(dict(), name, value));
  bound_names.expect(name, value);
}

void bind(const char* name, PyObject* value) { bind(interned(name).get(), value); }

Ref held(const Slot& slot) {
  if (slot.get() != nullptr) return Ref::borrow(slot.get());
  raise(PyExc_RuntimeError, "module '%s' is not loaded", kModuleName);
}

Ref lookup(PyObject* name) {
  const Ref module = held(module_slot);
  if (PyObject* value = PyDict_GetItemWithError(dict(), name)) return Ref::borrow(value);
  check_indicator();
  return builtin(name);
}

Ref builtin(const char* name) { return builtin(interned(name).get()); }

bool is_mapping(PyObject* object) {
  if (PyDict_CheckExact(object) && untouched()) return true;
  return is_instance_of(object, names.Mapping);
}

}  // namespace typed_shapes::globals
