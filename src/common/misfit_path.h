// A fast path that meets a misfit deep in a payload leaves the whole payload to the canonical path,
// which comes back to the fast one at each part. The path to the misfit keeps those parts from
// being tried again that lead to it: each would be walked down to the misfit once more, in time
// quadratic in the depth.
#pragma once

#include <vector>

#include "common/errors.h"

namespace typed_shapes {

// The objects from a misfit up to where the fast path began. Their addresses are only compared.
class MisfitPath {
 public:
  // Notes the next object up. The fast path calls it on its way out; kept out of its code, which
  // hardly ever meets a misfit.
  [[gnu::noinline, gnu::cold]] void add(PyObject* object) { objects_.push_back(object); }

  // What fast(path) gives, and where that is null, what canonical(path) gives. An object that is
  // the next one down this path goes to the canonical one at once; what lies beside the path gets a
  // path of its own.
  template <typename Fast, typename Canonical>
  [[nodiscard]] Result walk(PyObject* object, Fast&& fast, Canonical&& canonical) {
    if (!objects_.empty() && objects_.back() == object) {
      objects_.pop_back();
      return canonical(*this);
    }
    MisfitPath own;
    if (Ref result = fast(own)) return result;
    if (!own.objects_.empty()) own.objects_.pop_back();
    return canonical(own);
  }

 private:
  std::vector<PyObject*> objects_;
};

}  // namespace typed_shapes
