// Error texts are put together from pieces, left to right, and raised as the module's SchemaError.
#pragma once

#include <initializer_list>

#include "common/objects.h"

namespace typed_shapes {

// A piece of a message: a literal, or the str that an expression gave.
class Piece {
 public:
  // Implicit, so that a message reads as the list of its pieces.
  // NOLINTBEGIN(*-explicit-constructor)
  Piece(const char* literal) : text_(own(PyUnicode_FromString(literal))) {}
  Piece(Ref text) : text_(std::move(text)) {}
  // The characters of a str, whatever a subclass makes of str().
  Piece(PyObject* text) : text_(Ref::borrow(text)) {}
  // NOLINTEND(*-explicit-constructor)

  [[nodiscard]] PyObject* get() const noexcept { return text_.get(); }

 private:
  Ref text_;
};

// piece + piece + ...
[[nodiscard]] Ref message(std::initializer_list<Piece> pieces);

// raise exception
[[noreturn]] void raise_exception(PyObject* exception);

// raise SchemaError(piece + piece + ...), the class looked up in the module now
[[noreturn]] void raise_schema_error(std::initializer_list<Piece> pieces);

}  // namespace typed_shapes
