#pragma once

namespace typed_shapes {

// FunctionState, _reject_function_state and validate_function_state.
void define_function_state();

}  // namespace typed_shapes
