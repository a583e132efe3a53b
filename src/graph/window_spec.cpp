// The window parameter of a stateful rotation: bounds, a default, an explicit value, each optional.
// Older payloads are the bare length and the dict of bounds.
#include "graph/window_spec.h"

#include <algorithm>

#include "common/checks.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

// In the order of the fields.
enum : std::size_t { kMinimum, kMaximum, kDefault, kValue };

// Each on its own: all four fields are read before the first is looked at.
constexpr Check kIntOrNone = {
    nullptr, [](PyObject* value) { return value == Py_None || PyLong_CheckExact(value); }};

constexpr Field kFields[] = {
    {"minimum", "Optional[int]", Default::kNone, kIntOrNone},
    {"maximum", "Optional[int]", Default::kNone, kIntOrNone},
    {"default", "Optional[int]", Default::kNone, kIntOrNone},
    {"value", "Optional[int]", Default::kNone, kIntOrNone},
};

Result post_init(PyObject* self);
Result from_raw(PyObject* cls, PyObject* raw);
Result picked(PyObject* self, PyObject* clamp_to);

constexpr Method kMethods[] = {
    {function<post_init>("WindowSpec.__post_init__(self) -> None")},
    {function<from_raw>("WindowSpec.from_raw(cls, raw: Any) -> Optional['WindowSpec']"),
     Binding::kClassMethod},
    {function<picked>("WindowSpec.picked(self, clamp_to: int = 1440) -> Optional[int]",
                      "Return the canonical window value (explicit, default, or clamped).")},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "WindowSpec",
    .doc =
        "Window-parameter description used by stateful rotations.\n"
        "\n"
        "Accepts the bound dict ``{\"window\": {\"min\": 1, \"max\": 240, \"default\": 60}}`` and\n"
        "the bare scalar ``{\"window\": 60}``; ``from_raw`` receives the inner value.\n",
    .decorator = Decorator::kFrozen,
    .methods = kMethods,
});

// --- Validation ---

Result post_init(PyObject* self) {
  PyObject* const fields[] = {window_names.minimum, window_names.maximum, names.default_,
                              names.value};
  Ref values[std::size(fields)];
  for (std::size_t i = 0; i < std::size(fields); ++i) values[i] = get_attr(self, fields[i]);
  for (std::size_t i = 0; i < std::size(fields); ++i) {
    PyObject* value = values[i].get();
    if (value == Py_None || (is_int(value) && !is_bool(value))) continue;
    return schema_error().refuse(
        {"WindowSpec.", fields[i], " must be int or None; got ", type_name(value)});
  }
  return none();
}

// --- Coercion ---

Result from_raw(PyObject* cls, PyObject* raw) {
  if (raw == Py_None) return none();
  if (window_spec.is_instance(raw)) return Ref::borrow(raw);
  // bool is a kind of int and would pass for one.
  if (is_bool(raw)) return schema_error().refuse({"WindowSpec payload cannot be bool"});
  if (is_int(raw)) return window_spec.call(cls, nullptr, nullptr, nullptr, raw);
  if (is_dict(raw)) {
    Ref minimum = get(raw, window_names.min);
    Ref maximum = get(raw, window_names.max);
    Ref fallback = get(raw, names.default_);
    Ref value = get(raw, names.value);
    return window_spec.call(cls, minimum.get(), maximum.get(), fallback.get(), value.get());
  }
  return schema_error().refuse(
      {"WindowSpec payload must be int, dict, or None; got ", type_name(raw)});
}

Result picked(PyObject* self, PyObject* clamp_to) {
  // Each use of a field reads it anew: a subclass may make a property of it.
  const auto field = [self](std::size_t index) { return window_spec.attribute(self, index); };
  if (!is_none(field(kValue))) return field(kValue);
  if (!is_none(field(kDefault))) return field(kDefault);
  if (is_none(field(kMinimum)) || is_none(field(kMaximum))) return none();
  // max(minimum, min(clamp_to, maximum)): the minimum wins over the clamp.
  Ref minimum = field(kMinimum);
  Ref maximum = field(kMaximum);
  Ref inner = compare(maximum.get(), clamp_to, Py_LT) ? std::move(maximum) : Ref::borrow(clamp_to);
  return compare(inner.get(), minimum.get(), Py_GT) ? std::move(inner) : std::move(minimum);
}

}  // namespace

constinit RecordOf<kWindowFields> window_spec{kTable};

Result coerce_window(PyObject* raw) {
  Ref cls = window_spec.in_module();
  if (!window_spec.stands_for(cls.get())) return call_method(cls.get(), names.from_raw, raw);
  return from_raw(cls.get(), raw);
}

void define_window_spec() { define_record<window_spec>(); }

}  // namespace typed_shapes
