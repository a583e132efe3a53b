"""Every entry point on random payloads, down both paths and on the reference."""

import functools
import gc
import importlib
import random
import sys
from typing import Any
from unittest import mock

import numpy as np
import pytest
import support
from generators import GENERATORS
from quillmere.functions import _typed_shapes as ts
from support import CASES, SEED, agree_on, both_paths, outcome

import reference

# Under a name of its own, by which `pickle` finds it.
PLAIN = sys.modules["plain_shapes"] = reference.load("plain_shapes")

# The generators once more, of payloads and calls for the reference.
with mock.patch.object(support, "ts", PLAIN), mock.patch.dict(sys.modules):
    del sys.modules["generators"]
    TWINS = importlib.import_module("generators").GENERATORS


def expected(name: str, source: random.Random) -> Any:
    """The outcome on the reference of what the generator of this name makes."""
    (*came, tree), warned = outcome(*TWINS[name](source))
    return (*(text.replace(PLAIN.__name__, ts.__name__) for text in came), tree), warned


def chunks(name: str) -> list[Any]:
    """Up to a thousand cases each, so that processes share the work and a crash has its seeds."""
    seeds = np.arange(SEED, SEED + max(1, CASES // 8 if "(" in name else CASES))
    return [(name, part) for part in np.array_split(seeds, -(-len(seeds) // 1000))]


CHUNKS = [chunk for name in GENERATORS for chunk in chunks(name)]


@pytest.mark.parametrize(("name", "seeds"), CHUNKS, ids=[f"{n}-{s[0]}" for n, s in CHUNKS])
def test_paths_agree(name: str, seeds: np.ndarray) -> None:
    seen = agree_on(GENERATORS[name], seeds, functools.partial(expected, name))
    assert gc.isenabled()
    assert CASES < 100 or seen["raises"] < 0.9 * seen.total()
    if name in ("states", "arrays"):
        assert CASES < 100 or min(seen["True"], seen["False"]) > len(seeds) // 8


# --- Keys that are compared, and collections; tests/harden/hostile.py has them at every place ---


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


@pytest.mark.parametrize("side", [0, 1])
def test_a_collection_may_change_what_was_checked(side: int) -> None:
    by_feature: dict[str, Any] = {}
    states = [[object.__new__(ts.StateScalar)] * 3 + [2.5] * 5 for _ in range(2)]
    wholes, threshold = [list(state) for state in states], gc.get_threshold()

    def change(phase: str, info: Any) -> None:
        by_feature.update(bad=3)
        for state in states:
            state.clear()

    for allocations in range(40):
        by_feature.clear()
        for state, whole in zip(states, wholes, strict=True):
            state[:] = whole
        gc.callbacks.append(change)
        gc.set_threshold(gc.get_count()[0] + allocations)
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
