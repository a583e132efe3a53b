// The options chosen for each stage of each pool. Metaparameters also come in a flat form; from_raw
// tells the two apart.
#include "common/checks.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

// --- Validation ---

bool check_pool(PyObject* pool_id, PyObject* stages) {
  if (is_dict(stages)) return true;
  return schema_error().refuse(
      {"Metaparameters.by_pool[", repr(pool_id), "]", kMustBeADict, type_name(stages)});
}

bool require_pools(const FieldAccess& field) {
  if (!require_dict(field)) return false;
  if (is_true(field.read().get())) return all_items(field.read().get(), check_pool);
  return schema_error().refuse({"Metaparameters.by_pool must be non-empty"});
}

bool is_plain_dict_of_dicts(PyObject* object) {
  return PyDict_CheckExact(object) && PyDict_GET_SIZE(object) > 0 &&
         has_named_entries(object, [](PyObject* /*pool_id*/, PyObject* stages) {
           return PyDict_CheckExact(stages);
         });
}

constexpr Check kPools = {require_pools, is_plain_dict_of_dicts};

// --- Table ---

constexpr Field kFields[] = {
    {"by_pool", "Mapping[str, Mapping[str, str]]", Default::kRequired, kPools}};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("Metaparameters.__post_init__(self) -> None")},
    {function<from_raw>(
         "Metaparameters.from_raw(cls, raw: Any) -> Optional['Metaparameters']",
         "Coerce raw input to Metaparameters if shape matches; return None otherwise.\n"
         "\n"
         "Returns ``None`` for ``None``, empty dictionaries, flat dictionaries (any non-mapping\n"
         "value) and non-mapping payloads, and a typed ``Metaparameters`` when every top-level\n"
         "value is itself a mapping."),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "Metaparameters",
    .doc = "Per-pool nested metaparameters mapping ``{pool_id: {stage: option}}``.",
    .decorator = Decorator::kFrozen,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

Result from_raw(PyObject* cls, PyObject* raw) {
  if (record.is_instance(raw)) return Ref::borrow(raw);
  if (raw == Py_None || !is_dict(raw) || !is_true(raw)) return none();
  if (!is_plain_dict_of_dicts(raw) && !all_of(values(raw).get(), is_dict)) return none();
  return record.call(cls, dict_from(raw).get());
}

}  // namespace

void define_metaparameters() { define_record<record>(); }

}  // namespace typed_shapes
