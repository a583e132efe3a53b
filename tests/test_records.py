"""What every record takes, and that it is a dataclass in full."""

import contextlib
import copy
import dataclasses
import inspect
import pickle
import re
from collections import OrderedDict, namedtuple
from types import MappingProxyType, SimpleNamespace
from typing import Any
from unittest import mock

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import *
from test_refusals import NAMES

# What the documentation's examples leave open; indented lines go on.
FACTS = """
type(CHILD.from_raw(GRAPH)) is type(CHILD.from_raw(GRAPH).children[0]) is CHILD
all(type(record).from_raw(record) is record for record in (
    WindowSpec(), HistoryData({}), CostResult(HALF), Metaparameters(RAW), AggregationOutput({})))
ParamSpec.from_raw("n", PARAM) is PARAM
UniverseMasks.from_raw(m := masks(a=HALF), n_alloc=3) is m
TargetInstrumentEntry.from_raw(entry := TargetInstrumentEntry({}), 5) is entry
ParamSpec.from_mapping([PARAM, NAMED]) == [PARAM, ParamSpec("row", default=NAMED)]
[*ParamSpec.coerce_specs([ParamSpec("n"), b := ParamSpec("b"), PARAM]).values()] == [PARAM, b]
np.shares_memory(CostResult(HALF)[1:], HALF)
not np.shares_memory(np.array(CostResult(HALF)), HALF)
all([list(bucket) for bucket in vars(StageData.from_mapping(form(STAGE))).values()] ==
    [["a", 5], ["b", "e"], ["c", "d"]] for form in FORMS)
all(np.array_equal(cut(start, end).flat["a"], ARRAY[start:end])
    for start, end in ((1, 3), (-2, None), (np.int64(1), 99)))
np.shares_memory(cut(1, 3).flat["a"], ARRAY)
np.array_equal(cut(1, 3).nested["b"]["v"], ARRAY[1:3])
cut(1, 3).nested["b"]["deep"] is INNER["deep"]
cut(1, 3).nested["e"] is WITHOUT
[s := StageData({}, {}, RAW), s.slice_t(0, 1) == s, s.slice_t(0, 1).opaque is s.opaque][1:] == [
    True, False]
StageData().flat is not StageData().flat
[setattr(s := StageData(), "extra", 1), vars(s)][1] == {
    "flat": {}, "nested": {}, "opaque": {}, "extra": 1}
type(type("Child", (StageData,), {})().slice_t(0, 1)) is StageData
type("Child", (StageData,), {"from_mapping": repr}).from_optional_mapping(RAW) == repr(RAW)
coerce_state(HALF).data is coerce_state(HALF.view(ArrayChild)).data.base is HALF
vars(t := coerce_state([HALF])) and vars(t.items_[0]) and states_equal(t, [HALF])
coerce_state([typed := coerce_state([HALF])]).items_[0] is typed
type(states_equal(np.float64(1), np.float64(1))) is np.bool_
states_equal({"x": ODD, "y": 1}, {"x": ODD, "z": 1}) is False
type(states_equal(StateScalar(np.int64(1)), 1)) is np.bool_
[(e := type("Child", (InvalidFunctionStateError,), {})("m", reason="r")).args, e.reason] == [
    ("m",), "r"]
"""
FORMS = dict, DictSubclass, MappingProxyType, Registered, OrderedDict
ARRAY = np.arange(10.0).reshape(5, 2)
INNER, WITHOUT = {"v": ARRAY, "deep": {"v": ARRAY}, "n": 3}, {"k": 1}
STAGE = {"a": ARRAY, "b": INNER, "c": 7, "d": MappingProxyType({}), "e": WITHOUT, 5: np.zeros(5)}
CHILD = type("Child", (ts.FunctionGraphNode,), {})
GRAPH = {"op": "x", "children": [{"op": "y"}]}
NAMED = SimpleNamespace(name="row", default=3)
PARAM = ts.ParamSpec("n", "int", 20, 5, 50, True, ts.WindowSpec(5, 50, 20))
RAW = {"s": {"a": 1}}
ODD = ts.StateScalar(np.zeros(2))  # whose comparison raises


def cut(start: Any, end: Any) -> ts.StageData:
    return ts.StageData.from_mapping(STAGE).slice_t(start, end)


@pytest.mark.parametrize("fact", re.sub("\n +", " ", FACTS.strip()).splitlines())
@pytest.mark.filterwarnings("ignore:__array__ implementation:DeprecationWarning")
def test_facts(fact: str) -> None:
    for path in (contextlib.nullcontext(), canonical_path()):
        with path:
            assert eval(fact, {**NAMES, **globals()}) is True


# --- Dataclasses in full ---

INSTANCES = [
    ts.FunctionState("f", 1, {"a": 1}),
    ts.FunctionGraphNode("rotation", "rank"),
    ts.WindowSpec(1, 240, 60),
    ts.ParamSpec("p", "int", 3, window=ts.WindowSpec(1, 5)),
    ts.LiveCheckpoint({"s": {}}, {}),
    ts.UniverseMasks({"a": np.ones(3)}, 3),
    ts.HistoryData({"close": np.zeros((2, 3))}),
    ts.CostResult(np.zeros(3), {"fee": np.ones(3)}),
    ts.Evidence({"a": 1}),
    ts.CheckpointManifest(1, 2, {"a": "b"}, {"x": 3}),
    ts.Metaparameters({"p": {"s": "o"}}),
    ts.StageData({"a": np.zeros(3)}, {"b": {}}, {"c": 1}),
    ts.EraIndexManifest(2, "era_index", {"e": 1}),
    ts.TargetInstrumentEntry({"k": 1}),
    ts.AggregationOutput({"a.b": np.zeros((2, 2))}),
    ts.StateScalar(1),
    ts.StateArray(np.zeros(3)),
    ts.StateMapping({"a": ts.StateScalar(1)}),
    ts.StateSequence((ts.StateScalar(1),)),
]


def test_a_property_in_the_place_of_a_field_is_asked(monkeypatch: pytest.MonkeyPatch) -> None:
    record = ts.Evidence({"a": 1})
    monkeypatch.setattr(ts.Evidence, "data", property(lambda self: {"a": 2}), raising=False)
    assert (record["a"], record.get("a"), [*record.values()]) == (2, 2, [2])


@pytest.mark.parametrize("record", INSTANCES, ids=lambda record: type(record).__name__)
def test_is_a_dataclass_in_full(record: Any) -> None:
    cls, parameters = type(record), type(record).__dataclass_params__
    values = {field.name: getattr(record, field.name) for field in dataclasses.fields(record)}
    assert [*dataclasses.asdict(record)] == [*values]

    buffers: list[Any] = []
    data = pickle.dumps(record, 5, buffer_callback=buffers.append)
    assert bool(buffers) == ("array" in repr(record))
    for clone in (
        cls(**values),
        cls(*values.values()),
        copy.copy(record),
        copy.deepcopy(record),
        dataclasses.replace(record),
        pickle.loads(data, buffers=buffers),
        *[pickle.loads(pickle.dumps(record, protocol)) for protocol in range(2, 6)],
    ):
        assert (type(clone), list(vars(clone))) == (cls, list(values))
        assert describe(clone) == describe(record)
    # The notes that copies and msgspec.convert leave in the class do not slow it down.
    with mock.patch.object(cls, "__msgspec_cache__", None, create=True):
        assert "__slotnames__" in vars(cls)
        assert python_calls(lambda: cls(**values)) == []
    if parameters.frozen:
        pytest.raises(dataclasses.FrozenInstanceError, setattr, record, next(iter(values)), 1)

    class Child(cls):  # type: ignore[misc, valid-type]
        def __post_init__(self) -> None:
            object.__setattr__(self, "seen", True)

    assert hasattr(Child(*values.values()), "seen") == hasattr(cls, "__post_init__")
    assert type(Child(*values.values())) is Child
