// The module frame: what happens when the interpreter loads the module, in the order in which it
// happens.
#include <new>

#include "common/errors.h"
#include "common/globals.h"
#include "common/interpreter.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

constexpr const char* kDoc =
    "Typed dataclasses used at simulator_engine + functions boundaries.\n"
    "\n"
    "These shapes replace the historical ``isinstance(x, dict)/else: getattr``\n"
    "dual-mode dispatchers. Producers (cost engines, checkpoint loader, mask\n"
    "builder, history fetcher, signal registration, graph parser, registry\n"
    "entry constructor, evidence assembler) emit typed instances; consumers\n"
    "read typed attributes directly.\n"
    "\n"
    "Validation lives in ``__post_init__``. Out-of-shape inputs raise\n"
    "``SchemaError`` with field context. No runtime ``isinstance`` dispatch\n"
    "exists after coercion.\n";

// The first interpreter that loads the module is marked in its own dict: interpreter IDs restart at
// 0 when a runtime is initialised again.
void check_interpreter() {
  static bool is_marked = false;
  PyObject* marks = PyInterpreterState_GetDict(PyInterpreterState_Get());
  if (marks == nullptr) throw std::bad_alloc();
  Ref mark = interned(kModuleName);
  if (!is_marked) {
    check(PyDict_SetItem(marks, mark.get(), mark.get()));
    is_marked = true;
  }
  if (!contains(marks, mark.get())) {
    raise(PyExc_ImportError,
          "Interpreter change detected - this module can only be loaded into one interpreter per "
          "process.");
  }
}

void copy_from_spec(PyObject* spec, const char* attribute, PyObject* module_dict, const char* name,
                    bool copy_none) {
  Ref value = own_attribute(PyObject_GetAttrString(spec, attribute));
  if (value && (copy_none || !is_none(value))) {
    check(PyDict_SetItemString(module_dict, name, value.get()));
  }
}

Ref create_module(PyObject* spec) {
  check_interpreter();
  if (globals::module() != nullptr) return Ref::borrow(globals::module());
  Ref name = own(PyObject_GetAttrString(spec, "name"));
  Ref module = own(PyModule_NewObject(name.get()));
  PyObject* dict = PyModule_GetDict(module.get());
  copy_from_spec(spec, "loader", dict, "__loader__", true);
  copy_from_spec(spec, "origin", dict, "__file__", true);
  copy_from_spec(spec, "parent", dict, "__package__", true);
  copy_from_spec(spec, "submodule_search_locations", dict, "__path__", false);
  return module;
}

void warn_of_other_version() {
  constexpr interpreter::Version kBuilt = interpreter::kBuiltFor;
  const interpreter::Version runtime = interpreter::running();
  if (runtime == kBuilt) return;
  check(PyErr_WarnFormat(PyExc_RuntimeWarning, 1,
                         "compile time Python version %u.%u of module '%.100s' %s runtime version "
                         "%u.%u",
                         kBuilt.major, kBuilt.minor, kModuleName, "does not match", runtime.major,
                         runtime.minor));
}

// An entry of sys.modules that is taken back unless the load succeeds.
class Registration {
 public:
  explicit Registration(PyObject* module)
      : modules_(PyImport_GetModuleDict()),
        name_(own(PyUnicode_FromString(kModuleName))),
        added_(!contains(modules_, name_.get())) {
    if (added_) check(PyDict_SetItem(modules_, name_.get(), module));
  }
  ~Registration() {
    if (!added_ || kept_) return;
    const SavedError pending;
    // By the name that was made before: there may be no memory for another.
    if (PyDict_DelItem(modules_, name_.get()) < 0) PyErr_Clear();
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  void keep() noexcept { kept_ = true; }

 private:
  PyObject* modules_;
  Ref name_;
  bool added_;
  bool kept_ = false;
};

void load(PyObject* module) {
  Ref builtins = own(PyImport_ImportModule("builtins"));
  watches_usable = interpreter::running() == interpreter::kBuiltFor;
  Name::intern_all();
  globals::open(module, builtins.get());
  check(PyObject_SetAttrString(module, "__builtins__", builtins.get()));
  warn_of_other_version();
  Registration registration(module);
  run_body();
  registration.keep();
}

void execute_module(PyObject* module) {
  if (globals::module() == module) return;
  if (globals::module() != nullptr) {
    raise(PyExc_RuntimeError,
          "Module '_typed_shapes' has already been imported. Re-initialisation is not supported.");
  }
  try {
    load(module);
  } catch (...) {
    // Nothing stays behind, so that a later import of the process starts anew.
    const SavedError pending;
    Slot::clear_all();
    throw;
  }
}

PyObject* create_step(PyObject* spec, PyModuleDef* /*definition*/) {
  return guarded([&] { return create_module(spec); });
}

int execute_step(PyObject* module) {
  return guarded_status([&] { execute_module(module); });
}

PyModuleDef_Slot module_slots[] = {{Py_mod_create, reinterpret_cast<void*>(create_step)},
                                   {Py_mod_exec, reinterpret_cast<void*>(execute_step)},
                                   {0, nullptr}};

PyModuleDef definition = {PyModuleDef_HEAD_INIT, "_typed_shapes", kDoc,    0,      nullptr,
                          module_slots,          nullptr,         nullptr, nullptr};

}  // namespace

}  // namespace typed_shapes

PyMODINIT_FUNC PyInit__typed_shapes() { return PyModuleDef_Init(&typed_shapes::definition); }
