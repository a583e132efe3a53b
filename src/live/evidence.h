#pragma once

namespace typed_shapes {

void define_evidence();

}  // namespace typed_shapes
