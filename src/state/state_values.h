// The sum type of function state: four frozen variants and the alias StateValue.
#pragma once

#include "common/record.h"

namespace typed_shapes {

extern RecordOf<1> state_scalar;    // value
extern RecordOf<1> state_array;     // data
extern RecordOf<1> state_mapping;   // entries
extern RecordOf<1> state_sequence;  // items_

// In the order in which a value is looked at.
inline constexpr const Record* kVariants[] = {&state_scalar, &state_array, &state_mapping,
                                              &state_sequence};

// Whether natively built and natively read variants are what the module's own code would see.
[[nodiscard]] bool state_values_untouched() noexcept;

// Whether the object is exactly one of the variants. Only where state_values_untouched().
[[nodiscard]] inline bool is_state_value(PyObject* object) noexcept {
  return state_scalar.is_exact(object) || state_array.is_exact(object) ||
         state_mapping.is_exact(object) || state_sequence.is_exact(object);
}

// Whether the object's type alone, without running code of the object, settles that it is a scalar:
// it is of a builtin or NumPy scalar type and not a container, an array or a subclass of one.
[[nodiscard]] bool is_settled_scalar(PyObject* object) noexcept;

}  // namespace typed_shapes
