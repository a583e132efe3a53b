// Records: a table of fields and functions becomes a real dataclass, with a native constructor laid
// over the generated one.
#pragma once

#include <algorithm>
#include <array>
#include <initializer_list>
#include <span>
#include <string_view>
#include <type_traits>

#include "common/binder.h"
#include "common/class_body.h"
#include "common/objects.h"
#include "common/watch.h"

namespace typed_shapes {

enum class Default {
  kRequired,
  kNone,
  kFalse,
  kEmptyList,  // field(default_factory=list)
  kEmptyDict,  // field(default_factory=dict)
  kHidden,     // field(default=None, compare=False, repr=False)
};

// The default of a parameter that is not made by a factory; null where there is none.
[[nodiscard]] PyObject* shared_default(Default kind) noexcept;
// Whether a function makes it anew for each instance.
[[nodiscard]] constexpr bool has_factory(Default kind) noexcept {
  return kind == Default::kEmptyList || kind == Default::kEmptyDict;
}
// That function; null where there is none.
[[nodiscard]] PyTypeObject* default_factory(Default kind) noexcept;

// A field of an instance that is being validated. Each look reads it anew, as self.field does: a
// subclass may make a property of it.
struct FieldAccess {
  PyObject* self;
  PyObject* name;
  const char* class_name;

  [[nodiscard]] Result read() const { return get_attr(self, name); }
};

[[nodiscard]] inline bool accept_anything(PyObject* /*value*/) { return true; }

// What a field must be. The canonical check answers false for a refusal, whose text begins with
// class and field; null where anything fits. The fast one tells without running Python code; false
// means "not sure".
struct Check {
  bool (*require)(const FieldAccess& field) = nullptr;
  bool (*accepts)(PyObject* value) = accept_anything;
};

struct Field {
  const char* name;
  const char* annotation;  // source text, never evaluated
  Default default_value = Default::kRequired;
  Check check = {};  // none: anything fits
};

// No record has more fields that a factory makes.
inline constexpr std::ptrdiff_t kMaxFactories = 3;

enum class Decorator {
  kPlain,     // @dataclass
  kFrozen,    // @dataclass(frozen=True)
  kIdentity,  // @dataclass(eq=False)
};

// Whether the class's own validation is sure to pass, told without running Python code. The values
// stand in field order. False means "not sure": the canonical path decides.
using Accepts = bool (*)(PyObject* const* values);

// Slots of the class that need no look-up of the method behind them. The interpreter puts its own
// back when that method is assigned, and gives subclasses its own.
struct Slots {
  binaryfunc subscript = nullptr;
  objobjproc contains = nullptr;
};

struct RecordTable {
  const char* name;
  const char* doc;
  Decorator decorator;
  std::span<const Method> methods;
  // See with_fields().
  std::span<const Field> fields;
  Accepts accepts = nullptr;
  Body post_init = nullptr;
  Slots slots = {};
};

// `accepts` of fields that are validated one by one.
template <const auto& kFields>
bool accept_fields(PyObject* const* values) {
  return [values]<std::size_t... kIndex>(std::index_sequence<kIndex...>) {
    return (kFields[kIndex].check.accepts(values[kIndex]) && ...);
  }(std::make_index_sequence<std::size(kFields)>{});
}

// The table of a record with these fields. One that validates more than its fields one by one gives
// an `accepts` of its own, with a parameter for each field.
template <const auto& kFields, auto kAccepts = nullptr>
consteval RecordTable with_fields(RecordTable table) {
  static_assert(std::size(kFields) <= kMaxParameters);
  static_assert(std::ranges::count_if(kFields, has_factory, &Field::default_value) <=
                kMaxFactories);
  table.fields = kFields;
  for (const Method& method : table.methods) {
    if (std::string_view(method.function.signature).find(".__post_init__(") !=
        std::string_view::npos) {
      table.post_init = method.function.body;
    }
  }
  if constexpr (std::is_null_pointer_v<decltype(kAccepts)>) {
    table.accepts = accept_fields<kFields>;
  } else {
    static_assert(Adapter<kAccepts>::kParameterCount == std::size(kFields));
    table.accepts = Adapter<kAccepts>::call;
  }
  return table;
}

// One record class of the loaded module; each has static storage.
class Record {
 public:
  explicit constexpr Record(const RecordTable& table) noexcept : table_(table) {}
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  // Makes the class and binds it in the module. The constructor is laid over by define_record().
  void define(vectorcallfunc overlay);

  [[nodiscard]] PyTypeObject* type() const noexcept { return watch_.type(); }
  // Whether a native build is what the class itself would do.
  [[nodiscard]] bool untouched() noexcept { return watch_.untouched(); }
  // Enough to read an instance.
  [[nodiscard]] bool fields_untouched() noexcept { return watch_.attributes_untouched(); }
  // What the module has under the class's name now.
  [[nodiscard]] Ref in_module() const;
  // isinstance(object, <that>)
  [[nodiscard]] bool is_instance(PyObject* object) const;
  // Whether a call of cls is one of this class, and native code may stand for it.
  [[nodiscard]] bool stands_for(PyObject* cls) noexcept;
  // Whether the object is an instance of exactly this class. Only for an untouched module.
  [[nodiscard]] bool is_exact(PyObject* object) const noexcept { return Py_TYPE(object) == type(); }

  // The validation of the table, field by field; false is a refusal.
  [[nodiscard]] bool require_fields(PyObject* self) const;

  // A field of an exact instance of an untouched class; null where it cannot be read without
  // running Python code, or is unset.
  [[nodiscard]] Ref stored_field(PyObject* instance, std::size_t index) const;

  // instance.field, for any instance.
  [[nodiscard]] Result attribute(PyObject* instance, std::size_t index);

  // What the overlay does with a call of the class.
  PyObject* vectorcall(PyObject* cls, PyObject* const* args, std::size_t nargsf,
                       PyObject* kwnames) noexcept;

 protected:
  // See RecordOf.
  [[nodiscard]] Ref make_of(PyObject* const* values) const;
  [[nodiscard]] Result call_with(PyObject* cls, std::span<PyObject* const> given);
  // Whether the class's own validation is sure to pass.
  [[nodiscard]] bool is_accepted(PyObject* const* values) const { return table_.accepts(values); }

 private:
  [[nodiscard]] std::span<PyObject* const> field_names() const noexcept {
    return items_of(field_names_.get());
  }
  // Field by field, in field order; null where the field is left to its default.
  using Values = std::array<PyObject*, kMaxParameters>;

  using Factories = std::array<Ref, kMaxFactories>;

  // Puts the arguments of a call in field order; false where the generated __init__ has to decide.
  [[nodiscard]] bool bind(const CallArguments& arguments, Values& values) const;
  // Fills what the caller left out, and keeps what was made for that; false where that is an error.
  [[nodiscard]] bool add_defaults(Values& values, Factories& made) const;
  // {field: value, ...} of the values that are not null.
  [[nodiscard]] Ref keywords_of(std::span<PyObject* const> given) const;
  // A new instance with these values where they are complete and nothing was patched, else
  // initialised as type.__call__ does it.
  template <typename Initialise>
  [[nodiscard]] Result make(PyObject* const* values, bool are_complete, Initialise&& initialise);
  // Whether an instance of cls is one of this class and made by object.__new__.
  [[nodiscard]] bool may_allocate(PyObject* cls) noexcept {
    return cls == reinterpret_cast<PyObject*>(type()) && watch_.attributes_untouched();
  }
  [[nodiscard]] Ref allocate() const;
  void fill(PyObject* instance, PyObject* const* values) const;
  [[nodiscard]] ClassBody class_body() const;
  [[nodiscard]] Ref decorated(PyObject* type) const;

  const RecordTable& table_;
  ClassWatch watch_;
  Slot name_;
  Slot field_names_;   // a tuple of interned str
  Slot factory_mark_;  // what dataclasses passes for a field that its factory makes; or null
  std::size_t first_factory_ = 0;  // the fields that may be given the mark: from here on
  std::size_t factory_count_ = 0;
  bool has_inline_fields_ = false;
};

// A record with so many fields. The values of an instance are given one by one, in field order: a
// field that is added or taken away is an error of the compiler wherever values are put together.
template <std::size_t kFieldCount>
class RecordOf : public Record {
 public:
  explicit constexpr RecordOf(const RecordTable& table) : Record(table) {
    if (table.fields.size() != kFieldCount) throw "the table has another number of fields";
  }

  // A new instance with these values: what the generated __init__ does, less the validation. Runs
  // no Python code; only for an untouched class.
  template <typename... Values>
    requires(sizeof...(Values) == kFieldCount)
  [[nodiscard]] Ref make_unchecked(Values... values) const {
    PyObject* const all[] = {values...};
    return make_of(all);
  }

  // The same with the validation; null where the class does not accept the values for sure. The
  // collector must be paused: it may run code that changes what was asked before.
  template <typename... Values>
    requires(sizeof...(Values) == kFieldCount)
  [[nodiscard]] Ref try_make(Values... values) const {
    PyObject* const all[] = {values...};
    return is_accepted(all) ? make_of(all) : Ref();
  }

  // cls(field=value, ...), where cls is this class or a subclass. What is null is left to the
  // field's default.
  template <typename... Values>
    requires(sizeof...(Values) == kFieldCount)
  Result call(PyObject* cls, Values... values) {
    PyObject* const all[] = {values...};
    return call_with(cls, all);
  }

  // cls()
  Result call(PyObject* cls) { return call_with(cls, {}); }
};

// __post_init__ of a record whose fields are validated one by one.
template <auto& kRecord>
Result check_fields(PyObject* self) {
  return none_if(kRecord.require_fields(self));
}

// Makes a record class whose calls take the native constructor.
template <auto& kRecord>
void define_record() {
  kRecord.define([](PyObject* type, PyObject* const* args, std::size_t nargsf, PyObject* kwnames) {
    return kRecord.vectorcall(type, args, nargsf, kwnames);
  });
}

}  // namespace typed_shapes
