// Every interned string of the module, in one list with one initialisation.
#pragma once

#include "common/python.h"

namespace typed_shapes {

// X(member, text). Members that are C++ keywords carry a trailing underscore.
#define TYPED_SHAPES_NAMES(X)                               \
  X(AggregationOutput, "AggregationOutput")                 \
  X(all_exports, "__all__")                                 \
  X(allclose, "allclose")                                   \
  X(annotations, "__annotations__")                         \
  X(any, "any")                                             \
  X(args, "args")                                           \
  X(array_equal, "array_equal")                             \
  X(asarray, "asarray")                                     \
  X(atol, "atol")                                           \
  X(bool_, "bool_")                                         \
  X(breakdown, "breakdown")                                 \
  X(bundle_kind, "bundle_kind")                             \
  X(by_dotted_key, "by_dotted_key")                         \
  X(by_feature, "by_feature")                               \
  X(by_pool, "by_pool")                                     \
  X(by_tag, "by_tag")                                       \
  X(C_CONTIGUOUS, "C_CONTIGUOUS")                           \
  X(canonical_id, "canonical_id")                           \
  X(canonical_id_to_filename, "canonical_id_to_filename")   \
  X(CHECKPOINT_REQUIRED, "_CHECKPOINT_REQUIRED")            \
  X(children, "children")                                   \
  X(class_dunder, "__class__")                              \
  X(coerce_state, "coerce_state")                           \
  X(compare, "compare")                                     \
  X(config, "config")                                       \
  X(core, "core")                                           \
  X(CostResult, "CostResult")                               \
  X(dag_metadata, "dag_metadata")                           \
  X(data, "data")                                           \
  X(dataclass, "dataclass")                                 \
  X(default_, "default")                                    \
  X(default_factory, "default_factory")                     \
  X(doc, "__doc__")                                         \
  X(dtype, "dtype")                                         \
  X(entries, "entries")                                     \
  X(epochs, "epochs")                                       \
  X(eq, "eq")                                               \
  X(equal_nan, "equal_nan")                                 \
  X(era_index, "era_index")                                 \
  X(expected_function_version, "expected_function_version") \
  X(expected_name, "expected_name")                         \
  X(expected_version, "expected_version")                   \
  X(expression, "expression")                               \
  X(family, "family")                                       \
  X(feature, "feature")                                     \
  X(field, "field")                                         \
  X(filtration, "filtration")                               \
  X(flags, "flags")                                         \
  X(flat, "flat")                                           \
  X(flatnonzero, "flatnonzero")                             \
  X(float16, "float16")                                     \
  X(float64, "float64")                                     \
  X(from_mapping, "from_mapping")                           \
  X(from_raw, "from_raw")                                   \
  X(frozen, "frozen")                                       \
  X(function_name, "function_name")                         \
  X(function_version, "function_version")                   \
  X(FunctionGraphNode, "FunctionGraphNode")                 \
  X(FunctionState, "FunctionState")                         \
  X(get, "get")                                             \
  X(GRAPH_RUNTIME_TYPES, "_GRAPH_RUNTIME_TYPES")            \
  X(HistoryData, "HistoryData")                             \
  X(init, "__init__")                                       \
  X(InvalidFunctionStateError, "InvalidFunctionStateError") \
  X(isnan, "isnan")                                         \
  X(items, "items")                                         \
  X(items_, "items_")                                       \
  X(keys, "keys")                                           \
  X(Mapping, "Mapping")                                     \
  X(math, "math")                                           \
  X(max, "max")                                             \
  X(maximum, "maximum")                                     \
  X(Metaparameters, "Metaparameters")                       \
  X(min, "min")                                             \
  X(minimum, "minimum")                                     \
  X(MISSING, "_MISSING")                                    \
  X(module, "__module__")                                   \
  X(n_alloc, "n_alloc")                                     \
  X(name, "name")                                           \
  X(name_dunder, "__name__")                                \
  X(ndarray, "ndarray")                                     \
  X(ndim, "ndim")                                           \
  X(nested, "nested")                                       \
  X(node, "node")                                           \
  X(nodes, "nodes")                                         \
  X(np, "np")                                               \
  X(op, "op")                                               \
  X(opaque, "opaque")                                       \
  X(param_name, "_param_name")                              \
  X(params, "params")                                       \
  X(ParamSpec, "ParamSpec")                                 \
  X(payload, "payload")                                     \
  X(pop, "pop")                                             \
  X(post_init, "__post_init__")                             \
  X(qualname, "__qualname__")                               \
  X(reason, "reason")                                       \
  X(reject_function_state, "_reject_function_state")        \
  X(repr, "repr")                                           \
  X(return_, "return")                                      \
  X(rotation, "rotation")                                   \
  X(rtol, "rtol")                                           \
  X(schema_version, "schema_version")                       \
  X(SchemaError, "SchemaError")                             \
  X(shape, "shape")                                         \
  X(signals, "signals")                                     \
  X(signbit, "signbit")                                     \
  X(slotnames, "__slotnames__")                             \
  X(StageData, "StageData")                                 \
  X(state, "state")                                         \
  X(state_type, "state_type")                               \
  X(StateArray, "StateArray")                               \
  X(StateMapping, "StateMapping")                           \
  X(states_value_equal, "_states_value_equal")              \
  X(StateScalar, "StateScalar")                             \
  X(StateSequence, "StateSequence")                         \
  X(TargetInstrumentEntry, "TargetInstrumentEntry")         \
  X(tick_timestamp, "tick_timestamp")                       \
  X(total, "total")                                         \
  X(type, "type")                                           \
  X(underscored_core, "_core")                              \
  X(Union, "Union")                                         \
  X(UniverseMasks, "UniverseMasks")                         \
  X(value, "value")                                         \
  X(values, "values")                                       \
  X(variadic, "variadic")                                   \
  X(window, "window")                                       \
  X(WindowSpec, "WindowSpec")

struct Names {
#define TYPED_SHAPES_MEMBER(member, text) PyObject* member;
  TYPED_SHAPES_NAMES(TYPED_SHAPES_MEMBER)
#undef TYPED_SHAPES_MEMBER
};

// Valid from the first intern_names() on; the strings live as long as the process.
extern Names names;

void intern_names();

}  // namespace typed_shapes
