"""Native functions stand in for Python functions; test_reference.py has what they show."""

import copy
import functools
import inspect
import pickle
import types
import weakref
from concurrent.futures import ThreadPoolExecutor
from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts

NATIVE = type(ts.coerce_graph)


def test_keywords_of_callers_in_c_are_strings() -> None:
    call = pytest.importorskip("_testcapi").pyobject_vectorcall
    for keywords in ((1,), ("bogus", 1)):
        with pytest.raises(TypeError, match=r"^coerce_state\(\) keywords must be strings$"):
            call(ts.coerce_state, (1, 2, 3)[: 1 + len(keywords)], keywords)


def test_a_thread_is_refused_before_it_has_memory_to_throw() -> None:
    memory = pytest.importorskip("_testcapi")

    def work() -> None:
        memory.set_nomemory(0, 0)
        try:
            ts.states_equal(None, None)
        finally:
            memory.remove_mem_hooks()

    with ThreadPoolExecutor(1) as pool:
        assert type(pool.submit(work).exception()) is MemoryError


def test_any_call_may_be_the_first_of_its_thread() -> None:
    one = ts.Evidence({"a": True})
    for call in (lambda: "a" in one, lambda: one["a"], lambda: ts.Evidence({"a": True}) == one):
        with ThreadPoolExecutor(1) as pool:
            assert pool.submit(call).result() is True


def test_arguments_live_as_long_as_the_call() -> None:
    class Payload(dict[str, Any]):
        def get(self, key: str, default: Any = None) -> Any:
            changed.__setstate__((print, (), {}, None))  # nobody else had the payload
            return super().get(key, default)

    for function in (ts.FunctionGraphNode.from_raw, ts.coerce_graph):
        changed = functools.partial(function, Payload(op="x"))
        assert changed().node == "x"


# --- Standing in for Python functions ---


def test_works_with_the_tools_for_functions() -> None:
    function: Any = ts.coerce_state
    assert pickle.loads(pickle.dumps(function)) is function
    assert pickle.loads(pickle.dumps(ts.WindowSpec.picked)) is ts.WindowSpec.picked
    assert pickle.loads(pickle.dumps(ts.WindowSpec.from_raw))(3) == ts.WindowSpec(value=3)
    assert copy.deepcopy(function) is function
    assert weakref.ref(function)() is function
    assert functools.partial(function, raw=2)().value == 2
    assert functools.wraps(function)(lambda raw: raw).__name__ == "coerce_state"
    assert isinstance(ts.WindowSpec().picked, types.MethodType)
    assert function.__get__(None, object) is function
    assert repr(function).startswith("<function coerce_state at 0x")
    pytest.raises(TypeError, NATIVE)


def test_attributes_can_be_changed_as_on_functions() -> None:
    function: Any = ts._param_name
    saved = function.__doc__, function.__annotations__, function.__module__
    function.__doc__, function.__module__, function.note = 5, None, "kept"
    function.__annotations__ = {}
    assert (function.__doc__, function.__module__, function.note) == (5, None, "kept")
    assert vars(function) == {"note": "kept"}
    odd = type("Odd", (), {"__hash__": lambda _: hash("spec"), "__eq__": lambda *_: 1 / 0})
    function.__annotations__ = {odd(): int}
    pytest.raises(ZeroDivisionError, inspect.signature, function)
    del function.__doc__, function.note
    assert function.__doc__ is None
    for name, value in (("__name__", 1), ("__qualname__", None), ("__annotations__", [])):
        with pytest.raises(TypeError, match=name):
            setattr(function, name, value)
    function.__doc__, function.__annotations__, function.__module__ = saved
