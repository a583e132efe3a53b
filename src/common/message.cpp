#include "common/message.h"

#include <iterator>

#include "common/globals.h"

namespace typed_shapes {

void Piece::append_to(Characters& characters) const {
  if (!text_) {
    characters.insert(characters.end(), literal_.begin(), literal_.end());
    return;
  }
  if (!PyUnicode_Check(text_.get())) {
    raise(PyExc_TypeError, "can only concatenate str (not \"%.200s\") to str",
          Py_TYPE(text_.get())->tp_name);
  }
  const Py_ssize_t length = check(PyUnicode_GetLength(text_.get()));
  const std::size_t place = characters.size();
  characters.resize(place + static_cast<std::size_t>(length));
  if (PyUnicode_AsUCS4(text_.get(), characters.data() + place, length, 0) == nullptr) {
    throw PythonError{};
  }
}

// Not one str after the other: a refusal takes no longer than in Python, which joins them at once.
Result message(std::initializer_list<Piece> pieces) {
  constexpr std::size_t kUsualLength = 120;
  Characters characters;
  characters.reserve(kUsualLength);
  for (const Piece& piece : pieces) piece.append_to(characters);
  return own(
      PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, characters.data(), std::ssize(characters)));
}

Refused refuse_with(PyObject* exception) {
  // What the statement does with a class: it makes the instance.
  Ref instance = Ref::borrow(exception);
  if (PyExceptionClass_Check(exception)) instance = call(exception);
  if (!PyExceptionInstance_Check(instance.get())) {
    return set_error(PyExc_TypeError, "exceptions must derive from BaseException");
  }
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(instance.get())), instance.get());
  return {};
}

Refused ErrorClass::refuse(std::initializer_list<Piece> pieces) const {
  Ref text = message(pieces);
  return refuse_with(call(callable_.get(), text.get()).get());
}

ErrorClass schema_error() { return ErrorClass(globals::lookup(names.SchemaError)); }

}  // namespace typed_shapes
