// The fast path of graph coercion.
#include <array>
#include <cstdint>

#include "common/checks.h"
#include "common/scopes.h"
#include "graph/function_graph_node.h"
#include "graph/node_keys.h"

namespace typed_shapes {

namespace {

// What a payload has under each key; None where it has nothing, since no spelling tells the two
// apart.
using Entries = std::array<PyObject*, kOther + 1>;

// The objects that are left as they are where a dict belongs; others may claim to be one.
bool is_plain_non_dict(PyObject* object) {
  return is_builtin_scalar(object) || PyList_CheckExact(object);
}

Key find_key(PyObject* text) {
  const auto texts = key_texts();
  std::uint8_t key = 0;
  while (key < kOther && !is_same_text(texts[key], text)) ++key;
  return static_cast<Key>(key);
}

// One payload as `resolve` sees it. A value whose own code could answer leaves the answer open.
struct PlainPayload {
  using Value = PyObject*;

  const Entries& entries;
  PyObject* runtime_types;
  bool is_sure = true;

  [[nodiscard]] PyObject* find(Key key) const { return entries[key]; }
  [[nodiscard]] static bool is_none(PyObject* value) { return value == Py_None; }
  [[nodiscard]] static PyObject* text(PyObject* name) { return name; }
  [[nodiscard]] bool is_runtime_type(PyObject* value) {
    return is_settled(value) && check(PySet_Contains(runtime_types, value)) != 0;
  }
  [[nodiscard]] bool is_text(PyObject* value, PyObject* name) {
    return is_settled(value) && is_same_text(value, name);
  }
  [[nodiscard]] bool is_true(PyObject* value) {
    return is_settled(value) && PyUnicode_GET_LENGTH(value) > 0;
  }

 private:
  // Whether the value is a plain str. Beside those only None cannot object.
  bool is_settled(PyObject* value) {
    const bool is_text = is_plain_str(value);
    is_sure &= is_text || value == Py_None;
    return is_text;
  }
};

// One walk over one payload. Every object that it meets stays alive and as it is until the walk
// ends, since no Python code runs: borrowed references hold.
class GraphBuilder {
 public:
  GraphBuilder(PyObject* runtime_types, MisfitPath& path)
      : runtime_types_(runtime_types), path_(path) {}

  // Null as soon as something is not for the fast path.
  Ref build(PyObject* raw) {
    Ref node = build_node(raw);
    if (!node) path_.add(raw);
    return node;
  }

 private:
  Ref build_node(PyObject* raw) {
    const RecursionLevel level;
    Entries entries;
    entries.fill(Py_None);
    if (!PyDict_CheckExact(raw) || !read(raw, entries)) return {};
    PlainPayload payload{entries, runtime_types_};
    const Operation<PyObject*> operation = resolve(payload);
    if (!payload.is_sure || operation.kind == Py_None) return {};
    Ref children = build_children(first_of(entries[kChildren], entries[kArgs]));
    if (!children) return {};
    Ref config = copy_config(first_of(entries[kConfig], entries[kParams]));
    if (!config) return {};
    return graph_node.make_unchecked(operation.kind, operation.node, children.get(), config.get(),
                                     entries[kCanonicalId], entries[kFamily], entries[kValue],
                                     Py_None, Py_None);
  }

  struct KnownKey {
    PyObject* text = nullptr;
    Key key = kOther;
  };

  static PyObject* first_of(PyObject* first, PyObject* second) {
    return first != Py_None ? first : second;
  }

  // Parsers give equal keys of one document one str, so a look at its address mostly settles it.
  Key key_of(PyObject* text) {
    KnownKey& known =
        known_keys_[(reinterpret_cast<std::uintptr_t>(text) >> 4U) % known_keys_.size()];
    if (known.text != text) known = {text, find_key(text)};
    return known.key;
  }

  bool read(PyObject* raw, Entries& entries) {
    return all_entries(raw, [&](PyObject* key, PyObject* value) {
      if (!PyUnicode_CheckExact(key)) return false;
      entries[key_of(key)] = value;
      return true;
    });
  }

  Ref build_children(PyObject* raw) {
    if (raw == Py_None) return own(PyList_New(0));
    if (!PyList_CheckExact(raw)) return {};
    const Py_ssize_t size = PyList_GET_SIZE(raw);
    Ref children = own(PyList_New(size));
    for (Py_ssize_t i = 0; i < size; ++i) {
      Ref child = build(PyList_GET_ITEM(raw, i));
      if (!child) return {};
      PyList_SET_ITEM(children.get(), i, child.release());
    }
    return children;
  }

  static Ref copy_config(PyObject* raw) {
    if (PyDict_CheckExact(raw) && has_str_keys(raw)) return own(PyDict_Copy(raw));
    if (is_plain_non_dict(raw)) return own(PyDict_New());
    return {};
  }

  PyObject* runtime_types_;
  MisfitPath& path_;
  std::array<KnownKey, 64> known_keys_{};
};

}  // namespace

Ref build_graph(PyObject* cls, PyObject* raw, MisfitPath& path) {
  if (!PyDict_CheckExact(raw) || !graph_node.stands_for(cls)) return {};
  Ref runtime_types = globals::lookup(node_names.GRAPH_RUNTIME_TYPES);
  const CollectorPause pause;
  return GraphBuilder(runtime_types.get(), path).build(raw);
}

}  // namespace typed_shapes
