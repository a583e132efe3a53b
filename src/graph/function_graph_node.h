#pragma once

#include "common/message.h"
#include "common/misfit_path.h"
#include "common/record.h"

namespace typed_shapes {

inline constexpr std::size_t kNodeFields = 9;
extern RecordOf<kNodeFields> graph_node;

// "FunctionGraphNode.children must be a list; got <type>"
Refused refuse_children(const ErrorClass& error, const Ref& children);

// FunctionGraphNode.from_raw
Result node_from_raw(PyObject* cls, PyObject* raw);

// Its fast path: the typed tree of a payload made of exact dicts, lists and strs, built without
// running Python code. Null where the canonical path has to decide, in whose frames those of this
// path must not be: it needs its stack for callbacks.
[[nodiscard]] [[gnu::noinline]] Ref build_graph(PyObject* cls, PyObject* raw, MisfitPath& path);

void define_coerce_graph();

}  // namespace typed_shapes
