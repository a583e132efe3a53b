"""State values, their equality, and the restore contract."""

from __future__ import annotations

import math
import sys
import types
from collections import OrderedDict, namedtuple
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import (
    ArrayChild,
    DictChild,
    ListChild,
    canonical_path,
    outcome,
)

Scalar, Array = ts.StateScalar, ts.StateArray
Map, Seq = ts.StateMapping, ts.StateSequence
NAN = float("nan")

# --- Coercion ---


def test_coercion_by_kind() -> None:
    point = namedtuple("point", "x y")
    array = np.zeros(3)
    table = [
        *[(x, Scalar(x)) for x in (None, True, 3, 2.5, "x", b"ab", {1, 2}, 1j, np.float64(1.0))],
        ([1, 2], Seq((Scalar(1), Scalar(2)))),
        (point(1, 2), Seq((Scalar(1), Scalar(2)))),
        (ListChild([1]), Seq((Scalar(1),))),
        ({1: "a", "1": "b"}, Map({"1": Scalar("b")})),
        ({None: 1, True: 2, 1.5: 3}, Map({"None": Scalar(1), "True": Scalar(2), "1.5": Scalar(3)})),
        (DictChild(a=[1, (2,)]), Map({"a": Seq((Scalar(1), Seq((Scalar(2),))))})),
        (types.MappingProxyType({"a": 1}), Scalar(types.MappingProxyType({"a": 1}))),
        (OrderedDict(a=[]), Map({"a": Seq(())})),
    ]
    for raw, expected in table:
        assert ts.coerce_state(raw) == expected
        with canonical_path():
            assert ts.coerce_state(raw) == expected
    assert ts.coerce_state(array).data is array
    assert ts.coerce_state(array.view(ArrayChild)).data.base is array
    typed = ts.coerce_state([array])
    for value in (typed, *typed.items_):
        assert vars(value) and ts.states_equal(value, [array]) is (value is typed)
    assert ts.coerce_state(typed) is typed
    assert ts.coerce_state([typed]).items_[0] is typed
    assert list(ts.coerce_state({1: 0, "b": 0, "1": 0}).entries) == ["1", "b"]


def test_stop_iteration_below_an_item() -> None:
    class Key:
        def __str__(self) -> str:
            raise StopIteration("key")

    with pytest.raises(StopIteration):
        ts.coerce_state({"a": {Key(): 1}})
    with pytest.raises(RuntimeError, match="generator raised StopIteration") as caught:
        ts.coerce_state({"a": [{Key(): 1}]})
    assert isinstance(caught.value.__cause__, StopIteration)
    assert caught.value.__context__ is caught.value.__cause__


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
    (None, None, True),
    (None, 0, False),
    (None, Scalar(None), False),
    ([None], [None], True),
    (NAN, NAN, True),
    (np.float64("nan"), NAN, True),
    ([np.float32("nan")], [np.float32("nan")], False),
    (True, 1, True),
    (1, 1.0, True),
    (0.0, -0.0, True),
    (2**70, float(2**70), True),
    (2**53 + 1, float(2**53), False),
    ("a", b"a", False),
    ([1, 2], (1, 2), True),
    ([1, 2], [1, 2, 3], False),
    ({"a": 1, "b": 2}, {"b": 2, "a": 1}, True),
    ({1: "x"}, {"1": "x"}, True),
    ({1: "x", "1": "y"}, {"1": "y"}, True),
    ({"a": 1}, {"a": 1, "b": 2}, False),
    ({"a": 1}, {"b": 1}, False),
    (np.zeros(2), [0.0, 0.0], False),
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
    (np.array([1, 2]), np.array([1.0, 2.0]), False),
    (np.array([1.0]), np.array([1.0 + 1e-12]), False),
    (np.zeros(0, np.int8), np.zeros(0, np.int8), True),
    (np.array(2**53 + 1), np.array(2**53), True),  # float64 cannot tell them apart
    (np.array([2**62, 1]), np.array([2**62, 2]), False),
    *[(np.array([0, NAN], t), np.array([-0.0, -NAN], t), True) for t in ("f2", "f4", "f8", "c16")],
]


@pytest.mark.parametrize(("a", "b", "expected"), EQUAL)
def test_equality(a: Any, b: Any, expected: bool) -> None:
    for x, y in ((a, b), (b, a), ([a], [b]), ({"k": a}, {"k": b})):
        nested_none = x is not a and x is not b and (a is None) != (b is None)
        wanted = expected
        if nested_none:
            other = b if a is None else a
            wanted = isinstance(other, ts.StateScalar)
        assert bool(ts.states_equal(x, y)) is wanted
        with canonical_path():
            assert bool(ts.states_equal(x, y)) is wanted


def test_a_scalar_result_is_handed_on_as_it_is() -> None:
    assert type(ts.states_equal(np.float64(1), np.float64(1))) is np.bool_
    assert type(ts.states_equal(Scalar(np.int64(1)), 1)) is np.bool_
    assert ts.states_equal([np.float64(1)], [1.0]) is True
    assert ts._states_value_equal(1, 1) is False
    with pytest.raises(ValueError, match="ambiguous"):
        ts.states_equal([Scalar(np.zeros(2))], [Scalar(np.zeros(2))])


def test_payloads_that_contain_themselves() -> None:
    a: list[Any] = [1]
    a.append(a)
    b: dict[str, Any] = {"x": 1}
    b["y"] = b
    for call in (
        lambda: ts.coerce_state(a),
        lambda: ts.states_equal(a, a),
        lambda: ts.states_equal([2, a], [3, a]),
        lambda: ts.states_equal(b, {"x": 2, "y": {}}),
        lambda: ts.states_equal(1, b),
    ):
        assert outcome(call)[0][1] == "RecursionError"
        with canonical_path():
            assert outcome(call)[0][1] == "RecursionError"


def test_a_difference_is_final_only_where_the_rest_can_be_coerced() -> None:
    with pytest.raises(ValueError, match="4300 digits"):
        ts.states_equal([1, {10**5000: 1}], [2, 3])


def test_rebound_collaborators_are_followed(monkeypatch: pytest.MonkeyPatch) -> None:
    calls: list[str] = []

    def spy(name: str, original: Any) -> Any:
        def called(*args: Any, **options: Any) -> Any:
            calls.append(name)
            return original(*args, **options)

        return called

    pair = {"a": [NAN, np.zeros(2)]}, {"a": [NAN, np.zeros(2)]}
    for holder, name in (
        (ts, "coerce_state"),
        (ts, "_states_value_equal"),
        (np, "allclose"),
        (math, "isnan"),
    ):
        with monkeypatch.context() as patch:
            patch.setattr(holder, name, spy(name, getattr(holder, name)))
            assert ts.states_equal(*pair) is True
    assert set(calls) == {"coerce_state", "_states_value_equal", "allclose", "isnan"}
    calls.clear()
    with monkeypatch.context() as patch:
        patch.setattr(np, "allclose", lambda *args, **options: 1 / 0)
        pytest.raises(ZeroDivisionError, ts.states_equal, np.zeros(2), np.zeros(2))
    assert ts.states_equal(*pair) is True
    assert calls == []
