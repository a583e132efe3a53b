#include "graph/graph_builder.h"

#include <array>
#include <cstdint>

#include "common/checks.h"
#include "common/scopes.h"

namespace typed_shapes {

namespace {

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

constexpr std::size_t kKeyCount = kOther;

// What a payload has under each key; None where it has nothing, since no spelling tells the two
// apart.
using Entries = std::array<PyObject*, kOther + 1>;

// The objects that are left as they are where a dict belongs; others may claim to be one.
bool is_plain_non_dict(PyObject* object) {
  return object == Py_None || PyList_CheckExact(object) || PyUnicode_CheckExact(object) ||
         PyLong_CheckExact(object) || PyFloat_CheckExact(object) || PyBool_Check(object);
}

Key find_key(PyObject* text) {
  PyObject* const texts[kKeyCount] = {
      names.type,          names.op,           names.node,   names.name,
      names.function_name, names.children,     names.args,   names.config,
      names.params,        names.canonical_id, names.family, names.value};
  for (std::uint8_t key = 0; key < kKeyCount; ++key) {
    if (is_same_text(texts[key], text)) return static_cast<Key>(key);
  }
  return kOther;
}

// One walk over one payload. Every object that it meets stays alive and as it is until the walk
// ends, since no Python code runs: borrowed references hold.
class GraphBuilder {
 public:
  GraphBuilder(const Record& record, PyObject* runtime_types, MisfitPath& path)
      : record_(record), runtime_types_(runtime_types), path_(path) {}

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
    const Operation operation = resolve(entries);
    if (operation.kind == nullptr) return {};
    Ref children = build_children(either(entries[kChildren], entries[kArgs]));
    if (!children) return {};
    Ref config = copy_config(either(entries[kConfig], entries[kParams]));
    if (!config) return {};
    PyObject* const values[] = {
        operation.kind,   operation.node,  children.get(), config.get(), entries[kCanonicalId],
        entries[kFamily], entries[kValue], Py_None,        Py_None};
    return record_.build(values);
  }

  struct Operation {
    PyObject* kind = nullptr;
    PyObject* node = nullptr;
  };

  struct KnownKey {
    PyObject* text = nullptr;
    Key key = kOther;
  };

  static PyObject* either(PyObject* first, PyObject* second) {
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

  [[nodiscard]] Operation resolve(const Entries& entries) const {
    PyObject* type = entries[kType];
    PyObject* op = entries[kOp];
    PyObject* node = either(either(entries[kNode], entries[kName]), entries[kFunctionName]);
    if (is_plain_str(type)) {
      if (check(PySet_Contains(runtime_types_, type)) != 0) return {type, either(node, op)};
      if (!is_same_text(type, names.expression)) return {names.rotation, either(node, type)};
    } else if (type != Py_None) {
      return {};
    }
    if (is_plain_str(op)) {
      if (is_same_text(op, names.feature)) return {names.feature, entries[kName]};
      if (is_same_text(op, names.filtration)) return {names.filtration, names.filtration};
      if (PyUnicode_GET_LENGTH(op) > 0) return {names.rotation, op};
    } else if (op != Py_None) {
      return {};
    }
    return {type != Py_None ? type : nullptr, node};
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
    if (PyDict_CheckExact(raw)) return has_str_keys(raw) ? own(PyDict_Copy(raw)) : Ref();
    return is_plain_non_dict(raw) ? own(PyDict_New()) : Ref();
  }

  const Record& record_;
  PyObject* runtime_types_;
  MisfitPath& path_;
  std::array<KnownKey, 64> known_keys_{};
};

}  // namespace

Ref build_graph(Record& record, PyObject* cls, PyObject* raw, MisfitPath& path) {
  if (!PyDict_CheckExact(raw) || !record.stands_for(cls)) return {};
  Ref runtime_types = globals::lookup(names.GRAPH_RUNTIME_TYPES);
  const CollectorPause pause;
  return GraphBuilder(record, runtime_types.get(), path).build(raw);
}

}  // namespace typed_shapes
