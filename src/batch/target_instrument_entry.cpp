// One entry of a target_instruments list: any JSON object, carried whole for the output writer.
#include "common/checks.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"payload", "Mapping[str, Any]", Default::kRequired, kDict}};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw, PyObject* index);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("TargetInstrumentEntry.__post_init__(self) -> None")},
    {function<from_raw>(
         "TargetInstrumentEntry.from_raw(cls, raw: Any, index: int) -> 'TargetInstrumentEntry'"),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "TargetInstrumentEntry",
    .doc = "Single entry in a ``target_instruments`` list.\n"
           "\n"
           "Carries the full raw payload, so that the writer can read its domain-specific keys\n"
           "via typed access.\n",
    .decorator = Decorator::kFrozen,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

Result from_raw(PyObject* cls, PyObject* raw, PyObject* index) {
  if (record.is_instance(raw)) return Ref::borrow(raw);
  if (is_dict(raw)) return record.call(cls, raw);
  // A bare ValueError here, unlike everywhere else.
  Ref text =
      message({"target_instruments[", own(PyObject_Format(index, nullptr)), "] must be an object"});
  return refuse_with(call(PyExc_ValueError, text.get()).get());
}

}  // namespace

void define_target_instrument_entry() { define_record<record>(); }

}  // namespace typed_shapes
