// The JSON manifest that indexes the eras of one output bundle. Coercion is lenient and validation
// is strict: what is missing or of a wrong type becomes a value that the two equality checks
// refuse.
#include "common/checks.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name bundle_kind{"bundle_kind"};
  Name epochs{"epochs"};
  Name era_index{"era_index"};
  Name schema_version{"schema_version"};
} own_names;

constexpr long kSchemaVersion = 2;

// --- Validation ---

// "... must be <expected>; got <repr>"
bool require_equal(const FieldAccess& field, PyObject* expected, const char* shown) {
  if (!compare(field.read().get(), expected, Py_NE)) return true;
  return schema_error().refuse(
      {field.class_name, ".", field.name, " must be ", shown, "; got ", repr(field.read().get())});
}

bool require_version(const FieldAccess& field) {
  return require_equal(field, integer(kSchemaVersion).get(), "2");
}

bool is_version(PyObject* value) {
  int overflow = 0;
  return PyLong_CheckExact(value) && PyLong_AsLongAndOverflow(value, &overflow) == kSchemaVersion;
}

bool require_kind(const FieldAccess& field) {
  return require_equal(field, own_names.era_index, "'era_index'");
}

bool is_kind(PyObject* value) {
  return is_plain_str(value) && is_same_text(value, own_names.era_index);
}

constexpr Check kVersion = {require_version, is_version};
constexpr Check kKind = {require_kind, is_kind};

// --- Table ---

constexpr Field kFields[] = {
    {"schema_version", "int", Default::kRequired, kVersion},
    {"bundle_kind", "str", Default::kRequired, kKind},
    {"epochs", "Dict[str, Any]", Default::kRequired, kDict},
    {"extras", "Dict[str, Any]", Default::kEmptyDict},
};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("EraIndexManifest.__post_init__(self) -> None")},
    {function<from_raw>("EraIndexManifest.from_raw(cls, raw: Any) -> 'EraIndexManifest'"),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "EraIndexManifest",
    .doc = "Era-index manifest JSON shape (schema_version=2, bundle_kind=\"era_index\").\n"
           "\n"
           "Replaces an inline shape probe in the aggregation output configuration code that\n"
           "reads or initialises the manifest.\n",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

// --- Coercion ---

// The version where it is an int (a bool is one), else 0.
Ref version_of(PyObject* raw) {
  Ref zero = integer(0);
  Ref probed = get(raw, own_names.schema_version, zero.get());
  if (!is_int(probed.get())) return zero;
  return get(raw, own_names.schema_version, zero.get());
}

Ref kind_of(PyObject* raw) {
  Ref empty = own(PyUnicode_FromString(""));
  return str(get(raw, own_names.bundle_kind, empty.get()).get());
}

Ref epochs_of(PyObject* raw) {
  if (!is_dict(get(raw, own_names.epochs).get())) return own(PyDict_New());
  return dict_or_empty(get(raw, own_names.epochs).get());
}

Ref extras_of(PyObject* raw) {
  PyObject* const known_keys[] = {own_names.schema_version, own_names.bundle_kind,
                                  own_names.epochs};
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

Result from_raw(PyObject* cls, PyObject* raw) {
  if (!require_json_mapping(raw, "EraIndexManifest")) return Refused{};
  Ref version = version_of(raw);
  Ref kind = kind_of(raw);
  Ref epochs = epochs_of(raw);
  Ref extras = extras_of(raw);
  return record.call(cls, version.get(), kind.get(), epochs.get(), extras.get());
}

}  // namespace

void define_era_index_manifest() { define_record<record>(); }

}  // namespace typed_shapes
