"""Every entry point on random payloads, down both paths."""

from __future__ import annotations

import contextlib
import gc
import random
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import (
    CASES,
    SLOTS,
    ArrayChild,
    Claims,
    DictChild,
    EmptyLookingStr,
    Hostile,
    Registered,
    StrChild,
    both_paths,
)

Window, Param = ts.WindowSpec, ts.ParamSpec
ERA = {"schema_version": 2, "bundle_kind": "era_index"}


def odd_parts(rng: random.Random, log: list[str]) -> list[Any]:
    def act() -> None:
        raise LookupError("hostile")

    dtype = rng.choice(["?", "i8", "f2", "f4", "f8", ">f8", ">f2", "O", "U1"])
    shape = rng.choice([(3,), (3, 1), (), (0,), (2, 3)])
    array = np.zeros(shape, dtype)
    if dtype == "f2" and array.size:
        array.flat[-1] = rng.choice([0.0, 1.0, np.nan, -0.0, 0.5, np.inf])
    return [
        array,
        np.zeros(rng.choice([6, (6, 3)]))[::2],
        np.asfortranarray(np.zeros((2, 3))),
        np.zeros(7, "u1")[1:].view("f2"),
        array.view(ArrayChild),
        Claims(np.ndarray),
        Claims(dict),
        Hostile(log, rng.choice(SLOTS), rng.randrange(3), act),
        DictChild(a=array),
        {"x": array, "y": 1},
        {"x": 1},
        {},
        [],
        [("k", 1)],
        StrChild("s"),
        True,
        2,
        1.5,
        None,
        "text",
        Window(1, 2),
        Param("p"),
        SimpleNamespace(name="n"),
    ]


def random_payload(rng: random.Random, log: list[str], oddness: float) -> Any:
    ordinary = rng.choice([np.zeros((2, 3)), np.zeros(3), {"min": 1, "max": 5}, {"x": 1}])
    pool = """signals nodes tick_timestamp dag_metadata canonical_id_to_filename schema_version
    bundle_kind epochs min max default value type variadic window a.b total""".split()
    payload: dict[Any, Any] = {}
    for name in rng.sample(pool, rng.randrange(1, 7)):
        key: Any = "".join([name])
        if rng.random() < oddness:
            key = rng.choice([StrChild(name), "", 5, None, EmptyLookingStr(name)])
        payload[key] = rng.choice(odd_parts(rng, log)) if rng.random() < oddness else ordinary
    if rng.random() < 0.3:
        payload.update(ERA)
    if rng.random() < oddness:
        return rng.choice([DictChild, MappingProxyType, Registered, lambda p: [*p.values()]])(
            payload
        )
    return payload


ENTRIES: list[Any] = [
    lambda raw: Window.from_raw(raw),
    lambda raw: Window(*list(getattr(raw, "values", lambda: raw)())[:4]),
    lambda raw: Param.from_raw("window", raw),
    lambda raw: Param.coerce_specs(raw),
    lambda raw: ts.LiveCheckpoint.from_raw(raw),
    lambda raw: ts.UniverseMasks(raw, 3),
    lambda raw: ts.UniverseMasks.from_raw(raw, n_alloc=3),
    lambda raw: ts.HistoryData.from_raw(raw),
    lambda raw: ts.CostResult(np.zeros(2), raw),
    lambda raw: ts.Evidence.from_raw(raw),
    lambda raw: ts.CheckpointManifest.from_raw(raw),
    lambda raw: ts.Metaparameters.from_raw(raw),
    lambda raw: ts.StageData.from_mapping(raw).slice_t(0, 1),
    lambda raw: ts.StageData.from_mapping(raw).feature_names(),
    lambda raw: ts.EraIndexManifest.from_raw(raw),
    lambda raw: ts.TargetInstrumentEntry.from_raw(raw, 1),
    lambda raw: ts.AggregationOutput.from_raw(raw),
]


@pytest.mark.parametrize("number", range(len(ENTRIES)))
def test_paths_agree(number: int) -> None:
    kinds = set()
    for seed in range(CASES // 4):
        logs: list[list[str]] = []

        def make(seed: int = seed) -> Any:
            logs.append([])
            rng = random.Random(seed * len(ENTRIES) + number)
            raw = random_payload(rng, logs[-1], (0.0, 0.1, 0.5)[seed % 3])
            return lambda: ENTRIES[number](raw)

        fast, canonical = both_paths(make)
        assert fast == canonical, seed
        assert logs[0] == logs[1], seed
        kinds.add(fast[0][0])
    assert "returns" in kinds or CASES < 4000  # a short run may meet refusals only


# --- Keys that are compared ---


class Colliding:
    """A key with the hash of a name; compared with another key, it runs an action."""

    def __init__(self, name: str, action: Any) -> None:
        self.name, self.action = name, action

    def __hash__(self) -> int:
        return hash(self.name)

    def __eq__(self, other: object) -> bool:
        self.action()
        return self is other


def sparse(entries: dict[Any, Any]) -> dict[Any, Any]:
    """The dict with room from deleted entries: copies of such a dict insert the keys anew."""
    result = {**dict.fromkeys(range(40)), **entries}
    for number in range(40):
        del result[number]
    return result


def compared_keys(name: str, action: Any, value: Any) -> dict[Any, Any]:
    return sparse({Colliding(name, action): 1, name: value, Colliding(name, action): 2})


def graph_call(calls: list[str]) -> Any:
    raw: dict[str, Any] = {"type": "rotation", "node": "".join(["ra", "nk"]), "children": []}

    def action() -> None:
        calls.append("eq")
        if armed:
            raw.clear()

    armed: list[bool] = []
    raw["config"] = compared_keys("w", action, 5)
    raw["family"] = "".join(["mo", "mentum"])
    armed.append(True)
    return lambda: ts.coerce_graph(raw)


def state_call(calls: list[str]) -> Any:
    scalar, state = ts.StateScalar(5), [["x", ("y", 1.5)], None]

    def action() -> None:
        calls.append("eq")
        state.clear()

    other = [["x", ("y", 1.5)], ts.StateScalar(5)]
    state[1] = scalar
    vars(scalar).pop("value")
    vars(scalar).update({Colliding("value", action): 1})
    vars(scalar)["value"] = 5
    state[:] = [["x", ("y", 1.5)], scalar]
    calls.clear()
    return lambda: ts.states_equal(state, other)


def stage_call(calls: list[str]) -> Any:
    inner: dict[Any, Any] = {}
    armed: list[bool] = []

    def action() -> None:
        calls.append("eq")
        if armed:
            inner.clear()

    inner.update(compared_keys("v", action, np.arange(4.0)))
    stage = ts.StageData({}, {"n": inner})
    armed.append(True)
    return lambda: stage.slice_t(0, 2)


@pytest.mark.parametrize("make", [graph_call, state_call, stage_call])
def test_comparing_keys_may_change_what_is_walked(make: Any) -> None:
    logs: list[list[str]] = []

    def fresh() -> Any:
        logs.append([])
        call = make(logs[-1])
        logs[-1].clear()
        return call

    fast, canonical = both_paths(fresh)
    assert fast == canonical
    assert logs[0] == logs[1] != []


# --- Finalizers run wherever the interpreter allocates ---


class Cycle:
    """Garbage that runs an action when it is collected."""

    def __init__(self, action: Any) -> None:
        self.me, self.action = self, action

    def __del__(self) -> None:
        self.action()


def at_each_collection(action: Any, call: Any) -> None:
    """Run the call with a collection after its 1st, 2nd, ... 60th allocation."""
    threshold = gc.get_threshold()
    for allocations in range(1, 61):
        gc.collect()
        Cycle(action)
        gc.set_threshold(gc.get_count()[0] + allocations)
        try:
            call()
        finally:
            gc.set_threshold(*threshold)


def test_a_collection_may_clear_what_is_compared() -> None:
    sides: list[list[Any]] = [[], []]

    def compare() -> None:
        for side in sides:
            side[:] = [object.__new__(ts.StateScalar) for _ in range(3)] + [2.5] * 5
        with contextlib.suppress(AttributeError):
            assert ts.states_equal(*sides) is not True or not any(sides)

    at_each_collection(lambda: [side.clear() for side in sides], compare)


def test_a_collection_may_change_what_was_checked() -> None:
    by_feature: dict[str, Any] = {}

    def build() -> None:
        by_feature.clear()
        try:  # no context manager: it would allocate more than what is looked at
            history = ts.HistoryData(by_feature)
        except (ts.SchemaError, RuntimeError):  # refused, or changed under the canonical walk
            return
        assert "bad" not in history.by_feature

    at_each_collection(lambda: by_feature.update(bad=3), build)
