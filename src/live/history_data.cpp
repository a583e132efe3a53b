// The history of one replay or backfill batch: for each feature one float64 array (T, N).
#include "live/history_data.h"

#include "common/checks.h"
#include "common/forwarding.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"by_feature", "Dict[str, np.ndarray]"}};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

extern Record record;
using Features = Forward<record, 0>;

constexpr Method kMethods[] = {
    {{"HistoryData.__post_init__(self) -> None", nullptr, post_init}},
    {{"HistoryData.from_raw(cls, raw: Any, *, context: str = u'history fetch') -> 'HistoryData'",
      nullptr, from_raw},
     Binding::kClassMethod},
    {{"HistoryData.__contains__(self, feat: object) -> bool", nullptr, Features::contains}},
    {{"HistoryData.__getitem__(self, feat: str) -> np.ndarray", nullptr, Features::item}},
};

constexpr RecordTable kTable = {
    .name = "HistoryData",
    .doc = "Per-feature historical-data payload for one replay or backfill batch.",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

// --- Validation ---

// The name's own characters, whatever a subclass of str makes of str().
Ref owner(PyObject* name) { return message({"HistoryData['", name, "']"}); }

void check_feature(PyObject* name, PyObject* array) {
  require_non_empty_str(name, "HistoryData feature name");
  require_array(array, [&] { return owner(name); });
  if (compare(get_attr(array, names.ndim).get(), own(PyLong_FromLong(2)).get(), Py_NE)) {
    schema_error().refuse(
        {owner(name), " must be 2D (T, N); got shape ", str(get_attr(array, names.shape).get())});
  }
  if (compare_dtype(array, names.float64, Py_NE)) {
    schema_error().refuse({owner(name), " has dtype ", str(get_attr(array, names.dtype).get()),
                           ", expected float64"});
  }
}

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_dict_field(self, names.by_feature, "HistoryData.by_feature");
  for_each_item(get_attr(self, names.by_feature).get(), check_feature);
  return none();
}

bool is_float64_table(PyObject* value) {
  if (!PyArray_CheckExact(value)) return false;
  PyArrayObject* array = as_array(value);
  return PyArray_NDIM(array) == 2 && PyArray_TYPE(array) == NPY_DOUBLE &&
         PyArray_ISNOTSWAPPED(array);
}

bool accepts(PyObject* const* values) {
  return numpy_untouched() && has_named_entries(values[0], [](PyObject* /*name*/, PyObject* array) {
           return is_float64_table(array);
         });
}

// --- Coercion ---

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw, context] = unpack<3>(arguments);
  if (globals::is_instance_of(raw, names.HistoryData)) return Ref::borrow(raw);
  if (!is_dict(raw)) {
    schema_error().refuse(
        {str(context), " returned ", type_name(raw), ", expected dict[str, np.ndarray]"});
  }
  return record.create(cls, {dict_from(raw).get()});
}

}  // namespace

void define_history_data() { define_record<record>(); }

}  // namespace typed_shapes
