#include "common/generated_class.h"

#include <algorithm>
#include <cstring>

#include "common/objects.h"
#include "common/watch.h"

namespace typed_shapes {

namespace {

bool is_of_object(PyTypeObject* type, bool is_frozen) noexcept {
  return type->tp_base == &PyBaseObject_Type && type->tp_new == PyBaseObject_Type.tp_new &&
         type->tp_getattro == PyObject_GenericGetAttr &&
         (is_frozen || type->tp_setattro == PyObject_GenericSetAttr);
}

// A default factory, the mark of one that was left out, or the class whose __setattr__ fills the
// frozen.
bool is_own_cell(PyObject* cell) noexcept {
  PyObject* content = reinterpret_cast<PyCellObject*>(cell)->ob_ref;
  return content == reinterpret_cast<PyObject*>(&PyDict_Type) ||
         content == reinterpret_cast<PyObject*>(&PyList_Type) ||
         content == reinterpret_cast<PyObject*>(&PyBaseObject_Type) ||
         (content != nullptr &&
          std::strcmp(Py_TYPE(content)->tp_name, "_HAS_DEFAULT_FACTORY_CLASS") == 0);
}

bool is_generated_init(PyObject* init) noexcept {
  if (!PyFunction_Check(init)) return false;
  auto* code =
      reinterpret_cast<PyCodeObject*>(reinterpret_cast<PyFunctionObject*>(init)->func_code);
  return PyUnicode_CompareWithASCIIString(code->co_filename, "<string>") == 0 &&
         std::ranges::all_of(cells_of(init), is_own_cell);
}

}  // namespace

bool is_as_generated(PyTypeObject* type, PyObject* body, std::span<PyObject* const> field_names,
                     bool is_frozen) {
  if (!is_of_object(type, is_frozen) || !has_str_keys(type->tp_dict)) return false;
  const bool keeps_body = all_entries(body, [&](PyObject* name, PyObject* value) {
    return PyDict_GetItemWithError(type->tp_dict, name) == value ||
           std::ranges::find(field_names, name) != field_names.end();
  });
  PyObject* init = PyDict_GetItemWithError(type->tp_dict, names.init);
  return keeps_body && init != nullptr && is_generated_init(init);
}

}  // namespace typed_shapes
