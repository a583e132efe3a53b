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


NUMBERS = [
    "?",
    "i1",
    "u1",
    "i2",
    "u2",
    "i4",
    "u4",
    "i8",
    "u8",
    "q",
    "Q",
    "f2",
    "f4",
    "f8",
    "c8",
    "c16",
    "g",
]
EDGES = [0.0, -0.0, 1.0, NAN, -NAN, math.inf, -math.inf, 5e-324, 65504.0, 3.4e38, 1.7e308, 9e307]
INTEGERS = [0, 1, 2**53, 2**53 + 1, 2**62, -1, 127, -128, 255]


def random_array(rng: random.Random, dtype: str) -> np.ndarray:
    shape = rng.choice([(), (0,), (1,), (3,), (5,), (2, 3), (3, 0), (1025,)])
    size = math.prod(shape)
    edges = EDGES if dtype[0] in "fcg" else INTEGERS
    with np.errstate(all="ignore"):
        values = [rng.choice(edges) if rng.random() < 0.1 else float(i % 3) for i in range(size)]
        array = np.array(values, dtype=np.clongdouble if dtype[0] == "c" else np.longdouble)
        if dtype[0] == "c":
            array = array + 1j * np.array(values[::-1], np.longdouble)
        array = array.astype(dtype).reshape(shape)
    if dtype == "?" and size and rng.random() < 0.2:
        array = np.asarray(array.astype("u1") * np.uint8(rng.choice([1, 2, 255]))).view("?")
    form = rng.randrange(8)
    if form == 0:
        array = array.astype(array.dtype.newbyteorder())
    elif form == 1:
        array = np.repeat(array, 2, axis=0)[::2] if array.ndim else array
    elif form == 2:
        array = np.asfortranarray(array)
    elif form == 3:
        buffer = (
            np.zeros(array.nbytes + 1, "u1")[1:].view(array.dtype) if array.ndim == 1 else array
        )
        array = buffer if array.ndim != 1 else np.copyto(buffer, array) or buffer
    elif form == 4:
        array = array.view(ArrayChild)
    elif form == 5 and array.ndim:
        array = np.ma.masked_array(array, mask=array == 1)
    return array


def change_one(rng: random.Random, array: np.ndarray) -> np.ndarray:
    copy = array.copy()
    if copy.size:
        with np.errstate(all="ignore"):
            copy.flat[rng.randrange(copy.size)] = rng.choice([0, 1, 3])
    return copy


def test_arrays_agree_with_numpy_everywhere() -> None:
    rng = random.Random(5)
    verdicts = {True: 0, False: 0}
    for _ in range(CASES):
        dtype = rng.choice(NUMBERS)
        a = random_array(rng, dtype)
        draw = rng.random()
        if draw < 0.4:
            b = a.copy(order=rng.choice("CF"))
        elif draw < 0.8:
            b = change_one(rng, a)
        else:
            b = random_array(rng, rng.choice([dtype, rng.choice(NUMBERS)]))
        pair = (a, b) if rng.random() < 0.5 else ({"x": [a]}, {"x": (b,)})
        fast, canonical = both_paths(lambda pair=pair: lambda: ts.states_equal(*pair))
        assert fast == canonical, (a, b)
        verdicts[fast[0][1][1] == "True"] += 1
    assert min(verdicts.values()) > CASES // 8


ARRAYS = hnp.arrays(
    st.sampled_from([np.dtype(name) for name in ("f8", "f4", "f2", "i8", "c16", "?", ">f8", "U2")]),
    hnp.array_shapes(min_dims=0, max_dims=2, min_side=0, max_side=3),
)
LEAVES = st.none() | st.booleans() | st.integers() | st.floats() | st.text(max_size=2) | ARRAYS
STATES = st.recursive(
    LEAVES,
    lambda inner: (
        st.lists(inner, max_size=3)
        | st.lists(inner, max_size=3).map(tuple)
        | st.dictionaries(st.text(max_size=2) | st.integers(0, 9), inner, max_size=3)
    ),
)


@settings(deadline=None)
@given(STATES, STATES)
def test_paths_agree_on_states(a: Any, b: Any) -> None:
    for call in (
        lambda: ts.states_equal(a, b),
        lambda: ts.states_equal(a, a),
        lambda: ts.states_equal(ts.coerce_state(a), b),
        lambda: ts._states_value_equal(ts.coerce_state(a), ts.coerce_state(b)),
        lambda: ts.coerce_state(a),
    ):
        fast, canonical = both_paths(lambda call=call: call)
        assert fast == canonical


# --- Random and hostile states ---


def random_state(rng: random.Random, log: list[str], depth: int, oddness: float, act: Any) -> Any:
    if rng.random() < oddness:
        return rng.choice(
            [
                lambda: Hostile(log, rng.choice(SLOTS), rng.randrange(3), act),
                lambda: DictChild(a=1),
                lambda: ListChild([1]),
                lambda: StrChild("s"),
                lambda: Claims(rng.choice([dict, list, ts.StateScalar])),
                lambda: np.arange(3.0).view(ArrayChild),
                lambda: Map({"a": 1}),
                lambda: Map({1: Scalar(1)}),
                lambda: Seq([Scalar(1), 2]),
                lambda: Scalar(np.zeros(2)),
                lambda: np.array([NAN, 1.0], object),
                lambda: {1, 2},
            ]
        )()
    kind = rng.randrange(6 if depth else 3)
    children = (
        [random_state(rng, log, depth - 1, oddness, act) for _ in range(rng.randrange(4))]
        if depth
        else []
    )
    if kind == 0:
        return rng.choice([None, True, 1, 1.0, NAN, "a", b"a", 2**60, -0.0])
    if kind == 1:
        return rng.choice([np.float64(NAN), np.float32(1), np.int64(1), 1j])
    if kind == 2:
        return np.array(rng.choice([[1.0, NAN], [1.0], [True], [7]]))
    if kind == 3:
        return children
    if kind == 4:
        return tuple(children)
    keys = [rng.choice(["a", "b", "c", 1, "1", None, StrChild("a")]) for _ in children]
    return dict(zip(keys, children, strict=True))


def test_paths_agree_on_random_and_hostile_states() -> None:
    results = set()
    for seed in range(CASES):
        logs: list[list[str]] = []

        def make(seed: int = seed) -> Callable[[], Any]:
            log: list[str] = []
            logs.append(log)
            rng = random.Random(seed)
            walked: list[Any] = []

            def act() -> None:
                choice = seed % 4
                if choice == 0:
                    raise LookupError("hostile")
                if choice == 1:
                    for container in walked:
                        getattr(container, "clear", lambda: None)()
                elif choice == 2:
                    ts.states_equal([1, {"a": 2}], [1, {"a": 2}])
                else:
                    gc.collect()

            oddness = (0.0, 0.05, 0.2)[seed % 3]
            a = random_state(rng, log, 3, oddness, act)
            same = rng.random() < 0.5
            state = random.Random(seed) if same else rng
            b = random_state(state, log, 3, oddness, act)
            walked.extend(x for x in (a, b) if isinstance(x, (list, dict)))
            return lambda: ts.states_equal(a, b)

        fast, canonical = both_paths(make)
        assert fast == canonical, seed
        assert logs[0] == logs[1], seed
        results.add(fast[0][:2] if fast[0][0] == "raises" else str(fast[0]))
    assert len(results) >= 4


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
