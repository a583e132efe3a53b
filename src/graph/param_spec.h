#pragma once

#include "common/record.h"
#include "graph/window_spec.h"

namespace typed_shapes {

inline constexpr std::size_t kParamFields = 7;
extern RecordOf<kParamFields> param_spec;

// ParamSpec.from_raw, and its fast path: an entry that is an exact dict gives its spec and the
// window that goes with it without running Python code. Null where the canonical path has to
// decide.
Result param_from_raw(PyObject* cls, PyObject* name, PyObject* raw);
[[nodiscard]] Ref build_param(PyObject* cls, PyObject* name, PyObject* raw);

// Whole schemas: ParamSpec.from_mapping, ParamSpec.coerce_specs.
Result params_from_mapping(PyObject* cls, PyObject* raw);
Result coerce_param_specs(PyObject* cls, PyObject* raw);
void define_param_name();

}  // namespace typed_shapes
