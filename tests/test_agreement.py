"""Every entry point on random payloads, down both paths and on the reference."""

import dataclasses
import functools
import gc
import importlib
import random
import re
import sys
import traceback
from typing import Any
from unittest import mock

import hostile
import numpy as np
import pytest
import support
from generators import GENERATORS, RECORDS
from harden.catalogue import FAST, Call
from quillmere.functions import _typed_shapes as ts
from support import (
    CASES,
    SEED,
    agree_on,
    allocations,
    both_paths,
    canonical_path,
    outcome,
    python_calls,
)
from test_records import INSTANCES

import reference

# Under a name of its own, by which `pickle` finds it.
PLAIN = sys.modules["plain_shapes"] = reference.load("plain_shapes")

# The generators once more, of payloads and calls for the reference.
with mock.patch.object(support, "ts", PLAIN), mock.patch.dict(sys.modules):
    del sys.modules["generators"], sys.modules["parts"]
    TWINS = importlib.import_module("generators").GENERATORS


def expected(name: str, source: random.Random) -> Any:
    """The outcome on the reference of what the generator of this name makes."""
    (*came, tree), warned = outcome(*TWINS[name](source))
    return (*(text.replace(PLAIN.__name__, ts.__name__) for text in came), tree), warned


def chunks(name: str) -> list[Any]:
    """Up to a thousand cases each, so that processes share the work and a crash has its seeds."""
    share = 16 if "hostile" in name else 8 if "(" in name else 1
    seeds = np.arange(SEED, SEED + max(1, CASES // share))
    return [(name, part) for part in np.array_split(seeds, -(-len(seeds) // 1000))]


CHUNKS = [chunk for name in GENERATORS for chunk in chunks(name)]


@pytest.mark.parametrize(("name", "seeds"), CHUNKS, ids=[f"{n}-{s[0]}" for n, s in CHUNKS])
def test_paths_agree(name: str, seeds: np.ndarray) -> None:
    seen = agree_on(GENERATORS[name], seeds, functools.partial(expected, name))
    assert gc.isenabled()
    gc.collect()
    assert not hostile.ALIVE
    assert CASES < 100 or "hostile" in name or seen["raises"] < 0.9 * seen.total()
    if name in ("states", "arrays"):
        assert CASES < 100 or min(seen["True"], seen["False"]) > len(seeds) // 8


@pytest.mark.parametrize("text", FAST.strip().splitlines())
def test_what_fits_is_served_by_the_fast_path(text: str) -> None:
    fast = python_calls(Call(text))
    with canonical_path():
        assert len(python_calls(Call(text))) > len(fast)
    assert fast == ["__call__"]


# Walks that run no Python code on either path, each with what the fast one takes.
ATOMS = [None, True, 5, 2.5, "x", b"x", np.float64(1)]
LOOSE: list[Any] = [{}, [], (), {"a": 1}]
TYPED = [ts.StateScalar(1), ts.StateMapping({}), ts.StateSequence(())]
WALKS = {
    "coerce_state([x])": [*ATOMS, *LOOSE, *TYPED, ts.StateArray(np.ones(1)), np.ones(1)],
    "states_equal([x], [x])": [*ATOMS, *LOOSE, *TYPED],
    "_states_value_equal(x, x)": TYPED[1:],
    "states_equal({'a': 2, 'b': 3}, {**x, 'a': 2})": [{"b": 3}],
    "coerce_graph({'op': 'a', 'config': x})": [*ATOMS[:5], *LOOSE],
    "StageData.from_mapping({'x': x})": [*ATOMS, *LOOSE, np.ones(1)],
    "StageData({}, {'n': {'x': x}}).slice_t(0, 1)": [*ATOMS, *LOOSE],
    "StageData({}, {'n': {'x': [None]}}).slice_t(x, x)": [None, 1],
}


@pytest.mark.parametrize("text", WALKS)
def test_a_walk_of_the_fast_path_allocates_less(text: str) -> None:
    call = eval(f"lambda x: {text}", vars(ts))
    for value in WALKS[text]:
        fast = allocations(call, value)
        with canonical_path():
            assert fast < allocations(call, value), value


def functions_of_refusal(text: str) -> list[str]:
    with pytest.raises(ts.SchemaError) as caught:
        eval(text, vars(ts))
    return [frame.f_code.co_name for frame, _ in traceback.walk_tb(caught.tb)]


@pytest.mark.parametrize("text", ["StageData(1)", "FunctionGraphNode('')", "CostResult(total=1)"])
def test_a_constructor_refuses_without_the_generated_init(text: str) -> None:
    assert "__init__" not in functions_of_refusal(text)
    with canonical_path():
        assert "__init__" in functions_of_refusal(text)


def test_every_record_is_in_every_table() -> None:
    classes = {name for name, cls in vars(ts).items() if dataclasses.is_dataclass(cls)}
    tables = {"INSTANCES": repr(INSTANCES), "FAST": FAST, "RECORDS": str(RECORDS)}
    missing = {name: [cls for cls in classes if f"{cls}(" not in t] for name, t in tables.items()}
    assert not any(missing.values()), missing


# --- Every value of a mask, at every place ---


def refused_at(mask: Any) -> Any:
    """The index that the refusal of a mask names; None where it is taken."""
    try:
        ts.UniverseMasks({"a": mask}, mask.size)
    except ts.SchemaError as error:
        return int(re.search(r"at index (\d+): ", str(error))[1])  # type: ignore[index]
    return None


def test_every_pattern_of_a_mask() -> None:
    patterns = np.arange(1 << 16, dtype="u2").view("f2")
    taken = [refused_at(patterns[i : i + 1]) is None for i in range(patterns.size)]
    expected = np.isnan(patterns) | (patterns == 1) | (patterns.view("u2") == 0)
    assert np.array_equal(taken, expected)


def test_a_misfit_anywhere_in_a_mask() -> None:
    mask = np.resize(np.array([0, 1, np.nan], "f2"), 5001)
    assert refused_at(mask) is None
    for place in range(mask.size):
        kept = mask[place]
        mask[place] = 0.5
        assert refused_at(mask) == place
        mask[place] = kept


# --- Keys that are compared, and collections ---


class Colliding(str):
    """A name that runs an action when it is compared, and equals no other."""

    __hash__ = str.__hash__

    def action(self) -> None: ...

    def __eq__(self, other: object) -> bool:
        self.action()
        return self is other


def test_keywords_have_a_say_in_a_constructor() -> None:
    for keyword in ("minimum", "type"):
        fast, canonical = both_paths(lambda: (lambda: ts.WindowSpec(**{Colliding(keyword): 1}),))
        assert fast == canonical
        assert fast[0][1] == "TypeError"


def test_a_bucket_is_read_anew_after_its_keys_were_compared() -> None:
    key = Colliding("k")
    stage = ts.StageData({key: 1, "k": 2})
    key.action = lambda: setattr(stage, "flat", {"k": 3})
    assert stage.value("k") == 3


@pytest.mark.skipif(
    sys.version_info >= (3, 12), reason="since 3.12 no allocation starts a collection"
)
@pytest.mark.parametrize("side", [0, 1])
def test_a_collection_may_change_what_was_checked(side: int) -> None:
    by_feature: dict[str, Any] = {}
    states = [[object.__new__(ts.StateScalar)] * 3 + [2.5] * 5 for _ in range(2)]
    wholes, threshold = [list(state) for state in states], gc.get_threshold()

    def change(phase: str, info: Any) -> None:
        by_feature.update(bad=3)
        for state in states:
            state.clear()

    for count in range(40):
        by_feature.clear()
        for state, whole in zip(states, wholes, strict=True):
            state[:] = whole
        gc.callbacks.append(change)
        gc.set_threshold(gc.get_count()[0] + count)
        try:  # no context manager: it would allocate more than what is looked at
            if side:
                assert "bad" not in ts.HistoryData(by_feature).by_feature
            else:
                assert ts.states_equal(*states) is not True or not any(states)
        except (ts.SchemaError, RuntimeError, AttributeError):  # as on the canonical walk
            pass
        finally:
            gc.set_threshold(*threshold)
            gc.callbacks.remove(change)
