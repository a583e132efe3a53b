// The typed form of a function's state: a scalar, an array, a mapping or a sequence, each holding
// one field. The variants exist so that two payloads can be compared deeply and with NaN tolerance.
#include "state/state_values.h"

#include "common/checks.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name Union{"Union"};
} own_names;

constexpr Field kScalarFields[] = {{"value", "Any"}};
constexpr Field kArrayFields[] = {{"data", "np.ndarray", Default::kRequired, kArray}};
constexpr Field kMappingFields[] = {
    {"entries", "Mapping[str, 'StateValue']", Default::kRequired, kDict}};
constexpr Field kSequenceFields[] = {{"items_", "Tuple['StateValue', ...]"}};

constexpr Method kArrayMethods[] = {
    {function<check_fields<state_array>>("StateArray.__post_init__(self) -> None")}};
constexpr Method kMappingMethods[] = {
    {function<check_fields<state_mapping>>("StateMapping.__post_init__(self) -> None")}};

constexpr RecordTable kScalarTable = with_fields<kScalarFields>({
    .name = "StateScalar",
    .doc = "Atomic state value (None, bool, int, float, str, ...).",
    .decorator = Decorator::kFrozen,
});
constexpr RecordTable kArrayTable = with_fields<kArrayFields>({
    .name = "StateArray",
    .doc = "Array-valued state node (compared with NaN tolerance).",
    .decorator = Decorator::kFrozen,
    .methods = kArrayMethods,
});
constexpr RecordTable kMappingTable = with_fields<kMappingFields>({
    .name = "StateMapping",
    .doc = "Mapping-valued state node (key -> StateValue).",
    .decorator = Decorator::kFrozen,
    .methods = kMappingMethods,
});
constexpr RecordTable kSequenceTable = with_fields<kSequenceFields>({
    .name = "StateSequence",
    .doc = "Ordered state node (list/tuple).",
    .decorator = Decorator::kFrozen,
});

}  // namespace

constinit RecordOf<1> state_scalar{kScalarTable};
constinit RecordOf<1> state_array{kArrayTable};
constinit RecordOf<1> state_mapping{kMappingTable};
constinit RecordOf<1> state_sequence{kSequenceTable};

void define_state_values() {
  define_record<state_scalar>();
  define_record<state_array>();
  define_record<state_mapping>();
  define_record<state_sequence>();

  Ref classes = own(PyList_New(0));
  for (const Record* variant : kVariants) {
    check(PyList_Append(classes.get(), variant->in_module().get()));
  }
  Ref alias =
      get_item(globals::lookup(own_names.Union).get(), own(PyList_AsTuple(classes.get())).get());
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
