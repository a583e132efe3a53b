// Everything that the module body defines; each is in the file of its name.
#pragma once

namespace typed_shapes {

// The module body: imports, constants, classes and functions, bound in their fixed order.
void run_body();

void define_error_classes();        // SchemaError, InvalidFunctionStateError
void define_function_state();       // with _reject_function_state and validate_function_state
void define_function_graph_node();  // with _GRAPH_RUNTIME_TYPES and coerce_graph
void define_window_spec();
void define_param_spec();  // with _param_name
void define_live_checkpoint();
void define_universe_masks();
void define_history_data();
void define_cost_result();
void define_evidence();
void define_checkpoint_manifest();  // with _CHECKPOINT_REQUIRED
void define_metaparameters();
void define_stage_data();
void define_era_index_manifest();
void define_target_instrument_entry();
void define_aggregation_output();
void define_state_values();  // the four variants, and StateValue
void define_coerce_state();
void define_states_equal();  // with _states_value_equal

}  // namespace typed_shapes
