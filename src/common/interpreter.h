// What this code base knows of one minor version of CPython beyond its documented interface.
// Nothing else asks for the version. What reads or writes the interpreter's own data is used only
// where the version that runs is the one that the module was built for.
#pragma once

#include "common/python.h"

#if PY_VERSION_HEX >= 0x030C0000
#include "common/interpreter_312.h"
#else
#include "common/interpreter_311.h"
#endif
#if PY_VERSION_HEX < 0x030D0000
#include "common/interpreter_values.h"
#endif

static_assert(PY_VERSION_HEX >= 0x030B0000 && PY_VERSION_HEX < 0x030E0000,
              "the module knows CPython 3.11 to 3.13");
static_assert(sizeof(PyObject) == 2 * sizeof(void*),
              "what lies around an object is known by words");

namespace typed_shapes::interpreter {

struct Version {
  unsigned major;
  unsigned minor;

  bool operator==(const Version&) const = default;
};

inline constexpr Version kBuiltFor = {PY_MAJOR_VERSION, PY_MINOR_VERSION};

inline Version running() noexcept {
  return {static_cast<unsigned>(Py_Version >> 24U & 0xFFU),
          static_cast<unsigned>(Py_Version >> 16U & 0xFFU)};
}

}  // namespace typed_shapes::interpreter
