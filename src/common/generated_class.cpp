#include "common/generated_class.h"

#include <utility>

#include "common/checks.h"

namespace typed_shapes {

namespace {

// Whether a name of the module is the function of that name in the library's `dataclasses`.
bool is_of_dataclasses(PyObject* name) {
  const Ref function = globals::lookup(name);
  if (!PyFunction_Check(function.get())) return false;
  const auto* found = reinterpret_cast<PyFunctionObject*>(function.get());
  if (!has_str_keys(found->func_globals)) return false;
  PyObject* module = PyDict_GetItemWithError(found->func_globals, names.name_dunder);
  return module != nullptr && PyUnicode_Check(module) &&
         PyUnicode_CompareWithASCIIString(module, "dataclasses") == 0 &&
         is_plain_str(found->func_qualname) && is_same_text(found->func_qualname, name);
}

}  // namespace

Ref generated_init(PyTypeObject* type, const RecordTable& table) {
  const bool is_frozen = table.decorator == Decorator::kFrozen;
  PyObject* init = PyDict_GetItemWithError(type->tp_dict, names.init);
  if (init == nullptr || !PyFunction_Check(init)) return {};
  const auto* code =
      reinterpret_cast<PyCodeObject*>(reinterpret_cast<PyFunctionObject*>(init)->func_code);
  const bool is_as_generated =
      Py_IS_TYPE(type, &PyType_Type) && type->tp_base == &PyBaseObject_Type &&
      type->tp_new == PyBaseObject_Type.tp_new && type->tp_getattro == PyObject_GenericGetAttr &&
      (is_frozen || type->tp_setattro == PyObject_GenericSetAttr) &&
      std::cmp_equal(code->co_argcount, table.fields.size() + 1) &&
      is_of_dataclasses(names.dataclass) && is_of_dataclasses(names.field);
  return Ref::borrow(is_as_generated ? init : nullptr);
}

Ref factory_mark(PyObject* init, std::span<const Field> fields) {
  const auto defaults = items_of(reinterpret_cast<PyFunctionObject*>(init)->func_defaults);
  const auto optional = fields.last(defaults.size());
  for (std::size_t i = 0; i < optional.size(); ++i) {
    if (default_factory(optional[i].default_value) != nullptr) return Ref::borrow(defaults[i]);
  }
  return {};
}

}  // namespace typed_shapes
