#include "common/binder.h"

#include <algorithm>

namespace typed_shapes {

namespace {

constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// Call sites carry interned names, so identity nearly always decides.
std::size_t find_name(std::span<PyObject* const> names, PyObject* keyword) {
  const auto same = std::ranges::find(names, keyword);
  if (same != names.end()) return static_cast<std::size_t>(same - names.begin());
  if (!PyUnicode_Check(keyword)) return kNotFound;  // C callers may pass anything
  for (std::size_t i = 0; i < names.size(); ++i) {
    const int order = PyUnicode_Compare(names[i], keyword);
    if (order == 0) return i;
    if (order == -1) check_indicator();
  }
  return kNotFound;
}

Refused refuse_argument_count(const ParameterList& parameters, std::size_t given) {
  const auto required = static_cast<std::size_t>(
      std::ranges::count(parameters.defaults.first(parameters.positional), nullptr));
  const bool too_few = given < required;
  const std::size_t expected = too_few ? required : parameters.positional;
  const char* quantity = too_few ? "at least" : "at most";
  if (required == parameters.positional) quantity = "exactly";
  return set_error(PyExc_TypeError, "%.200U() takes %.8s %zu positional argument%.1s (%zu given)",
                   parameters.function_name, quantity, expected, expected == 1 ? "" : "s", given);
}

// The arguments, and then the defaults; false where one has none.
bool fill_by_position(const ParameterList& parameters, const CallArguments& arguments,
                      std::span<PyObject*> places) {
  const auto given = static_cast<std::size_t>(arguments.positional);
  for (std::size_t i = 0; i < places.size(); ++i) {
    places[i] = i < given ? arguments.values[i] : parameters.defaults[i];
    if (places[i] == nullptr) return false;
  }
  return true;
}

}  // namespace

KeywordFaults match_arguments(std::span<PyObject* const> parameter_names,
                              const CallArguments& arguments, std::span<PyObject*> places) {
  const auto given = static_cast<std::size_t>(arguments.positional);
  for (std::size_t i = 0; i < places.size(); ++i) {
    places[i] = i < given ? arguments.values[i] : nullptr;
  }
  KeywordFaults faults;
  for (Py_ssize_t i = 0; i < arguments.keyword_count(); ++i) {
    PyObject* keyword = PyTuple_GET_ITEM(arguments.keywords, i);
    const std::size_t place = find_name(parameter_names, keyword);
    if (place == kNotFound) {
      if (faults.unexpected == nullptr || !PyUnicode_Check(keyword)) faults.unexpected = keyword;
    } else if (places[place] != nullptr) {
      if (faults.given_twice == nullptr) faults.given_twice = keyword;
    } else {
      places[place] = arguments.values[arguments.positional + i];
    }
  }
  return faults;
}

bool bind_arguments(const ParameterList& parameters, const CallArguments& arguments,
                    std::span<PyObject*> places) {
  const auto given = static_cast<std::size_t>(arguments.positional);
  if (given > parameters.positional) return refuse_argument_count(parameters, given);
  if (arguments.keywords == nullptr && fill_by_position(parameters, arguments, places)) return true;

  const KeywordFaults faults = match_arguments(parameters.names, arguments, places);
  if (faults.unexpected != nullptr && !PyUnicode_Check(faults.unexpected)) {
    return set_error(PyExc_TypeError, "%.200U() keywords must be strings",
                     parameters.function_name);
  }
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (places[i] != nullptr) continue;
    places[i] = parameters.defaults[i];
    if (places[i] != nullptr) continue;
    // The arguments before the first missing one are those that count as given.
    if (i < parameters.positional) return refuse_argument_count(parameters, i);
    return set_error(PyExc_TypeError, "%U() needs keyword-only argument %U",
                     parameters.function_name, parameters.names[i]);
  }
  if (faults.given_twice != nullptr) {
    return set_error(PyExc_TypeError, "%U() got multiple values for keyword argument '%U'",
                     parameters.function_name, faults.given_twice);
  }
  if (faults.unexpected != nullptr) {
    return set_error(PyExc_TypeError, "%U() got an unexpected keyword argument '%U'",
                     parameters.function_name, faults.unexpected);
  }
  return true;
}

}  // namespace typed_shapes
