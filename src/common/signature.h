// A signature line is what one writes after "def", with the class name in front of a method's:
//   "StageData.value(self, key: str, default: Any = _MISSING) -> Any"
// Parameters, keyword-only marks, defaults and annotations are all read off it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/binder.h"

namespace typed_shapes {

struct Parameter {
  std::string name;
  std::string annotation;    // source text; empty where there is none
  std::string default_text;  // source text; empty where the argument is required
};

struct SignatureLine {
  std::string qualname;               // "StageData.value"
  std::string name;                   // "value"
  std::vector<Parameter> parameters;  // positional ones first
  std::size_t positional = 0;         // how many may be given by position
  std::string return_annotation;      // empty where there is none
};

// Throws SystemError for a line that is not of the form above.
[[nodiscard]] SignatureLine parse_signature(std::string_view line);

// The object that a default's source text names: None, an int, a u'...' string, a global name.
[[nodiscard]] Ref default_value(const std::string& text);

// The inspect.Signature of these parameters, annotated by a dict or by nothing.
[[nodiscard]] Ref make_inspect_signature(const ParameterList& parameters, PyObject* annotations);

}  // namespace typed_shapes
