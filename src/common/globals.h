// The module's dictionary: names are looked up at call time, as Python code would look them up.
#pragma once

#include "common/objects.h"
#include "common/watch.h"

namespace typed_shapes {

// The __module__ of every class and function, whatever name the module was loaded under.
inline constexpr const char* kModuleName = "quillmere.functions._typed_shapes";

namespace globals {

// Starts with an empty set of names that count for untouched().
void open(PyObject* module, PyObject* builtins);

[[nodiscard]] PyObject* module() noexcept;
[[nodiscard]] PyObject* dict() noexcept;

// Binds a name of the module and notes what it is bound to.
void bind(PyObject* name, PyObject* value);
void bind(const char* name, PyObject* value);

// What a slot holds; throws where a failed import emptied it and something outlived that import.
[[nodiscard]] Ref held(const Slot& slot);

// The value of a global name: the module's, else the builtin one, else NameError.
[[nodiscard]] Ref lookup(PyObject* name);
[[nodiscard]] Ref builtin(const char* name);

// Whether every name still holds what the module body bound to it.
extern DictWatch bound_names;
[[nodiscard]] inline bool untouched() noexcept { return bound_names.untouched(); }

// isinstance(object, <global class>)
[[nodiscard]] inline bool is_instance_of(PyObject* object, PyObject* class_name) {
  return is_instance(object, lookup(class_name).get());
}
// isinstance(object, Mapping); an exact dict is one whatever the abstract class says.
[[nodiscard]] bool is_mapping(PyObject* object);

}  // namespace globals
}  // namespace typed_shapes
