#include "common/class_body.h"

#include "common/globals.h"

namespace typed_shapes {

namespace {

const struct {
  Name doc{"__doc__"};
  Name module{"__module__"};
  Name qualname{"__qualname__"};
} own_names;

}  // namespace

ClassBody::ClassBody(const char* name, const char* doc)
    : name_(interned(name)), namespace_(own(PyDict_New())) {
  set(own_names.module, interned(kModuleName).get());
  set(own_names.qualname, name_.get());
  set(own_names.doc, interned(doc).get());
}

void ClassBody::set(PyObject* name, PyObject* value) {
  check(PyDict_SetItem(namespace_.get(), name, value));
}

void ClassBody::define(const Method& method) {
  Ref function = make_function(method.function);
  Ref name = get_attr(function.get(), names.name_dunder);
  switch (method.binding) {
    case Binding::kClassMethod:
      function = call(reinterpret_cast<PyObject*>(&PyClassMethod_Type), function.get());
      break;
    case Binding::kProperty:
      function = call(globals::builtin("property").get(), function.get());
      break;
    case Binding::kMethod:
      break;
  }
  set(name.get(), function.get());
}

Ref ClassBody::methods() const {
  Ref methods = own(PyDict_New());
  all_entries(namespace_.get(), [&](PyObject* name, PyObject* value) {
    if (Py_TYPE(value)->tp_descr_get != nullptr) {
      check(PyDict_SetItem(methods.get(), name, value));
    }
    return true;
  });
  return methods;
}

Ref ClassBody::make_class(const char* base) const {
  Ref bases = own(PyTuple_Pack(1, globals::builtin(base).get()));
  return call(reinterpret_cast<PyObject*>(&PyType_Type), name_.get(), bases.get(),
              namespace_.get());
}

}  // namespace typed_shapes
