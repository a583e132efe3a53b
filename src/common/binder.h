// Binding call arguments to parameters. The matching is shared by functions and by record
// constructors; only functions word the failures.
#pragma once

#include <span>

#include "common/errors.h"

namespace typed_shapes {

// No callable of the module has more parameters.
inline constexpr std::size_t kMaxParameters = 12;

// The arguments of one vectorcall, as the interpreter hands them over.
struct CallArguments {
  PyObject* const* values;
  Py_ssize_t positional;
  PyObject* keywords;  // a tuple of str, or null

  CallArguments(PyObject* const* args, std::size_t nargsf, PyObject* kwnames) noexcept
      : values(args), positional(PyVectorcall_NARGS(nargsf)), keywords(kwnames) {}

  [[nodiscard]] Py_ssize_t keyword_count() const noexcept {
    return keywords == nullptr ? 0 : PyTuple_GET_SIZE(keywords);
  }
  // Whether every keyword is an exact str; the interpreter calls the __eq__ of a str subclass.
  [[nodiscard]] bool has_plain_keywords() const noexcept {
    for (Py_ssize_t i = 0; i < keyword_count(); ++i) {
      if (!PyUnicode_CheckExact(PyTuple_GET_ITEM(keywords, i))) return false;
    }
    return true;
  }
};

// The first offence of each kind that the keywords commit; null where there is none.
struct KeywordFaults {
  PyObject* given_twice = nullptr;
  PyObject* unexpected = nullptr;

  [[nodiscard]] bool any() const noexcept {
    return given_twice != nullptr || unexpected != nullptr;
  }
};

// Puts each argument into the place of its parameter, and null into the places of the others. The
// positional arguments must not be more than the places.
[[nodiscard]] KeywordFaults match_arguments(std::span<PyObject* const> parameter_names,
                                            const CallArguments& arguments,
                                            std::span<PyObject*> places);

// What a function's arguments are bound to.
struct ParameterList {
  PyObject* function_name;              // shown in the errors
  std::span<PyObject* const> names;     // interned, positional parameters first
  std::span<PyObject* const> defaults;  // one for each name; null where the argument is required
  std::size_t positional;
};

// Fills one place for each parameter; false where that is refused with TypeError. The places are
// borrowed: from the caller's arguments, or from the defaults.
[[nodiscard]] bool bind_arguments(const ParameterList& parameters, const CallArguments& arguments,
                                  std::span<PyObject*> places);

}  // namespace typed_shapes
