// Methods that hand an operation on to the object in one field of self:
//   using Masks = Forward<record, 0>;  ...  {"UniverseMasks.keys(self)", nullptr, Masks::keys}
#pragma once

#include "common/record.h"

namespace typed_shapes {

template <Record& kRecord, std::size_t kField>
class Forward {
 public:
  // key in self.field
  static Ref contains(PyObject* const* arguments) {
    return boolean(typed_shapes::contains(field_of(arguments).get(), arguments[1]));
  }
  // self.field[key]
  static Ref item(PyObject* const* arguments) {
    return get_item(field_of(arguments).get(), arguments[1]);
  }
  // self.field[key] = value
  static Ref set_item(PyObject* const* arguments) {
    check(PyObject_SetItem(field_of(arguments).get(), arguments[1], arguments[2]));
    return none();
  }
  // self.field.get(key, default)
  static Ref get(PyObject* const* arguments) {
    return typed_shapes::get(field_of(arguments).get(), arguments[1], arguments[2]);
  }
  // len(self.field)
  static Ref length(PyObject* const* arguments) {
    return own(PyLong_FromSsize_t(check(PyObject_Size(field_of(arguments).get()))));
  }
  // iter(self.field)
  static Ref iterate(PyObject* const* arguments) {
    return own(PyObject_GetIter(field_of(arguments).get()));
  }
  // self.field.keys(), items(), values()
  static Ref keys(PyObject* const* arguments) {
    return call_method(field_of(arguments).get(), names.keys);
  }
  static Ref items(PyObject* const* arguments) {
    return call_method(field_of(arguments).get(), names.items);
  }
  static Ref values(PyObject* const* arguments) {
    return call_method(field_of(arguments).get(), names.values);
  }

 private:
  static Ref field_of(PyObject* const* arguments) {
    return kRecord.attribute(arguments[0], kField);
  }
};

}  // namespace typed_shapes
