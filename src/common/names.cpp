#include "common/names.h"

#include "common/errors.h"

namespace typed_shapes {

Names names;

// NOLINTNEXTLINE(readability-function-cognitive-complexity): one line a name
void intern_names() {
#define TYPED_SHAPES_INTERN(member, text) \
  if (names.member == nullptr) names.member = own(PyUnicode_InternFromString(text)).release();
  TYPED_SHAPES_NAMES(TYPED_SHAPES_INTERN)
#undef TYPED_SHAPES_INTERN
}

}  // namespace typed_shapes
