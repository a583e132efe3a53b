"""What every record refuses, and with which text."""

from __future__ import annotations

import contextlib
from collections.abc import Mapping
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import EmptyLookingStr, StrChild, canonical_path, outcome

# A call, and below it the text that it is refused with.
# ruff: noqa: E501
REFUSED = """
FunctionGraphNode("")
    FunctionGraphNode.type must be a non-empty str; got ''
FunctionGraphNode(3)
    FunctionGraphNode.type must be a non-empty str; got 3
FunctionGraphNode(EmptyLookingStr("x"))
    FunctionGraphNode.type must be a non-empty str; got 'x'
FunctionGraphNode("x", None, ())
    FunctionGraphNode.children must be a list; got tuple
FunctionGraphNode("x", None, [FunctionGraphNode("a"), {}], ())
    FunctionGraphNode.children[1] must be FunctionGraphNode; got dict
FunctionGraphNode("x", None, [], ())
    FunctionGraphNode.config must be a dict; got tuple
coerce_graph({})
    graph node missing required str 'type' field; got None
coerce_graph({"op": 0})
    graph node missing required str 'type' field; got None
coerce_graph({"type": "list", "children": ()})
    FunctionGraphNode.children must be a list; got tuple
coerce_graph({"type": "list", "children": [1]})
    FunctionGraphNode JSON mapping payload required; got int
coerce_graph({"type": "list", "args": [FunctionGraphNode("x")]})
    FunctionGraphNode JSON mapping payload required; got FunctionGraphNode
coerce_graph([])
    FunctionGraphNode JSON mapping payload required; got list
StateArray([1, 2])
    StateArray.data must be np.ndarray; got list
StateMapping([])
    StateMapping.entries must be a dict; got list
WindowSpec(maximum=True)
    WindowSpec.maximum must be int or None; got bool
WindowSpec(1.5, "x")
    WindowSpec.minimum must be int or None; got float
WindowSpec.from_raw({"min": "5"})
    WindowSpec.minimum must be int or None; got str
WindowSpec.from_raw(False)
    WindowSpec payload cannot be bool
WindowSpec.from_raw(np.int64(5))
    WindowSpec payload must be int, dict, or None; got int64
ParamSpec.from_raw("", 3)
    ParamSpec.name must be a non-empty str; got ''
ParamSpec(3)
    ParamSpec.name must be a non-empty str; got 3
ParamSpec("a", window=5)
    ParamSpec.window must be WindowSpec or None; got int
ParamSpec.from_raw("alpha", {"min": 0.1})
    WindowSpec.minimum must be int or None; got float
ParamSpec.from_mapping(("a",))
    ParamSpec list payload must be dict, list, or None; got tuple
ParamSpec.coerce_specs([{"name": "a"}])
    ParamSpec list entry missing .name attribute; got dict
_param_name(SimpleNamespace(name=""))
    ParamSpec list entry missing .name attribute; got SimpleNamespace
LiveCheckpoint([], 5)
    LiveCheckpoint.signals must be a dict; got list
LiveCheckpoint(nodes=5)
    LiveCheckpoint.nodes must be a dict; got int
LiveCheckpoint.from_raw(LiveCheckpoint())
    LiveCheckpoint JSON mapping payload required; got LiveCheckpoint
UniverseMasks([], 0)
    UniverseMasks.by_tag must be a dict; got list
UniverseMasks({}, 0)
    UniverseMasks.n_alloc must be a positive int; got 0
UniverseMasks({}, 5.0)
    UniverseMasks.n_alloc must be a positive int; got 5.0
UniverseMasks({"": 1}, 3)
    UniverseMasks tag must be a non-empty str; got ''
UniverseMasks({StrChild("t"): [1]}, 3)
    UniverseMasks['shown otherwise'] must be np.ndarray; got list
masks(a=np.ones(4))
    UniverseMasks['a'] has shape (4,), expected (3,)
masks(a=np.ones(()))
    UniverseMasks['a'] has shape (), expected (3,)
masks(a=np.ones(3, ">f8").astype(">i4"))
    UniverseMasks['a'] has dtype >i4, expected float64, float16, or bool
masks(a=np.ones(6)[::2])
    UniverseMasks['a'] must be C-contiguous
UniverseMasks.from_raw(masks(), n_alloc=6)
    UniverseMasks coerced with n_alloc=6 but payload has n_alloc=3
UniverseMasks.from_raw(None, n_alloc=5)
    UniverseMasks payload must be dict[str, np.ndarray]; got NoneType
HistoryData(())
    HistoryData.by_feature must be a dict; got tuple
HistoryData({None: 1})
    HistoryData feature name must be a non-empty str; got None
HistoryData({StrChild("f"): [1]})
    HistoryData['f'] must be np.ndarray; got list
HistoryData({"close": np.zeros(5)})
    HistoryData['close'] must be 2D (T, N); got shape (5,)
HistoryData({"ok": np.zeros((0, 0)), "x": np.zeros((2, 3), int)})
    HistoryData['x'] has dtype int64, expected float64
HistoryData.from_raw(MappingProxyType({}), context="replay")
    replay returned mappingproxy, expected dict[str, np.ndarray]
CostResult([1])
    CostResult.total must be np.ndarray; got list
CostResult(HALF, [])
    CostResult.breakdown must be a dict; got list
CostResult(HALF, {3: HALF})
    CostResult.breakdown label must be a non-empty str; got 3
CostResult(HALF, {"total": []})
    CostResult.breakdown must not contain 'total'
CostResult(HALF, {StrChild("fee"): []})
    CostResult.breakdown['fee'] must be np.ndarray; got list
CostResult.from_raw(HALF)
    cost engine returned ndarray, expected CostResult
Evidence([])
    Evidence.data must be a dict; got list
Evidence.from_raw([("a", 1)])
    Evidence JSON mapping payload required or None; got list
CheckpointManifest(1, 2, MappingProxyType({}))
    CheckpointManifest.canonical_id_to_filename must be a dict; got mappingproxy
CheckpointManifest.from_raw(None)
    CheckpointManifest JSON mapping payload required; got NoneType
CheckpointManifest.from_raw({"canonical_id_to_filename": {}})
    CheckpointManifest missing required fields: ['dag_metadata', 'tick_timestamp']
Metaparameters([])
    Metaparameters.by_pool must be a dict; got list
Metaparameters({})
    Metaparameters.by_pool must be non-empty
Metaparameters({"p": {}, 7: []})
    Metaparameters.by_pool[7] must be a dict; got list
StageData([], 1)
    StageData.flat must be a dict; got list
StageData({}, 1, 2)
    StageData.nested must be a dict; got int
StageData({}, {}, 2)
    StageData.opaque must be a dict; got int
StageData.from_mapping(None)
    StageData producer boundary mapping required; got NoneType
StageData.from_raw(StageData())
    StageData producer boundary requires StageData.from_mapping() before runtime consumers; got StageData
EraIndexManifest.from_raw({**ERA, "schema_version": 2.0})
    EraIndexManifest.schema_version must be 2; got 0
EraIndexManifest.from_raw({**ERA, "schema_version": True})
    EraIndexManifest.schema_version must be 2; got True
EraIndexManifest.from_raw({"schema_version": 2})
    EraIndexManifest.bundle_kind must be 'era_index'; got ''
EraIndexManifest(2.0, "era_index", [])
    EraIndexManifest.epochs must be a dict; got list
EraIndexManifest.from_raw([("schema_version", 2)])
    EraIndexManifest JSON mapping payload required; got list
TargetInstrumentEntry(payload=[])
    TargetInstrumentEntry.payload must be a dict; got list
AggregationOutput([])
    AggregationOutput.by_dotted_key must be a dict; got list
AggregationOutput.from_raw({1: HALF})
    AggregationOutput key must be a non-empty str; got 1
AggregationOutput.from_raw({EmptyLookingStr("a.b"): HALF})
    AggregationOutput key must be a non-empty str; got 'a.b'
AggregationOutput.from_raw({"a.b": [1, 2]})
    AggregationOutput['a.b'] must be np.ndarray; got list
AggregationOutput.from_raw([], function_name="f")
    aggregation output for 'f' was not a dict keyed by plugin.output (got list)
"""

NAMES: dict[str, Any] = {
    **vars(ts),
    "EmptyLookingStr": EmptyLookingStr,
    "MappingProxyType": MappingProxyType,
    "SimpleNamespace": SimpleNamespace,
    "StrChild": StrChild,
    "HALF": np.array([np.nan, 0.0, 1.0], np.float16),
    "ERA": {"schema_version": 2, "bundle_kind": "era_index"},
    "masks": lambda **by_tag: ts.UniverseMasks(by_tag, 3),
}
LINES = [line.strip() for line in REFUSED.strip().splitlines()]


@pytest.mark.parametrize(("call", "text"), list(zip(LINES[::2], LINES[1::2], strict=True)))
def test_refusals(call: str, text: str) -> None:
    for path in (contextlib.nullcontext(), canonical_path()):
        with path, pytest.raises(ts.SchemaError) as caught:
            eval(call, dict(NAMES))
        assert caught.value.args == (text,)


def test_an_offending_state_is_shown_as_numpy_shows_it() -> None:
    mask = np.array([1.0, -0.0, 0.5], np.float16)
    with pytest.raises(ts.SchemaError) as caught:
        ts.UniverseMasks({"ok": NAMES["HALF"], "a": mask}, 3)
    assert str(caught.value) == (
        f"UniverseMasks['a'] has invalid float16 state value at index 1: {mask[1]!r}; "
        "expected NaN, positive zero, or positive one"
    )


class OneItem:
    def __init__(self, item: Any) -> None:
        self.item = item

    def items(self) -> list[Any]:
        return [self.item]


Mapping.register(OneItem)


RAISES = type("Raises", (), {"__iter__": lambda self: 1 / 0})


@pytest.mark.parametrize(
    "make", [list, iter, str, OneItem, lambda text: {}, lambda text: 5, lambda text: RAISES()]
)
def test_an_item_is_unpacked_as_python_does(make: Any) -> None:
    def unpack(mapping: OneItem) -> dict[str, Any]:
        return {key: value for key, value in mapping.items()}  # noqa: C416

    for text in ("a", "ab", "abc"):
        taken = outcome(lambda text=text: ts.StageData.from_mapping(OneItem(make(text))).opaque)
        assert taken == outcome(lambda text=text: unpack(OneItem(make(text))))


def test_a_target_instrument_is_refused_with_a_plain_value_error() -> None:
    with pytest.raises(ValueError, match=r"^target_instruments\[3\] must be an object$") as caught:
        ts.TargetInstrumentEntry.from_raw("x", 3)
    assert type(caught.value) is ValueError
