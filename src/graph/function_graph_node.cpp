// One node of a function graph, the tree that the simulation engine and the function layer both
// walk. It takes JSON mappings in the present spelling and in several older ones.
#include "graph/function_graph_node.h"

#include "common/checks.h"
#include "common/imports.h"
#include "graph/node_keys.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

// --- Validation ---

bool require_children(const FieldAccess& field) {
  if (!is_list(field.read().get())) {
    const ErrorClass error = schema_error();
    return refuse_children(error, field.read());
  }
  Py_ssize_t index = -1;
  return all_of(field.read().get(), [&](PyObject* child) -> bool {
    ++index;
    if (graph_node.is_instance(child)) return true;
    return schema_error().refuse({"FunctionGraphNode.children[", str(index),
                                  "] must be FunctionGraphNode; got ", type_name(child)});
  });
}

bool accepts_children(PyObject* value) {
  if (!PyList_CheckExact(value)) return false;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(value); ++i) {
    if (!graph_node.is_exact(PyList_GET_ITEM(value, i))) return false;
  }
  return true;
}

constexpr Check kChildren = {require_children, accepts_children};

// --- Table ---

constexpr const char* kGraphRuntimeTypes[] = {"feature",   "signal",     "aggregation", "rotation",
                                              "reduction", "filtration", "int",         "float",
                                              "string",    "bool",       "list"};

constexpr Field kFields[] = {
    {"type", "str", Default::kRequired, kNonEmptyStr},
    {"node", "Any", Default::kNone},
    {"children", "List['FunctionGraphNode']", Default::kEmptyList, kChildren},
    {"config", "Dict[str, Any]", Default::kEmptyDict, kDict},
    {"canonical_id", "Optional[str]", Default::kNone},
    {"family", "Optional[str]", Default::kNone},
    {"value", "Any", Default::kNone},
    {"_node_identities", "Optional[Dict[str, Any]]", Default::kHidden},
    {"_collect_nodes_cache", "Optional[Any]", Default::kHidden},
};

constexpr Method kMethods[] = {
    {function<check_fields<graph_node>>("FunctionGraphNode.__post_init__(self) -> None")},
    {function<node_from_raw>("FunctionGraphNode.from_raw(cls, raw: Any) -> 'FunctionGraphNode'",
                             "Parse a JSON graph mapping into a typed tree."),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "FunctionGraphNode",
    .doc = "A single node in a function graph (shared by simulator_engine + functions).\n"
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
    .methods = kMethods,
});

}  // namespace

constinit RecordOf<kNodeFields> graph_node{kTable};

Refused refuse_children(const ErrorClass& error, const Ref& children) {
  return error.refuse(
      {"FunctionGraphNode.children must be a list; got ", type_name(children.get())});
}

void define_function_graph_node() {
  globals::bind(node_names.GRAPH_RUNTIME_TYPES,
                own(PyFrozenSet_New(list_of(kGraphRuntimeTypes).get())).get());
  define_record<graph_node>();
  define_coerce_graph();
}

}  // namespace typed_shapes
