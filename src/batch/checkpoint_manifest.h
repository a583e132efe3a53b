#pragma once

namespace typed_shapes {

void define_checkpoint_manifest();

}  // namespace typed_shapes
