// The restore contract of stateful functions: a state comes back in exactly one record shape, for
// the function and the version that it was made by, or not at all.
#include "common/globals.h"
#include "common/message.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"function_name", "str"}, {"function_version", "int"}, {"data", "Any"}};

Ref reject(PyObject* text, PyObject* expected_name, PyObject* expected_version, PyObject* state,
           PyObject* reason);
Ref validate(PyObject* state, PyObject* expected_name, PyObject* expected_version);

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "FunctionState",
    .doc = "Canonical state transport record for stateful function restoration.",
    .decorator = Decorator::kFrozen,
});

constexpr FunctionTable kReject = function<reject>(
    "_reject_function_state(message: str, *, expected_name: str, expected_version: int, "
    "state: Any, reason: str) -> None");

constexpr FunctionTable kValidate = function<validate>(
    "validate_function_state(state: Any, *, expected_name: str, expected_version: int) -> "
    "dict[str, Any]",
    "Return ``state.data`` after enforcing the single restore record contract.");

constinit RecordOf<std::size(kFields)> record{kTable};

Ref reject(PyObject* text, PyObject* expected_name, PyObject* expected_version, PyObject* state,
           PyObject* reason) {
  Ref error_class = globals::lookup(names.InvalidFunctionStateError);
  Ref state_type = type_name(state);
  PyObject* const positional[] = {text};
  const Keyword keywords[] = {{names.function_name, expected_name},
                              {names.expected_function_version, expected_version},
                              {names.state_type, state_type.get()},
                              {names.reason, reason}};
  raise_exception(call_keywords(error_class.get(), positional, keywords).get());
}

// --- Canonical path ---

// One call of validate_function_state. Attributes of the state are read anew for each use.
class Restore {
 public:
  Restore(PyObject* state, PyObject* expected_name, PyObject* expected_version)
      : state_(state), expected_name_(expected_name), expected_version_(expected_version) {}

  [[nodiscard]] Ref validate() const {
    if (!globals::is_instance_of(state_, names.FunctionState)) {
      rejection().call("not_function_state", {"FunctionState required for '", str(expected_name_),
                                              "', got ", str(type_name(state_).get())});
    }
    if (compare(get(names.function_name).get(), expected_name_, Py_NE)) {
      rejection().call("function_name_mismatch",
                       {"State function_name '", shown(names.function_name), "' does not match '",
                        str(expected_name_), "'"});
    }
    if (compare(get(names.function_version).get(), expected_version_, Py_NE)) {
      rejection().call("function_version_mismatch",
                       {"State function_version ", shown(names.function_version),
                        " does not match entry function_version ", str(expected_version_), " for '",
                        str(expected_name_), "'"});
    }
    if (!is_dict(get(names.data).get())) {
      rejection().call("data_not_dict",
                       {"FunctionState.data for '", str(expected_name_), "' must be dict, got ",
                        str(type_name(get(names.data).get()).get())});
    }
    return get(names.data);
  }

 private:
  // _reject_function_state, looked up in the module before its arguments are made. It need not be
  // the one that raises.
  struct Rejection {
    const Restore& restore;
    Ref function;

    void call(const char* reason, std::initializer_list<Piece> pieces) const {
      Ref text = message(pieces);
      Ref code = own(PyUnicode_FromString(reason));
      PyObject* const positional[] = {text.get()};
      const Keyword keywords[] = {{names.expected_name, restore.expected_name_},
                                  {names.expected_version, restore.expected_version_},
                                  {names.state, restore.state_},
                                  {names.reason, code.get()}};
      call_keywords(function.get(), positional, keywords);
    }
  };

  [[nodiscard]] Rejection rejection() const {
    return {*this, globals::lookup(names.reject_function_state)};
  }
  [[nodiscard]] Ref get(PyObject* name) const { return get_attr(state_, name); }
  [[nodiscard]] Ref shown(PyObject* name) const { return str(get(name).get()); }

  PyObject* state_;
  PyObject* expected_name_;
  PyObject* expected_version_;
};

// --- Fast path ---

// Whether both are equal, told without running Python code; false also means "not sure".
bool surely_equal(PyObject* value, PyObject* expected) {
  const bool same_kind = (PyUnicode_CheckExact(value) && PyUnicode_CheckExact(expected)) ||
                         (PyLong_CheckExact(value) && PyLong_CheckExact(expected));
  return same_kind &&
         (value == expected || check(PyObject_RichCompareBool(value, expected, Py_EQ)) != 0);
}

// The data of a record that passes every check; null where the canonical path has to decide.
Ref accepted_data(PyObject* state, PyObject* expected_name, PyObject* expected_version) {
  if (!globals::untouched() || !record.untouched() || !record.is_exact(state)) return {};
  Ref name = record.field_if_plain(state, 0);
  Ref version = record.field_if_plain(state, 1);
  Ref data = record.field_if_plain(state, 2);
  const bool accepted = name && version && data && surely_equal(name.get(), expected_name) &&
                        surely_equal(version.get(), expected_version) &&
                        PyDict_CheckExact(data.get());
  return accepted ? std::move(data) : Ref();
}

Ref validate(PyObject* state, PyObject* expected_name, PyObject* expected_version) {
  if (Ref data = accepted_data(state, expected_name, expected_version)) return data;
  return Restore(state, expected_name, expected_version).validate();
}

}  // namespace

void define_function_state() {
  define_record<record>();
  define_function(kReject);
  define_function(kValidate);
}

}  // namespace typed_shapes
