// Error texts are put together from pieces, left to right, and raised as the module's SchemaError.
#pragma once

#include <initializer_list>
#include <string_view>
#include <vector>

#include "common/objects.h"

namespace typed_shapes {

using Characters = std::vector<Py_UCS4>;

// A piece of a message: an ASCII literal, or the str that an expression gave.
class Piece {
 public:
  // Implicit, so that a message reads as the list of its pieces.
  // NOLINTBEGIN(*-explicit-constructor)
  Piece(const char* literal) : literal_(literal) {}
  Piece(Ref text) : text_(std::move(text)) {}
  Piece(Result text) : text_(std::move(text)) {}
  // The characters of a str, whatever a subclass makes of str().
  Piece(PyObject* text) : text_(Ref::borrow(text)) {}
  // NOLINTEND(*-explicit-constructor)

  // TypeError, as + raises it, for what only claims to be a str.
  [[nodiscard]] std::size_t length() const;
  // The characters where all are ASCII; a view of nothing, without data, where one is not.
  [[nodiscard]] std::string_view ascii() const;
  void append_to(Characters& characters) const;

 private:
  std::string_view literal_;
  Ref text_;  // null for a literal
};

// piece + piece + ...
[[nodiscard]] Result message(std::initializer_list<Piece> pieces);

// raise exception
Refused refuse_with(PyObject* exception);

// A callable of the module that words a refusal. Python looks it up before it makes the message,
// and so does an expression that names it first, since C++ evaluates what stands before the
// arguments of a call before them.
class ErrorClass {
 public:
  explicit ErrorClass(Ref callable) : callable_(std::move(callable)) {}

  // raise callable(piece + piece + ...)
  Refused refuse(std::initializer_list<Piece> pieces) const;

 private:
  Ref callable_;
};

// The module's SchemaError, looked up now: return schema_error().refuse({"... got ", repr(value)});
[[nodiscard]] ErrorClass schema_error();

}  // namespace typed_shapes
