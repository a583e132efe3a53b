// The table of contents of the module. The order is part of what the module promises.
#include "module/body.h"

#include <span>

#include "common/globals.h"
#include "common/function.h"
#include "common/numpy_api.h"
#include "graph/function_graph_node.h"
#include "module/error_classes.h"

namespace typed_shapes {

namespace {

using Texts = std::span<const char* const>;

constexpr const char* kExported[] = {
    "SchemaError",   "InvalidFunctionStateError", "FunctionState",         "validate_function_state",
    "FunctionGraphNode", "ParamSpec",             "WindowSpec",            "LiveCheckpoint",
    "UniverseMasks", "HistoryData",               "CostResult",            "Evidence",
    "CheckpointManifest", "Metaparameters",       "StageData",             "EraIndexManifest",
    "TargetInstrumentEntry", "AggregationOutput", "StateScalar",           "StateArray",
    "StateMapping",  "StateSequence",             "StateValue",            "coerce_state",
    "states_equal"};

constexpr const char* kGraphRuntimeTypes[] = {"feature",  "signal",     "aggregation", "rotation",
                                              "reduction", "filtration", "int",         "float",
                                              "string",   "bool",       "list"};

constexpr const char* kBuiltins[] = {"ValueError", "object",   "property",  "super",
                                     "enumerate",  "KeyError", "TypeError", "zip"};

Ref list_of(Texts texts) {
  Ref list = own(PyList_New(0));
  for (const char* text : texts) {
    check(PyList_Append(list.get(), own(PyUnicode_InternFromString(text)).get()));
  }
  return list;
}

// import name
Ref import_module(const char* name, PyObject* from_list) {
  Ref key = own(PyUnicode_FromString(name));
  return own(PyImport_ImportModuleLevelObject(key.get(), globals::dict(), nullptr, from_list, 0));
}

void import_as(const char* module_name, const char* bound_name) {
  globals::bind(bound_name, import_module(module_name, nullptr).get());
}

// from module_name import names
void import_from(const char* module_name, Texts imported) {
  Ref module = import_module(module_name, list_of(imported).get());
  for (const char* name : imported) {
    Ref value = Ref::steal(PyObject_GetAttrString(module.get(), name));
    if (!value) {
      if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) throw PythonError{};
      PyErr_Clear();
      raise(PyExc_ImportError, "cannot import name '%s' from '%s'", name, module_name);
    }
    globals::bind(name, value.get());
  }
}

void import_names() {
  constexpr const char* kFromDataclasses[] = {"dataclass", "field"};
  constexpr const char* kFromTyping[] = {"Any",      "Dict",     "Iterable", "List", "Mapping",
                                         "Optional", "Sequence", "Tuple",    "Union"};
  import_as("math", "math");
  import_from("dataclasses", kFromDataclasses);
  import_from("typing", kFromTyping);
  import_as("numpy", "np");
  import_numpy_api();
}

// The builtins that the code relies on must be there before anything is defined.
void check_builtins() {
  for (const char* name : kBuiltins) static_cast<void>(globals::builtin(name));
}

}  // namespace

void run_body() {
  check_builtins();
  create_function_type();
  import_names();
  globals::bind(names.all, list_of(kExported).get());
  define_error_classes();
  globals::bind("_MISSING", call(reinterpret_cast<PyObject*>(&PyBaseObject_Type)).get());
  globals::bind(names.GRAPH_RUNTIME_TYPES,
                own(PyFrozenSet_New(list_of(kGraphRuntimeTypes).get())).get());
  define_function_graph_node();
}

}  // namespace typed_shapes
