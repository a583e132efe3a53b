#include "common/function.h"

#include <algorithm>

#include "common/function_type.h"
#include "common/globals.h"
#include "common/scopes.h"

namespace typed_shapes {

namespace {

// --- Calls ---

// Out of line, so that the frame of a call by position stays small.
[[gnu::noinline]] PyObject* bind_and_call(NativeFunction* function,
                                          const CallArguments& arguments) {
  return guarded([&] {
    const RecursionLevel level;
    // It may go while its body runs, and with it the defaults: no caller need hold it.
    const Ref self = Ref::borrow(reinterpret_cast<PyObject*>(function));
    PyObject* places[kMaxParameters];
    const std::span bound(places, function->parameter_count);
    if (!bind_arguments(parameters_of(function), arguments, bound)) return Result(Refused{});
    return function->body(places);
  });
}

// Whether each parameter is given, by position or by its own name in the parameters' order: the
// interpreter's own array serves.
bool is_in_place(const NativeFunction* function, const CallArguments& arguments) {
  const auto given = static_cast<std::size_t>(arguments.positional);
  const auto keywords = items_of(arguments.keywords);
  return given <= function->positional && given + keywords.size() == function->parameter_count &&
         std::ranges::equal(keywords, std::span(function->names + given, keywords.size()));
}

PyObject* call_function(PyObject* callable, PyObject* const* args, std::size_t nargsf,
                        PyObject* kwnames) {
  NativeFunction* function = as_function(callable);
  const CallArguments arguments(args, nargsf, kwnames);
  if (is_in_place(function, arguments)) {
    return guarded([&] {
      const RecursionLevel level;
      return function->body(args);
    });
  }
  return bind_and_call(function, arguments);
}

// --- Creation ---

Ref text(const std::string& characters) {
  PyObject* result = own(PyUnicode_FromStringAndSize(characters.data(),
                                                     static_cast<Py_ssize_t>(characters.size())))
                         .release();
  PyUnicode_InternInPlace(&result);
  return Ref::steal(result);
}

// {parameter: annotation, ..., "return": annotation}, the annotations as source text.
Ref make_annotations(const SignatureLine& line) {
  Ref annotations = own(PyDict_New());
  for (const Parameter& parameter : line.parameters) {
    if (parameter.annotation.empty()) continue;
    check(PyDict_SetItem(annotations.get(), text(parameter.name).get(),
                         text(parameter.annotation).get()));
  }
  if (!line.return_annotation.empty()) {
    check(PyDict_SetItem(annotations.get(), names.return_, text(line.return_annotation).get()));
  }
  return annotations;
}

// Everything that a function is made of, ready before the object exists: a collection in the middle
// never meets half a function.
struct Parts {
  std::array<Ref, kMemberCount> members;
  std::array<PyObject*, kMaxParameters> names{};
  std::array<PyObject*, kMaxParameters> defaults{};
};

void set_parameters(Parts& parts, const SignatureLine& line) {
  Ref parameter_names = own(PyList_New(0));
  Ref all_defaults = own(PyList_New(0));
  Ref positional_defaults = own(PyList_New(0));
  Ref keyword_defaults = own(PyDict_New());
  for (std::size_t i = 0; i < line.parameters.size(); ++i) {
    const Parameter& parameter = line.parameters[i];
    Ref name = text(parameter.name);
    check(PyList_Append(parameter_names.get(), name.get()));
    parts.names[i] = name.get();
    if (parameter.default_text.empty()) continue;
    Ref value = default_value(parameter.default_text);
    check(PyList_Append(all_defaults.get(), value.get()));
    parts.defaults[i] = value.get();
    if (i < line.positional) {
      check(PyList_Append(positional_defaults.get(), value.get()));
    } else {
      check(PyDict_SetItem(keyword_defaults.get(), name.get(), value.get()));
    }
  }
  parts.members[kParameterNames] = own(PyList_AsTuple(parameter_names.get()));
  parts.members[kParameterDefaults] = own(PyList_AsTuple(all_defaults.get()));
  if (PyList_GET_SIZE(positional_defaults.get()) > 0) {
    parts.members[kDefaults] = own(PyList_AsTuple(positional_defaults.get()));
  }
  if (PyDict_GET_SIZE(keyword_defaults.get()) > 0) {
    parts.members[kKeywordDefaults] = std::move(keyword_defaults);
  }
}

}  // namespace

Ref make_function(const FunctionTable& table) {
  const SignatureLine line = parse_signature(table.signature);

  Parts parts;
  set_parameters(parts, line);
  parts.members[kName] = text(line.name);
  parts.members[kQualname] = text(line.qualname);
  parts.members[kModule] = text(kModuleName);
  parts.members[kDoc] =
      text(table.doc == nullptr ? std::string(table.signature)
                                : std::string(table.signature) + '\n' + table.doc);
  parts.members[kAnnotations] = make_annotations(line);
  parts.members[kGlobals] = Ref::borrow(globals::dict());

  Ref result = own(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(function_type.get()), 0));
  NativeFunction* function = as_function(result.get());
  function->vectorcall = call_function;
  function->body = table.body;
  function->positional = line.positional;
  function->parameter_count = line.parameters.size();
  std::ranges::copy(parts.names, function->names);
  std::ranges::copy(parts.defaults, function->defaults);
  for (std::size_t i = 0; i < kMemberCount; ++i) {
    function->members[i] = parts.members[i].release();
  }
  return result;
}

void define_function(const FunctionTable& table) {
  Ref function = make_function(table);
  globals::bind(as_function(function.get())->members[kName], function.get());
}

}  // namespace typed_shapes
