#include "common/checks.h"

#include <algorithm>

namespace typed_shapes {

namespace {

const struct {
  Name class_dunder{"__class__"};
} own_names;

}  // namespace

bool require_dict(const FieldAccess& field) {
  if (is_dict(field.read().get())) return true;
  return schema_error().refuse(
      {field.class_name, ".", field.name, kMustBeADict, type_name(field.read().get())});
}

bool require_non_empty_str(const FieldAccess& field) {
  if (is_str(field.read().get()) && is_true(field.read().get())) return true;
  return schema_error().refuse(
      {field.class_name, ".", field.name, kMustBeANonEmptyStr, repr(field.read().get())});
}

bool require_array(const FieldAccess& field) {
  if (is_array(field.read().get())) return true;
  return schema_error().refuse(
      {field.class_name, ".", field.name, kMustBeAnArray, type_name(field.read().get())});
}

bool require_json_mapping(PyObject* raw, const char* class_name) {
  if (globals::is_mapping(raw)) return true;
  return schema_error().refuse(
      {class_name, " JSON mapping payload required; got ", type_name(raw)});
}

bool require_non_empty_str(PyObject* value, const char* what) {
  if (is_non_empty_str(value)) return true;
  return schema_error().refuse({what, kMustBeANonEmptyStr, repr(value)});
}

bool compare_dtype(PyObject* array, PyObject* name, int op) {
  Ref dtype = get_attr(array, names.dtype);
  Ref expected = numpy_attr(name);
  return compare(dtype.get(), expected.get(), op);
}

Pair unpack_pair(PyObject* pair) {
  if (PyTuple_CheckExact(pair) && PyTuple_GET_SIZE(pair) == 2) {
    return {Ref::borrow(PyTuple_GET_ITEM(pair, 0)), Ref::borrow(PyTuple_GET_ITEM(pair, 1))};
  }
  Ref iterator = Ref::steal(PyObject_GetIter(pair));
  if (!iterator) {
    if (PyErr_ExceptionMatches(PyExc_TypeError) != 0 && Py_TYPE(pair)->tp_iter == nullptr &&
        PySequence_Check(pair) == 0) {
      raise(PyExc_TypeError, "cannot unpack non-iterable %.200s object", Py_TYPE(pair)->tp_name);
    }
    throw PythonError{};
  }
  Ref items[2];
  for (int count = 0; count < 2; ++count) {
    items[count] = Ref::steal(PyIter_Next(iterator.get()));
    check_indicator();
    if (!items[count]) {
      raise(PyExc_ValueError, "not enough values to unpack (expected 2, got %d)", count);
    }
  }
  Ref excess = Ref::steal(PyIter_Next(iterator.get()));
  check_indicator();
  if (excess) raise(PyExc_ValueError, "too many values to unpack (expected 2)");
  return {std::move(items[0]), std::move(items[1])};
}

Result dict_or_empty(PyObject* value) {
  return is_true(value) ? dict_from(value) : own(PyDict_New());
}

bool has_settled_class(PyObject* object) noexcept {
  static PyObject* const class_of_object =
      _PyType_Lookup(&PyBaseObject_Type, own_names.class_dunder);
  PyTypeObject* type = Py_TYPE(object);
  return (type->tp_flags & Py_TPFLAGS_HEAPTYPE) == 0 &&
         type->tp_getattro == PyObject_GenericGetAttr &&
         _PyType_Lookup(type, own_names.class_dunder) == class_of_object;
}

Ref plain_items_without(PyObject* object, std::span<PyObject* const> excluded) {
  if (!PyDict_CheckExact(object)) return {};
  Ref result = own(PyDict_New());
  // Making it may collect garbage, and with that run code: the module is asked afterwards.
  const bool is_plain =
      globals::untouched() && all_entries(object, [&](PyObject* key, PyObject* value) {
        if (!PyUnicode_CheckExact(key)) return false;
        const bool is_excluded =
            std::ranges::any_of(excluded, [&](PyObject* name) { return is_same_text(key, name); });
        if (!is_excluded) check(PyDict_SetItem(result.get(), key, value));
        return true;
      });
  return is_plain ? std::move(result) : Ref();
}

}  // namespace typed_shapes
