#include "common/objects.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/scopes.h"

namespace typed_shapes {

namespace {

const struct {
  Name get{"get"};
  Name items{"items"};
  Name keys{"keys"};
  Name pop{"pop"};
  Name values{"values"};
} own_names;

// The C function behind a method of dict, which nobody can change.
PyCFunction method_of_dict(const char* name) noexcept {
  const PyMethodDef* method = PyDict_Type.tp_methods;
  while (std::strcmp(method->ml_name, name) != 0) ++method;
  return method->ml_meth;
}

const PyCFunction keys_of_dict = method_of_dict("keys");
const PyCFunction items_of_dict = method_of_dict("items");
const PyCFunction values_of_dict = method_of_dict("values");
const auto pop_of_dict =
    reinterpret_cast<_PyCFunctionFast>(reinterpret_cast<void (*)()>(method_of_dict("pop")));

Result view(PyCFunction of_dict, PyObject* mapping, PyObject* name) {
  if (!PyDict_CheckExact(mapping)) return call_method(mapping, name);
  return own(of_dict(mapping, nullptr));
}

template <typename... Fallback>
Result get_or(PyObject* mapping, PyObject* key, PyObject* otherwise, Fallback... fallback) {
  if (!PyDict_CheckExact(mapping)) return call_method(mapping, own_names.get, key, fallback...);
  PyObject* value = PyDict_GetItemWithError(mapping, key);
  if (value == nullptr) check_indicator();
  return Ref::borrow(value != nullptr ? value : otherwise);
}

}  // namespace

Result get(PyObject* mapping, PyObject* key, PyObject* fallback) {
  return get_or(mapping, key, fallback, fallback);
}

Result get(PyObject* mapping, PyObject* key) { return get_or(mapping, key, Py_None); }

Result keys(PyObject* mapping) { return view(keys_of_dict, mapping, own_names.keys); }
Result items(PyObject* mapping) { return view(items_of_dict, mapping, own_names.items); }
Result values(PyObject* mapping) { return view(values_of_dict, mapping, own_names.values); }

Result pop(PyObject* mapping, PyObject* key) {
  if (!PyDict_CheckExact(mapping)) return call_method(mapping, own_names.pop, key, Py_None);
  PyObject* const arguments[] = {key, Py_None};
  return own(pop_of_dict(mapping, arguments, std::size(arguments)));
}

Result call_keywords(PyObject* callable, std::span<PyObject* const> positional,
                     std::span<const Keyword> keywords) {
  const auto is_given = [](const Keyword& keyword) { return keyword.value != nullptr; };
  std::vector<PyObject*> stack(positional.begin(), positional.end());
  stack.reserve(positional.size() + keywords.size());
  Ref keyword_names = own(PyTuple_New(std::ranges::count_if(keywords, is_given)));
  // Filled at once: a collection would show it to others.
  Py_ssize_t place = 0;
  for (const Keyword& keyword : keywords) {
    if (!is_given(keyword)) continue;
    PyTuple_SET_ITEM(keyword_names.get(), place++, Py_NewRef(keyword.name));
    stack.push_back(keyword.value);
  }
  return own(PyObject_Vectorcall(callable, stack.data(), positional.size(), keyword_names.get()));
}

Result iterate(PyObject* iterable) {
  const bool has_pairs =
      Py_IS_TYPE(iterable, &PyDictItems_Type) || Py_IS_TYPE(iterable, &PyODictItems_Type);
  if (!has_pairs) return own(PyObject_GetIter(iterable));
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
