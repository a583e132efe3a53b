// Every interned string of the module, in one list with one initialisation.
#pragma once

#include "common/python.h"

namespace typed_shapes {

// X(member, text). Members that are C++ keywords carry a trailing underscore.
#define TYPED_SHAPES_NAMES(X)                                 \
  X(SchemaError, "SchemaError")                               \
  X(FunctionGraphNode, "FunctionGraphNode")                   \
  X(InvalidFunctionStateError, "InvalidFunctionStateError")   \
  X(GRAPH_RUNTIME_TYPES, "_GRAPH_RUNTIME_TYPES")              \
  X(Mapping, "Mapping")                                       \
  X(all, "__all__")                                           \
  X(annotations, "__annotations__")                           \
  X(args, "args")                                             \
  X(canonical_id, "canonical_id")                             \
  X(children, "children")                                     \
  X(compare, "compare")                                       \
  X(config, "config")                                         \
  X(dataclass, "dataclass")                                   \
  X(default_, "default")                                      \
  X(default_factory, "default_factory")                       \
  X(doc, "__doc__")                                           \
  X(expected_function_version, "expected_function_version")   \
  X(expression, "expression")                                 \
  X(family, "family")                                         \
  X(feature, "feature")                                       \
  X(field, "field")                                           \
  X(filtration, "filtration")                                 \
  X(from_raw, "from_raw")                                     \
  X(function_name, "function_name")                           \
  X(get, "get")                                               \
  X(init, "__init__")                                         \
  X(module, "__module__")                                     \
  X(name, "name")                                             \
  X(name_dunder, "__name__")                                  \
  X(node, "node")                                             \
  X(op, "op")                                                 \
  X(params, "params")                                         \
  X(qualname, "__qualname__")                                 \
  X(reason, "reason")                                         \
  X(repr, "repr")                                             \
  X(return_, "return")                                        \
  X(rotation, "rotation")                                     \
  X(state_type, "state_type")                                 \
  X(type, "type")                                             \
  X(value, "value")

struct Names {
#define TYPED_SHAPES_MEMBER(member, text) PyObject* member;
  TYPED_SHAPES_NAMES(TYPED_SHAPES_MEMBER)
#undef TYPED_SHAPES_MEMBER
};

// Valid from the first intern_names() on; the strings live as long as the process.
extern Names names;

void intern_names();

}  // namespace typed_shapes
