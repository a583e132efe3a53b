// Methods that hand an operation on to the object in one field of self:
//   using Masks = Forward<record, 0>;  ...  {function<Masks::keys>("UniverseMasks.keys(self)")}
#pragma once

#include "common/record.h"

namespace typed_shapes {

template <auto& kRecord, std::size_t kField>
class Forward {
 public:
  // key in self.field
  static Result contains(PyObject* self, PyObject* key) {
    return boolean(typed_shapes::contains(field_of(self).get(), key));
  }
  // self.field[key]
  static Result item(PyObject* self, PyObject* key) { return get_item(field_of(self).get(), key); }
  // self.field[key] = value
  static Result set_item(PyObject* self, PyObject* key, PyObject* value) {
    return none_if(PyObject_SetItem(field_of(self).get(), key, value) == 0);
  }
  // self.field.get(key, default)
  static Result get(PyObject* self, PyObject* key, PyObject* fallback) {
    return typed_shapes::get(field_of(self).get(), key, fallback);
  }
  // len(self.field)
  static Result length(PyObject* self) {
    return own(PyLong_FromSsize_t(check(PyObject_Size(field_of(self).get()))));
  }
  // iter(self.field)
  static Result iterate(PyObject* self) { return own(PyObject_GetIter(field_of(self).get())); }
  // self.field.keys(), items(), values()
  static Result keys(PyObject* self) { return typed_shapes::keys(field_of(self).get()); }
  static Result items(PyObject* self) { return typed_shapes::items(field_of(self).get()); }
  static Result values(PyObject* self) { return typed_shapes::values(field_of(self).get()); }

  // object[key] and key in object without the methods above; for a class that has both.
  static constexpr Slots slots() { return {.subscript = subscript, .contains = has}; }
  static PyObject* subscript(PyObject* self, PyObject* key) {
    return guarded([&] {
      const RecursionLevel level;
      return item(self, key);
    });
  }

 private:
  static int has(PyObject* self, PyObject* key) {
    int found = 0;
    const int status = guarded_status([&] {
      const RecursionLevel level;
      found = static_cast<int>(typed_shapes::contains(field_of(self).get(), key));
    });
    return status < 0 ? status : found;
  }

  static Result field_of(PyObject* self) { return kRecord.attribute(self, kField); }
};

}  // namespace typed_shapes
