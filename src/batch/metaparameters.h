#pragma once

namespace typed_shapes {

void define_metaparameters();

}  // namespace typed_shapes
