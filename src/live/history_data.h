#pragma once

namespace typed_shapes {

void define_history_data();

}  // namespace typed_shapes
