#pragma once

namespace typed_shapes {

void define_cost_result();

}  // namespace typed_shapes
