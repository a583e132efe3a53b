// The plugin outputs of one function run: for each dotted key "<plugin>.<output>" one array (T,
// N_alloc).
#include "batch/aggregation_output.h"

#include "common/checks.h"
#include "common/forwarding.h"

namespace typed_shapes {

namespace {

constexpr Field kFields[] = {{"by_dotted_key", "Mapping[str, np.ndarray]"}};

Ref post_init(PyObject* const* arguments);
Ref from_raw(PyObject* const* arguments);
bool accepts(PyObject* const* values);

extern Record record;
using Outputs = Forward<record, 0>;

constexpr Method kMethods[] = {
    {{"AggregationOutput.__post_init__(self) -> None", nullptr, post_init}},
    {{"AggregationOutput.from_raw(cls, raw: Any, *, function_name: str = u'<unknown>') -> "
      "Optional['AggregationOutput']",
      nullptr, from_raw},
     Binding::kClassMethod},
    {{"AggregationOutput.items(self)", nullptr, Outputs::items}},
    {{"AggregationOutput.__iter__(self)", nullptr, Outputs::iterate}},
};

constexpr RecordTable kTable = {
    .name = "AggregationOutput",
    .doc =
        "Plugin-output mapping returned by ``_compute_aggregation_outputs``.\n"
        "\n"
        "Each key is the dotted \"<plugin>.<output>\" identifier and each value a (T, N_alloc)\n"
        "ndarray.\n",
    .decorator = Decorator::kFrozen,
    .fields = kFields,
    .methods = kMethods,
    .accepts = accepts,
};

constinit Record record{kTable};

void check_output(PyObject* key, PyObject* value) {
  require_non_empty_str(key, "AggregationOutput key");
  require_array(value, [&] { return message({"AggregationOutput[", repr(key), "]"}); });
}

Ref post_init(PyObject* const* arguments) {
  const auto [self] = unpack<1>(arguments);
  require_dict_field(self, names.by_dotted_key, "AggregationOutput.by_dotted_key");
  for_each_item(get_attr(self, names.by_dotted_key).get(), check_output);
  return none();
}

bool accepts(PyObject* const* values) {
  return numpy_untouched() && has_named_entries(values[0], [](PyObject* /*key*/, PyObject* value) {
           return PyArray_CheckExact(value);
         });
}

Ref from_raw(PyObject* const* arguments) {
  const auto [cls, raw, function_name] = unpack<3>(arguments);
  if (raw == Py_None) return none();
  if (globals::is_instance_of(raw, names.AggregationOutput)) return Ref::borrow(raw);
  if (!is_dict(raw)) {
    schema_error().refuse({"aggregation output for ", repr(function_name),
                           " was not a dict keyed by plugin.output (got ", type_name(raw), ")"});
  }
  return record.create(cls, {dict_from(raw).get()});
}

}  // namespace

void define_aggregation_output() { define_record<record>(); }

}  // namespace typed_shapes
