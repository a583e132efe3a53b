"""What every record and function refuses, and with which text."""

import contextlib
import sys
from collections import OrderedDict
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import EmptyLookingStr, Registered, StrSubclass, canonical_path, outcome

# A call, and the text that it is refused with.
# ruff: noqa: E501
REFUSED = """
FunctionGraphNode(3)  # FunctionGraphNode.type must be a non-empty str; got 3
FunctionGraphNode("x", None, ())  # FunctionGraphNode.children must be a list; got tuple
FunctionGraphNode("x", None, [FunctionGraphNode("a"), {}], ())  # FunctionGraphNode.children[1] must be FunctionGraphNode; got dict
coerce_graph({"op": 0})  # graph node missing required str 'type' field; got None
coerce_graph({"type": "list", "args": [FunctionGraphNode("x")]})  # FunctionGraphNode JSON mapping payload required; got FunctionGraphNode
coerce_graph([])  # FunctionGraphNode JSON mapping payload required; got list
StateArray([1, 2])  # StateArray.data must be np.ndarray; got list
WindowSpec(maximum=True)  # WindowSpec.maximum must be int or None; got bool
WindowSpec.from_raw(False)  # WindowSpec payload cannot be bool
WindowSpec.from_raw(np.int64(5))  # WindowSpec payload must be int, dict, or None; got int64
ParamSpec(3)  # ParamSpec.name must be a non-empty str; got 3
ParamSpec("a", window=5)  # ParamSpec.window must be WindowSpec or None; got int
ParamSpec.from_mapping(("a",))  # ParamSpec list payload must be dict, list, or None; got tuple
_param_name(SimpleNamespace(name=""))  # ParamSpec list entry missing .name attribute; got SimpleNamespace
LiveCheckpoint([], 5)  # LiveCheckpoint.signals must be a dict; got list
UniverseMasks([], 0)  # UniverseMasks.by_tag must be a dict; got list
UniverseMasks({"": 1}, 3)  # UniverseMasks tag must be a non-empty str; got ''
UniverseMasks({StrSubclass("t"): [1]}, 3)  # UniverseMasks['shown otherwise'] must be np.ndarray; got list
masks(a=np.ones(4, np.float32))  # UniverseMasks['a'] has shape (4,), expected (3,)
masks(a=np.ones(3, np.float32))  # UniverseMasks['a'] has dtype float32, expected float64, float16, or bool
masks(a=np.ones(6)[::2])  # UniverseMasks['a'] must be C-contiguous
UniverseMasks.from_raw(masks(), n_alloc=6)  # UniverseMasks coerced with n_alloc=6 but payload has n_alloc=3
UniverseMasks.from_raw(None, n_alloc=5)  # UniverseMasks payload must be dict[str, np.ndarray]; got NoneType
HistoryData({"close": np.zeros(5)})  # HistoryData['close'] must be 2D (T, N); got shape (5,)
HistoryData({"ok": np.zeros((0, 0)), "x": np.zeros((2, 3), int)})  # HistoryData['x'] has dtype int64, expected float64
HistoryData.from_raw(MappingProxyType({}), context="replay")  # replay returned mappingproxy, expected dict[str, np.ndarray]
CostResult([1])  # CostResult.total must be np.ndarray; got list
CostResult(HALF, {"total": []})  # CostResult.breakdown must not contain 'total'
CostResult(HALF, {StrSubclass("fee"): []})  # CostResult.breakdown['fee'] must be np.ndarray; got list
CostResult.from_raw(HALF)  # cost engine returned ndarray, expected CostResult
Evidence([])  # Evidence.data must be a dict; got list
CheckpointManifest(1, 2, MappingProxyType({}))  # CheckpointManifest.canonical_id_to_filename must be a dict; got mappingproxy
CheckpointManifest.from_raw({"canonical_id_to_filename": {}})  # CheckpointManifest missing required fields: ['dag_metadata', 'tick_timestamp']
Metaparameters({})  # Metaparameters.by_pool must be non-empty
Metaparameters({"p": {}, 7: []})  # Metaparameters.by_pool[7] must be a dict; got list
StageData([], 1)  # StageData.flat must be a dict; got list
StageData.from_mapping(None)  # StageData producer boundary mapping required; got NoneType
StageData.from_raw(StageData())  # StageData producer boundary requires StageData.from_mapping() before runtime consumers; got StageData
EraIndexManifest.from_raw({**ERA, "schema_version": 2.0})  # EraIndexManifest.schema_version must be 2; got 0
EraIndexManifest.from_raw({"schema_version": 2})  # EraIndexManifest.bundle_kind must be 'era_index'; got ''
TargetInstrumentEntry(payload=[])  # TargetInstrumentEntry.payload must be a dict; got list
AggregationOutput.from_raw({1: HALF})  # AggregationOutput key must be a non-empty str; got 1
AggregationOutput.from_raw({EmptyLookingStr("a.b"): HALF})  # AggregationOutput key must be a non-empty str; got 'a.b'
AggregationOutput.from_raw({"a.b": [1, 2]})  # AggregationOutput['a.b'] must be np.ndarray; got list
AggregationOutput.from_raw({"a.λ": [1, 2]})  # AggregationOutput['a.λ'] must be np.ndarray; got list
AggregationOutput.from_raw([], function_name="f")  # aggregation output for 'f' was not a dict keyed by plugin.output (got list)
"""

# Calls that end in another error, and how its text begins.
OTHERWISE = """
CheckpointManifest.from_raw({**MANIFEST, "canonical_id_to_filename": 5})  # TypeError: 'int' object is not iterable
masks(ok=HALF, a=np.array([1.0, -0.0, 0.5], np.float16))  # SchemaError: UniverseMasks['a'] has invalid float16 state value at index 1
coerce_graph({"type": []})  # TypeError: unhashable type: 'list'
TargetInstrumentEntry.from_raw(5, 3)  # ValueError: target_instruments[3] must be an object
WindowSpec(1, 2).picked("x")  # TypeError: '
setattr(CostResult(HALF), "shape", (1,))  # AttributeError:
StageData({"x": 5}).slice_t(0, 2)  # TypeError: 'int' object is unsliceable
StageData({}, {"x": 5}).slice_t(0, 1)  # AttributeError: 'int' object has no attribute 'items'
[s := stage(), s.slice_t(CLEARS([s.flat]), 1)]  # RuntimeError: dictionary changed size
[s := stage(), s.slice_t(0, CLEARS([s.flat]))]  # RuntimeError: dictionary changed size
StageData({"x": 5}).feature_names()  # AttributeError: 'int' object has no attribute 'ndim'
[s := StageData(), delattr(s, "nested"), s.nested]  # AttributeError:
StageData().value(("a", "b"))  # KeyError: ('a', 'b')
states_equal([1, {10**5000: 1}], [2, 3])  # ValueError: Exceeds the limit (4300 digits)
states_equal([StateScalar(np.zeros(2))], [StateScalar(np.zeros(2))])  # ValueError: The truth value of an array
FunctionGraphNode()  # TypeError: FunctionGraphNode.__init__() missing 1 required positional argument: 'type'
type("Child", (FunctionGraphNode,), {})("")  # SchemaError: FunctionGraphNode.type must be a non-empty str; got ''
coerce_state({"a": {STOPS: 1}})  # StopIteration:
coerce_state({"a": [{STOPS: 1}]})  # RuntimeError: generator raised StopIteration
coerce_state(RING)  # RecursionError:
coerce_graph(LOOP)  # RecursionError:
coerce_state(ODD_RING)  # RecursionError:
coerce_graph(ODD_RING)  # RecursionError:
_states_value_equal(CHILD, CHILD)  # RecursionError:
states_equal(RING, RING)  # RecursionError:
states_equal(LOOP, {"op": "y", "children": []})  # RecursionError:
[e := Evidence(), setattr(e, "data", e), e["k"]]  # RecursionError:
[m := masks(), setattr(m, "by_tag", m), "k" in m]  # RecursionError:
UniverseMasks({UNSHOWN("x"): np.ones(1, np.float16).view(UNREAD) * 2}, 1)  # ZeroDivisionError:
coerce_graph()  # TypeError: coerce_graph() takes exactly 1 positional argument (0 given)
coerce_graph(1, odd=1, raw=1)  # TypeError: coerce_graph() got multiple values for keyword argument 'raw'
coerce_graph(1, **{"r\\ud800": 1})  # TypeError: coerce_graph() got an unexpected keyword argument 'r\ud800'
UniverseMasks.from_raw({}, odd=1)  # TypeError: from_raw() needs keyword-only argument n_alloc
"""

PARTS = None, 1, [("a", "b")]
RING: list[Any] = [1]
RING.append(RING)
LOOP: dict[str, Any] = {"op": "x"}
LOOP["children"] = [LOOP]
# Of types that the canonical path serves.
ODD_RING: OrderedDict[str, Any] = OrderedDict(op="x", children=[])
ODD_RING["children"].append(ODD_RING)
CHILD = type("Child", (ts.StateSequence,), {})(())
object.__setattr__(CHILD, "items_", (CHILD,))
HALF = np.array([np.nan, 0.0, 1.0], np.float16)
ERA = {"schema_version": 2, "bundle_kind": "era_index"}
MANIFEST = {**dict(zip(ts._CHECKPOINT_REQUIRED, PARTS, strict=True)), "x": 2, 5: 6}
UNSHOWN = type("Unshown", (str,), {"__str__": lambda self: 1 / 0})
UNREAD = type("Unread", (np.ndarray,), {"__getitem__": lambda self, key: {}[key]})
STOPS = type("Stops", (), {"__str__": lambda self: next(iter(()))})()

CLEARS = type("Clears", (list,), {"__index__": lambda self: self[0].clear() or 0})


def stage() -> ts.StageData:
    return ts.StageData({"x": HALF, "y": HALF})


def masks(**by_tag: Any) -> ts.UniverseMasks:
    return ts.UniverseMasks(by_tag, 3)


NAMES = {**vars(ts), **globals()}


def rows(table: str) -> list[Any]:
    return [row.split("  # ") for row in table.strip().splitlines()]


LINES = [part for row in rows(REFUSED) for part in row]


@pytest.mark.parametrize(("call", "text"), rows(REFUSED) + rows(OTHERWISE))
def test_refusals(call: str, text: str) -> None:
    for path in (contextlib.nullcontext(), canonical_path()):
        with path, pytest.raises(Exception) as caught:
            eval(call, dict(NAMES))
        error = caught.value
        if [call, text] in rows(OTHERWISE):
            assert f"{type(error).__name__}: {error}".startswith(text)
        else:
            assert (type(error), error.args) == (ts.SchemaError, (text,))


RAISES = type("Raises", (), {"__iter__": lambda self: 1 / 0})
UNPACKED = [list, iter, str, lambda text: {}, lambda text: 5, lambda text: RAISES(), Registered]
UNPACKED.append(lambda text: (1 / 0 for _ in text))


@pytest.mark.parametrize("make", UNPACKED)
def test_an_item_is_unpacked_as_python_does(make: Any) -> None:
    for text in ("a", "ab", "abc"):
        one = Registered({})
        one.items = lambda text=text: [make(text)]
        taken = outcome(lambda: ts.StageData.from_mapping(one).opaque)
        assert taken == outcome(lambda: {key: value for key, value in one.items()})  # noqa: C416


def test_references_are_given_back() -> None:
    excess, triple = object(), Registered({})
    triple.items = lambda: [(1, 2, excess)]
    before = sys.getrefcount(excess)
    pytest.raises(ValueError, ts.StageData.from_mapping, triple)
    assert sys.getrefcount(excess) == before
    clamp = int("1" + "0" * 12)  # no constant, which several threads would share
    before = sys.getrefcount(clamp)
    assert ts.WindowSpec(1, 2 * clamp).picked(clamp) == clamp
    assert sys.getrefcount(clamp) == before
    error = pytest.raises(RuntimeError, ts.coerce_state, [{STOPS: 1}]).value
    assert error.__cause__ is error.__context__
    count = sys.getrefcount(error.__cause__)
    assert count == 3  # these two, and the argument


# --- The restore contract; the documentation shows the texts ---


def restored(record: Any) -> Any:
    return ts.validate_function_state(record, expected_name="f", expected_version=3)


def test_restoring(monkeypatch: pytest.MonkeyPatch) -> None:
    loose = type("Loose", (), {"__ne__": lambda *_: False})()  # equal to anything
    for version in (3, 3.0, loose):
        for cls in (ts.FunctionState, type("Child", (ts.FunctionState,), {})):
            assert restored(cls("f", version, ERA)) is ERA
    with pytest.raises(ts.InvalidFunctionStateError) as caught:
        restored({})
    names = ("function_name", "expected_function_version", "state_type", "reason")
    wanted = zip(names, ("f", 3, "dict", "not_function_state"), strict=True)
    assert list(vars(caught.value).items()) == list(wanted)
    # A field that was never set.
    bare = object.__new__(ts.FunctionState)
    vars(bare).update(function_name="f", function_version=3)
    pytest.raises(AttributeError, restored, bare).match("'data'")
    # A rejection that returns lets the checks go on.
    given: list[dict[str, Any]] = []
    reject = lambda text, **options: given.append(options)  # noqa: E731
    monkeypatch.setattr(ts, "_reject_function_state", reject)
    assert restored(ts.FunctionState("g", 2, [5])) == [5]
    reasons = [options["reason"] for options in given]
    assert reasons == ["function_name_mismatch", "function_version_mismatch", "data_not_dict"]
    assert [*given[0]] == ["expected_name", "expected_version", "state", "reason"]
