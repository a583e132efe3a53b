"""What others changed before the import, during it, or before the first call."""

import pytest
from support import run_alone

# Each in a process of its own.
SCRIPTS = {
    "a_class_patched_before_its_first_use_is_followed": """
import quillmere.functions._typed_shapes as ts
for cls in vars(ts).values():
    if not isinstance(cls, type) or "__post_init__" not in vars(cls):
        continue
    calls = []
    # Nothing may look an attribute up on the class before this.
    cls.__post_init__ = lambda self: calls.append(self)
    arguments = [None] * len(vars(cls)["__annotations__"])
    assert type(cls(*arguments)) is type(cls(*arguments)) is cls
    assert len(calls) == 2, cls
""",
    "warm_calls_do_not_go_past_the_native_constructor": """
import quillmere.functions._typed_shapes as ts
def call_often():
    for _ in range(1000):
        ts.WindowSpec(1, 5, None, None), ts.TargetInstrumentEntry({}), ts.StateScalar(1)
codes = [cls.__init__.__code__ for cls in (ts.WindowSpec, ts.TargetInstrumentEntry, ts.StateScalar)]
fresh = [code._co_code_adaptive for code in codes]
call_often()
assert fresh == [code._co_code_adaptive for code in codes]  # no __init__ has run
""",
    "methods_changed_while_a_class_is_made_are_followed": """
import abc
finish = abc.update_abstractmethods
def changing(cls):
    if cls.__name__ == "Evidence":
        item = cls.__getitem__
        cls.__getitem__ = lambda self, key: ["seen", item(self, key)]
        cls.__post_init__ = lambda self: vars(self).update(seen=True)
    return finish(cls)
named = dataclasses.Field.__set_name__
def naming(field, owner, name):
    named(field, owner, name)
    if owner.__name__ == "StageData":
        owner.__post_init__ = lambda self: vars(self).update(seen=True)
abc.update_abstractmethods, dataclasses.Field.__set_name__ = changing, naming
import quillmere.functions._typed_shapes as ts
evidence = ts.Evidence({"a": 1})
assert (evidence["a"], evidence.seen) == (["seen", 1], True)
assert ts.StageData().seen and ts.StageData(1).seen
""",
    "what_is_no_class_is_no_record": """
import builtins, types
import numpy
class Meta(type):
    def __new__(meta, name, bases, body):
        return types.SimpleNamespace(**body) if bases else type.__new__(meta, name, (), body)
builtins.object = Meta("object", (), {})
dataclasses.dataclass = lambda cls=None, **options: cls or (lambda cls: cls)
said = refusal(importlib.import_module, name)
# Since 3.13 the body finds nothing amiss with them.
assert said is None if sys.version_info >= (3, 13) else "SimpleNamespace" in said, said
""",
    "a_decorator_that_is_no_function_is_followed": """
import functools
decorate = dataclasses.dataclass
def swapping(cls=None, **options):
    if cls is None:
        return lambda cls: swapping(cls, **options)
    made = decorate(cls, **options)
    if cls.__name__ == "LiveCheckpoint":
        made.__init__ = lambda self, signals, nodes: vars(self).update(signals=nodes, nodes=signals)
    return made
dataclasses.dataclass = functools.partial(swapping)
assert importlib.import_module(name).LiveCheckpoint({"a": 1}, {}).nodes == {"a": 1}
""",
    "what_was_changed_before_the_import_is_followed": """
import builtins, math, typing
import numpy as np
decorate, base = dataclasses.dataclass, object
class Odd:
    def __set__(self, instance, value):
        vars(instance)["node"] = "odd"
def wrapping(cls=None, **options):
    if cls is None:
        return lambda cls: wrapping(cls, **options)
    builtins.object, name = base, cls.__name__
    if name in ("StateScalar", "TargetInstrumentEntry"):
        cls.__post_init__ = lambda self: vars(self).update(seen=True)
    made = decorate(cls, **options, kw_only=name == "LiveCheckpoint")
    init = made.__init__
    if name == "WindowSpec":
        made.__init__ = lambda self, *values: init(self, *values[::-1])
    elif name == "EraIndexManifest":
        namespace = {"init": init}
        exec("def __init__(self, *values): init(self, *values[::-1])", namespace)
        made.__init__ = namespace["__init__"]
    elif name == "ParamSpec":
        init.__defaults__ = ("odd", *init.__defaults__[1:])
    elif name == "StageData":
        init.__closure__[-1].cell_contents = list
    elif name == "FunctionGraphNode":
        made.node = Odd()
    elif name == "Metaparameters":
        for number in range(12):
            setattr(made, f"more{number}", classmethod(repr))
    elif name == "HistoryData":
        builtins.object = dict  # for the class that comes next
    return made
dataclasses.dataclass, np.allclose, math.isnan = wrapping, lambda *a, **b: False, lambda x: False
typing.Mapping = Odd
sys.path.insert(0, "tests")
from support import both_paths, ts
for text in '''
LiveCheckpoint({}, {}); WindowSpec(1, None, None, 2); ParamSpec("a"); StageData(); StateScalar(1)
EraIndexManifest({}, {}, "era_index", 2); coerce_graph({"op": "x", "children": [{"op": "y"}]})
TargetInstrumentEntry({}); dict.get(CostResult(np.zeros(1)), "a"); Metaparameters({"a": {}})
states_equal(np.zeros(2), np.zeros(2)); states_equal(math.nan, math.nan); Evidence.from_raw({})
StageData.from_mapping({"a": 1}); coerce_state([1])'''.replace("; ", "\\n").split("\\n"):
    fast, canonical = both_paths(lambda: (lambda: eval(text, {**vars(ts), "math": math}),))
    assert fast == canonical, (text, fast, canonical)
""",
}


@pytest.mark.parametrize("name", SCRIPTS)
def test_in_a_process_of_its_own(name: str) -> None:
    run_alone(SCRIPTS[name])
