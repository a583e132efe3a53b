#pragma once

namespace typed_shapes {

// ParamSpec and _param_name.
void define_param_spec();

}  // namespace typed_shapes
