// coerce_state gives any state payload its typed form. Leaves are shared with the payload; dicts,
// lists and tuples are rebuilt.
#include "state/coerce_state.h"

#include <algorithm>

#include "common/checks.h"
#include "common/misfit_path.h"
#include "common/scopes.h"
#include "module/contents.h"
#include "state/state_values.h"

namespace typed_shapes {

namespace {

// --- Canonical path ---

Result coerce(PyObject* raw, MisfitPath& path);

// coerce_state(item), the function looked up in the module now
Result coerce_item(PyObject* item, MisfitPath& path) {
  if (!globals::untouched()) return call(globals::lookup(names.coerce_state).get(), item);
  const RecursionLevel level;
  return coerce(item, path);
}

// The items of a sequence are coerced in a generator, so PEP 479 applies.
Ref coerce_generated(PyObject* item, MisfitPath& path) {
  try {
    return coerce_item(item, path);
  } catch (const PythonError&) {
    if (PyErr_ExceptionMatches(PyExc_StopIteration) == 0) throw;
    raise_from_pending(PyExc_RuntimeError, "generator raised StopIteration");
  }
}

Ref text_of(PyObject* key) {
  if (PyUnicode_CheckExact(key)) return Ref::borrow(key);
  return str(key);
}

Result coerce_dict(PyObject* raw, MisfitPath& path) {
  Ref cls = state_mapping.in_module();
  Ref entries = own(PyDict_New());
  for_each_item(raw, [&](PyObject* key, PyObject* value) {
    Ref text = text_of(key);
    Ref coerced = coerce_item(value, path);
    check(PyDict_SetItem(entries.get(), text.get(), coerced.get()));
  });
  return state_mapping.call(cls.get(), entries.get());
}

Result coerce_sequence(PyObject* raw, MisfitPath& path) {
  Ref cls = state_sequence.in_module();
  Ref items = own(PyList_New(0));
  for_each(raw, [&](PyObject* item) {
    check(PyList_Append(items.get(), coerce_generated(item, path).get()));
  });
  Ref tuple = own(PyList_AsTuple(items.get()));
  return state_sequence.call(cls.get(), tuple.get());
}

Result coerce_canonically(PyObject* raw, MisfitPath& path) {
  for (const Record* variant : kVariants) {
    if (variant->is_instance(raw)) return Ref::borrow(raw);
  }
  if (is_array(raw)) {
    return state_array.call(state_array.in_module().get(), raw);
  }
  if (is_dict(raw)) return coerce_dict(raw, path);
  if (is_list(raw) || is_tuple(raw)) return coerce_sequence(raw, path);
  return state_scalar.call(state_scalar.in_module().get(), raw);
}

// --- Fast path ---

// Builds the typed form without running Python code, so that every borrowed reference holds. Null
// where the canonical path has to decide.
Ref build(PyObject* raw, MisfitPath& path);

// Whether str(key) runs no Python code and cannot fail, as it does for an int of thousands of
// digits.
bool has_plain_text(PyObject* key) {
  if (PyLong_CheckExact(key)) {
    int overflow = 0;
    PyLong_AsLongAndOverflow(key, &overflow);
    return overflow == 0;
  }
  return is_builtin_scalar(key);
}

Ref build_mapping(PyObject* raw, MisfitPath& path) {
  const RecursionLevel level;
  Ref entries = own(PyDict_New());
  const bool is_built = all_entries(raw, [&](PyObject* key, PyObject* value) {
    if (!has_plain_text(key)) return false;
    Ref text = text_of(key);
    Ref coerced = build(value, path);
    if (coerced) check(PyDict_SetItem(entries.get(), text.get(), coerced.get()));
    return static_cast<bool>(coerced);
  });
  if (!is_built) return {};
  return state_mapping.make_unchecked(entries.get());
}

Ref build_sequence(PyObject* raw, MisfitPath& path) {
  const RecursionLevel level;
  const Py_ssize_t size = PySequence_Fast_GET_SIZE(raw);
  Ref items = own(PyTuple_New(size));
  for (Py_ssize_t i = 0; i < size; ++i) {
    Ref coerced = build(PySequence_Fast_GET_ITEM(raw, i), path);
    if (!coerced) return {};
    PyTuple_SET_ITEM(items.get(), i, coerced.release());
  }
  return state_sequence.make_unchecked(items.get());
}

Ref build_value(PyObject* raw, MisfitPath& path) {
  if (is_builtin_scalar(raw)) return state_scalar.make_unchecked(raw);
  if (PyDict_CheckExact(raw)) return build_mapping(raw, path);
  if (PyList_CheckExact(raw) || PyTuple_CheckExact(raw)) return build_sequence(raw, path);
  if (PyArray_CheckExact(raw)) return state_array.make_unchecked(raw);
  if (is_state_value(raw)) return Ref::borrow(raw);
  if (is_settled_scalar(raw)) return state_scalar.make_unchecked(raw);
  return {};
}

Ref build(PyObject* raw, MisfitPath& path) {
  Ref value = build_value(raw, path);
  if (!value) path.add(raw);
  return value;
}

Ref build_untouched(PyObject* raw, MisfitPath& path) {
  if (!state_values_untouched()) return {};
  const CollectorPause pause;
  return build(raw, path);
}

Result coerce(PyObject* raw, MisfitPath& path) {
  return path.walk(
      raw, [raw](MisfitPath& tried) { return build_untouched(raw, tried); },
      [raw](MisfitPath& rest) { return coerce_canonically(raw, rest); });
}

Result coerce_state(PyObject* raw) {
  MisfitPath path;
  return coerce(raw, path);
}

}  // namespace

bool is_plain_payload(PyObject* raw) {
  if (is_builtin_scalar(raw)) return true;
  if (PyDict_CheckExact(raw)) {
    const RecursionLevel level;
    return all_entries(raw, [](PyObject* key, PyObject* value) {
      return has_plain_text(key) && is_plain_payload(value);
    });
  }
  if (PyList_CheckExact(raw) || PyTuple_CheckExact(raw)) {
    const RecursionLevel level;
    PyObject* const* items = PySequence_Fast_ITEMS(raw);
    return std::all_of(items, items + PySequence_Fast_GET_SIZE(raw), is_plain_payload);
  }
  return PyArray_CheckExact(raw) || is_state_value(raw) || is_settled_scalar(raw);
}

void define_coerce_state() {
  define_function(function<coerce_state>(
      "coerce_state(raw: Any) -> StateValue",
      "Coerce an arbitrary state payload into the typed StateValue sum type.\n"
      "\n"
      "Accepted kinds: None, bool, int, float, str, np.ndarray, dict (str-keyed), list and\n"
      "tuple. Anything else is wrapped as ``StateScalar(value=raw)``."));
}

}  // namespace typed_shapes
