// The typed view of a checkpoint manifest. Three keys are required; every other key is kept, so
// that manifests of newer producers still load.
#include "common/checks.h"
#include "common/imports.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name canonical_id_to_filename{"canonical_id_to_filename"};
  Name CHECKPOINT_REQUIRED{"_CHECKPOINT_REQUIRED"};
  Name dag_metadata{"dag_metadata"};
  Name tick_timestamp{"tick_timestamp"};
} own_names;

constexpr const char* kRequired[] = {"tick_timestamp", "dag_metadata", "canonical_id_to_filename"};

constexpr Field kFields[] = {
    {"tick_timestamp", "Any"},
    {"dag_metadata", "Any"},
    {"canonical_id_to_filename", "Mapping[str, str]", Default::kRequired, kDict},
    {"extras", "Mapping[str, Any]", Default::kEmptyDict},
};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("CheckpointManifest.__post_init__(self) -> None")},
    {function<from_raw>("CheckpointManifest.from_raw(cls, raw: Any) -> 'CheckpointManifest'"),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "CheckpointManifest",
    .doc = "Typed view of the deserialized ``manifest.pkl`` payload.",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

// All missing names at once, in alphabetical order.
bool require_fields(PyObject* raw) {
  Ref missing = own(PyList_New(0));
  for_each(globals::lookup(own_names.CHECKPOINT_REQUIRED).get(), [&](PyObject* name) {
    if (!contains(raw, name)) check(PyList_Append(missing.get(), name));
  });
  if (PyList_Size(missing.get()) == 0) return true;
  check(PyList_Sort(missing.get()));
  return schema_error().refuse(
      {"CheckpointManifest missing required fields: ", str(missing.get())});
}

Ref extras_of(PyObject* raw) {
  PyObject* const required[] = {own_names.tick_timestamp, own_names.dag_metadata,
                                own_names.canonical_id_to_filename};
  if (Ref extras = plain_items_without(raw, required)) return extras;
  Ref extras = own(PyDict_New());
  for_each_item(raw, [&](PyObject* key, PyObject* value) {
    if (contains(globals::lookup(own_names.CHECKPOINT_REQUIRED).get(), key)) return;
    check(PyDict_SetItem(extras.get(), key, value));
  });
  return extras;
}

Result from_raw(PyObject* cls, PyObject* raw) {
  if (!require_json_mapping(raw, "CheckpointManifest") || !require_fields(raw)) return Refused{};
  Ref timestamp = get_item(raw, own_names.tick_timestamp);
  Ref metadata = get_item(raw, own_names.dag_metadata);
  Ref filenames = dict_from(get_item(raw, own_names.canonical_id_to_filename).get());
  Ref extras = extras_of(raw);
  return record.call(cls, timestamp.get(), metadata.get(), filenames.get(), extras.get());
}

}  // namespace

void define_checkpoint_manifest() {
  globals::bind(own_names.CHECKPOINT_REQUIRED, own(PyList_AsTuple(list_of(kRequired).get())).get());
  define_record<record>();
}

}  // namespace typed_shapes
