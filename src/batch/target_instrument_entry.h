#pragma once

namespace typed_shapes {

void define_target_instrument_entry();

}  // namespace typed_shapes
