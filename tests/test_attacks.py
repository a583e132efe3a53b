"""What payloads, their callbacks and whoever else is around may try during a call."""

import contextlib
import gc
import inspect
import itertools
import signal
import sys
import threading
from collections import OrderedDict
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import Registered, allocations, canonical_path, python_calls
from test_records import INSTANCES

# --- Growth ---

GROWTH: list[tuple[Any, Any, Callable[[Any], Any]]] = [  # a leaf, what goes around it, the call
    (OrderedDict(op=1), lambda x: {"op": "x", "args": [{"op": 1}, x, {"op": 2}]}, ts.coerce_graph),
    (5, lambda x: {"op": "x", "args": [{"op": "a"}, x]}, ts.coerce_graph),
    (OrderedDict(a=1), lambda x: {"a": [1, 2], "x": [x, (3,)]}, ts.coerce_state),
    (OrderedDict(a=1), lambda x: [[1], {"x": x}, 2], lambda x: ts.states_equal(x, x)),
]  # fmt: skip


@pytest.mark.parametrize(("leaf", "around", "call"), GROWTH)
def test_work_grows_with_the_payload_and_not_with_its_depth(
    leaf: Any, around: Any, call: Any
) -> None:
    counts = []
    for depth in (100, 200, 300):
        payload = leaf
        for _ in range(depth):
            payload = around(payload)
        counts.append(allocations(call, payload))
    assert counts[2] - counts[1] < 1.2 * (counts[1] - counts[0])


# --- Object arrays that hold arrays ---


def nested(inner: Any, levels: int, wrap: Any = lambda x: x, dtype: Any = object) -> list[Any]:
    """Arrays in arrays; without an inner object, the last in the first."""
    arrays = [np.zeros(1, dtype) for _ in range(levels)]
    for i, array in enumerate(arrays):
        array[0] = wrap([*arrays[i + 1 : i + 2], arrays[0] if inner is None else inner][0])
    return arrays


SUBARRAY = np.ones(1, [("x", object, (2,)), ("no_object", np.intp)])
SUBARRAY["x"][0, 1] = SUBARRAY
NESTED = [[SUBARRAY], nested(None, 1), nested(None, 2), nested(None, 2, lambda x: [{"a": (x,)}]),
          nested(None, 2, lambda x: (x,), [("x", object)]), nested(1, 200_000)]  # fmt: skip
COMPARED: list[Callable[[Any], Any]] = [
    lambda x: ts.states_equal(x, x.copy()),
    lambda x: ts.states_equal([ts.StateScalar(x)], [ts.StateScalar(x.copy())]),
    lambda x: ts.coerce_graph({"op": x}),
]


def test_arrays_that_hold_themselves_end_in_recursion_errors() -> None:
    for arrays, call in itertools.product(NESTED, COMPARED):
        for path in (contextlib.nullcontext(), canonical_path()):
            with path:
                pytest.raises(RecursionError, call, arrays[0])
    shared = nested(np.ones(2, object), 9, lambda x: [x, x])
    unreadable = np.zeros(2, [("x", object), ("text", "U1")])
    unreadable["text"].view("u4")[:] = 0x7FFFFFFF
    empty, claims = np.dtype([("a", object, (0,))]), np.dtype("V8")
    claims.__setstate__((3, "|", (empty, (1,)), None, None, 8, 1, empty.flags))
    larger = np.ndarray(1, {"names": ["x"], "formats": [claims], "offsets": [0], "itemsize": 16})
    for array in (shared[0], unreadable, np.empty((1 << 40, 0), object), larger):
        assert ts.states_equal(array, array.copy()) is True
    for arrays in NESTED:
        for array in arrays:  # one by one: to drop them at once is as deep
            array[0] = 0


def test_rings_of_lists_do_not_hide_what_is_below_them() -> None:
    heads, below = list[Any](), np.ones(2, object)
    for _ in range(10):
        one: list[Any] = [below]
        two = [one]
        one.append(two)
        heads.append(one)
        below = nested(two, 40)[0]
    root = np.empty(11, object)
    root[:] = [*heads, below]
    other, came = root.copy(), list[type[BaseException]]()

    def compare() -> None:
        try:
            ts.states_equal(root, other)
        except RecursionError as error:
            came.append(type(error))

    before = threading.stack_size(512 * 1024)
    (thread := threading.Thread(target=compare)).start()
    threading.stack_size(before)
    thread.join()
    assert came == [RecursionError]


def test_an_init_with_other_code_is_called() -> None:
    init = ts.LiveCheckpoint.__init__
    code = init.__code__
    for call in (ts.LiveCheckpoint, lambda: ts.LiveCheckpoint.from_raw({})):
        init.__code__ = code.replace(co_name="other")
        called = python_calls(call)
        init.__code__ = code
        assert "other" in called and "other" not in python_calls(call)


# --- Signals and other threads ---


class Endless(list[Any]):
    """A list whose items come from an iterator of the interpreter's own."""

    def __init__(self, iterator: Any) -> None:
        self.iterator = iterator

    def __iter__(self) -> Any:
        return self.iterator


def test_a_signal_is_heeded_in_the_middle_of_a_walk() -> None:
    def stop(*_: Any) -> None:
        raise KeyboardInterrupt

    numbers = iter(range(5_000_000))
    before = signal.signal(signal.SIGALRM, stop)
    signal.setitimer(signal.ITIMER_REAL, 0.02)
    try:
        pytest.raises(KeyboardInterrupt, ts.coerce_state, Endless(numbers))
    finally:
        signal.signal(signal.SIGALRM, before)
    assert next(numbers, None) is not None


def test_other_threads_run_in_the_middle_of_a_walk() -> None:
    ended: list[None] = []
    waits = iter(ended.__len__, 1)
    thread = threading.Timer(0.02, ended.append, [None])
    thread.start()
    walked = ts.coerce_state(Endless(itertools.islice(waits, 5_000_000)))
    thread.join()
    assert len(walked.items_) < 5_000_000


# --- What a callback sees, and what it may change ---


class Rebinding(dict[Any, Any]):
    """Binds a global of the module to something else while it is looked at."""

    __hash__ = object.__hash__  # type: ignore[assignment]

    def __init__(self, name: str) -> None:
        self.rebind = name

    def __repr__(self) -> str:
        setattr(ts, self.rebind, None)
        return "shown"

    __str__ = __repr__

    def keys(self) -> Any:
        return [self.__repr__()]

    def __getitem__(self, key: Any) -> Any:
        return 1

    @property
    def name(self) -> str:
        ts.ParamSpec.from_raw = None  # type: ignore[method-assign,assignment]
        return "n"


class Asked(ts.StateMapping):
    """A mapping of states whose entries, asked for the third time, bind a global anew."""

    @property
    def entries(self) -> Any:  # type: ignore[override]
        vars(self)["times"] = vars(self).get("times", 0) + 1
        if self.times == 3:
            ts._states_value_equal = None  # type: ignore[assignment]
        return {"a": ts.StateScalar(1)}


LOOKED_UP_FIRST = [  # what is called has been looked up when its arguments are made
    ("SchemaError", lambda: ts.FunctionGraphNode(Rebinding("SchemaError")), ts.SchemaError),
    ("SchemaError", lambda: ts.UniverseMasks({Rebinding("SchemaError"): 1}, 1), ts.SchemaError),
    ("_reject_function_state", lambda: ts.validate_function_state(
        5, expected_name=Rebinding("_reject_function_state"), expected_version=1),
     ts.InvalidFunctionStateError),
    ("StageData", lambda: ts.StageData({}, {}, Rebinding("StageData")).slice_t(0, 1), None),
    ("from_raw", lambda: ts.ParamSpec.from_mapping([Rebinding("from_raw")]), None),
    ("_states_value_equal", lambda: ts.states_equal(*map(object.__new__, [Asked, Asked])), None),
]  # fmt: skip


def test_a_callable_is_looked_up_before_its_arguments_are_made(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    for name, call, error in LOOKED_UP_FIRST:
        holder = ts.ParamSpec if name == "from_raw" else ts
        for path in (contextlib.nullcontext(), canonical_path()):
            with path, monkeypatch.context() as patch:
                patch.setattr(holder, name, inspect.getattr_static(holder, name))  # undone later
                pytest.raises(error, call) if error else call()


class Keeping(Registered):
    """A mapping that keeps what it is offered as a default, and answers None."""

    def get(self, key: Any, default: Any = None) -> Any:
        if default is not None:
            self.kept = [*getattr(self, "kept", []), default]
        return self.data.get(key)


def test_no_record_shares_the_default_that_a_mapping_kept() -> None:
    raw = Keeping({"op": "x"})
    node = ts.coerce_graph(raw)
    node.children.append(1), node.config.update(a=1)
    assert raw.kept == [[], {}]


def test_bound_arguments_with_their_defaults_make_the_same_record() -> None:
    for record in INSTANCES:
        kept = {name: value for name, value in vars(record).items() if name[0] != "_"}
        for given in ({}, dict([*kept.items()][:-1]), kept):
            with contextlib.suppress(TypeError):
                bound = inspect.signature(type(record)).bind(**given)
                bound.apply_defaults()
                made = type(record)(*bound.args, **bound.kwargs)
                assert repr(made) == repr(type(record)(**given))


@pytest.mark.skipif(
    sys.version_info >= (3, 12), reason="since 3.12 no allocation starts a collection"
)
def test_a_collection_while_a_record_is_made_may_patch_its_class(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    class Patching:
        def __del__(self) -> None:
            ts.Evidence.__post_init__ = lambda self: calls.append(self)

    calls, data, collected = list[Any](), dict[str, Any](), set[bool]()
    own = vars(ts.Evidence)["__post_init__"]
    for allocation in range(9):
        with monkeypatch.context() as patch:
            patch.setattr(ts.Evidence, "__post_init__", own)  # undone later
            cycle = Patching()
            cycle.me = cycle  # type: ignore[attr-defined]
            del cycle
            gc.set_threshold(gc.get_count()[0] + allocation)
            ts.Evidence(data)
            gc.set_threshold(100_000)
            collected.add(is_patched := vars(ts.Evidence)["__post_init__"] is not own)
            assert is_patched == bool(calls)
            gc.collect()
        calls.clear()
    gc.set_threshold(700, 10, 10)
    assert collected == {True, False}
