// One node of a function graph, the tree that the simulation engine and the function layer both
// walk. It takes JSON mappings in the present spelling and in several older ones.
#include "common/checks.h"
#include "common/imports.h"
#include "common/record.h"
#include "common/scopes.h"
#include "graph/graph_builder.h"
#include "graph/node_keys.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

// --- Validation ---

extern NodeRecord record;

Refused refuse_children(const ErrorClass& error, const Ref& children) {
  return error.refuse(
      {"FunctionGraphNode.children must be a list; got ", type_name(children.get())});
}

bool require_children(const FieldAccess& field) {
  if (!is_list(field.read().get())) {
    const ErrorClass error = schema_error();
    return refuse_children(error, field.read());
  }
  Py_ssize_t index = -1;
  return all_of(field.read().get(), [&](PyObject* child) -> bool {
    ++index;
    if (record.is_instance(child)) return true;
    return schema_error().refuse({"FunctionGraphNode.children[", str(index),
                                  "] must be FunctionGraphNode; got ", type_name(child)});
  });
}

bool accepts_children(PyObject* value) {
  if (!PyList_CheckExact(value)) return false;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(value); ++i) {
    if (!record.is_exact(PyList_GET_ITEM(value, i))) return false;
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

Result from_raw(PyObject* cls, PyObject* raw);
Result coerce_graph(PyObject* raw);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("FunctionGraphNode.__post_init__(self) -> None")},
    {function<from_raw>("FunctionGraphNode.from_raw(cls, raw: Any) -> 'FunctionGraphNode'",
                        "Parse a JSON graph mapping into a typed tree."),
     Binding::kClassMethod},
};

constexpr FunctionTable kCoerceGraph =
    function<coerce_graph>("coerce_graph(raw: Any) -> FunctionGraphNode",
                           "Convenience wrapper for top-level graph coercion.");

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

constinit NodeRecord record{kTable};

// --- Coercion ---

// mapping.get(key), or mapping.get(other_key, *fallback) where that is None
template <typename... Fallback>
Ref get_first(PyObject* mapping, PyObject* key, PyObject* other_key, Fallback... fallback) {
  Ref value = get(mapping, key);
  if (is_none(value)) value = get(mapping, other_key, fallback...);
  return value;
}

// One payload as `resolve` sees it: any mapping, whose values may be anything.
struct AnyPayload {
  using Value = Ref;

  PyObject* raw;

  [[nodiscard]] Ref find(Key key) const { return get(raw, key_texts()[key]); }
  [[nodiscard]] static bool is_none(const Ref& value) { return typed_shapes::is_none(value); }
  [[nodiscard]] static Ref text(PyObject* name) { return Ref::borrow(name); }
  [[nodiscard]] static bool is_runtime_type(const Ref& value) {
    return contains(globals::lookup(node_names.GRAPH_RUNTIME_TYPES).get(), value.get());
  }
  [[nodiscard]] static bool is_text(const Ref& value, PyObject* name) {
    return compare(value.get(), name, Py_EQ);
  }
  [[nodiscard]] static bool is_true(const Ref& value) { return typed_shapes::is_true(value.get()); }
};

Result coerce_node(PyObject* cls, PyObject* raw, MisfitPath& path);

// cls.from_raw(raw)
Result coerce_child(PyObject* cls, PyObject* raw, MisfitPath& path) {
  if (!record.stands_for(cls)) return call_method(cls, names.from_raw, raw);
  const RecursionLevel level;
  return coerce_node(cls, raw, path);
}

Result coerce_children(PyObject* cls, PyObject* raw, MisfitPath& path) {
  Ref children = get_first(raw, node_names.children, node_names.args, own(PyList_New(0)).get());
  // Not the list that was offered as the default: the mapping may have kept it.
  Ref result = own(PyList_New(0));
  if (is_none(children)) return result;
  if (!is_list(children.get())) return refuse_children(schema_error(), children);
  const bool all_fit = all_of(children.get(), [&](PyObject* child) {
    return append(result, coerce_child(cls, child, path));
  });
  if (!all_fit) return Refused{};
  return result;
}

// Anything but a dict is silently replaced, unlike children.
Result copy_config(PyObject* raw) {
  Ref config = get_first(raw, node_names.config, node_names.params, own(PyDict_New()).get());
  return is_dict(config.get()) ? dict_from(config.get()) : own(PyDict_New());
}

Result coerce_canonically(PyObject* cls, PyObject* raw, MisfitPath& path) {
  if (!require_json_mapping(raw, "FunctionGraphNode")) return Refused{};
  AnyPayload payload{raw};
  const auto [kind, node] = resolve(payload);
  if (!is_non_empty_str(kind.get())) {
    return schema_error().refuse(
        {"graph node missing required str 'type' field; got ", repr(kind.get())});
  }
  Result children = coerce_children(cls, raw, path);
  if (!children) return children;
  Ref config = copy_config(raw);
  Ref canonical_id = get(raw, node_names.canonical_id);
  Ref family = get(raw, node_names.family);
  Ref value = get(raw, names.value);
  return record.call(cls, kind.get(), node.get(), children.get(), config.get(), canonical_id.get(),
                     family.get(), value.get(), nullptr, nullptr);
}

Result coerce_node(PyObject* cls, PyObject* raw, MisfitPath& path) {
  return path.walk(
      raw, [&](MisfitPath& tried) { return build_graph(record, cls, raw, tried); },
      [&](MisfitPath& rest) { return coerce_canonically(cls, raw, rest); });
}

Result from_raw(PyObject* cls, PyObject* raw) {
  MisfitPath path;
  return coerce_node(cls, raw, path);
}

Result coerce_graph(PyObject* raw) {
  return call_method(record.in_module().get(), names.from_raw, raw);
}

}  // namespace

void define_function_graph_node() {
  globals::bind(node_names.GRAPH_RUNTIME_TYPES,
                own(PyFrozenSet_New(list_of(kGraphRuntimeTypes).get())).get());
  define_record<record>();
  define_function(kCoerceGraph);
}

}  // namespace typed_shapes
