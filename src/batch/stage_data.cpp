// The stage data of one batch, sorted once by kind: flat arrays along T, nested dicts that may hold
// such arrays, and opaque values. Producers sort; consumers never look at a type again.
#include "batch/stage_data.h"

#include <algorithm>

#include "batch/stage_buckets.h"
#include "common/checks.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"flat", "Dict[str, np.ndarray]", Default::kEmptyDict},
    {"nested", "Dict[str, Mapping[str, Any]]", Default::kEmptyDict},
    {"opaque", "Dict[str, Any]", Default::kEmptyDict},
};

Ref post_init(PyObject* const* arguments);
Ref from_mapping(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
Ref from_optional_mapping(PyObject* const* arguments);
Ref slice_t(PyObject* const* arguments);
Ref value(PyObject* const* arguments);
Ref set_value(PyObject* const* arguments);
Ref has_value(PyObject* const* arguments);
Ref is_empty(PyObject* const* arguments);
Ref feature_names(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"StageData.__post_init__(self) -> None", nullptr, post_init}},
    {{"StageData.from_mapping(cls, raw: Mapping[str, Any]) -> 'StageData'",
      "Build StageData at an explicit producer boundary from a mapping.", from_mapping},
     Binding::kClassMethod},
    {{"StageData.from_raw(cls, raw: Any) -> 'StageData'", nullptr, from_raw},
     Binding::kClassMethod},
    {{"StageData.from_optional_mapping(cls, raw: Optional[Mapping[str, Any]]) -> 'StageData'",
      nullptr, from_optional_mapping},
     Binding::kClassMethod},
    {{"StageData.slice_t(self, t_start: int, t_end: int) -> 'StageData'",
      "Return a new StageData with arrays sliced along the T axis.", slice_t}},
    {{"StageData.value(self, key: str, default: Any = _MISSING) -> Any",
      "Return one stage-data value without exposing a mapping facade.", value}},
    {{"StageData.set_value(self, key: str, value: Any) -> None",
      "Set one stage-data value into its typed bucket.", set_value}},
    {{"StageData.has_value(self, key: str) -> bool", nullptr, has_value}},
    {{"StageData.is_empty(self) -> bool", nullptr, is_empty}},
    {{"StageData.feature_names(self) -> set",
      "Return the set of top-level flat keys whose ndarray has ``ndim == 2``.", feature_names}},
};

constexpr RecordTable kTable = {
    .name = "StageData",
    .doc =
        "Typed wrapper for batch-orchestrator ``stage_data`` mapping.\n"
        "\n"
        "``flat`` holds arrays indexed by time step along axis 0, ``nested`` dicts whose arrays\n"
        "are indexed the same way, ``opaque`` everything else.\n",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

// --- Validation ---

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_dict_field(self, names.flat, "StageData.flat");
  require_dict_field(self, names.nested, "StageData.nested");
  require_dict_field(self, names.opaque, "StageData.opaque");
  return none();
}

bool accepts(PyObject* const* values) {
  return std::all_of(values, values + std::size(kFields),
                     [](PyObject* bucket) { return PyDict_CheckExact(bucket); });
}

// --- Coercion ---

Ref from_mapping(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  if (!globals::is_mapping(raw)) {
    schema_error().refuse({"StageData producer boundary mapping required; got ", type_name(raw)});
  }
  const Buckets buckets = sort_values(raw);
  return record.create(cls, {buckets.flat.get(), buckets.nested.get(), buckets.opaque.get()});
}

// Loose input is refused here whatever it is: producers say from_mapping.
Ref from_raw(PyObject* const* arguments) {
  schema_error().refuse(
      {"StageData producer boundary requires StageData.from_mapping() before runtime consumers; "
       "got ",
       type_name(arguments[1])});
}

Ref from_optional_mapping(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  return raw == Py_None ? record.create(cls, {}) : call_method(cls, names.from_mapping, raw);
}

// --- Batches ---

Ref slice_t(PyObject* const* arguments) {
  const auto [self, start, end] = unpack<3>(arguments);
  Ref flat = cut_values(get_attr(self, names.flat).get(), start, end);
  Ref nested = cut_nested(get_attr(self, names.nested).get(), start, end);
  Ref cls = globals::lookup(names.StageData);
  Ref opaque = dict_from(get_attr(self, names.opaque).get());
  return record.create(cls.get(), {flat.get(), nested.get(), opaque.get()});
}

// --- Values ---

// The number of the first bucket that has the key; that of no field where none has.
std::size_t bucket_with(PyObject* self, PyObject* key) {
  std::size_t field = 0;
  while (field < std::size(kFields) && !contains(record.attribute(self, field).get(), key)) ++field;
  return field;
}

Ref value(PyObject* const* arguments) {
  const auto [self, key, fallback] = unpack<3>(arguments);
  const std::size_t field = bucket_with(self, key);
  // The bucket is read anew: to compare the key may have put another one in its place.
  if (field < std::size(kFields)) return get_item(record.attribute(self, field).get(), key);
  if (fallback != globals::lookup(names.MISSING).get()) return Ref::borrow(fallback);
  raise_exception(call(PyExc_KeyError, key).get());
}

Ref set_value(PyObject* const* arguments) {
  const auto [self, key, new_value] = unpack<3>(arguments);
  for (std::size_t field = 0; field < std::size(kFields); ++field) {
    call_method(record.attribute(self, field).get(), names.pop, key, Py_None);
  }
  PyObject* bucket = bucket_of(new_value);
  check(PyObject_SetItem(get_attr(self, bucket).get(), key, new_value));
  return none();
}

Ref has_value(PyObject* const* arguments) {
  return boolean(bucket_with(arguments[0], arguments[1]) < std::size(kFields));
}

Ref is_empty(PyObject* const* arguments) {
  for (std::size_t field = 0; field < std::size(kFields); ++field) {
    if (is_true(record.attribute(arguments[0], field).get())) return boolean(false);
  }
  return boolean(true);
}

Ref feature_names(PyObject* const* arguments) {
  Ref features = own(PySet_New(nullptr));
  Ref two = own(PyLong_FromLong(2));
  for_each_item(get_attr(arguments[0], names.flat).get(), [&](PyObject* key, PyObject* array) {
    if (!compare(get_attr(array, names.ndim).get(), two.get(), Py_EQ)) return;
    check(PySet_Add(features.get(), key));
  });
  return features;
}

}  // namespace

void define_stage_data() { define_record<record>(); }

}  // namespace typed_shapes
