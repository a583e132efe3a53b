// The evidence of one check: a free-form dict behind a small dictionary-like surface.
#include "common/checks.h"
#include "common/forwarding.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"data", "Dict[str, Any]", Default::kEmptyDict, kDict}};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw);

using Data = Forward<record, 0>;

constexpr Method kMethods[] = {
    {function<check_fields<record>>("Evidence.__post_init__(self) -> None")},
    {function<from_raw>("Evidence.from_raw(cls, raw: Any) -> 'Evidence'"), Binding::kClassMethod},
    {function<Data::item>("Evidence.__getitem__(self, key: str) -> Any")},
    {function<Data::set_item>("Evidence.__setitem__(self, key: str, value: Any) -> None")},
    {function<Data::contains>("Evidence.__contains__(self, key: object) -> bool")},
    {function<Data::items>("Evidence.items(self)")},
    {function<Data::keys>("Evidence.keys(self)")},
    {function<Data::values>("Evidence.values(self)")},
    {function<Data::get>("Evidence.get(self, key: str, default: Any = None) -> Any")},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "Evidence",
    .doc = "Typed wrapper for per-check evidence payloads.",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
    .slots = Data::slots(),
});

constinit RecordOf<std::size(kFields)> record{kTable};

Result from_raw(PyObject* cls, PyObject* raw) {
  if (raw == Py_None) return record.call(cls);
  if (!globals::is_mapping(raw)) {
    return schema_error().refuse(
        {"Evidence JSON mapping payload required or None; got ", type_name(raw)});
  }
  return record.call(cls, dict_from(raw).get());
}

}  // namespace

void define_evidence() { define_record<record>(); }

}  // namespace typed_shapes
