#include "common/record.h"

#include <algorithm>
#include <array>

#include "common/generated_class.h"
#include "common/globals.h"
#include "common/inline_fields.h"
#include "common/interpreter.h"
#include "common/scopes.h"

namespace typed_shapes {

PyObject* shared_default(Default kind) noexcept {
  // In the order of the enumerators.
  static PyObject* const values[] = {nullptr, Py_None, Py_False, nullptr, nullptr, Py_None};
  return values[static_cast<std::size_t>(kind)];
}

PyTypeObject* default_factory(Default kind) noexcept {
  if (!has_factory(kind)) return nullptr;
  return kind == Default::kEmptyDict ? &PyDict_Type : &PyList_Type;
}

namespace {

Slot no_arguments;

// What the factory of a field makes.
Ref make_default(Default kind) {
  return own(kind == Default::kEmptyList ? PyList_New(0) : PyDict_New());
}

// The arguments of a call as type.__call__ and __init__ take them.
struct TupleAndDict {
  Ref positional;
  Ref keywords;  // null where there are none

  explicit TupleAndDict(const CallArguments& arguments)
      : positional(own(PyTuple_New(arguments.positional))) {
    for (Py_ssize_t i = 0; i < arguments.positional; ++i) {
      PyTuple_SET_ITEM(positional.get(), i, Py_NewRef(arguments.values[i]));
    }
    if (arguments.keyword_count() == 0) return;
    keywords = own(PyDict_New());
    for (Py_ssize_t i = 0; i < arguments.keyword_count(); ++i) {
      check(PyDict_SetItem(keywords.get(), PyTuple_GET_ITEM(arguments.keywords, i),
                           arguments.values[arguments.positional + i]));
    }
  }
};

}  // namespace

void Record::define(vectorcallfunc overlay) {
  no_arguments.set(own(PyTuple_New(0)));
  name_.set(interned(table_.name));
  Ref name_tuple = own(PyTuple_New(static_cast<Py_ssize_t>(table_.fields.size())));
  for (std::size_t i = 0; i < table_.fields.size(); ++i) {
    PyTuple_SET_ITEM(name_tuple.get(), static_cast<Py_ssize_t>(i),
                     interned(table_.fields[i].name).release());
  }
  field_names_.set(std::move(name_tuple));

  const ClassBody body = class_body();
  const Ref methods = body.methods();
  Ref made = body.make_class("object");
  auto* type = reinterpret_cast<PyTypeObject*>(made.get());
  // A metaclass, of another `object`, may give anything.
  const bool is_ordinary = watches_usable && Py_IS_TYPE(made.get(), &PyType_Type);
  Ref record = decorated(made.get());
  globals::bind(name_.get(), record.get());
  if (!is_ordinary || record.get() != made.get()) return;
  // type() and the decorator call what others may have put in place: that may change the class.
  if (!holds(type->tp_dict, methods.get())) return;
  const Ref init = generated_init(type, table_);
  if (!init) return;
  factory_mark_.set(factory_mark(init.get(), table_.fields));
  first_factory_ = factory_count_ = 0;
  for (std::size_t i = 0; i < table_.fields.size(); ++i) {
    if (default_factory(table_.fields[i].default_value) == nullptr) continue;
    if (factory_count_ == 0) first_factory_ = i;
    factory_count_ = i + 1 - first_factory_;
  }
  has_inline_fields_ = proves_inline_fields(type, field_names());
  watch_.start(type);
  // A documented slot that subclasses do not inherit: they go through type.__call__ as ever.
  type->tp_vectorcall = overlay;
  if (table_.slots.subscript != nullptr) type->tp_as_mapping->mp_subscript = table_.slots.subscript;
  if (table_.slots.contains != nullptr) type->tp_as_sequence->sq_contains = table_.slots.contains;
  interpreter::keep_vectorcall(type);
}

Ref Record::in_module() const {
  // The class may have outlived a failed import.
  const Ref name = name_.get() != nullptr ? Ref::borrow(name_.get()) : Ref(interned(table_.name));
  return globals::lookup(name.get());
}

bool Record::is_instance(PyObject* object) const {
  if (type() != nullptr && globals::untouched()) {
    if (is_exact(object)) return true;
    // A class whose own class was changed may claim anything.
    if (is_exact_builtin(object) && Py_IS_TYPE(watch_.type_slot().get(), &PyType_Type))
      return false;
  }
  return typed_shapes::is_instance(object, in_module().get());
}

bool Record::stands_for(PyObject* cls) noexcept {
  return cls == reinterpret_cast<PyObject*>(type()) && untouched() && globals::untouched();
}

Ref Record::allocate() const {
  // object.__new__ and not tp_alloc: it prepares the inline attribute values, without which every
  // instance would grow a dictionary of its own.
  const Ref type = globals::held(watch_.type_slot());
  const Ref arguments = globals::held(no_arguments);
  return own(PyBaseObject_Type.tp_new(reinterpret_cast<PyTypeObject*>(type.get()), arguments.get(),
                                      nullptr));
}

void Record::fill(PyObject* instance, PyObject* const* values) const {
  if (has_inline_fields_ && store_inline_fields(instance, values, table_.fields.size())) return;
  const Ref held_names = globals::held(field_names_);
  for (PyObject* name : field_names()) {
    check(PyObject_GenericSetAttr(instance, name, *values++));
  }
}

Ref Record::make_of(PyObject* const* values) const {
  Ref instance = allocate();
  fill(instance.get(), values);
  return instance;
}

Ref Record::stored_field(PyObject* instance, std::size_t index) const {
  if (!has_inline_fields_) return {};
  if (has_inline_array(instance)) return Ref::borrow(inline_field(instance, index));
  // The attributes are a dict now, which may hold more than names. (For an instance that still has
  // its array the call below would make that dict.)
  PyObject** dict = _PyObject_GetDictPtr(instance);
  if (dict == nullptr || *dict == nullptr || !has_str_keys(*dict)) return {};
  PyObject* value = PyDict_GetItemWithError(*dict, field_names()[index]);
  if (value == nullptr) check_indicator();
  return Ref::borrow(value);
}

Result Record::attribute(PyObject* instance, std::size_t index) {
  if (has_inline_fields_ && is_exact(instance) && watch_.attributes_untouched() &&
      has_inline_array(instance)) {
    if (PyObject* value = inline_field(instance, index)) return Ref::borrow(value);
  }
  const Ref held_names = globals::held(field_names_);
  return get_attr(instance, field_names()[index]);
}

bool Record::require_fields(PyObject* self) const {
  // A check may let another thread run, whose import of the module fails and empties the slot.
  const Ref held_names = globals::held(field_names_);
  const auto all_names = items_of(held_names.get());
  for (std::size_t i = 0; i < table_.fields.size(); ++i) {
    const Check& check = table_.fields[i].check;
    const FieldAccess field{self, all_names[i], table_.name};
    if (check.require != nullptr && !check.require(field)) return false;
  }
  return true;
}

bool Record::add_defaults(Values& values, Factories& made) const {
  Ref* next = made.data();
  for (std::size_t i = 0; i < table_.fields.size(); ++i) {
    if (values[i] != nullptr) continue;
    const Default kind = table_.fields[i].default_value;
    values[i] = shared_default(kind);
    if (values[i] != nullptr) continue;
    if (default_factory(kind) == nullptr) return false;
    *next = make_default(kind);
    values[i] = (next++)->get();
  }
  return true;
}

bool Record::bind(const CallArguments& arguments, Values& values) const {
  const std::size_t count = table_.fields.size();
  if (std::cmp_greater(arguments.positional, count) || !arguments.has_plain_keywords()) {
    return false;
  }
  if (match_arguments(field_names(), arguments, {values.data(), count}).any()) return false;
  // inspect.Signature.bind() and apply_defaults() give a caller the mark to pass on.
  const auto from_factories = std::span(values).subspan(first_factory_, factory_count_);
  return std::ranges::find(from_factories, factory_mark_.get()) == from_factories.end();
}

template <typename Initialise>
Result Record::make(PyObject* const* values, bool are_complete, Initialise&& initialise) {
  // First the instance, then the questions: making it may collect garbage, and with that run code
  // that changes the class, the module or the values.
  Ref instance = allocate();
  PyObject* const self = instance.get();
  const bool is_as_made = are_complete && untouched() && globals::untouched();
  if (is_as_made) {
    // What the generated __init__ does.
    fill(self, values);
    if (is_accepted(values) || table_.post_init == nullptr) return instance;
  }
  const RecursionLevel level;
  const bool is_made = is_as_made ? static_cast<bool>(table_.post_init(&self)) : initialise(self);
  return value_if(is_made, std::move(instance));
}

Ref Record::keywords_of(std::span<PyObject* const> given) const {
  const Ref held_names = globals::held(field_names_);
  Ref keywords = own(PyDict_New());
  auto name = field_names().begin();
  for (PyObject* value : given) {
    if (value != nullptr) check(PyDict_SetItem(keywords.get(), *name, value));
    ++name;
  }
  return keywords;
}

Result Record::call_with(PyObject* cls, std::span<PyObject* const> given) {
  if (!may_allocate(cls)) {
    const Ref positional = globals::held(no_arguments);
    return own(PyObject_Call(cls, positional.get(), keywords_of(given).get()));
  }
  const auto initialise = [&](PyObject* instance) {
    const Ref positional = globals::held(no_arguments);
    return Py_TYPE(instance)->tp_init(instance, positional.get(), keywords_of(given).get()) == 0;
  };
  if (given.size() == table_.fields.size() && std::ranges::find(given, nullptr) == given.end()) {
    return make(given.data(), true, initialise);
  }
  Values values{};
  std::ranges::copy(given, values.begin());
  Factories made;
  const bool are_complete = add_defaults(values, made);
  return make(values.data(), are_complete, initialise);
}

PyObject* Record::vectorcall(PyObject* cls, PyObject* const* args, std::size_t nargsf,
                             PyObject* kwnames) noexcept {
  return guarded([&] {
    const CallArguments arguments(args, nargsf, kwnames);
    if (!may_allocate(cls)) {
      const TupleAndDict given(arguments);
      const RecursionLevel level;
      return own(PyType_Type.tp_call(cls, given.positional.get(), given.keywords.get()));
    }
    Values values{};
    Factories made;
    const bool are_complete = bind(arguments, values) && add_defaults(values, made);
    const auto initialise = [&](PyObject* instance) {
      const TupleAndDict given(arguments);
      return Py_TYPE(instance)->tp_init(instance, given.positional.get(), given.keywords.get()) ==
             0;
    };
    return make(values.data(), are_complete, initialise);
  });
}

}  // namespace typed_shapes
