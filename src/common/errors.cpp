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

namespace {

// The pending error as an exception object with its traceback; the indicator is clear afterwards.
Ref take_pending() {
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  Ref owned_type = Ref::steal(type);
  Ref owned_value = Ref::steal(value);
  Ref owned_traceback = Ref::steal(traceback);
  if (owned_traceback) PyException_SetTraceback(value, traceback);
  return owned_value;
}

}  // namespace

void raise_from_pending(PyObject* type, const char* text) {
  Ref cause = take_pending();
  PyErr_SetString(type, text);
  Ref error = take_pending();
  PyException_SetCause(error.get(), Ref::borrow(cause.get()).release());
  PyException_SetContext(error.get(), cause.release());
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.get())), error.get());
  throw PythonError{};
}

HandledError::HandledError() : outer_(Ref::steal(PyErr_GetHandledException())) {
  PyErr_SetHandledException(take_pending().get());
}

void translate_current_exception() noexcept {
  try {
    throw;
  } catch (const PythonError&) {  // NOLINT(bugprone-empty-catch): the indicator is already set
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_SystemError, error.what());
  } catch (...) {
    PyErr_SetString(PyExc_SystemError, "unknown C++ exception");
  }
}

}  // namespace typed_shapes
