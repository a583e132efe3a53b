// The type of the module's functions: what one is made of, and how it looks from Python.
#pragma once

#include "common/binder.h"
#include "common/function.h"

namespace typed_shapes {

// What a function refers to. The list drives creation, traversal and clearing.
enum Member : std::size_t {
  kName,
  kQualname,
  kModule,
  kDoc,
  kAnnotations,
  kDict,
  kGlobals,
  kDefaults,           // a tuple, or None: __defaults__
  kKeywordDefaults,    // a dict, or None: __kwdefaults__
  kParameterNames,     // a tuple
  kParameterDefaults,  // a tuple of every default there is, in the parameters' order
  kMemberCount,
};

struct NativeFunction {
  PyObject_HEAD vectorcallfunc vectorcall;
  Body body;
  std::size_t positional;
  std::size_t parameter_count;
  PyObject* names[kMaxParameters];     // borrowed from kParameterNames
  PyObject* defaults[kMaxParameters];  // borrowed from kParameterDefaults; null where required
  PyObject* members[kMemberCount];
  PyObject* weak_references;
};

[[nodiscard]] inline NativeFunction* as_function(PyObject* object) {
  return reinterpret_cast<NativeFunction*>(object);
}

[[nodiscard]] inline ParameterList parameters_of(const NativeFunction* function) {
  const std::size_t count = function->parameter_count;
  return {function->members[kName],
          {function->names, count},
          {function->defaults, count},
          function->positional};
}

// The type, which create_function_type() makes.
extern Slot function_type;

}  // namespace typed_shapes
