// One parameter declaration of a function entry, out of the registry's typed rows or the function
// store's dict rows.
#include "graph/param_spec.h"

#include "common/checks.h"
#include "common/record.h"
#include "graph/param_builder.h"
#include "graph/window_spec.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"name", "str"},
    {"type", "Optional[str]", Default::kNone},
    {"default", "Any", Default::kNone},
    {"minimum", "Any", Default::kNone},
    {"maximum", "Any", Default::kNone},
    {"variadic", "bool", Default::kFalse},
    {"window", "Optional[WindowSpec]", Default::kNone},
};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
Ref from_mapping(PyObject* const* arguments);
Ref coerce_specs(PyObject* const* arguments);
Ref param_name(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"ParamSpec.__post_init__(self) -> None", nullptr, post_init}},
    {{"ParamSpec.from_raw(cls, name: str, raw: Any) -> 'ParamSpec'",
      "Build a spec for ``name`` from a raw entry.\n"
      "\n"
      "Accepted shapes: a scalar (treated as the default); a dict with optional ``type``,\n"
      "``default``, ``min``, ``max``, ``variadic`` and, for window parameters, any window\n"
      "subkeys; a ``ParamSpec`` (identity passthrough); a ``WindowSpec`` (wrapped as the\n"
      "window field).",
      from_raw},
     Binding::kClassMethod},
    {{"ParamSpec.from_mapping(cls, raw: Any) -> List['ParamSpec']",
      "Build a list of ParamSpec from a name->entry mapping or list.", from_mapping},
     Binding::kClassMethod},
    {{"ParamSpec.coerce_specs(cls, raw: Any) -> Dict[str, 'ParamSpec']",
      "Return a name-to-spec view of a heterogeneous ``param_schema``.\n"
      "\n"
      "Bridges ``StaticFunctionEntry.param_schema: List[StaticParam]`` (typed list) and the\n"
      "``FunctionStore`` entry's ``param_schema: dict`` (name to sub-dict). Pure JSON\n"
      "sub-dicts and ``StaticParam`` objects are both accepted.",
      coerce_specs},
     Binding::kClassMethod},
};

constexpr FunctionTable kParamName = {"_param_name(spec: Any) -> str", nullptr, param_name};

constexpr RecordTable kTable = {
    .name = "ParamSpec",
    .doc = "A single parameter declaration on a function entry.",
    .decorator = Decorator::kFrozen,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

// --- Validation ---

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_name_field(self, names.name, "ParamSpec.name");
  if (is_none(get_attr(self, names.window))) return none();
  Ref window = get_attr(self, names.window);
  if (globals::is_instance_of(window.get(), names.WindowSpec)) return none();
  schema_error().refuse({"ParamSpec.window must be WindowSpec or None; got ",
                         type_name(get_attr(self, names.window).get())});
}

bool accepts(PyObject* const* values) {
  return is_plain_name(values[0]) && (values[6] == Py_None || window_spec.is_exact(values[6]));
}

// --- Coercion of one entry ---

// The same declaration under another name.
Ref renamed(PyObject* name, PyObject* spec) {
  Ref cls = globals::lookup(names.ParamSpec);
  Ref type = get_attr(spec, names.type);
  Ref fallback = get_attr(spec, names.default_);
  Ref minimum = get_attr(spec, names.minimum);
  Ref maximum = get_attr(spec, names.maximum);
  Ref variadic = get_attr(spec, names.variadic);
  Ref window = get_attr(spec, names.window);
  return record.create(cls.get(), {name, type.get(), fallback.get(), minimum.get(), maximum.get(),
                                   variadic.get(), window.get()});
}

// Any dict with a bound is taken for a window too, whatever its name: its bounds must be integers.
Ref window_of(PyObject* name, PyObject* raw) {
  if (compare(name, names.window, Py_EQ) || contains(raw, names.min) || contains(raw, names.max)) {
    return coerce_window(raw);
  }
  return none();
}

Ref from_dict(PyObject* cls, PyObject* name, PyObject* raw) {
  Ref window = window_of(name, raw);
  Ref type = get(raw, names.type);
  Ref fallback = get(raw, names.default_);
  Ref minimum = get(raw, names.min);
  Ref maximum = get(raw, names.max);
  Ref variadic = boolean(is_true(get(raw, names.variadic, Py_False).get()));
  return record.create(cls, {name, type.get(), fallback.get(), minimum.get(), maximum.get(),
                             variadic.get(), window.get()});
}

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, name, raw] = unpack<3>(arguments);
  if (Ref spec = build_param(record, cls, name, raw)) return spec;
  if (globals::is_instance_of(raw, names.ParamSpec)) {
    const bool other_name = compare(get_attr(raw, names.name).get(), name, Py_NE);
    return other_name ? renamed(name, raw) : Ref::borrow(raw);
  }
  if (globals::is_instance_of(raw, names.WindowSpec)) {
    Ref fallback = get_attr(raw, names.default_);
    const Keyword keywords[] = {
        {names.name, name}, {names.window, raw}, {names.default_, fallback.get()}};
    return call_keywords(cls, {}, keywords);
  }
  if (raw == Py_None) return record.create(cls, {name});
  if (!is_dict(raw)) return record.create(cls, {name, nullptr, raw});
  return from_dict(cls, name, raw);
}

// cls.from_raw, looked up before its arguments are made.
class EntryCoercion {
 public:
  explicit EntryCoercion(PyObject* cls)
      : cls_(cls), other_(record.stands_for(cls) ? Ref() : get_attr(cls, names.from_raw)) {}

  // cls.from_raw(name, raw)
  [[nodiscard]] Ref coerce(PyObject* name, PyObject* raw) const {
    if (other_) return call(other_.get(), name, raw);
    PyObject* const arguments[] = {cls_, name, raw};
    return from_raw(arguments);
  }

 private:
  PyObject* cls_;
  Ref other_;  // null where the class is ParamSpec as it was made
};

// cls.from_raw(name, raw)
Ref coerce_entry(PyObject* cls, PyObject* name, PyObject* raw) {
  if (Ref spec = build_param(record, cls, name, raw)) return spec;
  return EntryCoercion(cls).coerce(name, raw);
}

// --- Coercion of a schema ---

Ref param_name(PyObject* const* arguments) {
  const auto [spec] = unpack<1>(arguments);
  Ref name = own_attribute(PyObject_GetAttr(spec, names.name));
  if (name && is_non_empty_str(name.get())) return name;
  schema_error().refuse({"ParamSpec list entry missing .name attribute; got ", type_name(spec)});
}

Ref from_list_entry(PyObject* cls, PyObject* entry) {
  if (globals::is_instance_of(entry, names.ParamSpec)) return Ref::borrow(entry);
  const EntryCoercion coercion(cls);
  Ref name = call(globals::lookup(names.param_name).get(), entry);
  return coercion.coerce(name.get(), entry);
}

Ref from_mapping(PyObject* const* arguments) {
  // Not unpacked: before its version 16, clang lets no lambda capture a structured binding.
  PyObject* const cls = arguments[0];
  PyObject* const raw = arguments[1];
  Ref specs = own(PyList_New(0));
  if (raw == Py_None) return specs;
  if (is_list(raw)) {
    for_each(raw, [&](PyObject* entry) {
      check(PyList_Append(specs.get(), from_list_entry(cls, entry).get()));
    });
  } else if (is_dict(raw)) {
    for_each_item(raw, [&](PyObject* key, PyObject* value) {
      check(PyList_Append(specs.get(), coerce_entry(cls, key, value).get()));
    });
  } else {
    schema_error().refuse(
        {"ParamSpec list payload must be dict, list, or None; got ", type_name(raw)});
  }
  return specs;
}

Ref coerce_specs(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  Ref by_name = own(PyDict_New());
  for_each(call_method(cls, names.from_mapping, raw).get(), [&](PyObject* spec) {
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
