// What one cost engine gives for one tick: a total and named components. The record reads as its
// total, so that engine tests and diagnostics may treat it as an array.
#include "common/checks.h"
#include "common/forwarding.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name total{"total"};
} own_names;

// --- Validation ---

bool check_component(PyObject* label, PyObject* array) {
  if (!require_non_empty_str(label, "CostResult.breakdown label")) return false;
  if (compare(label, own_names.total, Py_EQ)) {
    return schema_error().refuse({"CostResult.breakdown must not contain 'total'"});
  }
  return require_array(array, [&] { return message({"CostResult.breakdown['", label, "']"}); });
}

bool accepts_components(PyObject* value) {
  return has_named_entries(value, [](PyObject* label, PyObject* array) {
    return PyArray_CheckExact(array) && PyUnicode_Compare(label, own_names.total) != 0;
  });
}

constexpr Check kComponents = {require_dict_of<check_component>, accepts_components};

// --- Table ---

constexpr Field kFields[] = {
    {"total", "np.ndarray", Default::kRequired, kArray},
    {"breakdown", "Dict[str, np.ndarray]", Default::kEmptyDict, kComponents},
};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw, PyObject* context);

using Total = Forward<record, 0>;

Result shape(PyObject* self) {
  Ref total = record.attribute(self, 0);
  if (!PyArray_CheckExact(total.get())) return get_attr(total.get(), names.shape);
  // What the attribute of an ndarray does.
  const PyArrayObject* array = as_array(total.get());
  return own(PyArray_IntTupleFromIntp(PyArray_NDIM(array), PyArray_DIMS(array)));
}

Result to_array(PyObject* self, PyObject* dtype) {
  const bool is_numpys_own = numpy_untouched();
  Ref as_array = numpy_attr(names.asarray);
  Ref total = record.attribute(self, 0);
  // NumPy's own takes the dtype by position too, and faster.
  if (is_numpys_own) return call(as_array.get(), total.get(), dtype);
  PyObject* const positional[] = {total.get()};
  const Keyword keywords[] = {{names.dtype, dtype}};
  return call_keywords(as_array.get(), positional, keywords);
}

constexpr Method kMethods[] = {
    {function<check_fields<record>>("CostResult.__post_init__(self) -> None")},
    {function<from_raw>(
         "CostResult.from_raw(cls, raw: Any, *, context: str = u'cost engine') -> 'CostResult'",
         "Validate an engine's compute_tick output is already a CostResult."),
     Binding::kClassMethod},
    {function<shape>("CostResult.shape(self) -> Tuple[int, ...]",
                     "Array-compatible shape for direct engine tests and diagnostics."),
     Binding::kProperty},
    {function<Total::length>("CostResult.__len__(self) -> int")},
    {function<Total::item>("CostResult.__getitem__(self, key: Any) -> Any")},
    {function<to_array>("CostResult.__array__(self, dtype: Any = None) -> np.ndarray")},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "CostResult",
    .doc = "Single-tick cost-engine output.\n"
           "\n"
           "``total`` is the cost array; ``breakdown`` holds its named components. ``shape``,\n"
           "``len``, subscription and NumPy's conversion are those of ``total``.\n",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
    .slots = {.subscript = Total::subscript},
});

constinit RecordOf<std::size(kFields)> record{kTable};

// --- Coercion ---

Result from_raw(PyObject* /*cls*/, PyObject* raw, PyObject* context) {
  if (record.is_instance(raw)) return Ref::borrow(raw);
  return schema_error().refuse(
      {str(context), " returned ", type_name(raw), ", expected CostResult"});
}

}  // namespace

void define_cost_result() { define_record<record>(); }

}  // namespace typed_shapes
