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

void Slot::drop_what_was_taken_out() noexcept {
  for (Slot* slot = first_slot; slot != nullptr; slot = slot->next_) {
    Ref old = Ref::steal(std::exchange(slot->taken_out_, nullptr));
  }
}

void Slot::clear_all() noexcept {
  // A finalizer may import once more, and that may fail as well.
  drop_what_was_taken_out();
  // All are empty before the first object goes: code that this runs finds every slot empty.
  for (Slot* slot = first_slot; slot != nullptr; slot = slot->next_) {
    slot->taken_out_ = std::exchange(slot->object_, nullptr);
  }
  drop_what_was_taken_out();
}

}  // namespace typed_shapes
