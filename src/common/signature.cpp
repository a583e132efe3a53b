#include "common/signature.h"

#include <cstdlib>

#include "common/globals.h"

namespace typed_shapes {

namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// The position of the first wanted character outside brackets and quotes; npos where there is none.
std::size_t find_top_level(std::string_view text, char wanted) {
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
std::string_view cut(std::string_view& text, char wanted) {
  const std::size_t at = find_top_level(text, wanted);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = text.substr(at + 1);
  text = text.substr(0, at);
  return rest;
}

Parameter parse_parameter(std::string_view text) {
  const std::string_view default_text = cut(text, '=');
  const std::string_view annotation = cut(text, ':');
  return {std::string(trim(text)), std::string(trim(annotation)), std::string(trim(default_text))};
}

}  // namespace

SignatureLine parse_signature(std::string_view line) {
  SignatureLine result;
  const std::size_t open = line.find('(');
  if (open == std::string_view::npos) raise(PyExc_SystemError, "signature line without parameters");
  result.qualname = line.substr(0, open);
  result.name = result.qualname.substr(result.qualname.rfind('.') + 1);

  std::string_view parameters = line.substr(open + 1);
  const std::string_view tail = trim(cut(parameters, ')'));
  if (tail.starts_with("->")) result.return_annotation = trim(tail.substr(2));

  bool keyword_only = false;
  while (!trim(parameters).empty()) {
    const std::string_view rest = cut(parameters, ',');
    const std::string_view parameter = trim(parameters);
    if (parameter == "*") {
      keyword_only = true;
    } else {
      result.parameters.push_back(parse_parameter(parameter));
      if (!keyword_only) ++result.positional;
    }
    parameters = rest;
  }
  return result;
}

Ref default_value(const std::string& text) {
  if (text == "None") return none();
  if (text.starts_with("u'")) {
    return own(
        PyUnicode_FromStringAndSize(text.data() + 2, static_cast<Py_ssize_t>(text.size()) - 3));
  }
  if (text.front() >= '0' && text.front() <= '9') {
    return own(PyLong_FromString(text.c_str(), nullptr, 10));
  }
  return globals::lookup(own(PyUnicode_FromString(text.c_str())).get());
}

Ref make_inspect_signature(const ParameterList& parameters, PyObject* annotations) {
  const auto annotation_of = [annotations](PyObject* name) -> Ref {
    if (annotations == nullptr) return {};
    PyObject* annotation = PyDict_GetItemWithError(annotations, name);
    if (annotation == nullptr) check_indicator();
    return Ref::borrow(annotation);
  };
  Ref inspect = own(PyImport_ImportModule("inspect"));
  Ref parameter_class = get_attr(inspect.get(), interned("Parameter").get());
  Ref positional = get_attr(parameter_class.get(), interned("POSITIONAL_OR_KEYWORD").get());
  Ref keyword_only = get_attr(parameter_class.get(), interned("KEYWORD_ONLY").get());
  Ref annotation_name = interned("annotation");
  Ref made = own(PyList_New(0));
  for (std::size_t i = 0; i < parameters.names.size(); ++i) {
    const Ref& kind = i < parameters.positional ? positional : keyword_only;
    const Ref annotation = annotation_of(parameters.names[i]);
    PyObject* const given[] = {parameters.names[i], kind.get()};
    const Keyword options[] = {{names.default_, parameters.defaults[i]},
                               {annotation_name.get(), annotation.get()}};
    Ref parameter = call_keywords(parameter_class.get(), given, options);
    check(PyList_Append(made.get(), parameter.get()));
  }
  Ref signature_class = get_attr(inspect.get(), interned("Signature").get());
  Ref return_name = interned("return_annotation");
  const Ref annotation = annotation_of(names.return_);
  PyObject* const given[] = {made.get()};
  const Keyword options[] = {{return_name.get(), annotation.get()}};
  return call_keywords(signature_class.get(), given, options);
}

}  // namespace typed_shapes
