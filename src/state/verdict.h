#pragma once

namespace typed_shapes {

// The outcome of a native comparison. Unsure: the canonical path decides.
enum class Verdict { kEqual, kDifferent, kUnsure };

}  // namespace typed_shapes
