#include "common/objects.h"

#include <vector>

#include "common/scopes.h"

namespace typed_shapes {

namespace {

template <typename... Fallback>
Ref get_or(PyObject* mapping, PyObject* key, PyObject* otherwise, Fallback... fallback) {
  if (!PyDict_CheckExact(mapping)) return call_method(mapping, names.get, key, fallback...);
  PyObject* value = PyDict_GetItemWithError(mapping, key);
  if (value == nullptr) check_indicator();
  return Ref::borrow(value != nullptr ? value : otherwise);
}

}  // namespace

Ref get(PyObject* mapping, PyObject* key, PyObject* fallback) {
  return get_or(mapping, key, fallback, fallback);
}

Ref get(PyObject* mapping, PyObject* key) { return get_or(mapping, key, Py_None); }

Ref call_keywords(PyObject* callable, std::span<PyObject* const> positional,
                  std::span<const Keyword> keywords) {
  std::vector<PyObject*> stack(positional.begin(), positional.end());
  Ref keyword_names = own(PyList_New(0));
  for (const Keyword& keyword : keywords) {
    if (keyword.value == nullptr) continue;
    check(PyList_Append(keyword_names.get(), keyword.name));
    stack.push_back(keyword.value);
  }
  Ref name_tuple = own(PyList_AsTuple(keyword_names.get()));
  return own(PyObject_Vectorcall(callable, stack.data(), positional.size(), name_tuple.get()));
}

Ref iterate(PyObject* iterable) {
  if (!Py_IS_TYPE(iterable, &PyDictItems_Type)) return own(PyObject_GetIter(iterable));
  // CPython 3.11 crashes where it finds no memory for the pair that an iterator over the items of a
  // dict keeps. With a pair on the free list of tuples, and no collection to empty that, it need
  // not ask.
  const CollectorPause pause;
  {
    const Ref pair = own(PyTuple_New(2));
  }
  return own(PyObject_GetIter(iterable));
}

}  // namespace typed_shapes
