#include "common/ref.h"

namespace typed_shapes {

namespace {

Slot* first_slot = nullptr;

}  // namespace

PyObject* Slot::set(Ref value) noexcept {
  if (!listed_) {
    listed_ = true;
    next_ = std::exchange(first_slot, this);
  }
  Ref old = Ref::steal(std::exchange(object_, value.release()));
  return object_;
}

void Slot::clear_all() noexcept {
  for (Slot* slot = first_slot; slot != nullptr; slot = slot->next_) slot->set(Ref());
}

}  // namespace typed_shapes
