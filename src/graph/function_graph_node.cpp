// One node of a function graph, the tree that the simulation engine and the function layer both
// walk. It takes JSON mappings in the present spelling and in several older ones.
#include "graph/function_graph_node.h"

#include "common/checks.h"
#include "common/record.h"
#include "common/scopes.h"
#include "graph/graph_builder.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"type", "str"},
    {"node", "Any", Default::kNone},
    {"children", "List['FunctionGraphNode']", Default::kEmptyList},
    {"config", "Dict[str, Any]", Default::kEmptyDict},
    {"canonical_id", "Optional[str]", Default::kNone},
    {"family", "Optional[str]", Default::kNone},
    {"value", "Any", Default::kNone},
    {"_node_identities", "Optional[Dict[str, Any]]", Default::kHidden},
    {"_collect_nodes_cache", "Optional[Any]", Default::kHidden},
};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
Ref coerce_graph(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"FunctionGraphNode.__post_init__(self) -> None", nullptr, post_init}},
    {{"FunctionGraphNode.from_raw(cls, raw: Any) -> 'FunctionGraphNode'",
      "Parse a JSON graph mapping into a typed tree.", from_raw},
     Binding::kClassMethod},
};

constexpr FunctionTable kCoerceGraph = {"coerce_graph(raw: Any) -> FunctionGraphNode",
                                        "Convenience wrapper for top-level graph coercion.",
                                        coerce_graph};

constexpr RecordTable kTable = {
    .name = "FunctionGraphNode",
    .doc =
        "A single node in a function graph (shared by simulator_engine + functions).\n"
        "\n"
        "The legacy dict shape of a node is::\n"
        "\n"
        "    {'type': 'rotation', 'node': 'rank', 'children': [...], 'config': {}}\n"
        "\n"
        "The tree is fully typed: children are ``FunctionGraphNode`` instances, never dicts.\n"
        "\n"
        "``eq=False``: the graph is a recursive structure with caches, so equality is by\n"
        "identity and hashing falls back to ``object.__hash__``.\n",
    .decorator = Decorator::kIdentity,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

// --- Validation ---

[[noreturn]] void refuse_children(const ErrorClass& error, PyObject* children) {
  error.refuse({"FunctionGraphNode.children must be a list; got ", type_name(children)});
}

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);

  require_name_field(self, names.type, "FunctionGraphNode.type");
  if (!is_list(get_attr(self, names.children).get())) {
    const ErrorClass error = schema_error();
    refuse_children(error, get_attr(self, names.children).get());
  }
  Py_ssize_t index = 0;
  for_each(get_attr(self, names.children).get(), [&](PyObject* child) {
    if (!globals::is_instance_of(child, names.FunctionGraphNode)) {
      schema_error().refuse({"FunctionGraphNode.children[", str(index),
                             "] must be FunctionGraphNode; got ", type_name(child)});
    }
    ++index;
  });
  require_dict_field(self, names.config, "FunctionGraphNode.config");
  return none();
}

bool accepts(PyObject* const* values) {
  PyObject* type = values[0];
  PyObject* children = values[2];
  PyObject* config = values[3];
  if (!is_plain_name(type) || !PyDict_CheckExact(config) || !PyList_CheckExact(children)) {
    return false;
  }
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(children); ++i) {
    if (!record.is_exact(PyList_GET_ITEM(children, i))) return false;
  }
  return true;
}

// --- Coercion ---

// mapping.get(key), or mapping.get(other_key, *fallback) where that is None
template <typename... Fallback>
Ref get_either(PyObject* mapping, PyObject* key, PyObject* other_key, Fallback... fallback) {
  Ref value = get(mapping, key);
  return is_none(value) ? get(mapping, other_key, fallback...) : std::move(value);
}

struct Operation {
  Ref kind;
  Ref node;
};

// The kind and the operand of a node, out of the spellings that there are.
Operation resolve(PyObject* raw) {
  Ref type = get(raw, names.type);
  Ref op = get(raw, names.op);
  Ref node = get_either(raw, names.node, names.name);
  if (is_none(node)) node = get(raw, names.function_name);

  if (contains(globals::lookup(names.GRAPH_RUNTIME_TYPES).get(), type.get())) {
    return {std::move(type), is_none(node) ? std::move(op) : std::move(node)};
  }
  const bool is_expression = compare(type.get(), names.expression, Py_EQ) || is_none(type);
  if (!is_expression) {
    return {Ref::borrow(names.rotation), is_none(node) ? std::move(type) : std::move(node)};
  }
  // The expression spelling has the operator in "op".
  if (compare(op.get(), names.feature, Py_EQ)) {
    return {Ref::borrow(names.feature), get(raw, names.name)};
  }
  if (compare(op.get(), names.filtration, Py_EQ)) {
    return {Ref::borrow(names.filtration), Ref::borrow(names.filtration)};
  }
  if (is_true(op.get())) return {Ref::borrow(names.rotation), std::move(op)};
  return {std::move(type), std::move(node)};
}

Ref coerce_node(PyObject* cls, PyObject* raw, MisfitPath& path);

// cls.from_raw(raw)
Ref coerce_child(PyObject* cls, PyObject* raw, MisfitPath& path) {
  if (!record.stands_for(cls)) return call_method(cls, names.from_raw, raw);
  const RecursionLevel level;
  return coerce_node(cls, raw, path);
}

Ref coerce_children(PyObject* cls, PyObject* raw, MisfitPath& path) {
  Ref children = get_either(raw, names.children, names.args, own(PyList_New(0)).get());
  // Not the list that was offered as the default: the mapping may have kept it.
  Ref result = own(PyList_New(0));
  if (is_none(children)) return result;
  if (!is_list(children.get())) refuse_children(schema_error(), children.get());
  for_each(children.get(), [&](PyObject* child) {
    check(PyList_Append(result.get(), coerce_child(cls, child, path).get()));
  });
  return result;
}

// Anything but a dict is silently replaced, unlike children.
Ref copy_config(PyObject* raw) {
  Ref config = get_either(raw, names.config, names.params, own(PyDict_New()).get());
  return is_dict(config.get()) ? dict_from(config.get()) : own(PyDict_New());
}

Ref coerce_canonically(PyObject* cls, PyObject* raw, MisfitPath& path) {
  require_json_mapping(raw, "FunctionGraphNode");
  const auto [kind, node] = resolve(raw);
  if (!is_non_empty_str(kind.get())) {
    schema_error().refuse({"graph node missing required str 'type' field; got ", repr(kind.get())});
  }
  Ref children = coerce_children(cls, raw, path);
  Ref config = copy_config(raw);
  Ref canonical_id = get(raw, names.canonical_id);
  Ref family = get(raw, names.family);
  Ref value = get(raw, names.value);
  return record.create(cls, {kind.get(), node.get(), children.get(), config.get(),
                             canonical_id.get(), family.get(), value.get()});
}

Ref coerce_node(PyObject* cls, PyObject* raw, MisfitPath& path) {
  return path.walk(
      raw, [&](MisfitPath& tried) { return build_graph(record, cls, raw, tried); },
      [&](MisfitPath& rest) { return coerce_canonically(cls, raw, rest); });
}

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  MisfitPath path;
  return coerce_node(cls, raw, path);
}

Ref coerce_graph(PyObject* const* arguments) {
  const auto [raw] = unpack<1>(arguments);
  return call_method(globals::lookup(names.FunctionGraphNode).get(), names.from_raw, raw);
}

}  // namespace

void define_function_graph_node() {
  define_record<record>();
  define_function(kCoerceGraph);
}

}  // namespace typed_shapes
