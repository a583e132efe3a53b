// The least that a graph can cost: a C loop that reads the benchmark's payload,
// knows the order of its keys, checks nothing, and makes the same four objects a node (the
// instance, its values, a list, a copied dict).
#include "common/interpreter.h"

namespace {

constexpr Py_ssize_t kFields = 9;
constexpr Py_ssize_t kKeys = 4;  // "type", "node", "children", "config"

PyTypeObject* node_type = nullptr;
PyObject* no_arguments = nullptr;

void fill(PyObject* instance, PyObject* const* values) {
  const typed_shapes::interpreter::InlineValues fields(instance);
  for (std::size_t i = 0; i < kFields; ++i) {
    fields.value(i) = values[i];
    fields.order(i) = static_cast<std::uint8_t>(i);
  }
  fields.size() = kFields;
}

PyObject* make(PyObject* raw) {
  PyObject* found[kKeys] = {};
  Py_ssize_t position = 0;
  for (PyObject*& value : found) PyDict_Next(raw, &position, nullptr, &value);
  const Py_ssize_t count = PyList_GET_SIZE(found[2]);
  PyObject* children = PyList_New(count);
  for (Py_ssize_t i = 0; i < count; ++i) {
    PyList_SET_ITEM(children, i, make(PyList_GET_ITEM(found[2], i)));
  }
  PyObject* instance = PyBaseObject_Type.tp_new(node_type, no_arguments, nullptr);
  PyObject* values[kFields] = {Py_NewRef(found[0]), Py_NewRef(found[1]), children,
                               PyDict_Copy(found[3])};
  for (Py_ssize_t i = kKeys; i < kFields; ++i) values[i] = Py_NewRef(Py_None);
  fill(instance, values);
  return instance;
}

PyObject* make_graph(PyObject* /*module*/, PyObject* raw) {
  const int was_enabled = PyGC_Disable();
  PyObject* graph = make(raw);
  if (was_enabled != 0) PyGC_Enable();
  return graph;
}

// The class to make instances of; it must have had one, which decides on the order of its fields.
PyObject* use_class(PyObject* /*module*/, PyObject* type) {
  node_type = reinterpret_cast<PyTypeObject*>(Py_NewRef(type));
  no_arguments = PyTuple_New(0);
  Py_RETURN_NONE;
}

PyMethodDef methods[] = {
    {"make_graph", make_graph, METH_O, nullptr}, {"use_class", use_class, METH_O, nullptr}, {}};
PyModuleDef definition = {PyModuleDef_HEAD_INIT, "limit", nullptr, -1, methods};

}  // namespace

PyMODINIT_FUNC PyInit_limit() { return PyModule_Create(&definition); }
