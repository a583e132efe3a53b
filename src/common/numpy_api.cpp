#define TYPED_SHAPES_IMPORTS_NUMPY
#include "common/numpy_api.h"

#include "common/errors.h"

namespace typed_shapes {

void import_numpy_api() { check(_import_array()); }

}  // namespace typed_shapes
