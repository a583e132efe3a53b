"""Every entry point on random payloads, down both paths."""

from __future__ import annotations

import contextlib
import gc
from typing import Any

import numpy as np
import pytest
from generators import GENERATORS
from quillmere.functions import _typed_shapes as ts
from support import CASES, SEED, agree_on, both_paths


@pytest.mark.parametrize("name", GENERATORS)
def test_paths_agree(name: str) -> None:
    seen = agree_on(GENERATORS[name], SEED, CASES // 8 if "(" in name else CASES)
    assert gc.isenabled()
    assert CASES < 100 or seen["raises"] < 0.9 * seen.total()
    if name in ("states", "arrays"):
        assert CASES < 100 or min(seen["True"], seen["False"]) > CASES // 8


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
        return (call,)

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
