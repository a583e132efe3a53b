// The typed form of a function's state: a scalar, an array, a mapping or a sequence, each holding
// one field. The variants exist so that two payloads can be compared deeply and with NaN tolerance.
#include "state/state_values.h"

#include "common/checks.h"

namespace typed_shapes {

namespace {

constexpr Field kScalarFields[] = {{"value", "Any"}};
constexpr Field kArrayFields[] = {{"data", "np.ndarray"}};
constexpr Field kMappingFields[] = {{"entries", "Mapping[str, 'StateValue']"}};
constexpr Field kSequenceFields[] = {{"items_", "Tuple['StateValue', ...]"}};

Ref validate_array(PyObject* const* arguments);
Ref validate_mapping(PyObject* const* arguments);
bool accepts_array(PyObject* const* values);
bool accepts_mapping(PyObject* const* values);

constexpr Method kArrayMethods[] = {
    {{"StateArray.__post_init__(self) -> None", nullptr, validate_array}}};
constexpr Method kMappingMethods[] = {
    {{"StateMapping.__post_init__(self) -> None", nullptr, validate_mapping}}};

constexpr RecordTable kScalarTable = {
    .name = "StateScalar",
    .doc = "Atomic state value (None, bool, int, float, str, ...).",
    .decorator = Decorator::kFrozen,
    .fields = kScalarFields,
};
constexpr RecordTable kArrayTable = {
    .name = "StateArray",
    .doc = "Array-valued state node (compared with NaN tolerance).",
    .decorator = Decorator::kFrozen,
    .fields = kArrayFields,
    .methods = kArrayMethods,
    .accepts = accepts_array,
};
constexpr RecordTable kMappingTable = {
    .name = "StateMapping",
    .doc = "Mapping-valued state node (key -> StateValue).",
    .decorator = Decorator::kFrozen,
    .fields = kMappingFields,
    .methods = kMappingMethods,
    .accepts = accepts_mapping,
};
constexpr RecordTable kSequenceTable = {
    .name = "StateSequence",
    .doc = "Ordered state node (list/tuple).",
    .decorator = Decorator::kFrozen,
    .fields = kSequenceFields,
};

Ref validate_array(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_array_field(self, names.data, "StateArray.data");
  return none();
}

bool accepts_array(PyObject* const* values) { return is_plain_array(values[0]); }

Ref validate_mapping(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_dict_field(self, names.entries, "StateMapping.entries");
  return none();
}

bool accepts_mapping(PyObject* const* values) { return PyDict_CheckExact(values[0]); }

}  // namespace

constinit Record state_scalar{kScalarTable};
constinit Record state_array{kArrayTable};
constinit Record state_mapping{kMappingTable};
constinit Record state_sequence{kSequenceTable};

void define_state_values() {
  define_record<state_scalar>();
  define_record<state_array>();
  define_record<state_mapping>();
  define_record<state_sequence>();

  PyObject* const members[] = {names.StateScalar, names.StateArray, names.StateMapping,
                               names.StateSequence};
  Ref classes = own(PyList_New(0));
  for (PyObject* name : members) {
    check(PyList_Append(classes.get(), globals::lookup(name).get()));
  }
  Ref alias =
      get_item(globals::lookup(names.Union).get(), own(PyList_AsTuple(classes.get())).get());
  globals::bind("StateValue", alias.get());
}

bool state_values_untouched() noexcept {
  return numpy_untouched() && state_scalar.untouched() && state_array.untouched() &&
         state_mapping.untouched() && state_sequence.untouched();
}

bool is_settled_scalar(PyObject* object) noexcept {
  if (is_builtin_scalar(object)) return true;
  constexpr unsigned long kContainers =
      Py_TPFLAGS_DICT_SUBCLASS | Py_TPFLAGS_LIST_SUBCLASS | Py_TPFLAGS_TUPLE_SUBCLASS;
  return (Py_TYPE(object)->tp_flags & kContainers) == 0 && has_settled_class(object) &&
         !PyArray_Check(object);
}

}  // namespace typed_shapes
