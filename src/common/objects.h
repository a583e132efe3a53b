// The operations of the Python language that the checks are written in: attribute reads,
// isinstance, truth, repr, calls. Each does what the Python expression in its comment does.
#pragma once

#include <array>
#include <span>

#include "common/array_nesting.h"
#include "common/errors.h"
#include "common/names.h"
#include "common/scopes.h"

namespace typed_shapes {

// The items of a tuple that something else keeps alive; none where there is no tuple.
[[nodiscard]] inline std::span<PyObject* const> items_of(PyObject* tuple) noexcept {
  if (tuple == nullptr) return {};
  return {&PyTuple_GET_ITEM(tuple, 0), static_cast<std::size_t>(PyTuple_GET_SIZE(tuple))};
}

[[nodiscard]] inline Ref none() { return Ref::borrow(Py_None); }
// The value, where all checks passed; one that did not has set the error.
[[nodiscard]] inline Result value_if(bool passed, Ref value) {
  if (passed) return value;
  return Refused{};
}
[[nodiscard]] inline Result none_if(bool passed) { return value_if(passed, none()); }
[[nodiscard]] inline bool is_none(const Ref& object) { return object.get() == Py_None; }
// True if condition else False
[[nodiscard]] inline Ref boolean(bool condition) {
  return Ref::borrow(condition ? Py_True : Py_False);
}
inline Result integer(long number) { return own(PyLong_FromLong(number)); }
// An interned str.
inline Result interned(const char* characters) {
  return own(PyUnicode_InternFromString(characters));
}
// object.name
inline Result get_attr(PyObject* object, PyObject* name) {
  return own(PyObject_GetAttr(object, name));
}
// object.name = value
inline void set_attr(PyObject* object, PyObject* name, PyObject* value) {
  check(PyObject_SetAttr(object, name, value));
}
// Whether the object is None or exactly a float, int, str or bool.
[[nodiscard]] inline bool is_builtin_scalar(PyObject* object) noexcept {
  return PyFloat_CheckExact(object) || PyLong_CheckExact(object) || PyUnicode_CheckExact(object) ||
         PyBool_Check(object) || object == Py_None;
}
// Whether the object is exactly of a common builtin type, whose __class__ nobody can change.
[[nodiscard]] inline bool is_exact_builtin(PyObject* object) noexcept {
  return PyDict_CheckExact(object) || is_builtin_scalar(object) || PyList_CheckExact(object) ||
         PyTuple_CheckExact(object);
}
// Whether the object is an exact str whose characters are there. The old C API makes some whose
// characters are put in place when first asked for, which may fail.
[[nodiscard]] inline bool is_plain_str(PyObject* object) noexcept {
  return PyUnicode_CheckExact(object) && PyUnicode_IS_READY(object);
}
// isinstance(object, type)
[[nodiscard]] inline bool is_instance(PyObject* object, PyObject* type) {
  if (Py_TYPE(object) == reinterpret_cast<PyTypeObject*>(type)) return true;
  if (PyType_CheckExact(type) && is_exact_builtin(object)) {
    return PyType_IsSubtype(Py_TYPE(object), reinterpret_cast<PyTypeObject*>(type)) != 0;
  }
  return check(PyObject_IsInstance(object, type)) != 0;
}
[[nodiscard]] inline bool is_dict(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyDict_Type));
}
[[nodiscard]] inline bool is_int(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyLong_Type));
}
[[nodiscard]] inline bool is_bool(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyBool_Type));
}
[[nodiscard]] inline bool is_list(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyList_Type));
}
[[nodiscard]] inline bool is_tuple(PyObject* object) {
  return is_instance(object, reinterpret_cast<PyObject*>(&PyTuple_Type));
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
// left OPERATOR right, for Py_EQ, Py_NE, Py_LT, ...
inline Result rich_compare(PyObject* left, PyObject* right, int op) {
  check_operands(left, right);
  return own(PyObject_RichCompare(left, right, op));
}
// bool(left OPERATOR right)
[[nodiscard]] inline bool compare(PyObject* left, PyObject* right, int op) {
  return is_true(rich_compare(left, right, op).get());
}
// item in container
[[nodiscard]] inline bool contains(PyObject* container, PyObject* item) {
  return check(PySequence_Contains(container, item)) != 0;
}
inline Result repr(PyObject* object) { return own(PyObject_Repr(object)); }
// str(object)
inline Result str(PyObject* object) { return own(PyObject_Str(object)); }
inline Result str(Py_ssize_t number) { return own(PyUnicode_FromFormat("%zd", number)); }
// type(object).__name__
inline Result type_name(PyObject* object) {
  return get_attr(reinterpret_cast<PyObject*>(Py_TYPE(object)), names.name_dunder);
}
// dict(source)
inline Result dict_from(PyObject* source) {
  if (!PyDict_CheckExact(source)) {
    return own(PyObject_CallOneArg(reinterpret_cast<PyObject*>(&PyDict_Type), source));
  }
  // Not PyDict_Copy: it may copy the key table without the __eq__ calls that dict() makes.
  Ref copy = own(PyDict_New());
  check(PyDict_Update(copy.get(), source));
  return copy;
}
// container[key]
inline Result get_item(PyObject* container, PyObject* key) {
  return own(PyObject_GetItem(container, key));
}

// callable(*arguments)
template <typename... Arguments>
Result call(PyObject* callable, Arguments... arguments) {
  // One free place in front lets a bound method pass on its arguments without a copy.
  std::array<PyObject*, sizeof...(arguments) + 1> stack{nullptr, arguments...};
  return own(PyObject_Vectorcall(callable, stack.data() + 1,
                                 sizeof...(arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

// object.name(*arguments)
template <typename... Arguments>
Result call_method(PyObject* object, PyObject* name, Arguments... arguments) {
  std::array<PyObject*, sizeof...(arguments) + 1> stack{object, arguments...};
  return own(PyObject_VectorcallMethod(name, stack.data(),
                                       stack.size() | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

// mapping.get(key, fallback), through the mapping's own method; that of an exact dict is known.
[[nodiscard]] Result get(PyObject* mapping, PyObject* key, PyObject* fallback);
// mapping.get(key)
[[nodiscard]] Result get(PyObject* mapping, PyObject* key);

// mapping.keys(), .items(), .values() and .pop(key, None), in the same way.
[[nodiscard]] Result keys(PyObject* mapping);
[[nodiscard]] Result items(PyObject* mapping);
[[nodiscard]] Result values(PyObject* mapping);
[[nodiscard]] Result pop(PyObject* mapping, PyObject* key);

struct Keyword {
  PyObject* name;
  PyObject* value;
};

// callable(*positional, name=value, ...); keywords without a value are left out
Result call_keywords(PyObject* callable, std::span<PyObject* const> positional,
                     std::span<const Keyword> keywords);

// list.append(item); false where the item could not be made.
[[nodiscard]] inline bool append(const Ref& list, const Result& item) {
  if (item) check(PyList_Append(list.get(), item.get()));
  return static_cast<bool>(item);
}

// Whether the predicate takes every (key, value) of a real dict, in order. Neither the walk nor the
// predicate may run Python code: nothing guards against a change of the dict.
template <typename Predicate>
bool all_entries(PyObject* dict, Predicate&& predicate) {
  Py_ssize_t position = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  while (PyDict_Next(dict, &position, &key, &value) != 0) {
    if (!predicate(key, value)) return false;
  }
  return true;
}

// Whether every key of a real dict is an exact str: only then do copies and look-ups run no Python
// code, since keys of other types may be compared with each other.
[[nodiscard]] inline bool has_str_keys(PyObject* dict) {
  return all_entries(dict, [](PyObject* key, PyObject*) { return PyUnicode_CheckExact(key) != 0; });
}

// iter(iterable)
[[nodiscard]] Result iterate(PyObject* iterable);

// all(predicate(item) for item in iterable), without the generator
template <typename Predicate>
bool all_of(PyObject* iterable, Predicate&& predicate) {
  Ref iterator = iterate(iterable);
  while (Ref item = Ref::steal(PyIter_Next(iterator.get()))) {
    if (!predicate(item.get())) return false;
    let_others_run();
  }
  check_indicator();
  return true;
}

// for item in iterable: visit(item). The item belongs to the loop while it is visited.
template <typename Visit>
void for_each(PyObject* iterable, Visit&& visit) {
  all_of(iterable, [&](PyObject* item) {
    visit(item);
    return true;
  });
}

}  // namespace typed_shapes
