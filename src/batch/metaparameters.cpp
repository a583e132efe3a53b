// The options chosen for each stage of each pool. Metaparameters also come in a flat form; from_raw
// tells the two apart.
#include "batch/metaparameters.h"

#include "common/checks.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"by_pool", "Mapping[str, Mapping[str, str]]"}};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"Metaparameters.__post_init__(self) -> None", nullptr, post_init}},
    {{"Metaparameters.from_raw(cls, raw: Any) -> Optional['Metaparameters']",
      "Coerce raw input to Metaparameters if shape matches; return None otherwise.\n"
      "\n"
      "Returns ``None`` for ``None``, empty dictionaries, flat dictionaries (any non-mapping\n"
      "value) and non-mapping payloads, and a typed ``Metaparameters`` when every top-level\n"
      "value is itself a mapping.",
      from_raw},
     Binding::kClassMethod},
};

constexpr RecordTable kTable = {
    .name = "Metaparameters",
    .doc = "Per-pool nested metaparameters mapping ``{pool_id: {stage: option}}``.",
    .decorator = Decorator::kFrozen,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_dict_field(self, names.by_pool, "Metaparameters.by_pool");
  if (!is_true(get_attr(self, names.by_pool).get())) {
    schema_error().refuse({"Metaparameters.by_pool must be non-empty"});
  }
  for_each_item(get_attr(self, names.by_pool).get(), [](PyObject* pool_id, PyObject* stages) {
    if (is_dict(stages)) return;
    schema_error().refuse(
        {"Metaparameters.by_pool[", repr(pool_id), "] must be a dict; got ", type_name(stages)});
  });
  return none();
}

bool is_plain_dict_of_dicts(PyObject* object) {
  return PyDict_CheckExact(object) && PyDict_GET_SIZE(object) > 0 &&
         has_named_entries(object, [](PyObject* /*pool_id*/, PyObject* stages) {
           return PyDict_CheckExact(stages);
         });
}

bool accepts(PyObject* const* values) { return is_plain_dict_of_dicts(values[0]); }

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  if (globals::is_instance_of(raw, names.Metaparameters)) return Ref::borrow(raw);
  if (raw == Py_None || !is_dict(raw) || !is_true(raw)) return none();
  if (!is_plain_dict_of_dicts(raw) && !all_of(call_method(raw, names.values).get(), is_dict))
    return none();
  return record.create(cls, {dict_from(raw).get()});
}

}  // namespace

void define_metaparameters() { define_record<record>(); }

}  // namespace typed_shapes
