#pragma once

#include "common/record.h"

namespace typed_shapes {

using ParamRecord = RecordOf<7>;

// The fast path of one parameter entry that is an exact dict: its spec, and the window that goes
// with it, built without running Python code. Null where the canonical path has to decide.
[[nodiscard]] Ref build_param(ParamRecord& param_spec, PyObject* cls, PyObject* name,
                              PyObject* raw);

}  // namespace typed_shapes
