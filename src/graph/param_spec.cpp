// One parameter declaration of a function entry, out of the registry's typed rows or the function
// store's dict rows.
#include "common/checks.h"
#include "common/record.h"
#include "graph/param_builder.h"
#include "graph/window_spec.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name param_name{"_param_name"};
} own_names;

// --- Validation ---

constexpr Check kWindow = {
    [](const FieldAccess& field) -> bool {
      if (is_none(field.read())) return true;
      Ref window = field.read();
      if (window_spec.is_instance(window.get())) return true;
      return schema_error().refuse(
          {"ParamSpec.window must be WindowSpec or None; got ", type_name(field.read().get())});
    },
    [](PyObject* value) { return value == Py_None || window_spec.is_exact(value); }};

// --- Table ---

constexpr Field kFields[] = {
    {"name", "str", Default::kRequired, kNonEmptyStr},
    {"type", "Optional[str]", Default::kNone},
    {"default", "Any", Default::kNone},
    {"minimum", "Any", Default::kNone},
    {"maximum", "Any", Default::kNone},
    {"variadic", "bool", Default::kFalse},
    {"window", "Optional[WindowSpec]", Default::kNone, kWindow},
};

extern ParamRecord record;

Result from_raw(PyObject* cls, PyObject* name, PyObject* raw);
Result from_mapping(PyObject* cls, PyObject* raw);
Result coerce_specs(PyObject* cls, PyObject* raw);
Result param_name(PyObject* spec);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("ParamSpec.__post_init__(self) -> None")},
    {function<from_raw>(
         "ParamSpec.from_raw(cls, name: str, raw: Any) -> 'ParamSpec'",
         "Build a spec for ``name`` from a raw entry.\n"
         "\n"
         "Accepted shapes: a scalar (treated as the default); a dict with optional ``type``,\n"
         "``default``, ``min``, ``max``, ``variadic`` and, for window parameters, any window\n"
         "subkeys; a ``ParamSpec`` (identity passthrough); a ``WindowSpec`` (wrapped as the\n"
         "window field)."),
     Binding::kClassMethod},
    {function<from_mapping>("ParamSpec.from_mapping(cls, raw: Any) -> List['ParamSpec']",
                            "Build a list of ParamSpec from a name->entry mapping or list."),
     Binding::kClassMethod},
    {function<coerce_specs>(
         "ParamSpec.coerce_specs(cls, raw: Any) -> Dict[str, 'ParamSpec']",
         "Return a name-to-spec view of a heterogeneous ``param_schema``.\n"
         "\n"
         "Bridges ``StaticFunctionEntry.param_schema: List[StaticParam]`` (typed list) and the\n"
         "``FunctionStore`` entry's ``param_schema: dict`` (name to sub-dict). Pure JSON\n"
         "sub-dicts and ``StaticParam`` objects are both accepted."),
     Binding::kClassMethod},
};

constexpr FunctionTable kParamName = function<param_name>("_param_name(spec: Any) -> str");

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "ParamSpec",
    .doc = "A single parameter declaration on a function entry.",
    .decorator = Decorator::kFrozen,
    .methods = kMethods,
});

constinit ParamRecord record{kTable};

// --- Coercion of one entry ---

// cls(name=name, default=fallback), the default left out where it is null
Result of_default(PyObject* cls, PyObject* name, PyObject* fallback) {
  return record.call(cls, name, nullptr, fallback, nullptr, nullptr, nullptr, nullptr);
}

// The same declaration under another name.
Result renamed(PyObject* name, PyObject* spec) {
  Ref cls = record.in_module();
  Ref type = get_attr(spec, names.type);
  Ref fallback = get_attr(spec, names.default_);
  Ref minimum = get_attr(spec, window_names.minimum);
  Ref maximum = get_attr(spec, window_names.maximum);
  Ref variadic = get_attr(spec, window_names.variadic);
  Ref window = get_attr(spec, window_names.window);
  return record.call(cls.get(), name, type.get(), fallback.get(), minimum.get(), maximum.get(),
                     variadic.get(), window.get());
}

// Any dict with a bound is taken for a window too, whatever its name: its bounds must be integers.
Result window_of(PyObject* name, PyObject* raw) {
  if (compare(name, window_names.window, Py_EQ) || contains(raw, window_names.min) ||
      contains(raw, window_names.max)) {
    return coerce_window(raw);
  }
  return none();
}

Result from_dict(PyObject* cls, PyObject* name, PyObject* raw) {
  Result window = window_of(name, raw);
  if (!window) return window;
  Ref type = get(raw, names.type);
  Ref fallback = get(raw, names.default_);
  Ref minimum = get(raw, window_names.min);
  Ref maximum = get(raw, window_names.max);
  Ref variadic = boolean(is_true(get(raw, window_names.variadic, Py_False).get()));
  return record.call(cls, name, type.get(), fallback.get(), minimum.get(), maximum.get(),
                     variadic.get(), window.get());
}

Result from_raw(PyObject* cls, PyObject* name, PyObject* raw) {
  if (Ref spec = build_param(record, cls, name, raw)) return spec;
  if (record.is_instance(raw)) {
    if (compare(get_attr(raw, names.name).get(), name, Py_NE)) return renamed(name, raw);
    return Ref::borrow(raw);
  }
  if (window_spec.is_instance(raw)) {
    Ref fallback = get_attr(raw, names.default_);
    const Keyword keywords[] = {
        {names.name, name}, {window_names.window, raw}, {names.default_, fallback.get()}};
    return call_keywords(cls, {}, keywords);
  }
  if (raw == Py_None) return of_default(cls, name, nullptr);
  if (!is_dict(raw)) return of_default(cls, name, raw);
  return from_dict(cls, name, raw);
}

// cls.from_raw, looked up before its arguments are made.
class EntryCoercion {
 public:
  explicit EntryCoercion(PyObject* cls)
      : cls_(cls), other_(record.stands_for(cls) ? Ref() : Ref(get_attr(cls, names.from_raw))) {}

  // cls.from_raw(name, raw)
  [[nodiscard]] Result coerce(PyObject* name, PyObject* raw) const {
    if (other_) return call(other_.get(), name, raw);
    return from_raw(cls_, name, raw);
  }

 private:
  PyObject* cls_;
  Ref other_;  // null where the class is ParamSpec as it was made
};

// --- Coercion of a schema ---

Result param_name(PyObject* spec) {
  Ref name = own_attribute(PyObject_GetAttr(spec, names.name));
  if (name && is_non_empty_str(name.get())) return name;
  return schema_error().refuse(
      {"ParamSpec list entry missing .name attribute; got ", type_name(spec)});
}

Result from_list_entry(PyObject* cls, PyObject* entry) {
  if (record.is_instance(entry)) return Ref::borrow(entry);
  const EntryCoercion coercion(cls);
  Result name = call(globals::lookup(own_names.param_name).get(), entry);
  if (!name) return name;
  return coercion.coerce(name.get(), entry);
}

Result from_mapping(PyObject* cls, PyObject* raw) {
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
  if (!all_fit) return Refused{};
  return specs;
}

Result coerce_specs(PyObject* cls, PyObject* raw) {
  Ref by_name = own(PyDict_New());
  Result specs = call_method(cls, names.from_mapping, raw);
  if (!specs) return specs;
  for_each(specs.get(), [&](PyObject* spec) {
    check(PyDict_SetItem(by_name.get(), get_attr(spec, names.name).get(), spec));
  });
  return by_name;
}

}  // namespace

void define_param_spec() {
  define_record<record>();
  define_function(kParamName);
}

}  // namespace typed_shapes
