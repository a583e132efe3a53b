#include "batch/stage_buckets.h"

#include "common/checks.h"

namespace typed_shapes {

namespace {

// value[start:end]
Ref cut(PyObject* value, PyObject* start, PyObject* end) {
  const PyMappingMethods* mapping = Py_TYPE(value)->tp_as_mapping;
  if (mapping == nullptr || mapping->mp_subscript == nullptr) {
    raise(PyExc_TypeError, "'%.200s' object is unsliceable", Py_TYPE(value)->tp_name);
  }
  return get_item(value, own(PySlice_New(start, end, nullptr)).get());
}

// The new dict for an inner one, or the inner one itself where it has no array.
Ref cut_inner(PyObject* inner, PyObject* start, PyObject* end) {
  Ref result = own(PyDict_New());
  bool has_array = false;
  for_each_item(inner, [&](PyObject* key, PyObject* value) {
    if (!is_array(value)) {
      check(PyDict_SetItem(result.get(), key, value));
      return;
    }
    check(PyDict_SetItem(result.get(), key, cut(value, start, end).get()));
    has_array = true;
  });
  return has_array ? std::move(result) : Ref::borrow(inner);
}

}  // namespace

PyObject* bucket_of(PyObject* value) {
  if (is_array(value)) return names.flat;
  return is_dict(value) ? names.nested : names.opaque;
}

Buckets sort_values(PyObject* raw) {
  Buckets buckets{own(PyDict_New()), own(PyDict_New()), own(PyDict_New())};
  for_each_item(raw, [&](PyObject* key, PyObject* value) {
    PyObject* name = bucket_of(value);
    const Ref& bucket = name == names.flat     ? buckets.flat
                        : name == names.nested ? buckets.nested
                                               : buckets.opaque;
    check(PyDict_SetItem(bucket.get(), key, value));
  });
  return buckets;
}

Ref cut_values(PyObject* flat, PyObject* start, PyObject* end) {
  Ref result = own(PyDict_New());
  for_each_item(flat, [&](PyObject* key, PyObject* value) {
    check(PyDict_SetItem(result.get(), key, cut(value, start, end).get()));
  });
  return result;
}

Ref cut_nested(PyObject* nested, PyObject* start, PyObject* end) {
  Ref result = own(PyDict_New());
  for_each_item(nested, [&](PyObject* key, PyObject* inner) {
    check(PyDict_SetItem(result.get(), key, cut_inner(inner, start, end).get()));
  });
  return result;
}

}  // namespace typed_shapes
