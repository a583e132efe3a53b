#pragma once

namespace typed_shapes {

void define_stage_data();

}  // namespace typed_shapes
