#pragma once

#include "common/misfit_path.h"
#include "common/record.h"

namespace typed_shapes {

using NodeRecord = RecordOf<9>;

// The fast path of graph coercion: the typed tree of a payload made of exact dicts, lists and strs,
// built without running Python code. Null where the canonical path has to decide, in whose frames
// those of this path must not be: it needs its stack for callbacks.
[[nodiscard]] [[gnu::noinline]] Ref build_graph(NodeRecord& record, PyObject* cls, PyObject* raw,
                                                MisfitPath& path);

}  // namespace typed_shapes
