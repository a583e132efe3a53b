"""What every record takes, and that it is a dataclass in full."""

from __future__ import annotations

import copy
import dataclasses
import inspect
import pickle
from collections import OrderedDict
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import (
    DictChild,
    Registered,
    outcome,
    python_calls,
)

Window, Param = ts.WindowSpec, ts.ParamSpec
HALF = np.array([np.nan, 0.0, 1.0], np.float16)
MANIFEST = {
    "tick_timestamp": None,
    "dag_metadata": 1,
    "canonical_id_to_filename": [("a", "b")],
    "x": 2,
    5: 6,
}
ERA = {"schema_version": 2, "bundle_kind": "era_index"}


# --- What is taken, and what becomes of it ---


def test_windows() -> None:
    assert Window.from_raw(None) is None
    assert Window.from_raw(60) == Window(value=60)
    spec = Window.from_raw({"min": 1, "max": 240, "default": 60, "minimum": 9})
    assert spec == Window(1, 240, 60)
    assert Window.from_raw(spec) is spec
    picks = [
        (Window(1, 240, 60), {}, 60),
        (Window(1, 240), {}, 240),
        (Window(1, 240), {"clamp_to": 100}, 100),
        (Window(1, 240), {"clamp_to": 99.5}, 99.5),
        (Window(1, 5000), {}, 1440),
        (Window(2000, 5000), {}, 2000),
        (Window(1), {}, None),
        (Window(), {}, None),
        (Window(10, 20, value=7), {}, 7),
    ]
    for window, options, expected in picks:
        assert window.picked(**options) == expected
    with pytest.raises(TypeError):
        Window(1, 2).picked("x")


def test_parameters() -> None:
    assert Param.from_raw("x", None) == Param("x")
    assert Param.from_raw("x", [1]) == Param("x", default=[1])
    full = Param.from_raw("n", {"type": "int", "min": 5, "max": 50, "default": 20, "variadic": 1})
    assert full == Param("n", "int", 20, 5, 50, True, Window(5, 50, 20))
    assert Param.from_raw("window", {"default": 60}).window == Window(default=60)
    window = Window(1, 240, 60)
    wrapped = Param.from_raw("any", window)
    assert (wrapped.window, wrapped.default, wrapped.type) == (window, 60, None)
    assert Param.from_raw("n", full) is full
    assert Param.from_raw("m", full) == dataclasses.replace(full, name="m")
    entry = SimpleNamespace(name="row", default=3)
    assert Param.from_mapping(None) == []
    assert Param.from_mapping([full, entry]) == [full, Param("row", default=entry)]
    specs = Param.coerce_specs({"a": 1, "b": {"type": "str"}})
    assert list(specs) == ["a", "b"]
    twice = Param.coerce_specs([Param("a", default=1), Param("b"), Param("a", default=2)])
    assert [(name, spec.default) for name, spec in twice.items()] == [("a", 2), ("b", None)]


def test_live_payloads() -> None:
    inner = {"a": 1}
    raw = {"signals": {"s": inner}, "nodes": [("n", {})], "else": 1}
    live = ts.LiveCheckpoint.from_raw(MappingProxyType(raw))
    assert live == ts.LiveCheckpoint({"s": inner}, {"n": {}})
    assert live.signals is not raw["signals"]
    assert live.signals["s"] is inner
    assert ts.LiveCheckpoint.from_raw({"signals": 0}) == ts.LiveCheckpoint()
    with pytest.raises(ValueError, match="dictionary update sequence"):
        ts.LiveCheckpoint.from_raw({"nodes": "text"})

    by_tag = {"a": HALF, "b": np.array([0.5, -0.0, 7.0]), "c": np.array([True, False, True])}
    universe = ts.UniverseMasks.from_raw(DictChild(by_tag), n_alloc=3)
    assert type(universe.by_tag) is dict
    assert universe["a"] is universe.get("a") is HALF
    assert "x" not in universe
    assert (universe.get("x"), universe.get("x", 5)) == (None, 5)
    assert list(universe.keys()) == list(dict(universe.items())) == ["a", "b", "c"]
    assert ts.UniverseMasks.from_raw(universe, n_alloc=3) is universe
    assert ts.UniverseMasks({"a": np.ones(1)}, True).n_alloc is True
    pytest.raises(KeyError, universe.__getitem__, "x")

    history = ts.HistoryData.from_raw(DictChild(close=np.zeros((2, 3)).T))
    assert type(history.by_feature) is dict
    assert "close" in history
    assert history["close"].shape == (3, 2)
    assert ts.HistoryData.from_raw(history) is history

    evidence = ts.Evidence.from_raw(MappingProxyType({"a": 1}))
    keys = evidence.keys()
    evidence[5] = 6
    assert list(keys) == ["a", 5]
    assert dict(evidence.items()) == {"a": 1, 5: 6}
    assert (list(evidence.values()), 5 in evidence, evidence.get("x", 7)) == ([1, 6], True, 7)
    assert ts.Evidence.from_raw(None) == ts.Evidence.from_raw({}) == ts.Evidence()


def test_a_cost_result_reads_as_its_total() -> None:
    total = np.arange(6.0).reshape(3, 2)
    result = ts.CostResult(total, {"Total": np.zeros(1), "fee": np.zeros(5, int)})
    assert (result.shape, len(result), result[1, 1]) == ((3, 2), 3, 3.0)
    assert np.shares_memory(result[1:], total)
    assert np.asarray(result) is total
    assert np.asarray(result, dtype=np.float32).dtype == np.float32
    assert ts.CostResult.from_raw(result) is result
    assert inspect.getdoc(ts.CostResult.shape).endswith("for direct engine tests and diagnostics.")
    pytest.raises(TypeError, len, ts.CostResult(np.zeros(())))
    pytest.raises(AttributeError, setattr, result, "shape", (1,))


@pytest.mark.filterwarnings("ignore:__array__ implementation:DeprecationWarning")
def test_numpy_copies_a_cost_result() -> None:
    total = np.arange(3.0)
    result = ts.CostResult(total)
    copies = [np.array(result)]
    if int(np.__version__.split(".")[0]) >= 2:
        copies.append(np.asarray(result, copy=True))
    for made in copies:
        assert np.array_equal(made, total)
        assert not np.shares_memory(made, total)


def test_manifests() -> None:
    for payload in (MANIFEST, DictChild(MANIFEST), Registered(MANIFEST), OrderedDict(MANIFEST)):
        manifest = ts.CheckpointManifest.from_raw(payload)
        assert manifest == ts.CheckpointManifest(None, 1, {"a": "b"}, {"x": 2, 5: 6})
        assert list(manifest.extras) == ["x", 5]
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        ts.CheckpointManifest.from_raw({**MANIFEST, "canonical_id_to_filename": 5})
    epochs = {"e1": [0, 10]}
    era = ts.EraIndexManifest.from_raw({**ERA, "epochs": epochs, "note": "x", 3: 4})
    assert (era.epochs, era.extras) == (epochs, {"note": "x", 3: 4})
    assert era.epochs is not epochs
    assert ts.EraIndexManifest.from_raw({**ERA, "epochs": [1]}).epochs == {}
    assert ts.EraIndexManifest(2.0, "era_index", {}).schema_version == 2.0
    pools = {"p1": {"rank": "a"}, "p2": {}}
    typed = ts.Metaparameters.from_raw(pools)
    assert typed.by_pool == pools
    assert typed.by_pool["p1"] is pools["p1"]
    assert ts.Metaparameters.from_raw(typed) is typed
    for flat in (None, {}, [], "x", {"a": "b"}, {"p": {}, "q": 1}, MappingProxyType(pools)):
        assert ts.Metaparameters.from_raw(flat) is None
    payload = {"k": 1}
    entry = ts.TargetInstrumentEntry.from_raw(payload, 0)
    assert entry.payload is payload
    assert ts.TargetInstrumentEntry.from_raw(entry, 5) is entry
    output = ts.AggregationOutput.from_raw({"a.b": HALF, "abc": np.zeros(())})
    assert list(output) == list(dict(output.items())) == ["a.b", "abc"]
    assert ts.AggregationOutput.from_raw(None) is None
    assert ts.AggregationOutput.from_raw(output) is output


def test_stage_data() -> None:
    array = np.arange(10.0).reshape(5, 2)
    proxy = MappingProxyType({})
    no_array, inner = {"k": 1}, {"v": array, "deep": {"v": array}, "n": 3}
    raw = {"a": array, "b": inner, "c": 7, "d": proxy, "e": no_array, 5: np.zeros(5)}
    for payload in (raw, DictChild(raw), Registered(raw)):
        stage = ts.StageData.from_mapping(payload)
        assert [list(bucket) for bucket in (stage.flat, stage.nested, stage.opaque)] == [
            ["a", 5],
            ["b", "e"],
            ["c", "d"],
        ]
    for start, end in ((1, 3), (-2, None), (np.int64(1), 99)):
        cut = stage.slice_t(start, end)
        assert np.array_equal(cut.flat["a"], array[start:end])
        assert np.shares_memory(cut.flat["a"], array)
        assert cut.nested["b"]["v"].shape == array[start:end].shape
        assert cut.nested["b"]["deep"] is inner["deep"]
        assert cut.nested["e"] is no_array
        assert cut.nested["b"] is not inner
        assert cut.opaque == stage.opaque
        assert cut.opaque is not stage.opaque
    assert type(type("Child", (ts.StageData,), {})().slice_t(0, 1)) is ts.StageData
    assert stage.feature_names() == {"a"}
    for flat, error in (({"x": 5}, TypeError), ({"x": int}, TypeError), ({"x": "abc"}, None)):
        odd = ts.StageData(flat)
        if error is None:
            assert odd.slice_t(0, 2).flat == {"x": "ab"}
        else:
            with pytest.raises(error, match="object is unsliceable"):
                odd.slice_t(0, 2)
    pytest.raises(AttributeError, ts.StageData({"x": 5}).feature_names)
    pytest.raises(AttributeError, ts.StageData({}, {"x": 5}).slice_t, 0, 1)

    twice = ts.StageData({"k": 1}, {"k": 2}, {"k": 3})
    assert twice.value("k") == 1
    twice.set_value("k", {"x": 1})
    assert (twice.flat, twice.nested, twice.opaque) == ({}, {"k": {"x": 1}}, {})
    twice.set_value("k", array)
    twice.set_value("o", 5)
    assert (list(twice.flat), twice.nested, twice.opaque) == (["k"], {}, {"o": 5})
    assert (twice.value("o"), twice.value("x", None), twice.has_value("o")) == (5, None, True)
    with pytest.raises(KeyError) as caught:
        twice.value(("a", "b"))
    assert caught.value.args == (("a", "b"),)
    pytest.raises(TypeError, twice.set_value, [], 1)
    empty = ts.StageData.from_optional_mapping(None)
    assert empty.is_empty()
    assert not twice.is_empty()
    calls: list[Any] = []
    child = type(
        "Child", (ts.StageData,), {"from_mapping": classmethod(lambda *a: calls.append(a))}
    )
    assert child.from_optional_mapping({}) is None
    assert calls == [(child, {})]


# --- Dataclasses in full ---

INSTANCES = [
    ts.FunctionState("f", 1, {"a": 1}),
    ts.FunctionGraphNode("rotation", "rank"),
    Window(1, 240, 60),
    Param("p", "int", 3, window=Window(1, 5)),
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
FROZEN = """FunctionState WindowSpec ParamSpec Metaparameters TargetInstrumentEntry
AggregationOutput StateScalar StateArray StateMapping StateSequence""".split()


def values_of(record: Any) -> dict[str, Any]:
    return {field.name: getattr(record, field.name) for field in dataclasses.fields(record)}


def same(a: Any, b: Any) -> bool:
    return outcome(lambda: a)[0] == outcome(lambda: b)[0]


@pytest.mark.parametrize("record", INSTANCES, ids=lambda record: type(record).__name__)
def test_is_a_dataclass_in_full(record: Any) -> None:
    cls = type(record)
    values = values_of(record)
    assert cls.__bases__ == (object,)
    assert cls.__qualname__ == cls.__name__
    assert cls.__module__ == ts.__name__
    assert cls.__match_args__ == tuple(values)
    assert list(cls.__annotations__) == list(values)
    assert all(type(text) is str for text in cls.__annotations__.values())
    assert list(inspect.signature(cls).parameters) == list(values)
    parameters = cls.__dataclass_params__
    assert parameters.frozen == (cls.__name__ in FROZEN)
    assert parameters.eq == (cls is not ts.FunctionGraphNode)

    for clone in (
        cls(**values),
        cls(*values.values()),
        copy.copy(record),
        copy.deepcopy(record),
        dataclasses.replace(record),
        *[pickle.loads(pickle.dumps(record, protocol)) for protocol in range(2, 6)],
    ):
        assert type(clone) is cls
        assert same(clone, record)
        assert list(vars(clone)) == list(values)
    assert python_calls(lambda: cls(**values)) == []  # copies leave __slotnames__ in the class
    buffers: list[Any] = []
    data = pickle.dumps(record, 5, buffer_callback=buffers.append)
    assert same(pickle.loads(data, buffers=buffers), record)
    assert bool(buffers) == any("array" in str(outcome(lambda v=v: v)) for v in values.values())
    assert list(dataclasses.asdict(record)) == list(values)
    first = next(iter(values))
    if parameters.frozen:
        with pytest.raises(dataclasses.FrozenInstanceError):
            setattr(record, first, 1)

    class Child(cls):  # type: ignore[misc, valid-type]
        def __post_init__(self) -> None:
            object.__setattr__(self, "seen", True)

    assert hasattr(Child(*values.values()), "seen") == hasattr(cls, "__post_init__")
    assert type(Child(*values.values())) is Child
    match record:
        case cls(first_value):
            assert first_value is values[first]


def test_a_changed_default_factory_and_fields_stay_apart() -> None:
    a, b = ts.StageData(), ts.StageData()
    assert a.flat is not b.flat
    a.extra, a.flat = 1, {"x": 2}
    assert vars(a) == {"flat": {"x": 2}, "nested": {}, "opaque": {}, "extra": 1}
    del a.nested
    pytest.raises(AttributeError, lambda: a.nested)
    assert repr(b) == "StageData(flat={}, nested={}, opaque={})"
