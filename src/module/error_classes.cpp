// SchemaError is the one error of every coercion and validation. InvalidFunctionStateError refuses
// a restore record and tells why in four attributes. Both are ValueErrors.
#include "common/class_body.h"
#include "common/globals.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

Result initialise(PyObject* self, PyObject* message, PyObject* function_name,
                  PyObject* expected_version, PyObject* state_type, PyObject* reason);

constexpr Method kInitialise = {function<initialise>(
    "InvalidFunctionStateError.__init__(self, message: str, *, function_name: str | None = None, "
    "expected_function_version: int | None = None, state_type: str | None = None, "
    "reason: str | None = None)")};

// The class that super() starts from: the one of the class body, whatever the module's name holds
// later.
Slot invalid_function_state_error;

Result initialise(PyObject* self, PyObject* message, PyObject* function_name,
                  PyObject* expected_version, PyObject* state_type, PyObject* reason) {
  Ref cls = globals::held(invalid_function_state_error);
  Ref parent = call(reinterpret_cast<PyObject*>(&PySuper_Type), cls.get(), self);
  if (!call_method(parent.get(), names.init, message)) return Refused{};
  set_attr(self, names.function_name, function_name);
  set_attr(self, names.expected_function_version, expected_version);
  set_attr(self, names.state_type, state_type);
  set_attr(self, names.reason, reason);
  return none();
}

}  // namespace

void define_error_classes() {
  ClassBody schema_error("SchemaError",
                         "Raised when a typed-shape constructor receives an incompatible payload.");
  globals::bind(names.SchemaError, schema_error.make_class("ValueError").get());

  ClassBody invalid_state(
      "InvalidFunctionStateError",
      "Raised when a restore payload is not the canonical FunctionState record.");
  invalid_state.define(kInitialise);
  globals::bind(names.InvalidFunctionStateError,
                invalid_function_state_error.set(invalid_state.make_class("ValueError")));
}

}  // namespace typed_shapes
