// One entry of a target_instruments list: any JSON object, carried whole for the output writer.
#include "batch/target_instrument_entry.h"

#include "common/checks.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"payload", "Mapping[str, Any]"}};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"TargetInstrumentEntry.__post_init__(self) -> None", nullptr, post_init}},
    {{"TargetInstrumentEntry.from_raw(cls, raw: Any, index: int) -> 'TargetInstrumentEntry'",
      nullptr, from_raw},
     Binding::kClassMethod},
};

constexpr RecordTable kTable = {
    .name = "TargetInstrumentEntry",
    .doc =
        "Single entry in a ``target_instruments`` list.\n"
        "\n"
        "Carries the full raw payload, so that the writer can read its domain-specific keys\n"
        "via typed access.\n",
    .decorator = Decorator::kFrozen,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

Ref post_init(PyObject* const* arguments) {
  require_dict_field(arguments[0], names.payload, "TargetInstrumentEntry.payload");
  return none();
}

bool accepts(PyObject* const* values) { return PyDict_CheckExact(values[0]); }

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw, index] = unpack<3>(arguments);
  if (globals::is_instance_of(raw, names.TargetInstrumentEntry)) return Ref::borrow(raw);
  if (is_dict(raw)) return record.create(cls, {raw});
  // A plain ValueError here, unlike everywhere else.
  Ref text =
      message({"target_instruments[", own(PyObject_Format(index, nullptr)), "] must be an object"});
  raise_exception(call(PyExc_ValueError, text.get()).get());
}

}  // namespace

void define_target_instrument_entry() { define_record<record>(); }

}  // namespace typed_shapes
