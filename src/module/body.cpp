// The table of contents of the module. The order is part of what the module promises.
#include "module/body.h"

#include <span>

#include "batch/aggregation_output.h"
#include "batch/checkpoint_manifest.h"
#include "batch/era_index_manifest.h"
#include "batch/metaparameters.h"
#include "batch/stage_data.h"
#include "batch/target_instrument_entry.h"
#include "common/function.h"
#include "common/globals.h"
#include "common/numpy_api.h"
#include "graph/function_graph_node.h"
#include "graph/param_spec.h"
#include "graph/window_spec.h"
#include "live/cost_result.h"
#include "live/evidence.h"
#include "live/history_data.h"
#include "live/live_checkpoint.h"
#include "live/universe_masks.h"
#include "module/error_classes.h"
#include "module/function_state.h"
#include "state/coerce_state.h"
#include "state/state_values.h"
#include "state/states_equal.h"

namespace typed_shapes {

namespace {

using Texts = std::span<const char* const>;

constexpr const char* kExported[] = {"SchemaError",
                                     "InvalidFunctionStateError",
                                     "FunctionState",
                                     "validate_function_state",
                                     "FunctionGraphNode",
                                     "ParamSpec",
                                     "WindowSpec",
                                     "LiveCheckpoint",
                                     "UniverseMasks",
                                     "HistoryData",
                                     "CostResult",
                                     "Evidence",
                                     "CheckpointManifest",
                                     "Metaparameters",
                                     "StageData",
                                     "EraIndexManifest",
                                     "TargetInstrumentEntry",
                                     "AggregationOutput",
                                     "StateScalar",
                                     "StateArray",
                                     "StateMapping",
                                     "StateSequence",
                                     "StateValue",
                                     "coerce_state",
                                     "states_equal"};

constexpr const char* kGraphRuntimeTypes[] = {"feature",   "signal",     "aggregation", "rotation",
                                              "reduction", "filtration", "int",         "float",
                                              "string",    "bool",       "list"};

constexpr const char* kCheckpointRequired[] = {"tick_timestamp", "dag_metadata",
                                               "canonical_id_to_filename"};

constexpr const char* kBuiltins[] = {"ValueError", "object",   "property",  "super",
                                     "enumerate",  "KeyError", "TypeError", "zip"};

Ref list_of(Texts texts) {
  Ref list = own(PyList_New(0));
  for (const char* text : texts) {
    check(PyList_Append(list.get(), interned(text).get()));
  }
  return list;
}

// import name
Ref import_module(const char* name, PyObject* from_list) {
  Ref key = own(PyUnicode_FromString(name));
  return own(PyImport_ImportModuleLevelObject(key.get(), globals::dict(), nullptr, from_list, 0));
}

Ref import_as(const char* module_name, const char* bound_name) {
  Ref module = import_module(module_name, nullptr);
  globals::bind(bound_name, module.get());
  return module;
}

// from module_name import names
void import_from(const char* module_name, Texts imported) {
  Ref module = import_module(module_name, list_of(imported).get());
  for (const char* name : imported) {
    Ref value = own_attribute(PyObject_GetAttrString(module.get(), name));
    if (!value) raise(PyExc_ImportError, "cannot import name '%s' from '%s'", name, module_name);
    globals::bind(name, value.get());
  }
}

// An exact dict passes for a Mapping without a question. Where somebody put another one into typing
// before us, that one is asked: the names never count as untouched.
void check_mapping() {
  const Ref abstract = own(PyImport_ImportModule("collections.abc"));
  const Ref expected = get_attr(abstract.get(), names.Mapping);
  const Ref origin =
      own_attribute(PyObject_GetAttrString(globals::lookup(names.Mapping).get(), "__origin__"));
  if (origin.get() != expected.get()) globals::bound_names.expect(names.Mapping, Py_None);
}

void import_names() {
  constexpr const char* kFromDataclasses[] = {"dataclass", "field"};
  constexpr const char* kFromTyping[] = {"Any",      "Dict",     "Iterable", "List", "Mapping",
                                         "Optional", "Sequence", "Tuple",    "Union"};
  import_as("math", "math");
  import_from("dataclasses", kFromDataclasses);
  import_from("typing", kFromTyping);
  check_mapping();
  import_numpy_api(import_as("numpy", "np").get());
}

// These builtins must be there before anything is defined, or the import fails.
void check_builtins() {
  for (const char* name : kBuiltins) static_cast<void>(globals::builtin(name));
}

}  // namespace

void run_body() {
  check_builtins();
  create_function_type();
  import_names();
  globals::bind(names.all_exports, list_of(kExported).get());
  define_error_classes();
  define_function_state();
  globals::bind(names.MISSING, call(reinterpret_cast<PyObject*>(&PyBaseObject_Type)).get());
  globals::bind(names.GRAPH_RUNTIME_TYPES,
                own(PyFrozenSet_New(list_of(kGraphRuntimeTypes).get())).get());
  define_function_graph_node();
  define_window_spec();
  define_param_spec();
  define_live_checkpoint();
  define_universe_masks();
  define_history_data();
  define_cost_result();
  define_evidence();
  globals::bind(names.CHECKPOINT_REQUIRED,
                own(PyList_AsTuple(list_of(kCheckpointRequired).get())).get());
  define_checkpoint_manifest();
  define_metaparameters();
  define_stage_data();
  define_era_index_manifest();
  define_target_instrument_entry();
  define_aggregation_output();
  define_state_values();
  define_coerce_state();
  define_states_equal();
}

}  // namespace typed_shapes
