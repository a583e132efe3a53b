#include "common/generated_class.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "common/objects.h"

namespace typed_shapes {

namespace {

bool has_texts(std::span<PyObject* const> names, const std::vector<std::string>& texts) {
  return std::ranges::equal(names, texts, [](PyObject* name, const std::string& text) {
    return PyUnicode_CompareWithASCIIString(name, text.c_str()) == 0;
  });
}

// The __init__ that `dataclass` writes for a table.
class GeneratedInit {
 public:
  GeneratedInit(const RecordTable& table, bool has_post_init) : fields_(table.fields) {
    const bool is_frozen = table.decorator == Decorator::kFrozen;
    for (const Field& field : fields_) arguments_.emplace_back(field.name);
    names_ = is_frozen ? std::vector<std::string>{"__setattr__"} : arguments_;
    if (has_post_init) names_.emplace_back("__post_init__");
    for (const Field& field : fields_) {
      if (PyTypeObject* type = default_factory(field.default_value)) {
        keep(std::string("_dflt_") + field.name, type);
      }
    }
    if (!cells_.empty()) keep(kMark, nullptr);
    if (is_frozen) keep("__dataclass_builtins_object__", &PyBaseObject_Type);
    std::ranges::sort(cells_);  // as the compiler does
  }

  [[nodiscard]] bool is(PyObject* init) {
    if (init == nullptr || !PyFunction_Check(init)) return false;
    auto* function = reinterpret_cast<PyFunctionObject*>(init);
    auto* code = reinterpret_cast<PyCodeObject*>(function->func_code);
    const Ref variables = own(PyCode_GetVarnames(code));
    // As many variables as arguments by position: there are no others.
    return code->co_argcount == static_cast<int>(fields_.size()) + 1 &&
           has_texts(items_of(variables.get()).subspan(1), arguments_) &&
           has_texts(items_of(code->co_names), names_) && has_cells(code, function->func_closure) &&
           has_defaults(items_of(function->func_defaults));
  }

 private:
  static constexpr const char* kMark = "_HAS_DEFAULT_FACTORY";

  void keep(std::string name, PyTypeObject* content) {
    cells_.emplace_back(std::move(name), reinterpret_cast<PyObject*>(content));
  }

  // Notes the mark, which stands for an argument that was left out.
  [[nodiscard]] bool has_cells(PyCodeObject* code, PyObject* closure) {
    const Ref names = own(PyCode_GetFreevars(code));
    const auto cells = items_of(closure);
    if (cells.size() != cells_.size()) return false;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const auto& [name, expected] = cells_[i];
      PyObject* content = reinterpret_cast<PyCellObject*>(cells[i])->ob_ref;
      const bool is_own = content != nullptr && (expected == nullptr || content == expected);
      if (!is_own || !has_texts(items_of(names.get()).subspan(i, 1), {name})) return false;
      if (expected == nullptr) mark_ = content;
    }
    return mark_ == nullptr ||
           std::strcmp(Py_TYPE(mark_)->tp_name, "_HAS_DEFAULT_FACTORY_CLASS") == 0;
  }

  [[nodiscard]] bool has_defaults(std::span<PyObject* const> defaults) const noexcept {
    if (defaults.size() > fields_.size()) return false;
    const std::size_t required = fields_.size() - defaults.size();
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      const Default kind = fields_[i].default_value;
      PyObject* expected = default_factory(kind) != nullptr ? mark_ : plain_default(kind);
      if ((i < required ? nullptr : defaults[i - required]) != expected) return false;
    }
    return true;
  }

  std::span<const Field> fields_;
  std::vector<std::string> arguments_;
  std::vector<std::string> names_;
  std::vector<std::pair<std::string, PyObject*>> cells_;
  PyObject* mark_ = nullptr;
};

bool is_of_object(PyTypeObject* type, bool is_frozen) noexcept {
  return Py_IS_TYPE(type, &PyType_Type) && type->tp_base == &PyBaseObject_Type &&
         type->tp_new == PyBaseObject_Type.tp_new && type->tp_getattro == PyObject_GenericGetAttr &&
         (is_frozen || type->tp_setattro == PyObject_GenericSetAttr);
}

}  // namespace

bool is_as_generated(PyTypeObject* type, PyObject* body, const RecordTable& table) {
  PyObject* attributes = type->tp_dict;
  if (!is_of_object(type, table.decorator == Decorator::kFrozen) || !has_str_keys(attributes)) {
    return false;
  }
  const auto find = [](PyObject* dict, PyObject* name) {
    return PyDict_GetItemWithError(dict, name);
  };
  for (const Field& field : table.fields) {
    const Ref name = interned(field.name);
    if (find(attributes, name.get()) != plain_default(field.default_value)) return false;
  }
  const bool keeps_body = all_entries(body, [&](PyObject* name, PyObject* value) {
    return find(attributes, name) == value || std::ranges::any_of(table.fields, [&](auto& field) {
             return PyUnicode_CompareWithASCIIString(name, field.name) == 0;
           });
  });
  PyObject* post_init = find(body, names.post_init);
  return keeps_body && find(attributes, names.post_init) == post_init &&
         GeneratedInit(table, post_init != nullptr).is(find(attributes, names.init));
}

Ref factory_mark(PyTypeObject* type, std::span<const Field> fields) {
  const auto* init =
      reinterpret_cast<PyFunctionObject*>(PyDict_GetItemWithError(type->tp_dict, names.init));
  const auto defaults = items_of(init->func_defaults);
  const auto optional = fields.last(defaults.size());
  for (std::size_t i = 0; i < optional.size(); ++i) {
    if (default_factory(optional[i].default_value) != nullptr) return Ref::borrow(defaults[i]);
  }
  return {};
}

}  // namespace typed_shapes
