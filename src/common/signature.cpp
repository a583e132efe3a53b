#include "common/signature.h"

#include <cstdlib>

#include "common/globals.h"

namespace typed_shapes {

namespace {

Parameter parse_parameter(std::string_view text) {
  const std::string_view default_text = signature::cut(text, '=');
  const std::string_view annotation = signature::cut(text, ':');
  return {std::string(signature::trim(text)), std::string(signature::trim(annotation)),
          std::string(signature::trim(default_text))};
}

}  // namespace

SignatureLine parse_signature(std::string_view line) {
  SignatureLine result;
  result.qualname = line.substr(0, line.find('('));
  result.name = result.qualname.substr(result.qualname.rfind('.') + 1);
  bool keyword_only = false;
  const std::string_view tail = signature::for_each_parameter(line, [&](std::string_view text) {
    if (text == "*") {
      keyword_only = true;
    } else {
      result.parameters.push_back(parse_parameter(text));
      if (!keyword_only) ++result.positional;
    }
  });
  if (tail.starts_with("->")) result.return_annotation = signature::trim(tail.substr(2));
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
