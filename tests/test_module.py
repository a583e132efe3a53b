"""The module frame: names and loading."""

import pytest
import quillmere.functions
from support import run_alone


def test_our_files_live_beside_the_platforms() -> None:
    assert quillmere.functions.__file__ is None


# Each in a process of its own.
SCRIPTS = {
    "one_module_object_in_a_process": """
import ctypes, types
try:
    import _interpreters as interpreters  # since 3.13
    another = interpreters.create("legacy")
except ImportError:
    import _xxsubinterpreters as interpreters
    another = interpreters.create(isolated=False)
spec = importlib.util.find_spec(name)
made = spec.loader.create_module(spec)
assert (made.__loader__, made.__file__, made.__package__) == (spec.loader, spec.origin, spec.parent)
first = importlib.import_module(name)
assert first.__builtins__ is sys.modules["builtins"]
assert importlib.reload(first) is first
del sys.modules[name]
assert importlib.import_module(name) is first
# Another module object is refused,
api = ctypes.pythonapi
api.PyModule_GetDef.restype = ctypes.c_void_p
api.PyModule_GetDef.argtypes = [ctypes.py_object]
api.PyModule_ExecDef.argtypes = [ctypes.py_object, ctypes.c_void_p]
assert refusal(api.PyModule_ExecDef, types.ModuleType("other"), api.PyModule_GetDef(first)) == (
    "RuntimeError: Module '_typed_shapes' has already been imported. "
    "Re-initialisation is not supported.")
# and so is another interpreter.
text = ("Interpreter change detected - this module can only be loaded into one interpreter "
        "per process.")
assert interpreters.run_string(another, f'''
try:
    import {name}
    raise AssertionError
except ImportError as error:
    assert str(error) == {text!r}, error
''') is None
""",
    "a_failed_import_leaves_nothing_behind": """
for missing in ("numpy", "dataclasses", "typing"):
    kept = sys.modules.get(missing)
    for _ in range(3):
        sys.modules[missing] = None
        assert "halted" in refusal(importlib.import_module, name)
        assert name not in sys.modules
        gc.collect()
    sys.modules.pop(missing)
    if kept is not None:
        sys.modules[missing] = kept
for missing, attribute in (("typing", "Sequence"), ("dataclasses", "field")):
    module = importlib.import_module(missing)
    kept = vars(module).pop(attribute)
    assert refusal(importlib.import_module, name) == (
        f"ImportError: cannot import name '{attribute}' from '{missing}'")
    setattr(module, attribute, kept)
decorate, counts = dataclasses.dataclass, []
def stopping(cls=None, **options):
    if cls is not None and cls.__name__ == "EraIndexManifest":
        raise KeyError("stop here")
    return decorate(cls, **options)
dataclasses.dataclass = stopping
for _ in range(5):
    assert refusal(importlib.import_module, name) == "KeyError: 'stop here'"
    gc.collect()
    counts.append(sys.getrefcount(False))  # CPython 3.11 gives some of None's away by itself
assert counts[1] == counts[-1], counts
dataclasses.dataclass = decorate
ts = importlib.import_module(name)
assert ts.coerce_graph({"op": "zscore"}).type == "rotation"
""",
    "an_import_that_runs_out_of_memory_leaves_nothing_behind": """
try:
    import _testcapi
except ImportError:  # some distributions leave it out
    sys.exit()
original = dataclasses.dataclass
spec = importlib.util.find_spec(name)
def failing(*arguments, **options):
    _testcapi.set_nomemory(0, 1000)
    raise MemoryError
dataclasses.dataclass, module = failing, importlib.util.module_from_spec(spec)
try:
    spec.loader.exec_module(module)
except MemoryError:
    _testcapi.remove_mem_hooks()
assert spec.name not in sys.modules
dataclasses.dataclass = original
assert importlib.import_module(spec.name).coerce_graph({"op": "zscore"}).type == "rotation"
""",
    "a_first_import_fails_cleanly_at_each_allocation": """
import collections.abc, math, os, typing
if sys.version_info >= (3, 13):
    sys.exit()  # PyType_FromSpec crashes by itself where it finds no memory
import _testcapi, numpy
if hasattr(sys, "gettotalrefcount"):
    sys.exit()  # an interpreter with assertions aborts where there is no memory
if not hasattr(numpy, "_core"):
    sys.exit()  # the search for NumPy 2's name of it runs code of the interpreter that loses errors
spec = importlib.util.find_spec(name)
for number in range(0, 600, 3):
    if os.fork() == 0:
        ts = importlib.util.module_from_spec(spec)
        _testcapi.set_nomemory(number, number + 1)
        try:
            spec.loader.exec_module(ts)
        except MemoryError:
            os._exit(0)
        except SystemError as error:  # the interpreter's compiler loses a MemoryError
            os._exit("function exec" not in str(error))
        finally:
            _testcapi.remove_mem_hooks()
        ts.StageData().set_value("a", ts.LiveCheckpoint.from_raw({"nodes": {}}))
        assert ts.coerce_graph({"op": "x"}).node == "x" and ts.states_equal([1], (1,))
        os._exit(0)
    assert os.wait()[1] == 0, number
""",
    "an_error_in_the_body_can_be_recovered_from": """
import weakref
original, seen = dataclasses.dataclass, []
def failing(cls=None, **options):
    if cls is None:
        return original(**options)
    seen.append(cls)
    if cls.__name__ == "CostResult":
        raise KeyError("stop here")
    return original(cls, **options)
dataclasses.dataclass = failing
assert refusal(importlib.import_module, name) == "KeyError: 'stop here'"
dataclasses.dataclass = original
stale, masks = seen[0], next(cls for cls in seen if cls.__name__ == "UniverseMasks")
errors = [cls for cls in gc.get_objects() if isinstance(cls, type)
          and cls.__name__ == "InvalidFunctionStateError"]
for call, *arguments in [(stale.from_raw, {}), (stale.from_raw, None),
                         (masks.keys, object.__new__(masks)), *((cls, "text") for cls in errors)]:
    assert refusal(call, *arguments) == f"RuntimeError: module '{name}' is not loaded"
ts = importlib.import_module(name)
assert ts.LiveCheckpoint is not stale
assert ts.states_equal({"a": [1]}, {"a": [1]}) is True
gone = weakref.ref(stale)
function = vars(stale)["__post_init__"]
function.me = function
del function, stale, seen, failing, call, arguments, masks, errors
gc.collect()
assert gone() is None
""",
    "what_outlives_a_failed_import_finds_nothing_loaded": """
import typing
told, original, iterable = [], dataclasses.dataclass, typing.Iterable
class Last:
    def __del__(self):
        told.append(refusal(kept.InvalidFunctionStateError, "x"))
        told.append(refusal(kept.Evidence.from_raw, None))
def failing(cls=None, **options):
    global kept
    if cls is not None and cls.__name__ == "EraIndexManifest":
        kept = sys.modules[name]
        typing.Iterable = kept.Iterable = iterable
        raise KeyboardInterrupt
    return original(cls, **options)
dataclasses.dataclass, typing.Iterable = failing, Last()
assert refusal(importlib.import_module, name) == "KeyboardInterrupt: "
assert told == [f"RuntimeError: module '{name}' is not loaded"] * 2
dataclasses.dataclass = original
importlib.import_module(name)
class Late:
    value = default = None
    minimum = 10
    @property
    def maximum(self):
        vars(Late)["picked"].__init__(None)  # during the call of its getter, which goes with it
        return 10**50
Late.picked = property(kept.WindowSpec.picked)
del kept.WindowSpec.picked, kept
assert Late().picked == 1440
""",
    "a_call_outlives_an_import_that_fails_meanwhile": """
import threading
original, inside, failed, results = dataclasses.dataclass, threading.Event(), threading.Event(), []
class Claims:
    @property
    def __class__(self):
        if threading.current_thread() is thread:
            inside.set(), failed.wait()
        return dict
def failing(cls=None, **options):
    global thread
    if cls is not None and cls.__name__ == "EraIndexManifest":
        thread.start(), inside.wait()
        raise KeyError("stop here")
    made = original(cls, **options)
    if cls is not None and cls.__name__ == "StageData":
        thread = threading.Thread(target=lambda: results.append(made(Claims(), {}, {})))
    return made
dataclasses.dataclass = failing
assert refusal(importlib.import_module, name) == "KeyError: 'stop here'"
failed.set(), thread.join()
assert [type(result).__name__ for result in results] == ["StageData"]
""",
    "an_odd_key_among_the_names_may_raise": """
import numpy as np
import quillmere.functions._typed_shapes as ts
raised = ["at insertion"]
class Key:
    def __hash__(self):
        return hash("np")
    def __eq__(self, other):
        if not raised:
            raised.append(other)
            raise KeyboardInterrupt
        return False
bound = vars(ts).pop("np")
vars(ts).update({Key(): None, "np": bound})
del raised[0]
assert refusal(ts.coerce_state, np.ones(1)) == "KeyboardInterrupt: " and raised == ["np"]
""",
    "the_collector_shows_nobody_what_a_watch_keeps": """
import quillmere.functions._typed_shapes as ts
def look(kept, home):
    holders = gc.get_referrers(kept)
    assert [home in holder for holder in holders if type(holder) is dict] == [True], holders
    assert type(ts.coerce_graph) not in map(type, holders)
look(vars(ts.WindowSpec)["__init__"], "__module__")
look(ts._param_name, "__name__")
assert sys.getrefcount(ts.WindowSpec.__mro__) == sys.getrefcount(type("", (), {}).__mro__) + 1
""",
}


@pytest.mark.parametrize("name", SCRIPTS)
def test_in_a_process_of_its_own(name: str) -> None:
    run_alone(SCRIPTS[name])
