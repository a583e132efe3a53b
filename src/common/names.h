// Interned strings: the names that native code looks up. Those that several files use stand here,
// the others in the file that uses them.
#pragma once

#include <utility>

#include "common/python.h"

namespace typed_shapes {

// An interned str with static storage; it lives as long as the process.
class Name {
 public:
  explicit Name(const char* text) noexcept : text_(text), next_(std::exchange(first_, this)) {}

  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  // Implicit, since a name is used as the str. Valid from the first intern_all() on.
  // NOLINTNEXTLINE(*-explicit-*)
  operator PyObject*() const noexcept { return object_; }

  static void intern_all();

 private:
  static Name* first_;

  const char* text_;
  Name* next_;
  mutable PyObject* object_ = nullptr;  // set later, also in a const object
};

// Members that are C++ keywords carry a trailing underscore.
struct Names {
  Name allclose{"allclose"};
  Name any{"any"};
  Name array_equal{"array_equal"};
  Name asarray{"asarray"};
  Name bool_{"bool_"};
  Name coerce_state{"coerce_state"};
  Name data{"data"};
  Name dataclass{"dataclass"};
  Name default_{"default"};
  Name dtype{"dtype"};
  Name expected_function_version{"expected_function_version"};
  Name field{"field"};
  Name flatnonzero{"flatnonzero"};
  Name float16{"float16"};
  Name float64{"float64"};
  Name from_mapping{"from_mapping"};
  Name from_raw{"from_raw"};
  Name function_name{"function_name"};
  Name init{"__init__"};
  Name InvalidFunctionStateError{"InvalidFunctionStateError"};
  Name isnan{"isnan"};
  Name Mapping{"Mapping"};
  Name MISSING{"_MISSING"};
  Name name{"name"};
  Name name_dunder{"__name__"};
  Name ndim{"ndim"};
  Name reason{"reason"};
  Name return_{"return"};
  Name SchemaError{"SchemaError"};
  Name shape{"shape"};
  Name signbit{"signbit"};
  Name state_type{"state_type"};
  Name type{"type"};
  Name value{"value"};
};

extern const Names names;

}  // namespace typed_shapes
