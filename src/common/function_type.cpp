#include "common/function_type.h"

#include <structmember.h>

#include <cstddef>

namespace typed_shapes {

namespace {

// The members that can lead back to the function and that a call does not need. The collector lets
// go of these alone, so that a function reached during a collection still works.
constexpr Member kCyclic[] = {kModule,  kDoc,      kAnnotations,    kDict,
                              kGlobals, kDefaults, kKeywordDefaults};

void set_member(NativeFunction* function, Member member, Ref value) {
  Ref old = Ref::steal(std::exchange(function->members[member], value.release()));
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

}  // namespace

Slot function_type;

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

}  // namespace typed_shapes
