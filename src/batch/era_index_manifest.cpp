// The JSON manifest that indexes the eras of one output bundle. Coercion is lenient and validation
// is strict: what is missing or of a wrong type becomes a value that the two equality checks
// refuse.
#include "batch/era_index_manifest.h"

#include "common/checks.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

constexpr long kSchemaVersion = 2;

constexpr Field kFields[] = {
    {"schema_version", "int"},
    {"bundle_kind", "str"},
    {"epochs", "Dict[str, Any]"},
    {"extras", "Dict[str, Any]", Default::kEmptyDict},
};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"EraIndexManifest.__post_init__(self) -> None", nullptr, post_init}},
    {{"EraIndexManifest.from_raw(cls, raw: Any) -> 'EraIndexManifest'", nullptr, from_raw},
     Binding::kClassMethod},
};

constexpr RecordTable kTable = {
    .name = "EraIndexManifest",
    .doc =
        "Era-index manifest JSON shape (schema_version=2, bundle_kind=\"era_index\").\n"
        "\n"
        "Replaces an inline shape probe in the aggregation output configuration code that\n"
        "reads or initialises the manifest.\n",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

// --- Validation ---

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  const auto shown = [self](PyObject* name) { return repr(get_attr(self, name).get()); };
  Ref version = own(PyLong_FromLong(kSchemaVersion));
  if (compare(get_attr(self, names.schema_version).get(), version.get(), Py_NE)) {
    schema_error().refuse(
        {"EraIndexManifest.schema_version must be 2; got ", shown(names.schema_version)});
  }
  if (compare(get_attr(self, names.bundle_kind).get(), names.era_index, Py_NE)) {
    schema_error().refuse(
        {"EraIndexManifest.bundle_kind must be 'era_index'; got ", shown(names.bundle_kind)});
  }
  require_dict_field(self, names.epochs, "EraIndexManifest.epochs");
  return none();
}

bool accepts(PyObject* const* values) {
  if (!PyLong_CheckExact(values[0]) || !is_plain_str(values[1])) return false;
  int overflow = 0;
  return PyLong_AsLongAndOverflow(values[0], &overflow) == kSchemaVersion &&
         PyUnicode_Compare(values[1], names.era_index) == 0 && PyDict_CheckExact(values[2]);
}

// --- Coercion ---

// The version where it is an int (a bool is one), else 0.
Ref version_of(PyObject* raw) {
  Ref zero = own(PyLong_FromLong(0));
  Ref probed = get(raw, names.schema_version, zero.get());
  if (!is_int(probed.get())) return zero;
  return get(raw, names.schema_version, zero.get());
}

Ref kind_of(PyObject* raw) {
  Ref empty = own(PyUnicode_FromString(""));
  return str(get(raw, names.bundle_kind, empty.get()).get());
}

Ref epochs_of(PyObject* raw) {
  if (!is_dict(get(raw, names.epochs).get())) return own(PyDict_New());
  return dict_or_empty(get(raw, names.epochs).get());
}

Ref extras_of(PyObject* raw) {
  PyObject* const known_keys[] = {names.schema_version, names.bundle_kind, names.epochs};
  if (Ref extras = plain_items_without(raw, known_keys)) return extras;
  Ref extras = own(PyDict_New());
  for_each_item(raw, [&](PyObject* key, PyObject* value) {
    for (PyObject* known : known_keys) {
      if (!compare(key, known, Py_NE)) return;
    }
    check(PyDict_SetItem(extras.get(), key, value));
  });
  return extras;
}

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  require_json_mapping(raw, "EraIndexManifest");
  Ref version = version_of(raw);
  Ref kind = kind_of(raw);
  Ref epochs = epochs_of(raw);
  Ref extras = extras_of(raw);
  return record.create(cls, {version.get(), kind.get(), epochs.get(), extras.get()});
}

}  // namespace

void define_era_index_manifest() { define_record<record>(); }

}  // namespace typed_shapes
