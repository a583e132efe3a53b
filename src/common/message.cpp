#include "common/message.h"

#include <iterator>
#include <string>

#include "common/globals.h"

namespace typed_shapes {

std::size_t Piece::length() const {
  if (!text_) return literal_.size();
  if (PyUnicode_Check(text_.get())) {
    return static_cast<std::size_t>(check(PyUnicode_GetLength(text_.get())));
  }
  raise(PyExc_TypeError, "can only concatenate str (not \"%.200s\") to str",
        Py_TYPE(text_.get())->tp_name);
}

std::string_view Piece::ascii() const {
  if (!text_) return literal_;
  Py_ssize_t size = 0;
  const char* characters = PyUnicode_AsUTF8AndSize(text_.get(), &size);
  if (characters == nullptr) PyErr_Clear();  // a lone surrogate
  if (characters == nullptr || std::cmp_not_equal(size, length())) return {};
  return {characters, static_cast<std::size_t>(size)};
}

void Piece::append_to(Characters& characters) const {
  if (!text_) {
    characters.insert(characters.end(), literal_.begin(), literal_.end());
    return;
  }
  const std::size_t place = characters.size();
  characters.resize(place + length());
  const auto room = static_cast<Py_ssize_t>(characters.size() - place);
  if (PyUnicode_AsUCS4(text_.get(), characters.data() + place, room, 0) == nullptr) {
    throw PythonError{};
  }
}

namespace {

Result wide_message(std::initializer_list<Piece> pieces, std::size_t length) {
  Characters characters;
  characters.reserve(length);
  for (const Piece& piece : pieces) piece.append_to(characters);
  return own(
      PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, characters.data(), std::ssize(characters)));
}

}  // namespace

// Not one str after the other: a refusal takes no longer than in Python, which joins them at once.
Result message(std::initializer_list<Piece> pieces) {
  std::size_t length = 0;
  for (const Piece& piece : pieces) length += piece.length();
  std::string characters;
  characters.reserve(length);
  for (const Piece& piece : pieces) {
    const std::string_view ascii = piece.ascii();
    if (ascii.data() == nullptr) return wide_message(pieces, length);
    characters += ascii;
  }
  return own(
      PyUnicode_FromKindAndData(PyUnicode_1BYTE_KIND, characters.data(), std::ssize(characters)));
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
