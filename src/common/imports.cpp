#include "common/imports.h"

#include "common/globals.h"

namespace typed_shapes {

namespace {

// import name
Ref import_module(const char* name, PyObject* from_list) {
  Ref key = own(PyUnicode_FromString(name));
  return own(PyImport_ImportModuleLevelObject(key.get(), globals::dict(), nullptr, from_list, 0));
}

}  // namespace

Ref list_of(Texts texts) {
  Ref list = own(PyList_New(0));
  for (const char* text : texts) {
    check(PyList_Append(list.get(), interned(text).get()));
  }
  return list;
}

Ref import_as(const char* module_name, const char* bound_name) {
  Ref module = import_module(module_name, nullptr);
  globals::bind(bound_name, module.get());
  return module;
}

void import_from(const char* module_name, Texts imported) {
  Ref module = import_module(module_name, list_of(imported).get());
  for (const char* name : imported) {
    Ref value = own_attribute(PyObject_GetAttrString(module.get(), name));
    if (!value) raise(PyExc_ImportError, "cannot import name '%s' from '%s'", name, module_name);
    globals::bind(name, value.get());
  }
}

void check_mapping() {
  const Ref abstract = own(PyImport_ImportModule("collections.abc"));
  const Ref expected = get_attr(abstract.get(), names.Mapping);
  const Ref origin =
      own_attribute(PyObject_GetAttrString(globals::lookup(names.Mapping).get(), "__origin__"));
  if (origin.get() != expected.get()) globals::bound_names.expect(names.Mapping, Py_None);
}

}  // namespace typed_shapes
