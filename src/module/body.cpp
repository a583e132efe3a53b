// The table of contents of the module. The order is part of what the module promises.
#include "common/function.h"
#include "common/globals.h"
#include "common/imports.h"
#include "common/numpy_api.h"
#include "common/scopes.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name all_exports{"__all__"};
} own_names;

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

constexpr const char* kBuiltins[] = {"ValueError", "object",   "property",  "super",
                                     "enumerate",  "KeyError", "TypeError", "zip"};

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
  // Thousands of objects are made from here on that all stay, next to all those of NumPy. What runs
  // is the library's `dataclasses`; a gc.disable() of another thread in these milliseconds is lost.
  const CollectorPause pause;
  globals::bind(own_names.all_exports, list_of(kExported).get());
  define_error_classes();
  define_function_state();
  globals::bind(names.MISSING, call(reinterpret_cast<PyObject*>(&PyBaseObject_Type)).get());
  define_function_graph_node();
  define_window_spec();
  define_param_spec();
  define_live_checkpoint();
  define_universe_masks();
  define_history_data();
  define_cost_result();
  define_evidence();
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
