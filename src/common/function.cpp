#include "common/function.h"

#include <structmember.h>

#include <algorithm>
#include <cstddef>

#include "common/binder.h"
#include "common/globals.h"
#include "common/scopes.h"
#include "common/signature.h"

namespace typed_shapes {

namespace {

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

// The members that can lead back to the function and that a call does not need. The collector lets
// go of these alone, so that a function reached during a collection still works.
constexpr Member kCyclic[] = {kModule,  kDoc,      kAnnotations,    kDict,
                              kGlobals, kDefaults, kKeywordDefaults};

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

Slot function_type;

NativeFunction* as_function(PyObject* object) { return reinterpret_cast<NativeFunction*>(object); }

void set_member(NativeFunction* function, Member member, Ref value) {
  Ref old = Ref::steal(std::exchange(function->members[member], value.release()));
}

ParameterList parameters_of(const NativeFunction* function) {
  const std::size_t count = function->parameter_count;
  return {function->members[kName],
          {function->names, count},
          {function->defaults, count},
          function->positional};
}

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
  if (!std::cmp_equal(arguments.positional, function->positional)) return false;
  const auto keywords = items_of(arguments.keywords);
  return std::ranges::equal(
      keywords,
      std::span(function->names, function->parameter_count).subspan(function->positional));
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

PyObject* bind_method(PyObject* function, PyObject* instance, PyObject* /*owner*/) {
  if (instance == nullptr || instance == Py_None) return Py_NewRef(function);
  return PyMethod_New(function, instance);
}

// --- Life ---

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(Py_TYPE(self));
  for (PyObject* member : as_function(self)->members) Py_VISIT(member);
  return 0;
}

int clear(PyObject* self) {
  for (const Member member : kCyclic) set_member(as_function(self), member, Ref());
  return 0;
}

void deallocate(PyObject* self) {
  Ref type = Ref::steal(reinterpret_cast<PyObject*>(Py_TYPE(self)));
  PyObject_GC_UnTrack(self);
  if (as_function(self)->weak_references != nullptr) PyObject_ClearWeakRefs(self);
  for (std::size_t i = 0; i < kMemberCount; ++i) {
    set_member(as_function(self), static_cast<Member>(i), Ref());
  }
  PyObject_GC_Del(self);
}

// --- Attributes ---

PyObject* represent(PyObject* self) {
  return PyUnicode_FromFormat("<function %U at %p>", as_function(self)->members[kQualname], self);
}

PyObject* reduce(PyObject* self, PyObject* /*unused*/) {
  return Py_NewRef(as_function(self)->members[kQualname]);
}

// A writable attribute that must be of one type, as on a Python function.
struct TypedAttribute {
  Member member;
  PyTypeObject* type;
  const char* error;
};

constexpr TypedAttribute kNameAttribute = {kName, &PyUnicode_Type,
                                           "__name__ must be set to a string object"};
constexpr TypedAttribute kQualnameAttribute = {kQualname, &PyUnicode_Type,
                                               "__qualname__ must be set to a string object"};
constexpr TypedAttribute kAnnotationsAttribute = {kAnnotations, &PyDict_Type,
                                                  "__annotations__ must be set to a dict object"};

PyObject* get_typed(PyObject* self, void* closure) {
  const auto* attribute = static_cast<const TypedAttribute*>(closure);
  PyObject* value = as_function(self)->members[attribute->member];
  return Py_NewRef(value != nullptr ? value : Py_None);
}

int set_typed(PyObject* self, PyObject* value, void* closure) {
  const auto* attribute = static_cast<const TypedAttribute*>(closure);
  if (value == nullptr || !PyObject_TypeCheck(value, attribute->type)) {
    PyErr_SetString(PyExc_TypeError, attribute->error);
    return -1;
  }
  set_member(as_function(self), attribute->member, Ref::borrow(value));
  return 0;
}

PyObject* get_signature(PyObject* self, void* /*closure*/) {
  const NativeFunction* function = as_function(self);
  return guarded([function] {
    return make_inspect_signature(parameters_of(function), function->members[kAnnotations]);
  });
}

constexpr Py_ssize_t member_offset(Member member) {
  return static_cast<Py_ssize_t>(offsetof(NativeFunction, members) + member * sizeof(PyObject*));
}

PyMemberDef member_definitions[] = {
    {"__module__", T_OBJECT, member_offset(kModule), 0, nullptr},
    {"__doc__", T_OBJECT, member_offset(kDoc), 0, nullptr},
    {"__globals__", T_OBJECT, member_offset(kGlobals), READONLY, nullptr},
    {"__defaults__", T_OBJECT, member_offset(kDefaults), READONLY, nullptr},
    {"__kwdefaults__", T_OBJECT, member_offset(kKeywordDefaults), READONLY, nullptr},
    {"__dictoffset__", T_PYSSIZET, member_offset(kDict), READONLY, nullptr},
    {"__vectorcalloffset__", T_PYSSIZET, offsetof(NativeFunction, vectorcall), READONLY, nullptr},
    {"__weaklistoffset__", T_PYSSIZET, offsetof(NativeFunction, weak_references), READONLY,
     nullptr},
    {}};

void* closure_of(const TypedAttribute& attribute) {
  return const_cast<TypedAttribute*>(&attribute);
}

PyGetSetDef attribute_definitions[] = {
    {"__name__", get_typed, set_typed, nullptr, closure_of(kNameAttribute)},
    {"__qualname__", get_typed, set_typed, nullptr, closure_of(kQualnameAttribute)},
    {"__annotations__", get_typed, set_typed, nullptr, closure_of(kAnnotationsAttribute)},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
    {"__signature__", get_signature, nullptr, nullptr, nullptr},
    {}};

PyMethodDef method_definitions[] = {
    {"__reduce__", reduce, METH_NOARGS, "Pickled by its qualified name."}, {}};

template <typename Function>
PyType_Slot slot(int id, Function* function) {
  return {id, reinterpret_cast<void*>(function)};
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

void create_function_type() {
  PyType_Slot slots[] = {slot(Py_tp_dealloc, deallocate),
                         slot(Py_tp_traverse, traverse),
                         slot(Py_tp_clear, clear),
                         slot(Py_tp_repr, represent),
                         slot(Py_tp_call, PyVectorcall_Call),
                         slot(Py_tp_descr_get, bind_method),
                         {Py_tp_members, member_definitions},
                         {Py_tp_getset, attribute_definitions},
                         {Py_tp_methods, method_definitions},
                         {0, nullptr}};
  PyType_Spec spec = {"quillmere.functions._typed_shapes.native_function",
                      static_cast<int>(sizeof(NativeFunction)), 0,
                      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_HAVE_VECTORCALL |
                          Py_TPFLAGS_METHOD_DESCRIPTOR | Py_TPFLAGS_IMMUTABLETYPE |
                          Py_TPFLAGS_DISALLOW_INSTANTIATION,
                      slots};
  Ref type = Ref::steal(PyType_FromSpec(&spec));
  // CPython 3.11 does not say so where it has no memory for the name.
  if (!type && PyErr_Occurred() == nullptr) PyErr_NoMemory();
  function_type.set(own(type.release()));
}

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
