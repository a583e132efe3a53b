// The history of one replay or backfill batch: for each feature one float64 array (T, N).
#include "common/checks.h"
#include "common/forwarding.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

// --- Validation ---

// The name's own characters, whatever a subclass of str makes of str().
Ref owner(PyObject* name) { return message({"HistoryData['", name, "']"}); }

bool check_feature(PyObject* name, PyObject* array) {
  if (!require_non_empty_str(name, "HistoryData feature name")) return false;
  if (!require_array(array, [&] { return owner(name); })) return false;
  if (compare(get_attr(array, names.ndim).get(), integer(2).get(), Py_NE)) {
    return schema_error().refuse(
        {owner(name), " must be 2D (T, N); got shape ", str(get_attr(array, names.shape).get())});
  }
  if (compare_dtype(array, names.float64, Py_NE)) {
    return schema_error().refuse({owner(name), " has dtype ",
                                  str(get_attr(array, names.dtype).get()), ", expected float64"});
  }
  return true;
}

bool is_float64_table(PyArrayObject* array) {
  return PyArray_NDIM(array) == 2 && PyArray_TYPE(array) == NPY_DOUBLE &&
         PyArray_ISNOTSWAPPED(array);
}

bool accepts_features(PyObject* value) { return has_named_arrays(value, is_float64_table); }

constexpr Check kFeatures = {require_dict_of<check_feature>, accepts_features};

// --- Table ---

constexpr Field kFields[] = {
    {"by_feature", "Dict[str, np.ndarray]", Default::kRequired, kFeatures}};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw, PyObject* context);

using Features = Forward<record, 0>;

constexpr Method kMethods[] = {
    {function<check_fields<record>>("HistoryData.__post_init__(self) -> None")},
    {function<from_raw>("HistoryData.from_raw(cls, raw: Any, *, context: str = u'history fetch') "
                        "-> 'HistoryData'"),
     Binding::kClassMethod},
    {function<Features::contains>("HistoryData.__contains__(self, feat: object) -> bool")},
    {function<Features::item>("HistoryData.__getitem__(self, feat: str) -> np.ndarray")},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "HistoryData",
    .doc = "Per-feature historical-data payload for one replay or backfill batch.",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
    .slots = Features::slots(),
});

constinit RecordOf<std::size(kFields)> record{kTable};

// --- Coercion ---

Result from_raw(PyObject* cls, PyObject* raw, PyObject* context) {
  if (record.is_instance(raw)) return Ref::borrow(raw);
  if (!is_dict(raw)) {
    return schema_error().refuse(
        {str(context), " returned ", type_name(raw), ", expected dict[str, np.ndarray]"});
  }
  return record.call(cls, dict_from(raw).get());
}

}  // namespace

void define_history_data() { define_record<record>(); }

}  // namespace typed_shapes
