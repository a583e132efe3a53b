// The evidence of one check: a free-form dict behind a small dictionary-like surface.
#include "live/evidence.h"

#include "common/checks.h"
#include "common/forwarding.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"data", "Dict[str, Any]", Default::kEmptyDict}};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

extern Record record;
using Data = Forward<record, 0>;

constexpr Method kMethods[] = {
    {{"Evidence.__post_init__(self) -> None", nullptr, post_init}},
    {{"Evidence.from_raw(cls, raw: Any) -> 'Evidence'", nullptr, from_raw}, Binding::kClassMethod},
    {{"Evidence.__getitem__(self, key: str) -> Any", nullptr, Data::item}},
    {{"Evidence.__setitem__(self, key: str, value: Any) -> None", nullptr, Data::set_item}},
    {{"Evidence.__contains__(self, key: object) -> bool", nullptr, Data::contains}},
    {{"Evidence.items(self)", nullptr, Data::items}},
    {{"Evidence.keys(self)", nullptr, Data::keys}},
    {{"Evidence.values(self)", nullptr, Data::values}},
    {{"Evidence.get(self, key: str, default: Any = None) -> Any", nullptr, Data::get}},
};

constexpr RecordTable kTable = {
    .name = "Evidence",
    .doc = "Typed wrapper for per-check evidence payloads.",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

Ref post_init(PyObject* const* arguments) {
  require_dict_field(arguments[0], names.data, "Evidence.data");
  return none();
}

bool accepts(PyObject* const* values) { return PyDict_CheckExact(values[0]); }

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  if (raw == Py_None) return record.create(cls, {});
  if (!globals::is_mapping(raw)) {
    schema_error().refuse({"Evidence JSON mapping payload required or None; got ", type_name(raw)});
  }
  return record.create(cls, {dict_from(raw).get()});
}

}  // namespace

void define_evidence() { define_record<record>(); }

}  // namespace typed_shapes
