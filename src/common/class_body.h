// Class statements: a namespace is filled and handed to type().
#pragma once

#include "common/function.h"

namespace typed_shapes {

enum class Binding { kMethod, kClassMethod, kProperty };

struct Method {
  FunctionTable function;
  Binding binding = Binding::kMethod;
};

class ClassBody {
 public:
  ClassBody(const char* name, const char* doc);

  void set(PyObject* name, PyObject* value);
  void define(const Method& method);
  // {name: descriptor, ...} of all that was defined.
  [[nodiscard]] Ref methods() const;
  // type(name, (base,), namespace), the base a builtin.
  [[nodiscard]] Ref make_class(const char* base) const;

 private:
  Ref name_;
  Ref namespace_;
};

}  // namespace typed_shapes
