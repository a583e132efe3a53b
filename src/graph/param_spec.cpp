// One parameter declaration of a function entry, out of the registry's typed rows or the function
// store's dict rows.
#include "graph/param_spec.h"

#include "common/checks.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

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

constexpr Method kMethods[] = {
    {function<check_fields<param_spec>>("ParamSpec.__post_init__(self) -> None")},
    {function<param_from_raw>(
         "ParamSpec.from_raw(cls, name: str, raw: Any) -> 'ParamSpec'",
         "Build a spec for ``name`` from a raw entry.\n"
         "\n"
         "Accepted shapes: a scalar (treated as the default); a dict with optional ``type``,\n"
         "``default``, ``min``, ``max``, ``variadic`` and, for window parameters, any window\n"
         "subkeys; a ``ParamSpec`` (identity passthrough); a ``WindowSpec`` (wrapped as the\n"
         "window field)."),
     Binding::kClassMethod},
    {function<params_from_mapping>("ParamSpec.from_mapping(cls, raw: Any) -> List['ParamSpec']",
                                   "Build a list of ParamSpec from a name->entry mapping or list."),
     Binding::kClassMethod},
    {function<coerce_param_specs>(
         "ParamSpec.coerce_specs(cls, raw: Any) -> Dict[str, 'ParamSpec']",
         "Return a name-to-spec view of a heterogeneous ``param_schema``.\n"
         "\n"
         "Bridges ``StaticFunctionEntry.param_schema: List[StaticParam]`` (typed list) and the\n"
         "``FunctionStore`` entry's ``param_schema: dict`` (name to sub-dict). Pure JSON\n"
         "sub-dicts and ``StaticParam`` objects are both accepted."),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "ParamSpec",
    .doc = "A single parameter declaration on a function entry.",
    .decorator = Decorator::kFrozen,
    .methods = kMethods,
});

// --- Coercion of one entry ---

// cls(name=name, default=fallback), the default left out where it is null
Result of_default(PyObject* cls, PyObject* name, PyObject* fallback) {
  return param_spec.call(cls, name, nullptr, fallback, nullptr, nullptr, nullptr, nullptr);
}

// The same declaration under another name.
Result renamed(PyObject* name, PyObject* spec) {
  Ref cls = param_spec.in_module();
  Ref type = get_attr(spec, names.type);
  Ref fallback = get_attr(spec, names.default_);
  Ref minimum = get_attr(spec, window_names.minimum);
  Ref maximum = get_attr(spec, window_names.maximum);
  Ref variadic = get_attr(spec, window_names.variadic);
  Ref window = get_attr(spec, window_names.window);
  return param_spec.call(cls.get(), name, type.get(), fallback.get(), minimum.get(), maximum.get(),
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
  return param_spec.call(cls, name, type.get(), fallback.get(), minimum.get(), maximum.get(),
                         variadic.get(), window.get());
}

}  // namespace

constinit RecordOf<kParamFields> param_spec{kTable};

Result param_from_raw(PyObject* cls, PyObject* name, PyObject* raw) {
  if (Ref spec = build_param(cls, name, raw)) return spec;
  if (param_spec.is_instance(raw)) {
    if (compare(param_spec.attribute(raw, 0).get(), name, Py_NE)) return renamed(name, raw);
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

void define_param_spec() {
  define_record<param_spec>();
  define_param_name();
}

}  // namespace typed_shapes
