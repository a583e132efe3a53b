"""States: errors on the way, equality, and what others may change about it."""

from __future__ import annotations

import contextlib
import math
import sys
from typing import Any
from unittest import mock

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import canonical_path

Scalar, Map, Seq = ts.StateScalar, ts.StateMapping, ts.StateSequence
NAN = float("nan")


def test_errors_on_the_way_leave_no_trace(monkeypatch: pytest.MonkeyPatch) -> None:
    texts = np.array(["a"]), np.array(["a"])

    def generator() -> Any:
        yield ts.states_equal(*texts)
        yield sys.exc_info()[0]

    running = generator()
    try:
        raise KeyError("outer")
    except KeyError:
        assert next(running) is True
        monkeypatch.setattr(np, "array_equal", lambda a, b: 1 / 0)
        with pytest.raises(ZeroDivisionError) as caught:
            ts.states_equal(*texts)
    assert next(running) is None
    assert isinstance(caught.value.__context__, TypeError)
    assert isinstance(caught.value.__context__.__context__, KeyError)


def test_contexts_are_chained_as_in_an_except_clause(monkeypatch: pytest.MonkeyPatch) -> None:
    first, second, third = TypeError("first"), KeyError("second"), OSError("third")

    def allclose(*args: Any, **options: Any) -> None:
        first.__context__, second.__context__ = second, third
        raise first

    def array_equal(a: Any, b: Any) -> None:
        third.__context__ = inner  # a ring already, or one that the new head would close
        raise raised

    monkeypatch.setattr(np, "allclose", allclose)
    monkeypatch.setattr(np, "array_equal", array_equal)
    for raised, inner in (OSError("last"), second), (third, None):
        pytest.raises(type(raised), ts.states_equal, np.ones(2), np.ones(2))
        assert (raised.__context__, first.__context__) == (first, second)
        assert second.__context__ is (third if inner else None)


# --- Equality ---

EQUAL = [
    (np.float64("nan"), NAN, True),
    ([np.float32("nan")], [np.float32("nan")], False),
    (1, 1.0, True),
    (0.0, -0.0, True),
    (2**70, float(2**70), True),
    (2**53 + 1, float(2**53), False),
    ("a", b"a", False),
    ([1, 2], [1, 2, 3], False),
    ({1: "x", "1": "y"}, {"1": "y"}, True),
    ({"a": 1}, {"a": 1, "b": 2}, False),
    ({"a": 1}, {"b": 1}, False),
    (Scalar(2), 2, True),
    (Map({"a": 1}), Map({"a": 1}), False),
    (Map({"a": Scalar(1)}), {"a": 1}, True),
    (Seq([Scalar(1)]), [1], True),
    (Seq((1,)), [1], False),
    (np.array(["a", "b"]), np.array(["a", "b"]), True),
    (np.array([None, 1]), np.array([None, 1]), True),
    (np.array([NAN], object), np.array([NAN], object), False),
    (np.array([1], "m8[s]"), np.array([1], "m8[s]"), True),
    (np.zeros(3), np.zeros((1, 3)), False),
    (np.zeros(0, np.int8), np.zeros(0, np.int8), True),
    (np.array(2**53 + 1), np.array(2**53), True),  # float64 cannot tell them apart
    (np.array([2**62, 1]), np.array([2**62, 2]), False),
    (np.array([complex(NAN, 1)]), np.array([complex(NAN, 2)]), True),
    *[(np.array([0, NAN], t), np.array([-0.0, -NAN], t), True) for t in ("f2", "f4", "f8", "c16")],
]


@pytest.mark.parametrize(("a", "b", "expected"), EQUAL)
def test_equality(a: Any, b: Any, expected: bool) -> None:
    for x, y in ((a, b), (b, a), ([a], [b]), ({"k": a}, {"k": b})):
        for path in (contextlib.nullcontext(), canonical_path()):
            with path:
                assert bool(ts.states_equal(x, y)) is expected


def test_rebound_collaborators_are_followed() -> None:
    pair = {"a": [NAN, np.zeros(2)]}, {"a": [NAN, np.zeros(2)]}
    names = ["coerce_state", "_states_value_equal", "allclose", "isnan"]
    for holder, name in zip((ts, ts, np, math), names, strict=True):
        with mock.patch.object(holder, name, wraps=getattr(holder, name)) as spy:
            assert ts.states_equal(*pair) is True
        times = spy.call_count
        assert ts.states_equal(*pair) is True
        assert spy.call_count == times > 0
    with mock.patch.object(np, "allclose", side_effect=OSError):
        pytest.raises(OSError, ts.states_equal, np.zeros(2), np.zeros(2))
