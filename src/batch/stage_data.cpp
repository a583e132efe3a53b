// The stage data of one batch, sorted once by kind: flat arrays along T, nested dicts that may hold
// such arrays, and opaque values. Producers sort; consumers never look at a type again.
#include <algorithm>

#include "batch/stage_buckets.h"
#include "common/checks.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"flat", "Dict[str, np.ndarray]", Default::kEmptyDict, kDict},
    {"nested", "Dict[str, Mapping[str, Any]]", Default::kEmptyDict, kDict},
    {"opaque", "Dict[str, Any]", Default::kEmptyDict, kDict},
};

extern RecordOf<std::size(kFields)> record;

Result from_mapping(PyObject* cls, PyObject* raw);
Result from_raw(PyObject* cls, PyObject* raw);
Result from_optional_mapping(PyObject* cls, PyObject* raw);
Result slice_t(PyObject* self, PyObject* start, PyObject* end);
Result value(PyObject* self, PyObject* key, PyObject* fallback);
Result set_value(PyObject* self, PyObject* key, PyObject* new_value);
Result has_value(PyObject* self, PyObject* key);
Result is_empty(PyObject* self);
Result feature_names(PyObject* self);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("StageData.__post_init__(self) -> None")},
    {function<from_mapping>("StageData.from_mapping(cls, raw: Mapping[str, Any]) -> 'StageData'",
                            "Build StageData at an explicit producer boundary from a mapping."),
     Binding::kClassMethod},
    {function<from_raw>("StageData.from_raw(cls, raw: Any) -> 'StageData'"), Binding::kClassMethod},
    {function<from_optional_mapping>(
         "StageData.from_optional_mapping(cls, raw: Optional[Mapping[str, Any]]) -> 'StageData'"),
     Binding::kClassMethod},
    {function<slice_t>("StageData.slice_t(self, t_start: int, t_end: int) -> 'StageData'",
                       "Return a new StageData with arrays sliced along the T axis.")},
    {function<value>("StageData.value(self, key: str, default: Any = _MISSING) -> Any",
                     "Return one stage-data value without exposing a mapping facade.")},
    {function<set_value>("StageData.set_value(self, key: str, value: Any) -> None",
                         "Set one stage-data value into its typed bucket.")},
    {function<has_value>("StageData.has_value(self, key: str) -> bool")},
    {function<is_empty>("StageData.is_empty(self) -> bool")},
    {function<feature_names>(
        "StageData.feature_names(self) -> set",
        "Return the set of top-level flat keys whose ndarray has ``ndim == 2``.")},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "StageData",
    .doc =
        "Typed wrapper for batch-orchestrator ``stage_data`` mapping.\n"
        "\n"
        "``flat`` holds arrays indexed by time step along axis 0, ``nested`` dicts whose arrays\n"
        "are indexed the same way, ``opaque`` everything else.\n",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

// --- Coercion ---

Result from_mapping(PyObject* cls, PyObject* raw) {
  if (!globals::is_mapping(raw)) {
    return schema_error().refuse(
        {"StageData producer boundary mapping required; got ", type_name(raw)});
  }
  const Buckets buckets = partition(raw);
  return record.call(cls, buckets[kFlat].get(), buckets[kNested].get(), buckets[kOpaque].get());
}

// Loose input is refused here whatever it is: producers say from_mapping.
Result from_raw(PyObject* /*cls*/, PyObject* raw) {
  return schema_error().refuse(
      {"StageData producer boundary requires StageData.from_mapping() before runtime consumers; "
       "got ",
       type_name(raw)});
}

Result from_optional_mapping(PyObject* cls, PyObject* raw) {
  return raw == Py_None ? record.call(cls) : call_method(cls, names.from_mapping, raw);
}

// --- Slices and values ---

Result slice_t(PyObject* self, PyObject* start, PyObject* end) {
  Ref flat = slice_values(record.attribute(self, kFlat).get(), start, end);
  Ref nested = slice_nested(record.attribute(self, kNested).get(), start, end);
  Ref cls = record.in_module();
  Ref opaque = dict_from(record.attribute(self, kOpaque).get());
  return record.call(cls.get(), flat.get(), nested.get(), opaque.get());
}

// The number of the first bucket that has the key; that of no field where none has.
std::size_t bucket_with(PyObject* self, PyObject* key) {
  std::size_t field = 0;
  while (field < kBucketCount && !contains(record.attribute(self, field).get(), key)) ++field;
  return field;
}

Result value(PyObject* self, PyObject* key, PyObject* fallback) {
  const std::size_t field = bucket_with(self, key);
  // The bucket is read anew: to compare the key may have put another one in its place.
  if (field < kBucketCount) return get_item(record.attribute(self, field).get(), key);
  if (fallback != globals::lookup(names.MISSING).get()) return Ref::borrow(fallback);
  return refuse_with(call(PyExc_KeyError, key).get());
}

Result set_value(PyObject* self, PyObject* key, PyObject* new_value) {
  for (std::size_t field = 0; field < kBucketCount; ++field) {
    if (!pop(record.attribute(self, field).get(), key)) return Refused{};
  }
  const Bucket bucket = bucket_of(new_value);
  return none_if(PyObject_SetItem(record.attribute(self, bucket).get(), key, new_value) == 0);
}

Result has_value(PyObject* self, PyObject* key) {
  return boolean(bucket_with(self, key) < kBucketCount);
}

Result is_empty(PyObject* self) {
  for (std::size_t field = 0; field < kBucketCount; ++field) {
    if (is_true(record.attribute(self, field).get())) return boolean(false);
  }
  return boolean(true);
}

Result feature_names(PyObject* self) {
  Ref features = own(PySet_New(nullptr));
  const Ref two = integer(2);
  for_each_item(record.attribute(self, kFlat).get(), [&](PyObject* key, PyObject* array) {
    const bool is_feature = compare(get_attr(array, names.ndim).get(), two.get(), Py_EQ);
    if (is_feature) check(PySet_Add(features.get(), key));
  });
  return features;
}

}  // namespace

void define_stage_data() { define_record<record>(); }

}  // namespace typed_shapes
