#include "common/array_nesting.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "common/objects.h"
#include "common/scopes.h"

namespace typed_shapes {

namespace {

// NumPy 1.23 to 2.4 take 2.4 to 3.4 KiB of stack for each array inside an array.
constexpr std::size_t kBytesPerArray = 8192;

bool holds_objects(PyObject* object) {
  return PyArray_Check(object) && PyDataType_REFCHK(PyArray_DESCR(as_array(object)));
}

// What an object holds, as a list or a tuple; null for what is not looked into.
Ref contents_of(PyObject* object) {
  if (PyList_Check(object) || PyTuple_Check(object)) return Ref::borrow(object);
  if (PyDict_Check(object)) return own(PyDict_Values(object));
  if (!holds_objects(object)) return {};
  Ref contents = own(PyArray_ToList(as_array(object)));
  return PyArray_NDIM(as_array(object)) > 0 ? std::move(contents)
                                            : own(PyTuple_Pack(1, contents.get()));
}

// A walk through arrays and builtin containers, depth first and without recursion. No Python code
// runs in it. Containers do not count: the interpreter counts their levels itself.
class NestingWalk {
 public:
  explicit NestingWalk(std::size_t most_arrays) : most_arrays_(most_arrays) {}

  void visit(PyObject* root) {
    enter(root);
    while (!path_.empty()) {
      const Level& level = path_.back();
      if (level.next < PySequence_Fast_GET_SIZE(level.contents)) {
        enter(PySequence_Fast_GET_ITEM(level.contents, path_.back().next++));
      } else {
        leave();
      }
    }
  }

 private:
  struct Level {
    PyObject* object;
    PyObject* contents;
    std::size_t arrays;     // down to this level
    std::size_t below = 0;  // arrays further down, as far as is known
    Py_ssize_t next = 0;
  };

  struct Known {
    std::size_t arrays;  // of a level on the path: down to it; of one that was left: from it on
    bool is_on_path = true;
  };

  void enter(PyObject* object) {
    const std::size_t above = path_.empty() ? 0 : path_.back().arrays;
    const std::size_t arrays = above + static_cast<std::size_t>(holds_objects(object));
    const auto known = known_.find(object);
    if (known == known_.end()) {
      Ref contents = contents_of(object);
      if (!contents) return;
      require(arrays);
      known_.emplace(object, Known{arrays});
      path_.push_back({object, contents.get(), arrays});
      // Until the end, so that no address is met twice.
      kept_.push_back(std::move(contents));
    } else if (!known->second.is_on_path) {
      require(above + known->second.arrays);
      path_.back().below = std::max(path_.back().below, known->second.arrays);
    } else if (arrays > known->second.arrays) {
      raise_stack_exceeded();  // a ring with an array in it
    }
  }

  void leave() {
    const Level level = path_.back();
    path_.pop_back();
    const std::size_t arrays = level.below + static_cast<std::size_t>(holds_objects(level.object));
    known_[level.object] = {arrays, false};
    if (!path_.empty()) path_.back().below = std::max(path_.back().below, arrays);
  }

  void require(std::size_t arrays) const {
    if (arrays > most_arrays_) raise_stack_exceeded();
  }

  std::size_t most_arrays_;
  std::vector<Level> path_;
  std::unordered_map<PyObject*, Known> known_;
  std::vector<Ref> kept_;
};

}  // namespace

void check_array_nesting(PyArrayObject* array) {
  const CollectorPause pause;
  NestingWalk(stack_left() / kBytesPerArray).visit(reinterpret_cast<PyObject*>(array));
}

}  // namespace typed_shapes
