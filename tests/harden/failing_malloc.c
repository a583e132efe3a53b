// A malloc that fails when told to. Preloaded, it is the allocator of the whole process; imported as
// an extension module, it is the handle to it. It also tells where a process crashed.
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <errno.h>
#include <execinfo.h>
#include <signal.h>
#include <unistd.h>

extern void *__libc_malloc(size_t), *__libc_calloc(size_t, size_t), *__libc_realloc(void *, size_t);

static long allocations_left = -1;  // before the first failure; negative: none fails
static long failures_left;
static int report_descriptor = -1;

static int fails(void) {
  if (allocations_left < 0) return 0;
  if (allocations_left > 0) return allocations_left--, 0;
  if (--failures_left == 0) allocations_left = -1;
  errno = ENOMEM;
  return 1;
}

void *malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return fails() ? NULL : __libc_calloc(count, size); }
void *realloc(void *block, size_t size) { return fails() ? NULL : __libc_realloc(block, size); }

static void *frames[8];

static void report(int number) {
  backtrace_symbols_fd(frames + 2, backtrace(frames, 8) - 2, report_descriptor);
  _exit(128 + number);
}

static PyObject *fail(PyObject *self, PyObject *const *arguments, Py_ssize_t count) {
  (void)self, (void)count;
  failures_left = PyLong_AsLong(arguments[1]);
  allocations_left = PyLong_AsLong(arguments[0]);
  Py_RETURN_NONE;
}

static PyObject *stop(PyObject *self, PyObject *unused) {
  (void)self, (void)unused;
  allocations_left = -1;
  Py_RETURN_NONE;
}

static PyObject *report_crashes_to(PyObject *self, PyObject *descriptor) {
  (void)self;
  static char stack[65536];
  const stack_t alternative = {.ss_sp = stack, .ss_size = sizeof stack};
  const struct sigaction action = {.sa_handler = report, .sa_flags = SA_ONSTACK};
  report_descriptor = (int)PyLong_AsLong(descriptor);
  backtrace(frames, 1);  // loads what it needs
  sigaltstack(&alternative, NULL);
  for (const int *number = (const int[]){SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, 0}; *number; ++number)
    sigaction(*number, &action, NULL);
  Py_RETURN_NONE;
}

static PyMethodDef methods[] = {
    {"fail", (PyCFunction)(void (*)(void))fail, METH_FASTCALL, NULL},
    {"stop", stop, METH_NOARGS, NULL},
    {"report_crashes_to", report_crashes_to, METH_O, NULL},
    {0}};
static struct PyModuleDef definition = {PyModuleDef_HEAD_INIT, "failing_malloc", NULL, 0, methods, NULL, NULL, NULL, NULL};

PyMODINIT_FUNC PyInit_failing_malloc(void) { return PyModuleDef_Init(&definition); }
