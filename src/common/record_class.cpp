// The class of a record as the class statement and the decorator make it.
#include "common/globals.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

const struct {
  Name annotations{"__annotations__"};
  Name compare{"compare"};
  Name default_factory{"default_factory"};
  Name eq{"eq"};
  Name frozen{"frozen"};
  Name repr{"repr"};
} own_names;

// What the class body assigns to the field; null where it assigns nothing.
Ref default_of(const Field& field) {
  const auto call_field = [](std::initializer_list<Keyword> options) {
    return call_keywords(globals::lookup(names.field).get(), {}, {options.begin(), options.size()});
  };
  const Default kind = field.default_value;
  if (PyTypeObject* factory = default_factory(kind)) {
    return call_field({{own_names.default_factory, reinterpret_cast<PyObject*>(factory)}});
  }
  if (kind != Default::kHidden) return Ref::borrow(shared_default(kind));
  return call_field(
      {{names.default_, Py_None}, {own_names.compare, Py_False}, {own_names.repr, Py_False}});
}

}  // namespace

ClassBody Record::class_body() const {
  ClassBody body(table_.name, table_.doc);
  Ref annotations = own(PyDict_New());
  body.set(own_names.annotations, annotations.get());
  for (const Field& field : table_.fields) {
    Ref name = interned(field.name);
    check(PyDict_SetItem(annotations.get(), name.get(), interned(field.annotation).get()));
    if (Ref value = default_of(field)) body.set(name.get(), value.get());
  }
  for (const Method& method : table_.methods) body.define(method);
  return body;
}

Ref Record::decorated(PyObject* type) const {
  Ref decorator = globals::lookup(names.dataclass);
  if (table_.decorator != Decorator::kPlain) {
    const bool frozen = table_.decorator == Decorator::kFrozen;
    const Keyword options[] = {
        {frozen ? own_names.frozen : own_names.eq, frozen ? Py_True : Py_False}};
    decorator = call_keywords(decorator.get(), {}, options);
  }
  return call(decorator.get(), type);
}

}  // namespace typed_shapes
