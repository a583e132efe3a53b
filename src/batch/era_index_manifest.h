#pragma once

namespace typed_shapes {

void define_era_index_manifest();

}  // namespace typed_shapes
