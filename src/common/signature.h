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

namespace signature {

constexpr std::string_view trim(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

// The position of the first wanted character outside brackets and quotes; npos where there is none.
constexpr std::size_t find_top_level(std::string_view text, char wanted) {
  int depth = 0;
  char quote = '\0';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (depth == 0 && c == wanted) {
      return i;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '(' || c == '[') {
      ++depth;
    } else if (c == ')' || c == ']') {
      --depth;
    }
  }
  return std::string_view::npos;
}

// Cuts the text at the first wanted character: what stands before it stays, the rest is returned.
constexpr std::string_view cut(std::string_view& text, char wanted) {
  const std::size_t at = find_top_level(text, wanted);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = text.substr(at + 1);
  text = text.substr(0, at);
  return rest;
}

// Visits what stands between the commas of the brackets, a lone * too. Returns what follows them.
template <typename Visit>
constexpr std::string_view for_each_parameter(std::string_view line, Visit&& visit) {
  std::string_view parameters = line.substr(line.find('(') + 1);
  const std::string_view tail = trim(cut(parameters, ')'));
  while (!trim(parameters).empty()) {
    const std::string_view rest = cut(parameters, ',');
    visit(trim(parameters));
    parameters = rest;
  }
  return tail;
}

}  // namespace signature

[[nodiscard]] SignatureLine parse_signature(std::string_view line);

// The object that a default's source text names: None, an int, a u'...' string, a global name.
[[nodiscard]] Ref default_value(const std::string& text);

// The inspect.Signature of these parameters, annotated by a dict or by nothing.
[[nodiscard]] Ref make_inspect_signature(const ParameterList& parameters, PyObject* annotations);

}  // namespace typed_shapes
