// The checks that several classes share, each with its one wording. Those in the first part are the
// canonical ones: they do what the Python expressions say; false is a refusal, with the error set.
// Those in the second part only accept, without running Python code.
#pragma once

#include <span>

#include "common/globals.h"
#include "common/message.h"
#include "common/numpy_api.h"
#include "common/record.h"

namespace typed_shapes {

// The wordings that several checks share; the owner stands before them.
inline constexpr const char* kMustBeADict = " must be a dict; got ";
inline constexpr const char* kMustBeANonEmptyStr = " must be a non-empty str; got ";
inline constexpr const char* kMustBeAnArray = " must be np.ndarray; got ";

// --- Canonical ---

// "<class> JSON mapping payload required; got <type>"
[[nodiscard]] bool require_json_mapping(PyObject* raw, const char* class_name);
// "<what> must be a non-empty str; got <repr>"
[[nodiscard]] bool require_non_empty_str(PyObject* value, const char* what);
// "<owner> must be np.ndarray; got <type>"; the owner's text is made when it is needed.
template <typename Owner>
[[nodiscard]] bool require_array(PyObject* value, Owner&& owner) {
  if (is_array(value)) return true;
  return schema_error().refuse({owner(), kMustBeAnArray, type_name(value)});
}

// array.dtype OPERATOR np.name
[[nodiscard]] bool compare_dtype(PyObject* array, PyObject* name, int op);

// first, second = pair, with the interpreter's own refusals
struct Pair {
  Ref first;
  Ref second;
};
[[nodiscard]] Pair unpack_pair(PyObject* pair);

// all(check(key, value) for key, value in mapping.items()), without the generator. The pair belongs
// to the loop while it is checked.
template <typename CheckItem>
[[nodiscard]] bool all_items(PyObject* mapping, CheckItem&& check_item) {
  Ref items = typed_shapes::items(mapping);
  return all_of(items.get(), [&](PyObject* item) {
    const Pair pair = unpack_pair(item);
    return check_item(pair.first.get(), pair.second.get());
  });
}

// for key, value in mapping.items(): visit(key, value)
template <typename Visit>
void for_each_item(PyObject* mapping, Visit&& visit) {
  static_cast<void>(all_items(mapping, [&](PyObject* key, PyObject* value) {
    visit(key, value);
    return true;
  }));
}

// dict(value or {})
[[nodiscard]] Result dict_or_empty(PyObject* value);

// --- Accepting ---

[[nodiscard]] inline bool is_plain_name(PyObject* object) {
  return is_plain_str(object) && PyUnicode_GET_LENGTH(object) > 0;
}

// Whether isinstance() of the object is settled by its type alone. A class of Python code, a proxy
// or a type with a __class__ of its own may claim to be anything.
[[nodiscard]] bool has_settled_class(PyObject* object) noexcept;

// Whether the object is an exact ndarray, and native code may stand for what `np` does with it.
[[nodiscard]] inline bool is_plain_array(PyObject* object) noexcept {
  return PyArray_CheckExact(object) && numpy_untouched();
}

// Whether the object is an exact dict of non-empty exact strs to values that the predicate takes.
template <typename Predicate>
[[nodiscard]] bool has_named_entries(PyObject* object, Predicate&& accepts_value) {
  return PyDict_CheckExact(object) && all_entries(object, [&](PyObject* key, PyObject* value) {
           return is_plain_name(key) && accepts_value(key, value);
         });
}

// The same of exact ndarrays, where native code may stand for what `np` does with them.
template <typename Predicate>
[[nodiscard]] bool has_named_arrays(PyObject* object, Predicate&& accepts_array) {
  return numpy_untouched() && has_named_entries(object, [&](PyObject* /*key*/, PyObject* value) {
           return PyArray_CheckExact(value) && accepts_array(as_array(value));
         });
}

// Whether both are the same text; both are plain strs.
[[nodiscard]] inline bool is_same_text(PyObject* left, PyObject* right) noexcept {
  return left == right || (PyUnicode_GET_LENGTH(left) == PyUnicode_GET_LENGTH(right) &&
                           PyUnicode_Compare(left, right) == 0);
}

// A new dict of the items whose keys are none of these names; null where the object is not an exact
// dict with exact strs for keys, or the module was changed.
[[nodiscard]] Ref plain_items_without(PyObject* object, std::span<PyObject* const> excluded);

// --- What a field must be ---

// "<class>.<field> must be a dict; got <type>"
[[nodiscard]] bool require_dict(const FieldAccess& field);
inline constexpr Check kDict = {require_dict,
                                [](PyObject* value) { return PyDict_CheckExact(value) != 0; }};
// The same, and then kCheckItem(key, value) for every item.
template <bool (*kCheckItem)(PyObject* key, PyObject* value)>
[[nodiscard]] bool require_dict_of(const FieldAccess& field) {
  return require_dict(field) && all_items(field.read().get(), kCheckItem);
}
// "<class>.<field> must be a non-empty str; got <repr>"
[[nodiscard]] bool require_non_empty_str(const FieldAccess& field);
inline constexpr Check kNonEmptyStr = {require_non_empty_str, is_plain_name};
// "<class>.<field> must be np.ndarray; got <type>"
[[nodiscard]] bool require_array(const FieldAccess& field);
inline constexpr Check kArray = {require_array, is_plain_array};

}  // namespace typed_shapes
