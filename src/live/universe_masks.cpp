// The universe masks of one tick: for each tag one array with an entry for each allocated slot. A
// float16 mask is three-state: NaN, zero, one.
#include "common/checks.h"
#include "common/forwarding.h"
#include "live/mask_states.h"
#include "module/contents.h"

namespace typed_shapes {

namespace {

const struct {
  Name C_CONTIGUOUS{"C_CONTIGUOUS"};
  Name flags{"flags"};
} own_names;

// In the order of the fields.
enum : std::size_t { kByTag, kNAlloc };

constexpr Field kFields[] = {{"by_tag", "Dict[str, np.ndarray]", Default::kRequired, kDict},
                             {"n_alloc", "int"}};

Result post_init(PyObject* self);
Result from_raw(PyObject* cls, PyObject* raw, PyObject* n_alloc);
bool accepts(PyObject* by_tag, PyObject* n_alloc);

extern RecordOf<std::size(kFields)> record;
using Masks = Forward<record, kByTag>;

constexpr Method kMethods[] = {
    {function<post_init>("UniverseMasks.__post_init__(self) -> None")},
    {function<from_raw>(
         "UniverseMasks.from_raw(cls, raw: Any, *, n_alloc: int) -> 'UniverseMasks'"),
     Binding::kClassMethod},
    {function<Masks::contains>("UniverseMasks.__contains__(self, tag: object) -> bool")},
    {function<Masks::item>("UniverseMasks.__getitem__(self, tag: str) -> np.ndarray")},
    {function<Masks::get>("UniverseMasks.get(self, tag: str, default: Any = None) -> Any")},
    {function<Masks::keys>("UniverseMasks.keys(self)")},
    {function<Masks::items>("UniverseMasks.items(self)")},
};

constexpr RecordTable kTable = with_fields<kFields, accepts>({
    .name = "UniverseMasks",
    .doc = "Per-tag universe-mask payload for one tick.\n"
           "\n"
           "Each mask is a C-contiguous array of shape ``(n_alloc,)`` and dtype float64, float16\n"
           "or bool; a float16 mask holds NaN, positive zero or positive one.\n",
    .decorator = Decorator::kPlain,
    .methods = kMethods,
    .slots = Masks::slots(),
});

constinit RecordOf<std::size(kFields)> record{kTable};

// --- Validation ---

Result n_alloc_of(PyObject* masks) { return record.attribute(masks, kNAlloc); }

Ref owner(PyObject* tag) { return message({"UniverseMasks['", str(tag), "']"}); }

bool check_shape(PyObject* self, PyObject* tag, PyObject* mask) {
  if (!compare(get_attr(mask, names.ndim).get(), integer(1).get(), Py_NE)) {
    Ref shape = get_attr(mask, names.shape);
    Ref length = get_item(shape.get(), integer(0).get());
    if (!compare(length.get(), n_alloc_of(self).get(), Py_NE)) return true;
  }
  return schema_error().refuse({owner(tag), " has shape ", str(get_attr(mask, names.shape).get()),
                                ", expected (", str(n_alloc_of(self).get()), ",)"});
}

bool check_dtype(PyObject* tag, PyObject* mask) {
  PyObject* const allowed[] = {names.float64, names.float16, names.bool_};
  for (PyObject* name : allowed) {
    if (!compare_dtype(mask, name, Py_NE)) return true;
  }
  return schema_error().refuse({owner(tag), " has dtype ", str(get_attr(mask, names.dtype).get()),
                                ", expected float64, float16, or bool"});
}

bool check_layout(PyObject* tag, PyObject* mask) {
  Ref flags = get_attr(mask, own_names.flags);
  if (is_true(get_item(flags.get(), own_names.C_CONTIGUOUS).get())) return true;
  return schema_error().refuse({owner(tag), " must be C-contiguous"});
}

bool check_states(PyObject* tag, PyObject* mask) {
  if (!compare_dtype(mask, names.float16, Py_EQ)) return true;
  const Ref index = invalid_state_index(mask);
  if (!index) return true;
  return schema_error().refuse({owner(tag), " has invalid float16 state value at index ",
                                str(index.get()), ": ", repr(get_item(mask, index.get()).get()),
                                "; expected NaN, positive zero, or positive one"});
}

bool check_mask(PyObject* self, PyObject* tag, PyObject* mask) {
  return require_non_empty_str(tag, "UniverseMasks tag") &&
         require_array(mask, [&] { return owner(tag); }) && check_shape(self, tag, mask) &&
         check_dtype(tag, mask) && check_layout(tag, mask) && check_states(tag, mask);
}

bool check_length(PyObject* self) {
  const bool has_int = is_int(n_alloc_of(self).get());
  if (has_int && !compare(n_alloc_of(self).get(), integer(0).get(), Py_LE)) return true;
  return schema_error().refuse(
      {"UniverseMasks.n_alloc must be a positive int; got ", repr(n_alloc_of(self).get())});
}

Result post_init(PyObject* self) {
  const auto check = [self](PyObject* tag, PyObject* mask) { return check_mask(self, tag, mask); };
  return none_if(record.require_fields(self) && check_length(self) &&
                 all_items(record.attribute(self, kByTag).get(), check));
}

bool is_valid_mask(PyArrayObject* mask, npy_intp n_alloc) {
  const bool is_readable = PyArray_ISCARRAY_RO(mask);
  if (!is_readable || PyArray_NDIM(mask) != 1 || PyArray_DIM(mask, 0) != n_alloc) return false;
  const int type = PyArray_TYPE(mask);
  if (type == NPY_HALF) return has_valid_states(mask);
  return type == NPY_DOUBLE || type == NPY_BOOL;
}

bool accepts(PyObject* by_tag, PyObject* n_alloc) {
  if (!PyLong_CheckExact(n_alloc)) return false;
  int overflow = 0;
  const long long length = PyLong_AsLongLongAndOverflow(n_alloc, &overflow);
  if (overflow != 0 || length <= 0) return false;
  return has_named_arrays(by_tag, [&](PyArrayObject* mask) { return is_valid_mask(mask, length); });
}

// --- Coercion ---

Result from_raw(PyObject* cls, PyObject* raw, PyObject* n_alloc) {
  if (record.is_instance(raw)) {
    if (!compare(n_alloc_of(raw).get(), n_alloc, Py_NE)) return Ref::borrow(raw);
    return schema_error().refuse({"UniverseMasks coerced with n_alloc=", str(n_alloc),
                                  " but payload has n_alloc=", str(n_alloc_of(raw).get())});
  }
  if (!is_dict(raw)) {
    return schema_error().refuse(
        {"UniverseMasks payload must be dict[str, np.ndarray]; got ", type_name(raw)});
  }
  return record.call(cls, dict_from(raw).get(), n_alloc);
}

}  // namespace

void define_universe_masks() { define_record<record>(); }

}  // namespace typed_shapes
