// The one place that includes the interpreter's headers.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
