#pragma once

namespace typed_shapes {

void define_live_checkpoint();

}  // namespace typed_shapes
