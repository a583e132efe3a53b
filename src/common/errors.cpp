#include "common/errors.h"

#include <cstdarg>
#include <exception>
#include <new>

#include "common/interpreter.h"

namespace typed_shapes {

Refused set_error(PyObject* type, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  PyErr_FormatV(type, format, arguments);
  va_end(arguments);
  return {};
}

namespace {

// Removes the error from the chain of contexts, of which it is about to become the head: otherwise
// the chain would be a cycle. Other cycles are found by Floyd's algorithm, as in the interpreter.
void cut_from_contexts(PyObject* head, PyObject* error) {
  Ref link = Ref::borrow(head);
  Ref slow = Ref::borrow(head);
  bool is_slow_turn = false;
  while (Ref context = Ref::steal(PyException_GetContext(link.get()))) {
    if (context.get() == error) {
      PyException_SetContext(link.get(), nullptr);
      return;
    }
    link = std::move(context);
    if (link.get() == slow.get()) return;
    if (is_slow_turn) slow = Ref::steal(PyException_GetContext(slow.get()));
    is_slow_turn = !is_slow_turn;
  }
}

}  // namespace

Ref take_pending() { return interpreter::take_raised(); }

void raise_from_pending(PyObject* type, const char* text) {
  Ref cause = take_pending();
  PyErr_SetString(type, text);
  Ref error = take_pending();
  PyException_SetCause(error.get(), Ref::borrow(cause.get()).release());
  PyException_SetContext(error.get(), cause.release());
  interpreter::set_raised(error);
  throw PythonError{};
}

void add_context(PyObject* caught) {
  Ref error = take_pending();
  Ref outer = Ref::steal(PyException_GetContext(caught));
  Ref context = Ref::steal(PyException_GetContext(error.get()));
  // What was raised further in keeps its own context, unless that is what was handled out here
  // already.
  if (error.get() != caught && (!context || context.get() == outer.get())) {
    cut_from_contexts(caught, error.get());
    PyException_SetContext(error.get(), Ref::borrow(caught).release());
  }
  interpreter::set_raised(error);
}

thread_local constinit bool thread_can_throw = false;

bool prepare_thread() noexcept {
  // Much more than what the linker is about to ask for.
  void* block = PyMem_RawMalloc(4096);
  if (block == nullptr) {
    PyErr_NoMemory();
    return false;
  }
  PyMem_RawFree(block);
  try {
    throw PythonError{};
  } catch (const PythonError&) {
    thread_can_throw = true;
  }
  return thread_can_throw;
}

void translate_current_exception() noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_SystemError, error.what());
  } catch (...) {
    PyErr_SetString(PyExc_SystemError, "unknown C++ exception");
  }
}

}  // namespace typed_shapes
