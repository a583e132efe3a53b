#pragma once

namespace typed_shapes {

// states_equal and _states_value_equal
void define_states_equal();

}  // namespace typed_shapes
