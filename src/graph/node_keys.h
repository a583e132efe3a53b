// The keys of a node's payload, in all spellings, and what kind of node they make together.
#pragma once

#include <array>
#include <cstdint>
#include <utility>

#include "common/names.h"

namespace typed_shapes {

inline const struct {
  Name args{"args"};
  Name canonical_id{"canonical_id"};
  Name children{"children"};
  Name config{"config"};
  Name expression{"expression"};
  Name family{"family"};
  Name feature{"feature"};
  Name filtration{"filtration"};
  Name GRAPH_RUNTIME_TYPES{"_GRAPH_RUNTIME_TYPES"};
  Name node{"node"};
  Name op{"op"};
  Name params{"params"};
  Name rotation{"rotation"};
} node_names;

enum Key : std::uint8_t {
  kType,
  kOp,
  kNode,
  kName,
  kFunctionName,
  kChildren,
  kArgs,
  kConfig,
  kParams,
  kCanonicalId,
  kFamily,
  kValue,
  kOther,  // a key that means nothing here
};

// The texts of the keys, in that order.
[[nodiscard]] inline std::array<PyObject*, kOther> key_texts() {
  return {names.type,          node_names.op,           node_names.node,   names.name,
          names.function_name, node_names.children,     node_names.args,   node_names.config,
          node_names.params,   node_names.canonical_id, node_names.family, names.value};
}

// What a node does, and on what.
template <typename Value>
struct Operation {
  Value kind;
  Value node;
};

// The operation out of the spellings that there are. Each path looks at the payload in its own way,
// in this order.
template <typename Payload>
Operation<typename Payload::Value> resolve(Payload& payload) {
  auto type = payload.find(kType);
  auto op = payload.find(kOp);
  auto node = payload.find(kNode);
  if (payload.is_none(node)) node = payload.find(kName);
  if (payload.is_none(node)) node = payload.find(kFunctionName);

  if (payload.is_runtime_type(type)) {
    if (payload.is_none(node)) node = std::move(op);
    return {std::move(type), std::move(node)};
  }
  if (!payload.is_text(type, node_names.expression) && !payload.is_none(type)) {
    if (payload.is_none(node)) node = std::move(type);
    return {payload.text(node_names.rotation), std::move(node)};
  }
  // The expression spelling has the operator in "op".
  if (payload.is_text(op, node_names.feature))
    return {payload.text(node_names.feature), payload.find(kName)};
  if (payload.is_text(op, node_names.filtration)) {
    return {payload.text(node_names.filtration), payload.text(node_names.filtration)};
  }
  if (payload.is_true(op)) return {payload.text(node_names.rotation), std::move(op)};
  return {std::move(type), std::move(node)};
}

}  // namespace typed_shapes
