// The function type of the module: native code that looks like a Python function from outside.
#pragma once

#include <algorithm>
#include <array>

#include "common/objects.h"

namespace typed_shapes {

// What a function does. It gets one borrowed, non-null object for each parameter of its signature,
// in the signature's order, and returns a new reference or throws.
using Body = Ref (*)(PyObject* const* arguments);

// The arguments by name: const auto [self, key] = unpack<2>(arguments);
template <std::size_t Count>
[[nodiscard]] std::array<PyObject*, Count> unpack(PyObject* const* arguments) {
  std::array<PyObject*, Count> result;
  std::copy_n(arguments, Count, result.begin());
  return result;
}

struct FunctionTable {
  const char* signature;  // the signature line, also the first line of __doc__
  const char* doc;        // the docstring proper, or null
  Body body;
};

// Makes the type; once per load, before the first function.
void create_function_type();

[[nodiscard]] Ref make_function(const FunctionTable& table);

// Makes a function and binds it to its name in the module.
void define_function(const FunctionTable& table);

}  // namespace typed_shapes
