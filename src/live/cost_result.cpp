// What one cost engine gives for one tick: a total and named components. The record reads as its
// total, so that engine tests and diagnostics may treat it as an array.
#include "live/cost_result.h"

#include "common/checks.h"
#include "common/forwarding.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"total", "np.ndarray"},
    {"breakdown", "Dict[str, np.ndarray]", Default::kEmptyDict},
};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

extern Record record;
using Total = Forward<record, 0>;

Ref shape(PyObject* const* arguments) {
  return get_attr(get_attr(arguments[0], names.total).get(), names.shape);
}

Ref to_array(PyObject* const* arguments) {
  const auto [self, dtype] = unpack<2>(arguments);
  Ref as_array = numpy_attr(names.asarray);
  Ref total = get_attr(self, names.total);
  PyObject* const positional[] = {total.get()};
  const Keyword keywords[] = {{names.dtype, dtype}};
  return call_keywords(as_array.get(), positional, keywords);
}

constexpr Method kMethods[] = {
    {{"CostResult.__post_init__(self) -> None", nullptr, post_init}},
    {{"CostResult.from_raw(cls, raw: Any, *, context: str = u'cost engine') -> 'CostResult'",
      "Validate an engine's compute_tick output is already a CostResult.", from_raw},
     Binding::kClassMethod},
    {{"CostResult.shape(self) -> Tuple[int, ...]",
      "Array-compatible shape for direct engine tests and diagnostics.", shape},
     Binding::kProperty},
    {{"CostResult.__len__(self) -> int", nullptr, Total::length}},
    {{"CostResult.__getitem__(self, key: Any) -> Any", nullptr, Total::item}},
    {{"CostResult.__array__(self, dtype: Any = None) -> np.ndarray", nullptr, to_array}},
};

constexpr RecordTable kTable = {
    .name = "CostResult",
    .doc =
        "Single-tick cost-engine output.\n"
        "\n"
        "``total`` is the cost array; ``breakdown`` holds its named components. ``shape``,\n"
        "``len``, subscription and NumPy's conversion are those of ``total``.\n",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

// --- Validation ---

void check_component(PyObject* label, PyObject* array) {
  require_non_empty_str(label, "CostResult.breakdown label");
  if (compare(label, names.total, Py_EQ)) {
    schema_error().refuse({"CostResult.breakdown must not contain 'total'"});
  }
  require_array(array, [&] { return message({"CostResult.breakdown['", label, "']"}); });
}

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_array_field(self, names.total, "CostResult.total");
  require_dict_field(self, names.breakdown, "CostResult.breakdown");
  for_each_item(get_attr(self, names.breakdown).get(), check_component);
  return none();
}

bool accepts(PyObject* const* values) {
  return is_plain_array(values[0]) &&
         has_named_entries(values[1], [](PyObject* label, PyObject* array) {
           return PyArray_CheckExact(array) && PyUnicode_Compare(label, names.total) != 0;
         });
}

// --- Coercion ---

Ref from_raw(PyObject* const* arguments) {
  PyObject* raw = arguments[1];
  PyObject* context = arguments[2];
  if (globals::is_instance_of(raw, names.CostResult)) return Ref::borrow(raw);
  schema_error().refuse({str(context), " returned ", type_name(raw), ", expected CostResult"});
}

}  // namespace

void define_cost_result() { define_record<record>(); }

}  // namespace typed_shapes
