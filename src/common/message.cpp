#include "common/message.h"

#include "common/globals.h"

namespace typed_shapes {

Ref message(std::initializer_list<Piece> pieces) {
  Ref text = own(PyUnicode_FromString(""));
  for (const Piece& piece : pieces) text = own(PyUnicode_Concat(text.get(), piece.get()));
  return text;
}

void raise_exception(PyObject* exception) {
  // What the statement does with a class: it makes the instance.
  Ref instance = PyExceptionClass_Check(exception) ? call(exception) : Ref::borrow(exception);
  if (!PyExceptionInstance_Check(instance.get())) {
    raise(PyExc_TypeError, "exceptions must derive from BaseException");
  }
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(instance.get())), instance.get());
  throw PythonError{};
}

void ErrorClass::refuse(std::initializer_list<Piece> pieces) const {
  Ref text = message(pieces);
  raise_exception(call(callable_.get(), text.get()).get());
}

ErrorClass schema_error() { return ErrorClass(globals::lookup(names.SchemaError)); }

}  // namespace typed_shapes
