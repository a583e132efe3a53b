#pragma once

#include "common/record.h"

namespace typed_shapes {

extern Record window_spec;

void define_window_spec();

}  // namespace typed_shapes
