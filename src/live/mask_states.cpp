#include "live/mask_states.h"

#include <algorithm>
#include <cstdint>

#include "common/objects.h"
#include "common/wide_vectors.h"

namespace typed_shapes {

namespace {

constexpr std::size_t kBlock = 4096;

// No early exit inside a block: this is the form that the compiler vectorises.
TYPED_SHAPES_WIDE_VECTORS bool is_valid_block(const std::uint16_t* states,
                                              std::size_t count) noexcept {
  // All bits or none, as a vector comparison gives them; signed, since the baseline instruction set
  // compares 16-bit lanes as signed ones.
  using Lane = std::int16_t;
  const auto lane = [](bool condition) { return static_cast<Lane>(-static_cast<Lane>(condition)); };
  Lane valid = lane(true);
  // NOLINTBEGIN(bugprone-signed-bitwise)
  for (std::size_t i = 0; i < count; ++i) {
    const auto bits = static_cast<Lane>(states[i]);
    const auto magnitude = static_cast<Lane>(bits & 0x7FFF);
    const int state = lane(bits == 0x0000) | lane(bits == 0x3C00) | lane(magnitude > 0x7C00);
    valid = static_cast<Lane>(valid & state);
  }
  // NOLINTEND(bugprone-signed-bitwise)
  return valid == lane(true);
}

// np.float16(number)
Ref half(double number) {
  Ref argument = own(PyFloat_FromDouble(number));
  return call(numpy_attr(names.float16).get(), argument.get());
}

Ref equals(PyObject* mask, double number) { return rich_compare(mask, half(number).get(), Py_EQ); }

Ref bitwise_or(const Ref& left, const Ref& right) {
  return own(PyNumber_Or(left.get(), right.get()));
}

// np.name(array)
Ref numpy_call(PyObject* name, PyObject* array) { return call(numpy_attr(name).get(), array); }

}  // namespace

bool has_valid_states(PyArrayObject* mask) noexcept {
  const auto* states = static_cast<const std::uint16_t*>(PyArray_DATA(mask));
  const auto count = static_cast<std::size_t>(PyArray_SIZE(mask));
  for (std::size_t start = 0; start < count; start += kBlock) {
    if (!is_valid_block(states + start, std::min(kBlock, count - start))) return false;
  }
  return true;
}

Ref invalid_state_index(PyObject* mask) {
  Ref is_nan = numpy_call(names.isnan, mask);
  Ref is_zero = equals(mask, 0.0);
  Ref is_nan_or_zero = bitwise_or(is_nan, is_zero);
  Ref is_one = equals(mask, 1.0);
  Ref valid = bitwise_or(is_nan_or_zero, is_one);
  // Negative zero equals zero and would pass.
  is_zero = equals(mask, 0.0);
  Ref sign = numpy_call(names.signbit, mask);
  Ref negative_zero = own(PyNumber_And(is_zero.get(), sign.get()));
  Ref invalid = bitwise_or(own(PyNumber_Invert(valid.get())), negative_zero);
  if (!is_true(numpy_call(names.any, invalid.get()).get())) return {};
  Ref indices = numpy_call(names.flatnonzero, invalid.get());
  Ref first = get_item(indices.get(), integer(0).get());
  return call(reinterpret_cast<PyObject*>(&PyLong_Type), first.get());
}

}  // namespace typed_shapes
