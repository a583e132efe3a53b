#pragma once

namespace typed_shapes {

// The module body: imports, constants, classes and functions, bound in their fixed order.
void run_body();

}  // namespace typed_shapes
