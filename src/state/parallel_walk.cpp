#include "state/parallel_walk.h"

#include "common/checks.h"
#include "common/numpy_api.h"
#include "common/scopes.h"
#include "state/array_equality.h"
#include "state/coerce_state.h"
#include "state/state_values.h"

namespace typed_shapes {

namespace {

// A value of one side. A raw one stands for what coerce_state would make of it; one inside a typed
// value is taken as it is.
struct Operand {
  PyObject* object;
  bool raw;
};

enum class Variant { kScalar, kArray, kMapping, kSequence, kNone, kUnsure };

// An operand seen as one of the four variants. kNone: it is none of them, and not raw.
struct View {
  Variant variant;
  Ref payload;  // what the variant's field holds or would hold
  bool raw_children = false;
};

Variant variant_of_raw(PyObject* object) noexcept {
  if (PyDict_CheckExact(object)) return Variant::kMapping;
  if (PyList_CheckExact(object) || PyTuple_CheckExact(object)) return Variant::kSequence;
  if (PyArray_CheckExact(object)) return Variant::kArray;
  return is_settled_scalar(object) ? Variant::kScalar : Variant::kUnsure;
}

View typed_view(Variant variant, const Record& record, PyObject* object) {
  Ref payload = record.stored_field(object, 0);
  if (!payload) return {Variant::kUnsure, {}};
  return {variant, std::move(payload)};
}

View view(Operand operand) {
  PyObject* object = operand.object;
  if (state_scalar.is_exact(object)) return typed_view(Variant::kScalar, state_scalar, object);
  if (state_array.is_exact(object)) return typed_view(Variant::kArray, state_array, object);
  if (state_mapping.is_exact(object)) return typed_view(Variant::kMapping, state_mapping, object);
  if (state_sequence.is_exact(object))
    return typed_view(Variant::kSequence, state_sequence, object);
  const Variant variant = variant_of_raw(object);
  if (operand.raw || variant == Variant::kUnsure) return {variant, Ref::borrow(object), true};
  return {Variant::kNone, {}};
}

// --- Scalars ---

bool is_exact_double(PyObject* object) noexcept {
  return PyFloat_CheckExact(object) || Py_IS_TYPE(object, &PyDoubleArrType_Type);
}

Verdict verdict(bool equal) noexcept { return equal ? Verdict::kEqual : Verdict::kDifferent; }

// Builtin scalars compare among each other without a warning and without Python code.
Verdict compare_scalars(PyObject* a, PyObject* b, bool outermost) {
  // The outermost comparison hands out what == gave, which for NumPy scalars is no bool.
  if (outermost && !(is_builtin_scalar(a) && is_builtin_scalar(b))) return Verdict::kUnsure;
  if (is_exact_double(a) && is_exact_double(b)) {
    const double x = PyFloat_AS_DOUBLE(a);
    const double y = PyFloat_AS_DOUBLE(b);
    return verdict(x == y || (x != x && y != y));
  }
  const bool both_bytes = PyBytes_CheckExact(a) && PyBytes_CheckExact(b);
  if (!both_bytes && !(is_builtin_scalar(a) && is_builtin_scalar(b))) return Verdict::kUnsure;
  return verdict(check(PyObject_RichCompareBool(a, b, Py_EQ)) != 0);
}

// --- Containers ---

Verdict compare_operands(Operand a, Operand b, MisfitPath& path);

// Whether both have the same keys in the same order, as two states of one function mostly have.
bool have_same_key_order(PyObject* a, PyObject* b) {
  Py_ssize_t position = 0;
  PyObject* key_b = nullptr;
  return PyDict_GET_SIZE(a) == PyDict_GET_SIZE(b) &&
         all_entries(a, [&](PyObject* key_a, PyObject* /*value*/) {
           if (PyDict_Next(b, &position, &key_b, nullptr) == 0) return false;
           if (key_a == key_b) return PyUnicode_CheckExact(key_a) != 0;
           return is_plain_str(key_a) && is_plain_str(key_b) && is_same_text(key_a, key_b);
         });
}

// Keys other than exact strs are turned into text first, and their own hash and == decide what is a
// key twice: both sides must be free of them.
Verdict compare_keys(PyObject* a, PyObject* b) {
  if (!has_str_keys(a) || !has_str_keys(b)) return Verdict::kUnsure;
  return verdict(PyDict_GET_SIZE(a) == PyDict_GET_SIZE(b) &&
                 all_entries(a, [&](PyObject* key, PyObject* /*value*/) {
                   return check(PyDict_Contains(b, key)) != 0;
                 }));
}

Verdict compare_mappings(PyObject* a, bool raw_a, PyObject* b, bool raw_b, MisfitPath& path) {
  if (!PyDict_CheckExact(a) || !PyDict_CheckExact(b)) return Verdict::kUnsure;
  const RecursionLevel level;
  // All keys first: where they differ, no value is looked at, which may be too deep.
  const bool in_step = have_same_key_order(a, b);
  Verdict verdict = in_step ? Verdict::kEqual : compare_keys(a, b);
  if (verdict != Verdict::kEqual) return verdict;
  Py_ssize_t position = 0;
  PyObject* value_b = nullptr;
  all_entries(a, [&](PyObject* key, PyObject* value_a) {
    if (!in_step || PyDict_Next(b, &position, nullptr, &value_b) == 0) {
      value_b = PyDict_GetItemWithError(b, key);
    }
    verdict = compare_operands({value_a, raw_a}, {value_b, raw_b}, path);
    return verdict == Verdict::kEqual;
  });
  return verdict;
}

bool is_exact_sequence(PyObject* object) noexcept {
  return PyList_CheckExact(object) || PyTuple_CheckExact(object);
}

Verdict compare_sequences(PyObject* a, bool raw_a, PyObject* b, bool raw_b, MisfitPath& path) {
  if (!is_exact_sequence(a) || !is_exact_sequence(b)) return Verdict::kUnsure;
  const RecursionLevel level;
  const Py_ssize_t size = PySequence_Fast_GET_SIZE(a);
  if (size != PySequence_Fast_GET_SIZE(b)) return Verdict::kDifferent;
  for (Py_ssize_t i = 0; i < size; ++i) {
    const Verdict verdict = compare_operands({PySequence_Fast_GET_ITEM(a, i), raw_a},
                                             {PySequence_Fast_GET_ITEM(b, i), raw_b}, path);
    if (verdict != Verdict::kEqual) return verdict;
  }
  return Verdict::kEqual;
}

Verdict compare_views(const View& a, const View& b, bool outermost, MisfitPath& path) {
  if (a.variant == Variant::kUnsure || b.variant == Variant::kUnsure) return Verdict::kUnsure;
  if (a.variant != b.variant) return Verdict::kDifferent;
  switch (a.variant) {
    case Variant::kScalar:
      return compare_scalars(a.payload.get(), b.payload.get(), outermost);
    case Variant::kArray:
      if (!PyArray_CheckExact(a.payload.get()) || !PyArray_CheckExact(b.payload.get())) break;
      return arrays_equal(as_array(a.payload.get()), as_array(b.payload.get()));
    case Variant::kMapping:
      return compare_mappings(a.payload.get(), a.raw_children, b.payload.get(), b.raw_children,
                              path);
    case Variant::kSequence:
      return compare_sequences(a.payload.get(), a.raw_children, b.payload.get(), b.raw_children,
                               path);
    case Variant::kNone:
      return Verdict::kDifferent;
    case Variant::kUnsure:
      break;
  }
  return Verdict::kUnsure;
}

// Out of line, so that scalars do not pay for the views.
[[gnu::noinline]] Verdict compare_others(Operand a, Operand b, MisfitPath& path) {
  const Verdict verdict = compare_views(view(a), view(b), false, path);
  if (verdict == Verdict::kUnsure) path.add(a.object);
  return verdict;
}

Verdict compare_operands(Operand a, Operand b, MisfitPath& path) {
  // Most of what is met is a builtin scalar, and scalars need no view.
  if (a.raw && b.raw && is_builtin_scalar(a.object) && is_builtin_scalar(b.object)) {
    return compare_scalars(a.object, b.object, false);
  }
  return compare_others(a, b, path);
}

Ref result_of(Verdict verdict) {
  return verdict == Verdict::kUnsure ? Ref() : boolean(verdict == Verdict::kEqual);
}

}  // namespace

Ref payloads_equal(PyObject* a, PyObject* b) {
  const CollectorPause pause;
  MisfitPath unused;  // coercion comes next, which finds its own
  const Verdict verdict = compare_views(view({a, true}), view({b, true}), true, unused);
  // A difference found early is final only if the rest of both payloads can be coerced as well.
  if (verdict == Verdict::kDifferent && !(is_plain_payload(a) && is_plain_payload(b))) return {};
  return result_of(verdict);
}

Ref typed_values_equal(PyObject* a, PyObject* b, MisfitPath& path) {
  const CollectorPause pause;
  const Verdict verdict = compare_views(view({a, false}), view({b, false}), true, path);
  if (verdict == Verdict::kUnsure) path.add(a);
  return result_of(verdict);
}

}  // namespace typed_shapes
