// The coercion of a function graph, in the present spelling of its nodes and in the older ones.
#include "common/checks.h"
#include "common/scopes.h"
#include "graph/function_graph_node.h"
#include "graph/node_keys.h"

namespace typed_shapes {

namespace {

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
  if (!graph_node.stands_for(cls)) return call_method(cls, names.from_raw, raw);
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
  return value_if(all_fit, std::move(result));
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
  return graph_node.call(cls, kind.get(), node.get(), children.get(), config.get(),
                         canonical_id.get(), family.get(), value.get(), nullptr, nullptr);
}

Result coerce_node(PyObject* cls, PyObject* raw, MisfitPath& path) {
  return path.walk(
      raw, [&](MisfitPath& tried) { return build_graph(cls, raw, tried); },
      [&](MisfitPath& rest) { return coerce_canonically(cls, raw, rest); });
}

Result coerce_graph(PyObject* raw) {
  return call_method(graph_node.in_module().get(), names.from_raw, raw);
}

}  // namespace

Result node_from_raw(PyObject* cls, PyObject* raw) {
  MisfitPath path;
  return coerce_node(cls, raw, path);
}

void define_coerce_graph() {
  define_function(function<coerce_graph>("coerce_graph(raw: Any) -> FunctionGraphNode",
                                         "Convenience wrapper for top-level graph coercion."));
}

}  // namespace typed_shapes
