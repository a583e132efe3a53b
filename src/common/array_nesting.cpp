#include "common/array_nesting.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "common/objects.h"
#include "common/scopes.h"

namespace typed_shapes {

namespace {

// NumPy 1.23 to 2.4 take 2.4 to 3.4 KiB of stack for each array inside an array.
constexpr std::size_t kBytesPerArray = 8192;

// So many arrays fit into what every stack keeps in reserve.
constexpr std::size_t kAlwaysFit = 2;

using Objects = std::vector<PyObject*>;

// --- What an object holds ---

// Whether elements of this type hold Python objects; those of NumPy's own strings only look so.
bool has_objects(PyArray_Descr* type) {
  if (!PyDataType_REFCHK(type)) return false;
  if (type->type_num == NPY_OBJECT) return true;
  const RecursionLevel level;
  if (PyDataType_HASSUBARRAY(type)) return has_objects(PyDataType_SUBARRAY(type)->base);
  return PyDataType_HASFIELDS(type) &&
         !all_entries(PyDataType_FIELDS(type), [](PyObject* /*name*/, PyObject* field) {
           return !has_objects(reinterpret_cast<PyArray_Descr*>(PyTuple_GET_ITEM(field, 0)));
         });
}

bool is_object_array(PyObject* object) {
  return PyArray_Check(object) && has_objects(PyArray_DESCR(as_array(object)));
}

bool is_container(PyObject* object) noexcept {
  return PyList_Check(object) || PyTuple_Check(object) || PyDict_Check(object);
}

void add(Objects& found, PyObject* object) {
  if (object != nullptr && (is_container(object) || is_object_array(object))) {
    found.push_back(object);
  }
}

// Adds what one element of an array holds, at any depth of its type.
void add_element(Objects& found, const char* data, PyArray_Descr* type) {
  if (!PyDataType_REFCHK(type)) return;
  if (type->type_num == NPY_OBJECT) {
    PyObject* object = nullptr;
    std::memcpy(static_cast<void*>(&object), data, sizeof(PyObject*));  // it may be unaligned
    add(found, object);
    return;
  }
  const RecursionLevel level;
  if (PyDataType_HASSUBARRAY(type)) {
    PyArray_Descr* base = PyDataType_SUBARRAY(type)->base;
    const npy_intp size = PyDataType_ELSIZE(base);
    if (size == 0) return;  // though the type may claim to be larger
    for (npy_intp at = 0; at < PyDataType_ELSIZE(type); at += size) {
      add_element(found, data + at, base);
    }
  } else if (PyDataType_HASFIELDS(type)) {
    all_entries(PyDataType_FIELDS(type), [&](PyObject* /*name*/, PyObject* field) {
      auto* inner = reinterpret_cast<PyArray_Descr*>(PyTuple_GET_ITEM(field, 0));
      if (!PyDataType_REFCHK(inner)) return true;
      add_element(found, data + PyLong_AsLong(PyTuple_GET_ITEM(field, 1)), inner);
      return true;
    });
  }
}

// Adds what the elements hold, each place in memory once: an axis without a stride repeats one.
void add_elements(Objects& found, PyArrayObject* array) {
  if (PyArray_SIZE(array) == 0) return;
  const int axes = PyArray_NDIM(array);
  std::array<npy_intp, NPY_MAXDIMS> at{};
  const char* data = PyArray_BYTES(array);
  for (;;) {
    add_element(found, data, PyArray_DESCR(array));
    int axis = axes - 1;
    for (; axis >= 0; --axis) {
      const npy_intp stride = PyArray_STRIDE(array, axis);
      const npy_intp size = stride == 0 ? 1 : PyArray_DIM(array, axis);
      if (++at[static_cast<std::size_t>(axis)] < size) {
        data += stride;
        break;
      }
      at[static_cast<std::size_t>(axis)] = 0;
      data -= stride * (size - 1);
    }
    if (axis < 0) return;
  }
}

Objects nested_in(PyObject* object) {
  Objects found;
  if (PyDict_Check(object)) {
    all_entries(object, [&](PyObject* /*key*/, PyObject* value) {
      add(found, value);
      return true;
    });
  } else if (is_container(object)) {
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(object); ++i) {
      add(found, PySequence_Fast_GET_ITEM(object, i));
    }
  } else {
    add_elements(found, as_array(object));
  }
  return found;
}

// --- The walk ---

// Depth first and without recursion, through arrays and builtin containers. No Python code runs in
// it, so that every borrowed reference holds. Only arrays count: the interpreter counts the levels
// of containers itself. A ring with an array in it has no end; one of containers alone is a
// component of Tarjan's algorithm, all of whose members have the same arrays below them.
class NestingWalk {
 public:
  void visit(PyObject* root) {
    enter(root);
    while (!path_.empty()) {
      Level& level = path_.back();
      if (level.next < level.nested.size()) {
        enter(level.nested[level.next++]);
      } else {
        leave();
      }
    }
  }

 private:
  struct Level {
    PyObject* object;
    Objects nested;
    std::size_t arrays;     // on the way down to here, this one included
    std::size_t below = 0;  // arrays further down, as far as is known
    std::size_t number;
    std::size_t lowest;  // the lowest number that is reached from here
    std::size_t next = 0;
  };

  struct Seen {
    std::size_t number;
    std::size_t arrays;  // of an open one: on the way down to it; else: from it on
    bool is_open = true;
  };

  void enter(PyObject* object) {
    const std::size_t above = path_.empty() ? 0 : path_.back().arrays;
    const auto known = seen_.find(object);
    if (known != seen_.end()) {
      meet_again(known->second, above, is_object_array(object));
      return;
    }
    const std::size_t own = is_object_array(object) ? 1 : 0;
    require(above + own);
    Objects nested = nested_in(object);
    if (nested.empty()) {
      if (!path_.empty()) path_.back().below = std::max(path_.back().below, own);
      return;
    }
    const std::size_t number = seen_.size();
    seen_.emplace(object, Seen{number, above + own});
    open_.push_back(object);
    path_.push_back({.object = object,
                     .nested = std::move(nested),
                     .arrays = above + own,
                     .number = number,
                     .lowest = number});
  }

  void meet_again(const Seen& seen, std::size_t above, bool is_array) {
    Level& from = path_.back();
    if (!seen.is_open) {
      require(above + seen.arrays);
      from.below = std::max(from.below, seen.arrays);
    } else if (above + static_cast<std::size_t>(is_array) != seen.arrays) {
      raise_stack_exceeded();  // a ring with an array in it
    } else {
      from.lowest = std::min(from.lowest, seen.number);
    }
  }

  void leave() {
    const Level level = std::move(path_.back());
    path_.pop_back();
    const std::size_t above = path_.empty() ? 0 : path_.back().arrays;
    const std::size_t arrays = level.arrays - above + level.below;
    if (level.lowest == level.number) close(level.object, arrays);
    if (path_.empty()) return;
    path_.back().below = std::max(path_.back().below, arrays);
    path_.back().lowest = std::min(path_.back().lowest, level.lowest);
  }

  void close(PyObject* root, std::size_t arrays) {
    for (PyObject* member = nullptr; member != root;) {
      member = open_.back();
      open_.pop_back();
      Seen& seen = seen_.at(member);
      seen.arrays = arrays;
      seen.is_open = false;
    }
  }

  // The stack is looked at only where there is something to follow.
  void require(std::size_t arrays) {
    if (arrays <= most_arrays_) return;
    most_arrays_ = std::max(kAlwaysFit, stack_left() / kBytesPerArray);
    if (arrays > most_arrays_) raise_stack_exceeded();
  }

  std::size_t most_arrays_ = kAlwaysFit;
  std::vector<Level> path_;
  std::unordered_map<PyObject*, Seen> seen_;
  Objects open_;  // members of components that are not left yet
};

}  // namespace

void check_array_nesting(PyArrayObject* array) {
  NestingWalk().visit(reinterpret_cast<PyObject*>(array));
}

}  // namespace typed_shapes
