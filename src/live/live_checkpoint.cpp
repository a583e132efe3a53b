// The payload of a live-evaluation checkpoint: state by signal and state by node.
#include "common/checks.h"
#include "common/record.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name nodes{"nodes"};
  Name signals{"signals"};
} own_names;

constexpr Field kFields[] = {
    {"signals", "Dict[str, Dict[str, Any]]", Default::kEmptyDict, kDict},
    {"nodes", "Dict[str, Dict[str, Any]]", Default::kEmptyDict, kDict},
};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw);

constexpr Method kMethods[] = {
    {function<check_fields<record>>("LiveCheckpoint.__post_init__(self) -> None")},
    {function<from_raw>("LiveCheckpoint.from_raw(cls, raw: Any) -> 'LiveCheckpoint'"),
     Binding::kClassMethod},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "LiveCheckpoint",
    .doc = "Live-evaluation checkpoint payload.\n"
           "\n"
           "Replaces the dict ``{\"signals\": {...}, \"nodes\": {...}}``.\n",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

Result from_raw(PyObject* cls, PyObject* raw) {
  if (!require_json_mapping(raw, "LiveCheckpoint")) return Refused{};
  Ref signals = dict_or_empty(get(raw, own_names.signals).get());
  Ref nodes = dict_or_empty(get(raw, own_names.nodes).get());
  return record.call(cls, signals.get(), nodes.get());
}

}  // namespace

void define_live_checkpoint() { define_record<record>(); }

}  // namespace typed_shapes
