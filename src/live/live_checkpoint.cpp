// The payload of a live-evaluation checkpoint: state by signal and state by node.
#include "live/live_checkpoint.h"

#include "common/checks.h"
#include "common/record.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {
    {"signals", "Dict[str, Dict[str, Any]]", Default::kEmptyDict},
    {"nodes", "Dict[str, Dict[str, Any]]", Default::kEmptyDict},
};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

constexpr Method kMethods[] = {
    {{"LiveCheckpoint.__post_init__(self) -> None", nullptr, post_init}},
    {{"LiveCheckpoint.from_raw(cls, raw: Any) -> 'LiveCheckpoint'", nullptr, from_raw},
     Binding::kClassMethod},
};

constexpr RecordTable kTable = {
    .name = "LiveCheckpoint",
    .doc =
        "Live-evaluation checkpoint payload.\n"
        "\n"
        "Replaces the dict ``{\"signals\": {...}, \"nodes\": {...}}``.\n",
    .decorator = Decorator::kPlain,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_dict_field(self, names.signals, "LiveCheckpoint.signals");
  require_dict_field(self, names.nodes, "LiveCheckpoint.nodes");
  return none();
}

bool accepts(PyObject* const* values) {
  return PyDict_CheckExact(values[0]) && PyDict_CheckExact(values[1]);
}

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw] = unpack<2>(arguments);
  require_json_mapping(raw, "LiveCheckpoint");
  Ref signals = dict_or_empty(get(raw, names.signals).get());
  Ref nodes = dict_or_empty(get(raw, names.nodes).get());
  return record.create(cls, {signals.get(), nodes.get()});
}

}  // namespace

void define_live_checkpoint() { define_record<record>(); }

}  // namespace typed_shapes
