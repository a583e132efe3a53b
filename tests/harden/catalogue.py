"""Every entry point of the module as calls that can be made again and again: ones that are taken,
ones that are refused, ones that raise something else."""

import ast
import contextlib
import copy
import dataclasses
import inspect
import operator
import pickle
import sys
from collections import OrderedDict
from collections.abc import Iterator
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as ts
from support import *
from test_refusals import NAMES, OTHERWISE, REFUSED, rows

PATHS = contextlib.nullcontext, canonical_path

# Served by the fast path, where no Python function of a class runs.
FAST = """
FunctionState("f", 3, {"a": 1})
FunctionGraphNode("rotation", "rank", [FunctionGraphNode("a")], {"w": 5}, family="f")
coerce_graph(GRAPH)
FunctionGraphNode.from_raw(GRAPH)
WindowSpec(1, 240, 60)
WindowSpec.from_raw(60)
WindowSpec.from_raw({"min": 1, "max": 240, "default": 60, 5: 6})
ParamSpec("alpha", "float", 0.1, window=WindowSpec(1, 5))
ParamSpec.from_raw("n", {"type": "int", "min": 5, "max": 50, "default": 20, "variadic": 1})
ParamSpec.from_raw("window", DictSubclass(default=60))
ParamSpec.from_raw("m", ParamSpec("n"))
ParamSpec.from_mapping({"a": 1, "b": {"type": "str"}, "window": 5})
ParamSpec.coerce_specs([ParamSpec("a"), SimpleNamespace(name="b")])
ParamSpec.coerce_specs(DictSubclass(a=1))
LiveCheckpoint({}, {})
LiveCheckpoint.from_raw({"signals": {"s": {}}, "nodes": [("n", {})]})
UniverseMasks({"a": HALF, "b": np.ones(3), "c": np.ones(3, bool)}, 3)
UniverseMasks.from_raw(DictSubclass(a=HALF), n_alloc=3)
HistoryData({"close": np.zeros((2, 3)), "open": np.zeros((2, 3)).T})
HistoryData.from_raw(OrderedDict(close=np.zeros((2, 3))), context="replay")
CheckpointManifest.from_raw(MANIFEST)
CheckpointManifest(1, 2, {"a": "b"})
Metaparameters({"p": {"s": "o"}})
Metaparameters.from_raw({"p": {"s": "o"}, "q": {}})
StageData.from_mapping(STAGE)
StageData.from_optional_mapping(None)
StageData.from_mapping(STAGE).slice_t(1, 3)
StageData({"x": LOOSE[:2]}, {"n": DictSubclass(v=LOOSE)}, {}).slice_t(np.int64(0), 1)
EraIndexManifest.from_raw({**ERA, "epochs": {"e": 1}, "note": "x"})
TargetInstrumentEntry.from_raw({"k": 1}, 0)
StateScalar(5)
StateArray(HALF)
StateMapping({"a": StateScalar(1)})
StateSequence((StateScalar(1),))
coerce_state(STATE)
coerce_state(DictSubclass(STATE))
coerce_state(ListSubclass([1, (2.5, None)]))
coerce_state({1: "a", None: 2, 2.5: {"x": ()}})
states_equal([1, {10: ()}], [1, {"10": []}])
states_equal({"a": HALF, "b": [1.5, "x", None]}, {"a": HALF.copy(), "b": (1.5, "x", None)})
states_equal([np.ones(5, "f4"), np.ones(5), np.ones(5, "i4"), np.ones(5, "D")], FOUR)
states_equal(coerce_state([1, {"a": HALF}]), coerce_state([1, {"a": HALF}]))
_states_value_equal(coerce_state([1, {"a": HALF}]), coerce_state([1, {"a": HALF}]))
CostResult(np.zeros((2, 2)), {"fee": np.ones(3)})
Evidence({"a": 1})
Evidence.from_raw({"a": 1})
EraIndexManifest(2, "era_index", {"e": 1})
TargetInstrumentEntry({"k": 1})
AggregationOutput({"a.b": HALF})
AggregationOutput.from_raw({"a.b": HALF}, function_name="f")
"""

TAKEN = """
WindowSpec.from_raw(WindowSpec(1))
ParamSpec.from_raw("n", ParamSpec("n"))
UniverseMasks.from_raw(masks(a=HALF), n_alloc=3)
HistoryData.from_raw(HistoryData({}))
Metaparameters.from_raw(Metaparameters({"p": {}}))
TargetInstrumentEntry.from_raw(TargetInstrumentEntry({}), 5)
AggregationOutput.from_raw(AggregationOutput({}))
coerce_state(StateScalar(1))
states_equal(LOOSE.astype(">f8"), LOOSE + 1e-12)
validate_function_state(FunctionState("f", 3, {}), expected_name="f", expected_version=3)
InvalidFunctionStateError("text", function_name="f", reason="r")
coerce_graph(Registered(GRAPH))
coerce_graph({"type": StrSubclass("feature"), "name": 3})
WindowSpec(1, 240).picked(clamp_to=100)
_param_name(SimpleNamespace(name="n"))
LiveCheckpoint.from_raw(MappingProxyType({"signals": None}))
UniverseMasks({StrSubclass("a"): HALF.view(ArrayChild)}, 3)
masks(a=HALF).get("x", 5)
operator.getitem(masks(a=HALF), "a")
operator.contains(masks(a=HALF), "b")
masks(a=HALF).items()
masks(a=HALF).keys()
operator.getitem(HistoryData({"close": np.zeros((2, 3))}), "close")
operator.contains(HistoryData({}), "close")
CostResult(np.zeros((2, 2)), {"fee": np.ones(3), StrSubclass("tax"): HALF})
CostResult.from_raw(CostResult(HALF), context="replay")
len(CostResult(HALF))
getattr(CostResult(HALF), "shape")
operator.getitem(CostResult(HALF), 1)
np.asarray(CostResult(HALF), dtype="f4")
Evidence.from_raw(MappingProxyType({"a": 1}))
operator.setitem(Evidence({"a": 1}), "a", 2)
operator.getitem(Evidence({"a": 1}), "a")
operator.contains(Evidence({"a": 1}), "b")
Evidence({"a": 1}).items()
Evidence({"a": 1}).keys()
Evidence({"a": 1}).values()
Evidence({"a": 1}).get("b", 7)
CheckpointManifest.from_raw(Registered(MANIFEST))
Metaparameters.from_raw({"p": 1})
StageData.from_mapping(DictSubclass(STAGE))
StageData.from_mapping(STAGE).feature_names()
StageData.from_mapping(STAGE).value("a")
StageData.from_mapping(STAGE).value("x", None)
StageData.from_mapping(STAGE).set_value("a", LOOSE)
StageData.from_mapping(STAGE).has_value("c")
StageData.from_mapping(STAGE).is_empty()
EraIndexManifest.from_raw(DictSubclass(ERA))
AggregationOutput.from_raw({"a.b": HALF, StrSubclass("c.d"): LOOSE}, function_name="f")
list(AggregationOutput({"a.b": HALF}))
AggregationOutput({"a.b": HALF}).items()
states_equal(STATE, OTHER)
states_equal(coerce_state(STATE), coerce_state(OTHER))
states_equal(DictSubclass(STATE), OTHER)
states_equal(np.array([1, None], object), np.array([1, None], object))
states_equal(HALF.view(ArrayChild), HALF)
_states_value_equal(coerce_state(STATE), coerce_state(OTHER))
setattr(coerce_graph, "__annotations__", {"raw": "Any"})
inspect.signature(ParamSpec.from_raw)
pickle.loads(PICKLED)
repr(coerce_graph)
"""

# Beside what the tests refuse.
RAISED = """
coerce_state(1, bogus=1)
UniverseMasks({}, 0)
Evidence.from_raw([])
coerce_graph({"type": {"feature"}, "children": [[]]})
coerce_graph(Registered(5))
coerce_graph(UNNAMED)
states_equal(RING_OF_ARRAYS, RING_OF_ARRAYS)
AggregationOutput(Items([5]))
AggregationOutput(Items([(1,)]))
AggregationOutput(Items([(1, 2, 3)]))
AggregationOutput(Items([Claims(tuple)]))
operator.getitem(masks(a=HALF), "b")
operator.getitem(Evidence({}), "x")
operator.getitem(CostResult(HALF), "x")
validate_function_state({}, expected_name="f", expected_version=3)
validate_function_state(FunctionState("g", 3, {}), expected_name="f", expected_version=3)
validate_function_state(FunctionState("f", 2, {}), expected_name="f", expected_version=3)
validate_function_state(FunctionState("f", 3, []), expected_name="f", expected_version=3)
setattr(coerce_graph, "__name__", 1)
delattr(coerce_graph, "__qualname__")
setattr(WindowSpec(), "minimum", 5)
rebound("SchemaError", str, coerce_graph, [])
rebound("WindowSpec", None, WindowSpec.from_raw, 5)
rebound("coerce_state", next, coerce_state, [iter(())])
"""


class Items(dict):  # type: ignore[type-arg]
    """A dict that shows other items than it has."""

    def __init__(self, shown: list[Any]) -> None:
        self.shown = shown

    def items(self) -> Any:
        return self.shown


class Unnamed(type):
    __name__ = 5  # type: ignore[assignment]


UNNAMED = Unnamed("", (), {})()
RING_OF_ARRAYS = np.array([None], object)
RING_OF_ARRAYS[0] = RING_OF_ARRAYS


@dataclasses.dataclass
class PLAIN:
    """A record of Python's own, for comparison."""

    value: int

    def __post_init__(self) -> None:
        raise ValueError("refused")


def rebound(name: str, value: Any, function: Any, *arguments: Any) -> Any:
    """A call while a global of the module is bound to something else, or (None) to nothing."""
    bound = getattr(ts, name)
    try:
        delattr(ts, name) if value is None else setattr(ts, name, value)
        return function(*arguments)
    finally:
        setattr(ts, name, bound)


def fresh_names() -> dict[str, Any]:
    """What the texts speak of, made anew: no two calls share an input."""
    fresh = copy.deepcopy({name: NAMES[name] for name in ("HALF", "LOOP", "RING")})
    leaf = {"type": "feature", "name": "close"}
    plain = object.__new__(PLAIN)
    vars(plain).update(value=1, other=2, third=3, fourth=4)
    half, loose = fresh["HALF"], np.arange(8.0)[::2]
    state = {"a": [1, (2.5, None)], "b": {"c": half, "d": float("nan")}, "e": loose}
    return {
        **globals(),
        **NAMES,
        **fresh,
        "FOUR": [np.ones(5, "f4"), np.ones(5), np.ones(5, "i4"), np.ones(5, "D")],
        "GRAPH": {"op": "zscore", "args": [leaf, {"op": "x", "children": []}], "params": {"w": 5}},
        "LOOSE": loose,
        "MANIFEST": {**{key: {"a": "b"} for key in ts._CHECKPOINT_REQUIRED}, "x": 2},
        "OTHER": {"a": (1, [2.5, None]), "b": {"c": half.copy(), "d": float("nan")}, "e": loose},
        "PAIRS": lambda items: [[(items, n) for n in range(9)], [p[0] for p in items.items()]],
        "PICKLED": pickle.dumps(ts.ParamSpec("p", window=ts.WindowSpec(1, 5)), 5),
        "PICKLED_PLAIN": pickle.dumps(plain, 5),
        "STAGE": {"a": np.zeros((5, 2)), "b": {"v": np.zeros(5), "deep": {}}, "c": 7},
        "STATE": state,
    }


class Call:
    """One call with its inputs made beforehand, from the text of an expression."""

    def __init__(self, text: str) -> None:
        tree, names = ast.parse(text, mode="eval").body, fresh_names()
        assert isinstance(tree, ast.Call), text

        def evaluate(node: ast.expr) -> Any:
            expression = ast.fix_missing_locations(ast.Expression(node))
            return eval(compile(expression, text, "eval"), names)

        self.text = text
        self.function = evaluate(tree.func)
        # A tuple: f(*list, **names) leaks in the interpreter when memory runs out.
        self.arguments = evaluate(ast.Tuple(tree.args, ast.Load()))
        self.keywords = {keyword.arg: evaluate(keyword.value) for keyword in tree.keywords}

    def __call__(self) -> Any:
        return self.function(*self.arguments, **self.keywords)

    def inputs(self) -> list[Any]:
        """Everything that can be reached from what is passed in, each object once."""
        found: dict[int, Any] = {}
        waiting = [self.arguments, self.keywords, getattr(self.function, "__self__", None)]
        while waiting:
            value = waiting.pop()
            if id(value) in found or issubclass(type(value), (type, type(ts))):
                continue
            found[id(value)] = value
            waiting.extend(parts(value))
        return list(found.values())

    def snapshot(self) -> list[Any]:
        """What the inputs hold, by identity, and the bytes of arrays."""
        return [
            value.tobytes() if isinstance(value, np.ndarray) else list(map(id, parts(value)))
            for value in self.inputs()
        ]


def parts(value: Any) -> Iterator[Any]:
    cls = type(value)  # what it claims to be does not count
    if issubclass(cls, dict):
        yield from (*dict.keys(value), *dict.values(value))
    elif issubclass(cls, (list, tuple)):
        yield from value
    if dataclasses.is_dataclass(cls) or cls in (Registered, Items):
        yield from vars(value).values()


def every_text() -> list[str]:
    refused = [call for call, _ in rows(REFUSED) + rows(OTHERWISE) if call[-1] == ")"]
    return [*filter(None, (FAST + TAKEN + RAISED).splitlines()), *refused]


def chosen_texts() -> list[str]:
    """Those with one of the words of the command line in them, or all where there is none."""
    words = [word for word in sys.argv[1:] if not word.startswith("--")]
    return [text for text in every_text() if not words or any(word in text for word in words)]
