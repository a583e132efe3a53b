// The typed view of a checkpoint manifest. Three keys are required; every other key is kept, so
// that manifests of newer producers still load.
#include "batch/checkpoint_manifest.h"

#include "common/checks.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"tick_timestamp", "Any"},
    {"dag_metadata", "Any"},
    {"canonical_id_to_filename", "Mapping[str, str]"},
    {"extras", "Mapping[str, Any]", Default::kEmptyDict},
};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"CheckpointManifest.__post_init__(self) -> None", nullptr, post_init}},
    {{"CheckpointManifest.from_raw(cls, raw: Any) -> 'CheckpointManifest'", nullptr, from_raw},
     Binding::kClassMethod},
};

constexpr RecordTable kTable = {
    .name = "CheckpointManifest",
    .doc = "Typed view of the deserialized ``manifest.pkl`` payload.",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

Ref post_init(PyObject* const* arguments) {
  require_dict_field(arguments[0], names.canonical_id_to_filename,
                     "CheckpointManifest.canonical_id_to_filename");
  return none();
}

bool accepts(PyObject* const* values) { return PyDict_CheckExact(values[2]); }

// All missing names at once, in alphabetical order.
void require_fields(PyObject* raw) {
  Ref missing = own(PyList_New(0));
  for_each(globals::lookup(names.CHECKPOINT_REQUIRED).get(), [&](PyObject* name) {
    if (!contains(raw, name)) check(PyList_Append(missing.get(), name));
  });
  if (PyList_Size(missing.get()) == 0) return;
  check(PyList_Sort(missing.get()));
  schema_error().refuse({"CheckpointManifest missing required fields: ", str(missing.get())});
}

Ref extras_of(PyObject* raw) {
  PyObject* const required[] = {names.tick_timestamp, names.dag_metadata,
                                names.canonical_id_to_filename};
  if (Ref extras = plain_items_without(raw, required)) return extras;
  Ref extras = own(PyDict_New());
  for_each_item(raw, [&](PyObject* key, PyObject* value) {
    if (contains(globals::lookup(names.CHECKPOINT_REQUIRED).get(), key)) return;
    check(PyDict_SetItem(extras.get(), key, value));
  });
  return extras;
}

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  require_json_mapping(raw, "CheckpointManifest");
  require_fields(raw);
  Ref timestamp = get_item(raw, names.tick_timestamp);
  Ref metadata = get_item(raw, names.dag_metadata);
  Ref filenames = dict_from(get_item(raw, names.canonical_id_to_filename).get());
  Ref extras = extras_of(raw);
  return record.create(cls, {timestamp.get(), metadata.get(), filenames.get(), extras.get()});
}

}  // namespace

void define_checkpoint_manifest() { define_record<record>(); }

}  // namespace typed_shapes
