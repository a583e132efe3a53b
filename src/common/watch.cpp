#include "common/watch.h"

#include <structmember.h>

#include <algorithm>
#include <cstring>

#include "common/objects.h"

namespace typed_shapes {

bool watches_usable = false;

namespace {

// What is noted in a class without changing it: by copy and pickle about its slots, by msgspec how
// to convert to it.
const Name notes[] = {Name("__slotnames__"), Name("__msgspec_cache__")};

Py_ssize_t size_without_notes(PyObject* attributes) noexcept {
  return PyDict_GET_SIZE(attributes) - std::ranges::count_if(notes, [&](PyObject* note) {
           return PyDict_GetItemWithError(attributes, note) != nullptr;
         });
}

// The layout is the interpreter's own; it tells where the member is.
PyObject** function_of_class_method(PyObject* class_method) {
  const PyMemberDef* member = PyClassMethod_Type.tp_members;
  while (std::strcmp(member->name, "__func__") != 0) ++member;
  return reinterpret_cast<PyObject**>(reinterpret_cast<char*>(class_method) + member->offset);
}

}  // namespace

bool holds(PyObject* dict, PyObject* expected) noexcept {
  return has_str_keys(dict) && all_entries(expected, [&](PyObject* name, PyObject* value) {
           return PyDict_GetItemWithError(dict, name) == value;
         });
}

void DictWatch::start(PyObject* dict) {
  good_version_ = bad_version_ = 0;
  module_.set(Ref());
  expected_.set(own(PyDict_New()));
  const bool is_watched = watches_usable && dict != nullptr && interpreter::watch_dict(dict);
  dict_.set(Ref::borrow(is_watched ? dict : nullptr));
}

void DictWatch::start_module(PyObject* module) {
  start(PyModule_CheckExact(module) ? PyModule_GetDict(module) : nullptr);
  module_.set(Ref::borrow(module));
}

void DictWatch::expect(PyObject* name, PyObject* value) {
  check(PyDict_SetItem(expected_.get(), name, value));
  PyObject_GC_UnTrack(expected_.get());
}

bool DictWatch::recheck() noexcept {
  const std::uint64_t current = version();
  if (current == bad_version_) return false;
  const bool same = holds(dict_.get(), expected_.get());
  (same ? good_version_ : bad_version_) = current;
  return same;
}

void ClassWatch::start(PyTypeObject* type) {
  if (!watches_usable || !interpreter::watch_class(type)) return;
  attributes_.set(own(PyDict_Copy(type->tp_dict)));
  PyObject_GC_UnTrack(attributes_.get());
  mro_.set(Ref::borrow(type->tp_mro));
  new_ = type->tp_new;
  tracked_end_ = tracked_.data();
  kept_.set(own(PyList_New(0)));
  all_entries(attributes_.get(), [this](PyObject* name, PyObject* value) {
    if (Py_IS_TYPE(value, &PyClassMethod_Type)) track(function_of_class_method(value));
    if (name != names.init) return true;
    auto* init = reinterpret_cast<PyFunctionObject*>(value);
    track(&init->func_code);
    track(&init->func_defaults);
    for (PyObject* cell : items_of(init->func_closure)) {
      track(&reinterpret_cast<PyCellObject*>(cell)->ob_ref);
    }
    return true;
  });
  PyObject_GC_UnTrack(kept_.get());
  good_version_ = bad_version_ = 0;
  type_.set(Ref::borrow(reinterpret_cast<PyObject*>(type)));
}

void ClassWatch::track(PyObject** place) {
  if (tracked_end_ == tracked_.end()) raise(PyExc_SystemError, "too little room in ClassWatch");
  if (*place != nullptr) check(PyList_Append(kept_.get(), *place));
  *tracked_end_++ = {place, *place};
}

bool ClassWatch::recheck() noexcept {
  if (!has_str_keys(type()->tp_dict)) return false;
  // A look-up makes the interpreter number the class anew after a change.
  _PyType_Lookup(type(), names.init);
  const std::uint64_t current = version();
  if (current == 0 || current == bad_version_) return false;
  const bool same = type()->tp_mro == mro_.get() && type()->tp_new == new_ &&
                    holds(type()->tp_dict, attributes_.get()) &&
                    size_without_notes(type()->tp_dict) == PyDict_GET_SIZE(attributes_.get());
  (same ? good_version_ : bad_version_) = current;
  return same;
}

}  // namespace typed_shapes
