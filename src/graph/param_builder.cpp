// The fast path of one parameter entry.
#include "common/checks.h"
#include "common/scopes.h"
#include "graph/param_spec.h"

namespace typed_shapes {

namespace {

// Borrowed; null where the dict has no such key. The keys are exact strs.
PyObject* find(PyObject* dict, PyObject* key) {
  PyObject* value = PyDict_GetItemWithError(dict, key);
  if (value == nullptr) check_indicator();
  return value;
}

PyObject* or_none(PyObject* value) { return value != nullptr ? value : Py_None; }

}  // namespace

Ref build_param(PyObject* cls, PyObject* name, PyObject* raw) {
  if (!PyDict_CheckExact(raw) || !param_spec.stands_for(cls) || !window_spec.untouched()) return {};
  if (!is_plain_name(name) || !has_str_keys(raw)) return {};
  // What is borrowed from the dict stays there: a collection could run code that changes it.
  const CollectorPause pause;
  PyObject* minimum = find(raw, window_names.min);
  PyObject* maximum = find(raw, window_names.max);
  PyObject* fallback = or_none(find(raw, names.default_));
  PyObject* variadic = find(raw, window_names.variadic);
  if (variadic != nullptr && !is_exact_builtin(variadic)) return {};

  Ref window = none();
  if (minimum != nullptr || maximum != nullptr || is_same_text(name, window_names.window)) {
    window = window_spec.try_make(or_none(minimum), or_none(maximum), fallback,
                                  or_none(find(raw, names.value)));
    if (!window) return {};
  }
  Ref is_variadic = boolean(variadic != nullptr && is_true(variadic));
  return param_spec.try_make(name, or_none(find(raw, names.type)), fallback, or_none(minimum),
                             or_none(maximum), is_variadic.get(), window.get());
}

}  // namespace typed_shapes
