// Sorting stage data into buckets, and slicing the buckets along the time axis.
#pragma once

#include <array>

#include "common/objects.h"

namespace typed_shapes {

// The buckets, in the order of the fields.
enum Bucket : std::size_t { kFlat, kNested, kOpaque, kBucketCount };
using Buckets = std::array<Ref, kBucketCount>;

// Where a value belongs: an array is flat, a dict nested, anything else opaque.
[[nodiscard]] Bucket bucket_of(PyObject* value);

// The items of a mapping by bucket, each bucket a new dict.
[[nodiscard]] Buckets partition(PyObject* raw);

// {key: value[start:end]} for every item
[[nodiscard]] Ref slice_values(PyObject* flat, PyObject* start, PyObject* end);

// The same one level down, arrays only. An inner dict without an array is shared, not copied.
[[nodiscard]] Ref slice_nested(PyObject* nested, PyObject* start, PyObject* end);

}  // namespace typed_shapes
