#include "batch/stage_buckets.h"

#include "common/checks.h"
#include "common/scopes.h"

namespace typed_shapes {

namespace {

// The bounds of a cut. Each use makes its own slice, as the expression value[start:end] does.
struct Bounds {
  PyObject* start;
  PyObject* end;

  [[nodiscard]] Ref slice() const { return own(PySlice_New(start, end, nullptr)); }
  [[nodiscard]] bool are_plain() const {
    return (start == Py_None || PyLong_CheckExact(start)) &&
           (end == Py_None || PyLong_CheckExact(end));
  }
};

// --- Canonical path ---

Ref slice_value(PyObject* value, const Bounds& bounds) {
  const PyMappingMethods* mapping = Py_TYPE(value)->tp_as_mapping;
  if (mapping == nullptr || mapping->mp_subscript == nullptr) {
    raise(PyExc_TypeError, "'%.200s' object is unsliceable", Py_TYPE(value)->tp_name);
  }
  return get_item(value, bounds.slice().get());
}

Ref slice_flat(PyObject* flat, const Bounds& bounds) {
  Ref result = own(PyDict_New());
  for_each_item(flat, [&](PyObject* key, PyObject* value) {
    check(PyDict_SetItem(result.get(), key, slice_value(value, bounds).get()));
  });
  return result;
}

// The new dict for an inner one, or the inner one itself where it has no array.
Ref slice_inner(PyObject* inner, const Bounds& bounds) {
  Ref result = own(PyDict_New());
  bool has_array = false;
  for_each_item(inner, [&](PyObject* key, PyObject* value) {
    const bool is_sliced = is_array(value);
    has_array |= is_sliced;
    Ref kept = is_sliced ? slice_value(value, bounds) : Ref::borrow(value);
    check(PyDict_SetItem(result.get(), key, kept.get()));
  });
  return has_array ? std::move(result) : Ref::borrow(inner);
}

// --- Fast path ---

// Whether a value is surely no array.
bool is_surely_other(PyObject* value) {
  return is_exact_builtin(value) || (has_settled_class(value) && !PyArray_Check(value));
}

// A copy of an exact dict with its arrays cut; the dict itself where it has none. Null where the
// canonical path has to decide: at a value that may run code, and, where all must be arrays, at any
// other value.
Ref slice_plain(PyObject* dict, PyObject* slice, bool all_arrays) {
  if (!PyDict_CheckExact(dict) || !has_str_keys(dict)) return {};
  Ref result = own(PyDict_Copy(dict));
  bool has_array = false;
  const bool is_plain = all_entries(dict, [&](PyObject* key, PyObject* value) {
    if (!PyArray_CheckExact(value)) return !all_arrays && is_surely_other(value);
    // The key is there already: only its value changes.
    check(PyDict_SetItem(result.get(), key, get_item(value, slice).get()));
    has_array = true;
    return true;
  });
  if (!is_plain) return {};
  return has_array || all_arrays ? std::move(result) : Ref::borrow(dict);
}

Buckets new_buckets() { return {own(PyDict_New()), own(PyDict_New()), own(PyDict_New())}; }

// The same as bucket_of, where the type alone settles it; kBucketCount where it does not.
Bucket plain_bucket_of(PyObject* value) {
  if (PyArray_CheckExact(value)) return kFlat;
  if (PyDict_CheckExact(value)) return kNested;
  return is_surely_other(value) && !PyDict_Check(value) ? kOpaque : kBucketCount;
}

// The fast path of sorting: no Python code runs. False where the canonical path has to decide.
bool partition_plain(PyObject* raw, Buckets& buckets) {
  if (!PyDict_CheckExact(raw)) return false;
  // Making them may collect garbage, and with that run code: what is relied on is asked afterwards.
  buckets = new_buckets();
  return numpy_untouched() && all_entries(raw, [&](PyObject* key, PyObject* value) {
           const Bucket bucket = plain_bucket_of(value);
           if (bucket == kBucketCount || !PyUnicode_CheckExact(key)) return false;
           check(PyDict_SetItem(buckets[bucket].get(), key, value));
           return true;
         });
}

}  // namespace

Bucket bucket_of(PyObject* value) {
  if (is_array(value)) return kFlat;
  return is_dict(value) ? kNested : kOpaque;
}

Buckets partition(PyObject* raw) {
  Buckets buckets;
  if (partition_plain(raw, buckets)) return buckets;
  buckets = new_buckets();
  for_each_item(raw, [&](PyObject* key, PyObject* value) {
    check(PyDict_SetItem(buckets[bucket_of(value)].get(), key, value));
  });
  return buckets;
}

Ref slice_values(PyObject* flat, PyObject* start, PyObject* end) {
  const Bounds bounds{start, end};
  if (bounds.are_plain() && numpy_untouched()) {
    // A collection could run code that changes what is being walked.
    const CollectorPause pause;
    if (Ref result = slice_plain(flat, bounds.slice().get(), true)) return result;
  }
  return slice_flat(flat, bounds);
}

Ref slice_nested(PyObject* nested, PyObject* start, PyObject* end) {
  const Bounds bounds{start, end};
  Ref result = own(PyDict_New());
  for_each_item(nested, [&](PyObject* key, PyObject* inner) {
    Ref kept;
    if (bounds.are_plain() && numpy_untouched()) {
      const CollectorPause pause;
      kept = slice_plain(inner, bounds.slice().get(), false);
    }
    if (!kept) kept = slice_inner(inner, bounds);
    check(PyDict_SetItem(result.get(), key, kept.get()));
  });
  return result;
}

}  // namespace typed_shapes
