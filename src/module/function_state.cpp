// The restore contract of stateful functions: a state comes back in exactly one record shape, for
// the function and the version that it was made by, or not at all.
#include "common/globals.h"
#include "common/message.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name expected_name{"expected_name"};
  Name expected_version{"expected_version"};
  Name function_version{"function_version"};
  Name reject_function_state{"_reject_function_state"};
  Name state{"state"};
} own_names;

constexpr Field kFields[] = {
    {"function_name", "str"}, {"function_version", "int"}, {"data", "Any"}};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "FunctionState",
    .doc = "Canonical state transport record for stateful function restoration.",
    .decorator = Decorator::kFrozen,
});

constinit RecordOf<std::size(kFields)> record{kTable};

Result reject(PyObject* text, PyObject* expected_name, PyObject* expected_version, PyObject* state,
              PyObject* reason) {
  Ref error_class = globals::lookup(names.InvalidFunctionStateError);
  Ref state_type = type_name(state);
  PyObject* const positional[] = {text};
  const Keyword keywords[] = {{names.function_name, expected_name},
                              {names.expected_function_version, expected_version},
                              {names.state_type, state_type.get()},
                              {names.reason, reason}};
  return refuse_with(call_keywords(error_class.get(), positional, keywords).get());
}

// --- Canonical path ---

// One call of validate_function_state. Attributes of the state are read anew for each use.
struct Restore {
  PyObject* state;
  PyObject* expected_name;
  PyObject* expected_version;

  [[nodiscard]] Result validate() const {
    if (check_kind() && check_name() && check_version() && check_data()) return get(names.data);
    return Refused{};
  }

  // _reject_function_state, looked up in the module before its arguments are made.
  struct Rejection {
    const Restore& restore;
    Ref function;

    // Calls it. Another function than the module's own need not raise: then the checks go on.
    [[nodiscard]] bool passes(const char* reason, std::initializer_list<Piece> pieces) const {
      Ref text = message(pieces);
      Ref code = own(PyUnicode_FromString(reason));
      PyObject* const positional[] = {text.get()};
      const Keyword keywords[] = {{own_names.expected_name, restore.expected_name},
                                  {own_names.expected_version, restore.expected_version},
                                  {own_names.state, restore.state},
                                  {names.reason, code.get()}};
      return static_cast<bool>(call_keywords(function.get(), positional, keywords));
    }
  };

  [[nodiscard]] bool check_kind() const {
    if (record.is_instance(state)) return true;
    return rejection().passes("not_function_state",
                              {"FunctionState required for '", str(expected_name), "', got ",
                               str(type_name(state).get())});
  }

  [[nodiscard]] bool check_name() const {
    if (!compare(get(names.function_name).get(), expected_name, Py_NE)) return true;
    return rejection().passes("function_name_mismatch",
                              {"State function_name '", shown(names.function_name),
                               "' does not match '", str(expected_name), "'"});
  }

  [[nodiscard]] bool check_version() const {
    if (!compare(get(own_names.function_version).get(), expected_version, Py_NE)) return true;
    return rejection().passes("function_version_mismatch",
                              {"State function_version ", shown(own_names.function_version),
                               " does not match entry function_version ", str(expected_version),
                               " for '", str(expected_name), "'"});
  }

  [[nodiscard]] bool check_data() const {
    if (is_dict(get(names.data).get())) return true;
    return rejection().passes(
        "data_not_dict", {"FunctionState.data for '", str(expected_name), "' must be dict, got ",
                          str(type_name(get(names.data).get()).get())});
  }

  [[nodiscard]] Rejection rejection() const {
    return {*this, globals::lookup(own_names.reject_function_state)};
  }
  [[nodiscard]] Result get(PyObject* name) const { return get_attr(state, name); }
  [[nodiscard]] Result shown(PyObject* name) const { return str(get(name).get()); }
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
  if (!globals::untouched() || !record.fields_untouched() || !record.is_exact(state)) return {};
  Ref name = record.stored_field(state, 0);
  Ref version = record.stored_field(state, 1);
  Ref data = record.stored_field(state, 2);
  if (!name || !version || !data || !PyDict_CheckExact(data.get())) return {};
  if (!surely_equal(name.get(), expected_name)) return {};
  return surely_equal(version.get(), expected_version) ? std::move(data) : Ref();
}

Result validate(PyObject* state, PyObject* expected_name, PyObject* expected_version) {
  if (Ref data = accepted_data(state, expected_name, expected_version)) return data;
  return Restore{state, expected_name, expected_version}.validate();
}

}  // namespace

void define_function_state() {
  define_record<record>();
  define_function(function<reject>(
      "_reject_function_state(message: str, *, expected_name: str, expected_version: int, "
      "state: Any, reason: str) -> None"));
  define_function(function<validate>(
      "validate_function_state(state: Any, *, expected_name: str, expected_version: int) -> "
      "dict[str, Any]",
      "Return ``state.data`` after enforcing the single restore record contract."));
}

}  // namespace typed_shapes
