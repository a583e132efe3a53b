// The function type of the module: native code that looks like a Python function from outside.
#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "common/objects.h"
#include "common/signature.h"

namespace typed_shapes {

// What a function does with its arguments: one borrowed, non-null object for each parameter, in the
// signature's order.
using Body = Result (*)(PyObject* const* arguments);

struct FunctionTable {
  const char* signature;  // the signature line, also the first line of __doc__
  const char* doc;        // the docstring proper, or null
  Body body;
};

// Passes the arguments on to an ordinary function of that many parameters; `call_held` keeps them
// alive meanwhile, as the frame of a Python function does. Not every caller does: functools.partial
// may be changed during the call.
template <auto kFunction>
struct Adapter;
template <typename Returned, typename... Parameters, Returned (*kFunction)(Parameters...)>
struct Adapter<kFunction> {
  static constexpr std::size_t kParameterCount = sizeof...(Parameters);
  static Returned call(PyObject* const* arguments) {
    return [arguments]<std::size_t... kIndex>(std::index_sequence<kIndex...>) {
      return kFunction(arguments[kIndex]...);
    }(std::index_sequence_for<Parameters...>{});
  }
  static Returned call_held(PyObject* const* arguments) {
    return [arguments]<std::size_t... kIndex>(std::index_sequence<kIndex...>) {
      const std::array<Ref, kParameterCount> held{Ref::borrow(arguments[kIndex])...};
      return kFunction(held[kIndex].get()...);
    }(std::index_sequence_for<Parameters...>{});
  }
};

// How many parameters a signature line has; a lone * is none.
consteval std::size_t count_parameters(std::string_view line) {
  std::size_t count = 0;
  signature::for_each_parameter(line, [&](std::string_view text) { count += text != "*"; });
  return count;
}

// The table of function<body>("name(parameters)", "doc"): the two must have as many parameters.
template <auto kFunction>
consteval FunctionTable function(const char* signature, const char* doc = nullptr) {
  static_assert(Adapter<kFunction>::kParameterCount <= kMaxParameters);
  if (count_parameters(signature) != Adapter<kFunction>::kParameterCount) {
    throw "the signature line and the function differ in the number of their parameters";
  }
  return {signature, doc, Adapter<kFunction>::call_held};
}

// Makes the type; once per load, before the first function.
void create_function_type();

[[nodiscard]] Ref make_function(const FunctionTable& table);

// Makes a function and binds it to its name in the module.
void define_function(const FunctionTable& table);

}  // namespace typed_shapes
