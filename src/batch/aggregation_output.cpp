// The plugin outputs of one function run: for each dotted key "<plugin>.<output>" one array (T,
// N_alloc).
#include "common/checks.h"
#include "common/forwarding.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

// --- Validation ---

bool check_output(PyObject* key, PyObject* value) {
  return require_non_empty_str(key, "AggregationOutput key") &&
         require_array(value, [&] { return message({"AggregationOutput[", repr(key), "]"}); });
}

bool accepts_outputs(PyObject* value) {
  return has_named_arrays(value, [](PyArrayObject* /*array*/) { return true; });
}

constexpr Check kOutputs = {require_dict_of<check_output>, accepts_outputs};

// --- Table ---

constexpr Field kFields[] = {
    {"by_dotted_key", "Mapping[str, np.ndarray]", Default::kRequired, kOutputs}};

extern RecordOf<std::size(kFields)> record;

Result from_raw(PyObject* cls, PyObject* raw, PyObject* function_name);

using Outputs = Forward<record, 0>;

constexpr Method kMethods[] = {
    {function<check_fields<record>>("AggregationOutput.__post_init__(self) -> None")},
    {function<from_raw>(
         "AggregationOutput.from_raw(cls, raw: Any, *, function_name: str = u'<unknown>') -> "
         "Optional['AggregationOutput']"),
     Binding::kClassMethod},
    {function<Outputs::items>("AggregationOutput.items(self)")},
    {function<Outputs::iterate>("AggregationOutput.__iter__(self)")},
};

constexpr RecordTable kTable = with_fields<kFields>({
    .name = "AggregationOutput",
    .doc = "Plugin-output mapping returned by ``_compute_aggregation_outputs``.\n"
           "\n"
           "Each key is the dotted \"<plugin>.<output>\" identifier and each value a (T, N_alloc)\n"
           "ndarray.\n",
    .decorator = Decorator::kFrozen,
    .methods = kMethods,
});

constinit RecordOf<std::size(kFields)> record{kTable};

Result from_raw(PyObject* cls, PyObject* raw, PyObject* function_name) {
  if (raw == Py_None) return none();
  if (record.is_instance(raw)) return Ref::borrow(raw);
  if (!is_dict(raw)) {
    return schema_error().refuse({"aggregation output for ", repr(function_name),
                                  " was not a dict keyed by plugin.output (got ", type_name(raw),
                                  ")"});
  }
  return record.call(cls, dict_from(raw).get());
}

}  // namespace

void define_aggregation_output() { define_record<record>(); }

}  // namespace typed_shapes
