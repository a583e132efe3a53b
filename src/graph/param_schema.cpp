// The parameter schema of a function entry: a mapping of names to entries, or a list of typed rows.
#include "common/checks.h"
#include "graph/param_spec.h"

namespace typed_shapes {

namespace {

const struct {
  Name param_name{"_param_name"};
} own_names;

// cls.from_raw, looked up before its arguments are made.
class EntryCoercion {
 public:
  explicit EntryCoercion(PyObject* cls)
      : cls_(cls),
        other_(param_spec.stands_for(cls) ? Ref() : Ref(get_attr(cls, names.from_raw))) {}

  // cls.from_raw(name, raw)
  [[nodiscard]] Result coerce(PyObject* name, PyObject* raw) const {
    if (other_) return call(other_.get(), name, raw);
    return param_from_raw(cls_, name, raw);
  }

 private:
  PyObject* cls_;
  Ref other_;  // null where the class is ParamSpec as it was made
};

Result param_name(PyObject* spec) {
  Ref name = own_attribute(PyObject_GetAttr(spec, names.name));
  if (name && is_non_empty_str(name.get())) return name;
  return schema_error().refuse(
      {"ParamSpec list entry missing .name attribute; got ", type_name(spec)});
}

Result from_list_entry(PyObject* cls, PyObject* entry) {
  if (param_spec.is_instance(entry)) return Ref::borrow(entry);
  const EntryCoercion coercion(cls);
  Result name = call(globals::lookup(own_names.param_name).get(), entry);
  if (!name) return name;
  return coercion.coerce(name.get(), entry);
}

}  // namespace

Result params_from_mapping(PyObject* cls, PyObject* raw) {
  Ref specs = own(PyList_New(0));
  bool all_fit = true;
  if (raw == Py_None) return specs;
  if (is_list(raw)) {
    all_fit =
        all_of(raw, [&](PyObject* entry) { return append(specs, from_list_entry(cls, entry)); });
  } else if (is_dict(raw)) {
    all_fit = all_items(raw, [&](PyObject* key, PyObject* value) {
      return append(specs, EntryCoercion(cls).coerce(key, value));
    });
  } else {
    return schema_error().refuse(
        {"ParamSpec list payload must be dict, list, or None; got ", type_name(raw)});
  }
  return value_if(all_fit, std::move(specs));
}

Result coerce_param_specs(PyObject* cls, PyObject* raw) {
  Ref by_name = own(PyDict_New());
  Result specs = call_method(cls, names.from_mapping, raw);
  if (!specs) return specs;
  for_each(specs.get(), [&](PyObject* spec) {
    check(PyDict_SetItem(by_name.get(), get_attr(spec, names.name).get(), spec));
  });
  return by_name;
}

void define_param_name() { define_function(function<param_name>("_param_name(spec: Any) -> str")); }

}  // namespace typed_shapes
