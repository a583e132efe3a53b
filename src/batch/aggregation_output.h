#pragma once

namespace typed_shapes {

void define_aggregation_output();

}  // namespace typed_shapes
