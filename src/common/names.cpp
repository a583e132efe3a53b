#include "common/names.h"

#include "common/errors.h"

namespace typed_shapes {

constinit Name* Name::first_ = nullptr;

const Names names;

void Name::intern_all() {
  for (Name* name = first_; name != nullptr; name = name->next_) {
    if (name->object_ == nullptr) {
      name->object_ = own(PyUnicode_InternFromString(name->text_)).release();
    }
  }
}

}  // namespace typed_shapes
