// Native equality of arrays. With both tolerances zero np.allclose is elementwise equality with NaN
// equal to NaN, except at the edges: integers that float64 cannot hold, differences that overflow
// (NumPy warns), complex infinities. Those are left to NumPy.
#include "state/array_equality.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "common/wide_vectors.h"

namespace typed_shapes {

namespace {

// Small enough to stay in the first-level cache between the two looks at a block.
constexpr std::size_t kBlockBytes = 8192;

// --- Real and complex floats ---

// float16 by its bits.
struct Half {
  std::uint16_t bits;

  [[nodiscard]] std::uint16_t magnitude() const noexcept { return bits & 0x7FFFU; }
};

bool is_nan(Half x) noexcept { return x.magnitude() > 0x7C00U; }
bool is_same_number(Half x, Half y) noexcept {
  return x.bits == y.bits || (x.magnitude() | y.magnitude()) == 0;
}
// Finite, and beyond half of the largest: a difference may overflow.
bool may_overflow(Half x) noexcept { return x.magnitude() >= 0x7800U && x.magnitude() < 0x7C00U; }

template <typename Float>
bool is_nan(Float x) noexcept {
  return std::isnan(x);
}
template <typename Float>
bool is_same_number(Float x, Float y) noexcept {
  return x == y;
}
template <typename Float>
bool may_overflow(Float x) noexcept {
  const Float size = std::abs(x);
  return size > std::numeric_limits<Float>::max() / 2 && size <= std::numeric_limits<Float>::max();
}

template <typename Float>
struct Complex {
  Float real;
  Float imaginary;
};

template <typename Float>
bool is_nan(Complex<Float> x) noexcept {
  return is_nan(x.real) || is_nan(x.imaginary);
}
template <typename Float>
bool is_same_number(Complex<Float> x, Complex<Float> y) noexcept {
  return x.real == y.real && x.imaginary == y.imaginary;
}
// The modulus or a difference may overflow, or an infinite part times zero is invalid.
template <typename Float>
bool may_overflow(Complex<Float> x) noexcept {
  constexpr Float kLimit = std::numeric_limits<Float>::max() / 4;
  return std::abs(x.real) > kLimit || std::abs(x.imaginary) > kLimit;
}

// Whether there is a signalling NaN, of which NumPy 1 warns: a magnitude above that of infinity and
// below those of the quiet NaNs. The signs of two differences tell, which every vector unit can
// make.
template <typename Bits, typename Float>
bool any_signalling(const Float* values, std::size_t count, Bits infinity,
                    Bits quiet_bit) noexcept {
  // Narrow operands are promoted to int.
  // NOLINTBEGIN(bugprone-signed-bitwise)
  constexpr Bits kSign = Bits{1} << (std::numeric_limits<Bits>::digits - 1);
  Bits found = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto magnitude = static_cast<Bits>(std::bit_cast<Bits>(values[i]) & ~kSign);
    const auto above_infinity = static_cast<Bits>(magnitude - infinity - Bits{1});
    const auto below_quiet = static_cast<Bits>(above_infinity - quiet_bit + Bits{1});
    found = static_cast<Bits>(found | (~above_infinity & below_quiet));
  }
  return (found & kSign) != 0;
  // NOLINTEND(bugprone-signed-bitwise)
}
TYPED_SHAPES_WIDE_VECTORS bool find_signalling(const Half* values, std::size_t count) noexcept {
  return any_signalling<std::uint16_t>(values, count, 0x7C00U, 0x0200U);
}
TYPED_SHAPES_WIDE_VECTORS bool find_signalling(const float* values, std::size_t count) noexcept {
  return any_signalling<std::uint32_t>(values, count, 0x7F80'0000U, 0x0040'0000U);
}
TYPED_SHAPES_WIDE_VECTORS bool find_signalling(const double* values, std::size_t count) noexcept {
  return any_signalling<std::uint64_t>(values, count, 0x7FF0'0000'0000'0000U,
                                       0x0008'0000'0000'0000U);
}
template <typename Number>
bool has_signalling(const Number* values, std::size_t count) noexcept {
  return find_signalling(values, count);
}
template <typename Float>
bool has_signalling(const Complex<Float>* values, std::size_t count) noexcept {
  return find_signalling(reinterpret_cast<const Float*>(values), 2 * count);
}

template <typename Number>
bool numpy1_would_warn(const Number* values, std::size_t count) noexcept {
  static const bool is_numpy_1 = PyArray_GetNDArrayCFeatureVersion() < NPY_2_0_API_VERSION;
  return is_numpy_1 && has_signalling(values, count);
}

template <typename Number>
bool any_large(const Number* values, std::size_t count) noexcept {
  return std::any_of(values, values + count, [](Number x) { return may_overflow(x); });
}

template <typename Number>
bool blocks_match(const Number* x, const Number* y, std::size_t count) noexcept {
  if (std::memcmp(x, y, count * sizeof(Number)) == 0) return true;
  // No early exit inside a block: this is the form that the compiler vectorises.
  unsigned different = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned same =
        static_cast<unsigned>(is_same_number(x[i], y[i])) |
        (static_cast<unsigned>(is_nan(x[i])) & static_cast<unsigned>(is_nan(y[i])));
    different |= same ^ 1U;
  }
  return different == 0;
}

template <typename Number>
bool all_match(const Number* x, const Number* y, std::size_t count) noexcept {
  constexpr std::size_t kBlock = kBlockBytes / sizeof(Number);
  for (std::size_t start = 0; start < count; start += kBlock) {
    if (!blocks_match(x + start, y + start, std::min(kBlock, count - start))) return false;
  }
  return true;
}

// Equal or different; unsure of what NumPy warns of in equal values too.
template <typename Number>
Verdict match_all(const Number* x, const Number* y, std::size_t count) noexcept {
  const bool same_bytes = std::memcmp(x, y, count * sizeof(Number)) == 0;
  const bool warns = numpy1_would_warn(x, count) || (!same_bytes && numpy1_would_warn(y, count));
  if (warns) return Verdict::kUnsure;
  return same_bytes || all_match(x, y, count) ? Verdict::kEqual : Verdict::kDifferent;
}

template <typename Float>
Verdict compare_floats(const void* a, const void* b, std::size_t count) noexcept {
  const auto* x = static_cast<const Float*>(a);
  const auto* y = static_cast<const Float*>(b);
  const Verdict verdict = match_all(x, y, count);
  if (verdict != Verdict::kDifferent) return verdict;
  return any_large(x, count) || any_large(y, count) ? Verdict::kUnsure : verdict;
}

template <typename Float>
Verdict compare_complex(const void* a, const void* b, std::size_t count) noexcept {
  const auto* x = static_cast<const Complex<Float>*>(a);
  const auto* y = static_cast<const Complex<Float>*>(b);
  if (any_large(x, count) || any_large(y, count)) return Verdict::kUnsure;
  return match_all(x, y, count);
}

// --- Integers ---

// Whether float64 (which NumPy compares in) holds the integer as it is.
template <typename Integer>
bool is_exact_in_float64(Integer x) noexcept {
  if constexpr (sizeof(Integer) < sizeof(std::int64_t)) {
    return true;
  } else {
    constexpr Integer kLimit = 9'007'199'254'740'992;  // 2 ** 53
    if constexpr (std::numeric_limits<Integer>::is_signed) {
      if (x < -kLimit) return false;
    }
    return x <= kLimit;
  }
}

template <typename Integer>
Verdict compare_integers(const void* a, const void* b, std::size_t count) noexcept {
  if (std::memcmp(a, b, count * sizeof(Integer)) == 0) return Verdict::kEqual;
  const auto* x = static_cast<const Integer*>(a);
  const auto* y = static_cast<const Integer*>(b);
  for (std::size_t i = 0; i < count; ++i) {
    if (x[i] != y[i] && is_exact_in_float64(x[i]) && is_exact_in_float64(y[i])) {
      return Verdict::kDifferent;
    }
  }
  return Verdict::kUnsure;
}

// Bytes other than 0 and 1 get into a bool array through views; NumPy knows what they mean.
Verdict compare_bools(const void* a, const void* b, std::size_t count) noexcept {
  if (std::memcmp(a, b, count) == 0) return Verdict::kEqual;
  const auto* x = static_cast<const std::uint8_t*>(a);
  const auto* y = static_cast<const std::uint8_t*>(b);
  for (std::size_t i = 0; i < count; ++i) {
    if (x[i] != y[i] && x[i] <= 1 && y[i] <= 1) return Verdict::kDifferent;
  }
  return Verdict::kUnsure;
}

// --- Arrays ---

using Comparison = Verdict (*)(const void*, const void*, std::size_t);

// Null for the types that are left to NumPy.
Comparison comparison_of(int type_number) noexcept {
  switch (type_number) {
    case NPY_BOOL:
      return compare_bools;
    case NPY_BYTE:
      return compare_integers<npy_byte>;
    case NPY_UBYTE:
      return compare_integers<npy_ubyte>;
    case NPY_SHORT:
      return compare_integers<npy_short>;
    case NPY_USHORT:
      return compare_integers<npy_ushort>;
    case NPY_INT:
      return compare_integers<npy_int>;
    case NPY_UINT:
      return compare_integers<npy_uint>;
    case NPY_LONG:
      return compare_integers<npy_long>;
    case NPY_ULONG:
      return compare_integers<npy_ulong>;
    case NPY_LONGLONG:
      return compare_integers<npy_longlong>;
    case NPY_ULONGLONG:
      return compare_integers<npy_ulonglong>;
    case NPY_HALF:
      return compare_floats<Half>;
    case NPY_FLOAT:
      return compare_floats<float>;
    case NPY_DOUBLE:
      return compare_floats<double>;
    case NPY_CFLOAT:
      return compare_complex<float>;
    case NPY_CDOUBLE:
      return compare_complex<double>;
    default:
      return nullptr;
  }
}

bool is_native_memory(PyArrayObject* array) noexcept {
  return PyArray_ISALIGNED(array) && PyArray_ISNOTSWAPPED(array);
}

bool in_same_order(PyArrayObject* a, PyArrayObject* b) noexcept {
  return (PyArray_IS_C_CONTIGUOUS(a) && PyArray_IS_C_CONTIGUOUS(b)) ||
         (PyArray_IS_F_CONTIGUOUS(a) && PyArray_IS_F_CONTIGUOUS(b));
}

}  // namespace

Verdict arrays_equal(PyArrayObject* a, PyArrayObject* b) noexcept {
  const bool has_same_shape = PyArray_SAMESHAPE(a, b);
  if (!has_same_shape) return Verdict::kDifferent;
  const Comparison comparison = comparison_of(PyArray_TYPE(a));
  const bool is_known = comparison != nullptr && comparison_of(PyArray_TYPE(b)) != nullptr;
  const bool is_readable = is_native_memory(a) && is_native_memory(b);
  if (!is_known || !is_readable) return Verdict::kUnsure;
  if (PyArray_TYPE(a) != PyArray_TYPE(b)) {
    // Two C types of one width and kind make equal dtypes.
    return PyArray_EquivTypenums(PyArray_TYPE(a), PyArray_TYPE(b)) != 0 ? Verdict::kUnsure
                                                                        : Verdict::kDifferent;
  }
  if (!in_same_order(a, b)) return Verdict::kUnsure;
  return comparison(PyArray_DATA(a), PyArray_DATA(b), static_cast<std::size_t>(PyArray_SIZE(a)));
}

}  // namespace typed_shapes
