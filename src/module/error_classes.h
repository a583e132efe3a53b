// The two exception classes of the module.
#pragma once

namespace typed_shapes {

void define_error_classes();

}  // namespace typed_shapes
