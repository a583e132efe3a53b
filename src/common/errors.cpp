#include "common/errors.h"

#include <cstdarg>
#include <exception>
#include <new>

namespace typed_shapes {

void raise(PyObject* type, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  PyErr_FormatV(type, format, arguments);
  va_end(arguments);
  throw PythonError{};
}

void translate_current_exception() noexcept {
  try {
    throw;
  } catch (const PythonError&) {
    // The indicator is already set.
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_SystemError, error.what());
  } catch (...) {
    PyErr_SetString(PyExc_SystemError, "unknown C++ exception");
  }
}

}  // namespace typed_shapes
