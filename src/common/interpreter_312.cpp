#include "common/interpreter.h"

#if PY_VERSION_HEX >= 0x030C0000

namespace typed_shapes::interpreter {

std::uint64_t watched_changes = 1;

namespace {

int count_change(PyDict_WatchEvent /*event*/, PyObject* /*dict*/, PyObject* /*key*/,
                 PyObject* /*value*/) {
  ++watched_changes;
  return 0;
}

}  // namespace

bool watch_dict(PyObject* dict) noexcept {
  // For good: the module loads into one interpreter of the process, which has eight watchers.
  static int watcher = -1;
  if (watcher < 0) watcher = PyDict_AddWatcher(count_change);
  if (watcher >= 0 && PyDict_Watch(watcher, dict) == 0) return true;
  PyErr_Clear();
  return false;
}

}  // namespace typed_shapes::interpreter

#endif
