"""Graphs and states: equality, errors on the way, and what others may change about them."""

import contextlib
import gc
import itertools
import math
import sys
from typing import Any
from unittest import mock

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import both_paths, canonical_path, python_calls

Node, Scalar, Map, Seq = ts.FunctionGraphNode, ts.StateScalar, ts.StateMapping, ts.StateSequence
RAW = {"type": "rotation", "children": [{"type": "feature", "name": "close"}]}
NAN = float("nan")

# --- Equality ---

EQUAL = [
    (np.float64("nan"), NAN, True),
    ([np.float32("nan")], [np.float32("nan")], False),
    (1.0, NAN, False),
    ({1: "x", "1": "y"}, {"1": "y"}, True),
    (Map({"a": 1}), Map({"a": 1}), False),
    (Seq((1,)), [1], False),
    (np.array([NAN], object), np.array([NAN], object), False),
    (np.array([1], "m8[s]"), np.array([1], "m8[s]"), True),
    (np.array(2**53 + 1), np.array(2**53), True),  # float64 cannot tell them apart
    (np.array(-(2**53) - 1), np.array(-(2**53)), True),
    (np.array([2**62, 1]), np.array([2**62, 2]), False),
    (np.array([complex(NAN, 1)]), np.array([complex(NAN, 2)]), True),
    *[(np.array([1 + 1j]), np.array([other]), False) for other in (1 + 2j, 2 + 1j)],
    *[(np.array([0, NAN], t), np.array([-0.0, -NAN], t), True) for t in ("f2", "f4", "f8", "c16")],
]


# np.allclose of NumPy 2.5 multiplies a tolerance with timedeltas.
@pytest.mark.filterwarnings("ignore:The 'generic' unit:DeprecationWarning")
@pytest.mark.parametrize(("a", "b", "expected"), EQUAL)
def test_equality(a: Any, b: Any, expected: bool) -> None:
    for x, y in ((a, b), (b, a), ([a], [b]), ({"k": a}, {"k": b})):
        for path in (contextlib.nullcontext(), canonical_path()):
            with path:
                assert bool(ts.states_equal(x, y)) is expected


def test_numpy_warns_of_what_overflows() -> None:
    for kind in np.dtype("f2"), np.dtype("f4"), np.dtype("f8"), np.dtype("c8"), np.dtype("c16"):
        largest = np.finfo(kind).max
        edges = [np.array(largest * part, kind) for part in (-1, -0.6, -0.4, 0.2, 0.4, 0.6, 1)]
        for pair in itertools.product(edges, edges):
            fast, canonical = both_paths(lambda pair=pair: (ts.states_equal, *pair))
            assert fast == canonical


# --- Errors on the way ---


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
    assert isinstance(caught.value.__context__.__context__, KeyError)  # between them a TypeError


def test_contexts_are_chained_as_in_an_except_clause(monkeypatch: pytest.MonkeyPatch) -> None:
    first, second, third = TypeError("first"), KeyError("second"), OSError("third")

    def allclose(*args: Any, **options: Any) -> None:
        first.__context__, second.__context__ = second, third
        raise first

    def array_equal(a: Any, b: Any) -> None:
        raised.__context__ = None
        third.__context__ = inner  # a ring already, or one that the new head would close
        raise raised

    monkeypatch.setattr(np, "allclose", allclose)
    monkeypatch.setattr(np, "array_equal", array_equal)
    for raised, inner in (OSError("last"), second), (third, None):
        counts = set()
        for _ in range(3):
            pytest.raises(type(raised), ts.states_equal, np.ones(2), np.ones(2))
            counts.add((sys.getrefcount(first), sys.getrefcount(second), sys.getrefcount(third)))
        assert len(counts) == 1
        assert (raised.__context__, first.__context__) == (first, second)
        assert second.__context__ is (third if inner else None)


def test_a_config_is_copied_once() -> None:
    class Key:
        def __hash__(self) -> int:
            return 1

        def __eq__(self, other: object) -> bool:
            compared.append(other)
            return self is other

    compared: list[Any] = []
    config: dict[Any, Any] = {**dict.fromkeys(range(10)), Key(): None, Key(): None}
    for number in range(10):  # a dict with gaps is copied key by key
        del config[number]
    compared.clear()
    misfit = {"op": "x", "args": [{"op": "y", "params": config}, {"op": "z", "args": 5}]}
    pytest.raises(ts.SchemaError, ts.coerce_graph, misfit)
    assert len(compared) == 1


# --- What others may change ---


def test_texts_of_the_old_c_api() -> None:
    make = getattr(pytest.importorskip("_testcapi"), "unicode_legacy_string", None)
    if make is None:
        pytest.skip("3.12 did away with them")
    for raw in ({"type": "expression", "op": "feature", "name": "x"}, {"type": "x"}, {"op": "x"}):
        for key in raw:

            def call() -> Any:
                with pytest.warns(DeprecationWarning):
                    old = make(raw[key])
                return (lambda: (Node.from_raw({**raw, key: old}), Node(make(raw[key]))),)

            fast, canonical = both_paths(call)
            assert fast == canonical and fast[0][0] == "returns"


HOOKS = {"__post_init__": 2, "__init__": 2, "__setattr__": 18, "from_raw": 2}


@pytest.mark.parametrize(("hook", "times"), HOOKS.items())
def test_patched_hooks_run(hook: str, times: int) -> None:
    calls: list[str] = []
    original = getattr(Node, hook)

    def patched(*args: Any, **kwargs: Any) -> Any:
        calls.append(hook)
        return original(*args, **kwargs)

    with mock.patch.object(Node, hook, patched):
        assert ts.coerce_graph(RAW).children[0].node == "close"
    assert len(calls) == times
    ts.coerce_graph(RAW)
    assert len(calls) == times


def test_a_class_may_be_patched_and_taken_back_more_often_than_versions_are_numbered() -> None:
    for _ in range(1200):  # 3.13 gives a class a thousand numbers
        with mock.patch.object(ts.StateMapping, "__post_init__", print):
            ts.StateMapping({})
        ts.StateMapping({})
    assert not python_calls(lambda: ts.StateMapping({}))


def test_patches_of_code_and_of_modules_are_followed(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(Node.__init__, "__defaults__", ("patched", *Node.__init__.__defaults__[1:]))
    assert Node("x").node == "patched"
    cell = ts.StageData.__init__.__closure__[-1]
    with monkeypatch.context() as patch:
        patch.setattr(cell, "cell_contents", list)
        pytest.raises(ts.SchemaError, ts.StageData).match("opaque must be a dict; got list")
    from_raw = vars(ts.ParamSpec)["from_raw"]
    kept = from_raw.__func__
    from_raw.__init__(lambda cls, name, raw: name)
    assert ts.ParamSpec.from_mapping({"a": {}}) == ["a"]
    from_raw.__init__(kept)
    assert ts.ParamSpec.from_mapping({"a": {}}) == [ts.ParamSpec("a")]
    monkeypatch.setattr(ts.Evidence, "__init__", ts.Evidence)
    pytest.raises(RecursionError, ts.Evidence)
    body = {"__getattribute__": lambda self, name: {} if name == "isnan" else vars(math)[name]}
    monkeypatch.setattr(math, "__class__", type("Odd", (type(math),), body))
    pytest.raises(TypeError, ts.states_equal, [NAN], [NAN])


def test_rebound_collaborators_are_followed() -> None:
    pair = {"a": [NAN, np.zeros(2)]}, {"a": [NAN, np.zeros(2)]}
    names = ["coerce_state", "_states_value_equal", "allclose", "isnan"]
    for holder, name in zip((ts, ts, np, math), names, strict=True):
        with mock.patch.object(holder, name, wraps=getattr(holder, name)) as spy:
            assert ts.states_equal(*pair) is True
        options, times = list(spy.call_args.kwargs), spy.call_count
        assert options == (["rtol", "atol", "equal_nan"] if name == "allclose" else [])
        assert ts.states_equal(*pair) is True
        assert spy.call_count == times > 0
    assert not python_calls(lambda: ts.states_equal(*pair))
    lists = ts.StageData({"x": [1, 2]}, {"n": {"x": [1, 2]}})
    with mock.patch.object(np, "ndarray", list):
        sliced = lists.slice_t(0, 1)
    assert (sliced.flat, sliced.nested) == ({"x": [1]}, {"n": {"x": [1]}})
    with mock.patch.object(np, "allclose", side_effect=OSError):
        pytest.raises(OSError, ts.states_equal, np.zeros(2), np.zeros(2))


def test_a_million_nodes_can_be_dropped() -> None:
    raw = {"op": "x", "children": [{"op": "x", "children": [{"op": "y"}] * 1000}] * 1000}
    assert sum(len(child.children) for child in ts.coerce_graph(raw).children) == 1_000_000
    assert gc.isenabled()
