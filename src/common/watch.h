// Watches: whether something that a fast path relies on is still what the module body left behind.
// Both read a version number that the interpreter changes with every modification; a number that
// moved is looked into once, so that a patch that was taken back costs nothing afterwards. What
// changes without one is compared each time.
#pragma once

#include <array>
#include <cstdint>

#include "common/errors.h"
#include "common/interpreter.h"

namespace typed_shapes {

// Whether the interpreter is of the minor version that the module was built for. Under another one
// every watch reports a change, which sends every call to the canonical path.
extern bool watches_usable;

// Whether the dictionary holds every expected object, identity deciding. A key that is no exact str
// counts as a difference: to get past one may run its code, and what that raises is not ours to
// drop.
[[nodiscard]] bool holds(PyObject* dict, PyObject* expected) noexcept;

// Some names of a dictionary, each with the object that it is expected to hold.
class DictWatch {
 public:
  void start(PyObject* dict);
  // The same for the names of a module. What only stands in for one is never taken for untouched.
  void start_module(PyObject* module);
  void expect(PyObject* name, PyObject* value);

  [[nodiscard]] bool untouched() noexcept {
    return dict_.get() != nullptr && (version() == good_version_ || recheck()) &&
           (module_.get() == nullptr || PyModule_CheckExact(module_.get()));
  }

 private:
  [[nodiscard]] std::uint64_t version() const noexcept {
    return interpreter::dict_version(dict_.get());
  }
  [[nodiscard]] bool recheck() noexcept;

  Slot dict_;
  Slot module_;    // whose class may be changed, and with it what a look-up finds; or null
  Slot expected_;  // an untracked dict: gc.get_referrers cannot reveal it
  std::uint64_t good_version_ = 0;
  std::uint64_t bad_version_ = 0;
};

// A class whose attributes, bases, class methods and generated __init__ are as they were when the
// watch started.
class ClassWatch {
 public:
  void start(PyTypeObject* type);

  [[nodiscard]] const Slot& type_slot() const noexcept { return type_; }
  [[nodiscard]] PyTypeObject* type() const noexcept {
    return reinterpret_cast<PyTypeObject*>(type_.get());
  }
  [[nodiscard]] bool untouched() noexcept { return attributes_untouched() && slots_untouched(); }
  // Enough to read an instance; what makes one may have changed.
  [[nodiscard]] bool attributes_untouched() noexcept {
    return type() != nullptr && (is_known_version() || recheck());
  }

 private:
  struct TrackedSlot {
    PyObject** place;  // in what attributes_ keeps alive
    PyObject* found;   // kept alive by kept_
  };

  [[nodiscard]] std::uint64_t version() const noexcept {
    return interpreter::class_version(type(), mro_.get());
  }
  // A class that was changed and not looked at since has no number.
  [[nodiscard]] bool is_known_version() const noexcept {
    const std::uint64_t current = version();
    return current != 0 && current == good_version_;
  }
  // What is inside of an attribute changes without the class's own version: code, defaults and
  // cells of __init__, the function of a class method.
  [[nodiscard]] bool slots_untouched() const noexcept {
    for (const TrackedSlot* slot = tracked_.data(); slot != tracked_end_; ++slot) {
      if (*slot->place != slot->found) return false;
    }
    return true;
  }
  void track(PyObject** place);
  [[nodiscard]] bool recheck() noexcept;

  Slot type_;
  Slot attributes_;  // an untracked copy of the class dictionary
  Slot mro_;
  newfunc new_ = nullptr;  // taking a patched __new__ back does not bring the slot back
  std::array<TrackedSlot, 12> tracked_{};
  TrackedSlot* tracked_end_ = tracked_.data();
  Slot kept_;
  std::uint64_t good_version_ = 0;
  std::uint64_t bad_version_ = 0;
};

}  // namespace typed_shapes
