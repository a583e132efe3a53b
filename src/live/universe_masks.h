#pragma once

namespace typed_shapes {

void define_universe_masks();

}  // namespace typed_shapes
