// The one place that includes the interpreter's headers.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

static_assert(PY_VERSION_HEX >= 0x030B0000 && PY_VERSION_HEX < 0x030C0000,
              "the module is built against CPython 3.11");
