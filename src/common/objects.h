// The operations of the Python language that the checks are written in: attribute reads, isinstance,
// truth, repr, calls. Each does what the Python expression in its comment does.
#pragma once

#include <array>

#include "common/errors.h"
#include "common/names.h"

namespace typed_shapes {

[[nodiscard]] inline Ref none() { return Ref::borrow(Py_None); }
[[nodiscard]] inline bool is_none(const Ref& object) { return object.get() == Py_None; }
// True if condition else False
[[nodiscard]] inline Ref boolean(bool condition) {
  return Ref::borrow(condition ? Py_True : Py_False);
}
// object.name
[[nodiscard]] inline Ref get_attr(PyObject* object, PyObject* name) {
  return own(PyObject_GetAttr(object, name));
}
// object.name = value
inline void set_attr(PyObject* object, PyObject* name, PyObject* value) {
  check(PyObject_SetAttr(object, name, value));
}
// isinstance(object, type)
[[nodiscard]] inline bool is_instance(PyObject* object, PyObject* type) {
  return check(PyObject_IsInstance(object, type)) != 0;
}
[[nodiscard]] inline bool is_dict(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyDict_Type));
}
[[nodiscard]] inline bool is_str(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyUnicode_Type));
}
// bool(object)
[[nodiscard]] inline bool is_true(PyObject* object) { return check(PyObject_IsTrue(object)) != 0; }
// isinstance(object, str) and bool(object)
[[nodiscard]] inline bool is_non_empty_str(PyObject* object) {
  return is_str(object) && is_true(object);
}
// bool(left OPERATOR right), for Py_EQ, Py_NE, Py_LT, ...
[[nodiscard]] inline bool compare(PyObject* left, PyObject* right, int op) {
  return is_true(own(PyObject_RichCompare(left, right, op)).get());
}
// item in container
[[nodiscard]] inline bool contains(PyObject* container, PyObject* item) {
  return check(PySequence_Contains(container, item)) != 0;
}
[[nodiscard]] inline Ref repr(PyObject* object) { return own(PyObject_Repr(object)); }
// str(object)
[[nodiscard]] inline Ref str(PyObject* object) { return own(PyObject_Str(object)); }
[[nodiscard]] inline Ref str(Py_ssize_t number) { return own(PyUnicode_FromFormat("%zd", number)); }
// type(object).__name__
[[nodiscard]] inline Ref type_name(PyObject* object) {
  return get_attr(reinterpret_cast<PyObject*>(Py_TYPE(object)), names.name_dunder);
}
// dict(source)
[[nodiscard]] inline Ref dict_from(PyObject* source) {
  return own(PyObject_CallOneArg(reinterpret_cast<PyObject*>(&PyDict_Type), source));
}

// callable(*arguments)
template <typename... Arguments>
Ref call(PyObject* callable, Arguments... arguments) {
  // One free place in front lets a bound method pass on its arguments without a copy.
  std::array<PyObject*, sizeof...(arguments) + 1> stack{nullptr, arguments...};
  return own(PyObject_Vectorcall(callable, stack.data() + 1,
                                 sizeof...(arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

// object.name(*arguments)
template <typename... Arguments>
Ref call_method(PyObject* object, PyObject* name, Arguments... arguments) {
  std::array<PyObject*, sizeof...(arguments) + 1> stack{object, arguments...};
  return own(PyObject_VectorcallMethod(
      name, stack.data(), stack.size() | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

struct Keyword {
  PyObject* name;
  PyObject* value;
};

// callable(name=value, ...)
template <std::size_t Count>
[[nodiscard]] Ref call_keywords(PyObject* callable, const Keyword (&keywords)[Count]) {
  Ref keyword_names = own(PyTuple_New(Count));
  std::array<PyObject*, Count> values;
  for (std::size_t i = 0; i < Count; ++i) {
    PyTuple_SET_ITEM(keyword_names.get(), static_cast<Py_ssize_t>(i),
                     Py_NewRef(keywords[i].name));
    values[i] = keywords[i].value;
  }
  return own(PyObject_Vectorcall(callable, values.data(), 0, keyword_names.get()));
}

// for item in iterable: visit(item). The item belongs to the loop while it is visited.
template <typename Visit>
void for_each(PyObject* iterable, Visit&& visit) {
  Ref iterator = own(PyObject_GetIter(iterable));
  while (Ref item = Ref::steal(PyIter_Next(iterator.get()))) visit(item.get());
  check_indicator();
}

}  // namespace typed_shapes
