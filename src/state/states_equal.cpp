// Deep equality of two state payloads: exact, but NaN equals NaN. states_equal coerces both sides;
// _states_value_equal compares what is typed already.
#include <cstring>

#include "common/checks.h"
#include "common/misfit_path.h"
#include "common/scopes.h"
#include "module/contents.h"
#include "state/parallel_walk.h"
#include "state/state_values.h"

namespace typed_shapes {

namespace {

const struct {
  Name atol{"atol"};
  Name entries{"entries"};
  Name equal_nan{"equal_nan"};
  Name items_{"items_"};
  Name math{"math"};
  Name rtol{"rtol"};
  Name states_value_equal{"_states_value_equal"};
} own_names;

DictWatch math_names;

// Whether the walk side by side may stand for the canonical path.
bool untouched() { return math_names.untouched() && state_values_untouched(); }

Result values_equal(PyObject* a, PyObject* b, MisfitPath& path);

// _states_value_equal, looked up in the module before its arguments are made.
class InnerComparison {
 public:
  InnerComparison()
      : other_(globals::untouched() ? Ref() : globals::lookup(own_names.states_value_equal)) {}

  // bool(_states_value_equal(a, b))
  [[nodiscard]] bool are_equal(const Ref& a, const Ref& b, MisfitPath& path) const {
    if (other_) return is_true(call(other_.get(), a.get(), b.get()).get());
    const RecursionLevel level;
    return is_true(values_equal(a.get(), b.get(), path).get());
  }

 private:
  Ref other_;  // null where the module still has its own
};

// isinstance(value, float) and math.isnan(value)
bool is_float(PyObject* value) {
  return is_instance(value, reinterpret_cast<PyObject*>(&PyFloat_Type));
}

bool is_nan(PyObject* value) {
  return is_true(call_method(globals::lookup(own_names.math).get(), names.isnan, value).get());
}

Result compare_scalars(PyObject* a, PyObject* b) {
  Ref left = get_attr(a, names.value);
  Ref right = get_attr(b, names.value);
  if (is_float(left.get()) && is_float(right.get()) && is_nan(left.get()) && is_nan(right.get())) {
    return boolean(true);
  }
  return rich_compare(left.get(), right.get(), Py_EQ);
}

// a.data.name != b.name
bool differs(PyObject* a, PyObject* right, PyObject* name) {
  Ref data = get_attr(a, names.data);
  Ref value = get_attr(data.get(), name);
  return compare(value.get(), get_attr(right, name).get(), Py_NE);
}

// np.allclose(a.data, right, rtol=0, atol=0, equal_nan=True)
bool all_close(PyObject* a, PyObject* right) {
  Ref function = numpy_attr(names.allclose);
  Ref left = get_attr(a, names.data);
  check_operands(left.get(), right);
  Ref zero = integer(0);
  PyObject* const positional[] = {left.get(), right};
  const Keyword keywords[] = {
      {own_names.rtol, zero.get()}, {own_names.atol, zero.get()}, {own_names.equal_nan, Py_True}};
  return is_true(call_keywords(function.get(), positional, keywords).get());
}

// bool(np.array_equal(a.data, right))
bool array_equal(PyObject* a, PyObject* right) {
  Ref function = numpy_attr(names.array_equal);
  Ref left = get_attr(a, names.data);
  check_operands(left.get(), right);
  return is_true(call(function.get(), left.get(), right).get());
}

bool compare_arrays(PyObject* a, PyObject* b) {
  Ref right = get_attr(b, names.data);
  if (differs(a, right.get(), names.shape) || differs(a, right.get(), names.dtype)) return false;
  Ref caught;
  try {
    return all_close(a, right.get());
  } catch (const PythonError&) {
    // Arrays that np.allclose cannot compute on: strings, objects, records.
    const bool is_handled = PyErr_ExceptionMatches(PyExc_TypeError) != 0 ||
                            PyErr_ExceptionMatches(PyExc_ValueError) != 0;
    if (!is_handled) throw;
    caught = take_pending();
  }
  try {
    return array_equal(a, right.get());
  } catch (const PythonError&) {
    add_context(caught.get());
    throw;
  }
}

bool compare_mappings(PyObject* a, PyObject* b, MisfitPath& path) {
  Ref right = get_attr(b, own_names.entries);
  Ref left_keys = own(PySet_New(keys(get_attr(a, own_names.entries).get()).get()));
  Ref right_keys = own(PySet_New(keys(right.get()).get()));
  if (compare(left_keys.get(), right_keys.get(), Py_NE)) return false;
  return all_of(get_attr(a, own_names.entries).get(), [&](PyObject* key) {
    const InnerComparison inner;
    const Ref left_value = get_item(get_attr(a, own_names.entries).get(), key);
    return inner.are_equal(left_value, get_item(right.get(), key), path);
  });
}

bool compare_sequences(PyObject* a, PyObject* b, MisfitPath& path) {
  Ref right = get_attr(b, own_names.items_);
  const Py_ssize_t left_size = check(PyObject_Size(get_attr(a, own_names.items_).get()));
  if (left_size != check(PyObject_Size(right.get()))) return false;
  Ref pairs = call(reinterpret_cast<PyObject*>(&PyZip_Type), get_attr(a, own_names.items_).get(),
                   right.get());
  return all_of(pairs.get(), [&](PyObject* pair) {
    const Pair items = unpack_pair(pair);
    return InnerComparison().are_equal(items.first, items.second, path);
  });
}

Result compare_canonically(PyObject* a, PyObject* b, MisfitPath& path) {
  if (Py_TYPE(a) != Py_TYPE(b)) return boolean(false);
  if (state_scalar.is_instance(a)) return compare_scalars(a, b);
  if (state_array.is_instance(a)) return boolean(compare_arrays(a, b));
  if (state_mapping.is_instance(a)) return boolean(compare_mappings(a, b, path));
  if (state_sequence.is_instance(a)) {
    return boolean(compare_sequences(a, b, path));
  }
  return boolean(false);
}

Result values_equal(PyObject* a, PyObject* b, MisfitPath& path) {
  return path.walk(
      a,
      [a, b](MisfitPath& tried) { return untouched() ? typed_values_equal(a, b, tried) : Ref(); },
      [a, b](MisfitPath& rest) { return compare_canonically(a, b, rest); });
}

Result states_value_equal(PyObject* a, PyObject* b) {
  MisfitPath path;
  return values_equal(a, b, path);
}

Result states_equal(PyObject* a, PyObject* b) {
  if (a == Py_None || b == Py_None) return boolean(a == b);
  if (untouched()) {
    if (Ref result = payloads_equal(a, b)) return result;
  }
  Ref left = call(globals::lookup(names.coerce_state).get(), a);
  Ref right = call(globals::lookup(names.coerce_state).get(), b);
  return call(globals::lookup(own_names.states_value_equal).get(), left.get(), right.get());
}

}  // namespace

void define_states_equal() {
  Ref math = globals::lookup(own_names.math);
  math_names.start_module(math.get());
  // The builtin function: one that somebody put in its place before us is never taken for it.
  Ref isnan = get_attr(math.get(), names.isnan);
  const bool is_own =
      PyCFunction_CheckExact(isnan.get()) != 0 &&
      std::strcmp(reinterpret_cast<PyCFunctionObject*>(isnan.get())->m_ml->ml_name, "isnan") == 0;
  math_names.expect(names.isnan, is_own ? isnan.get() : math.get());
  define_function(function<states_equal>(
      "states_equal(a: Any, b: Any) -> bool",
      "Deep equality of two state payloads with NaN tolerance.\n"
      "\n"
      "Each operand is coerced to ``StateValue`` first. None on both sides is True;\n"
      "mismatched variants are False; arrays compare via ``np.allclose(equal_nan=True)``."));
  define_function(
      function<states_value_equal>("_states_value_equal(a: StateValue, b: StateValue) -> bool"));
}

}  // namespace typed_shapes
