"""Native functions: what they show, and how they take arguments."""

import copy
import functools
import gc
import inspect
import itertools
import pickle
import re
import types
import typing
import weakref
from concurrent.futures import ThreadPoolExecutor
from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts

NATIVE = type(ts.coerce_graph)
CLASSES = [v for v in vars(ts).values() if getattr(v, "__module__", "") == ts.__name__]
VALUES = [*vars(ts).values(), *(v for cls in CLASSES for v in vars(cls).values())]
INNER = [getattr(value, "__func__", getattr(value, "fget", value)) for value in VALUES]
FUNCTIONS = [function for function in INNER if type(function) is NATIVE]


def parsed(function: Any) -> Any:
    """The signature line, read by Python's own parser."""
    head, _, rest = function.__doc__.split("\n")[0].partition("(")
    namespace: dict[str, Any] = {"_MISSING": ts._MISSING, "__name__": ts.__name__}
    exec(f"from __future__ import annotations\ndef f({rest}: pass", namespace)
    made = namespace["f"]
    made.__name__, made.__qualname__ = head.rpartition(".")[2], head
    return made


@pytest.mark.parametrize("function", FUNCTIONS, ids=lambda f: f.__qualname__)
def test_shows_what_its_signature_line_says(function: Any) -> None:
    line = parsed(function)
    for name in "name qualname module annotations defaults kwdefaults".split():
        assert getattr(function, f"__{name}__") == getattr(line, f"__{name}__")
    assert function.__globals__ is vars(ts)
    assert list(function.__annotations__) == list(line.__annotations__)
    assert inspect.signature(function) == inspect.signature(line)
    assert set(typing.get_type_hints(function)) == set(function.__annotations__)


# --- Binding ---


def expected_error(name: str, parameters: Any, given: int, keywords: tuple[str, ...]) -> str:
    positional = [p for p in parameters.values() if p.kind is not p.KEYWORD_ONLY]
    required = sum(p.default is p.empty for p in positional)
    filled = [p.name for p in positional[:given]]

    def count_error(number: int) -> str:
        low = number < required
        quantity = "exactly" if required == len(positional) else ("at least" if low else "at most")
        bound = required if low else len(positional)
        plural = "" if bound == 1 else "s"
        return f"{name}() takes {quantity} {bound} positional argument{plural} ({number} given)"

    if given > len(positional):
        return count_error(given)
    for index, parameter in enumerate(parameters.values()):
        if parameter.default is parameter.empty and parameter.name not in (*filled, *keywords):
            if parameter in positional:
                return count_error(index)
            return f"{name}() needs keyword-only argument {parameter.name}"
    for keyword in keywords:
        if keyword in filled:
            return f"{name}() got multiple values for keyword argument '{keyword}'"
    for keyword in keywords:
        if keyword not in parameters:
            return f"{name}() got an unexpected keyword argument '{keyword}'"
    return ""


BINDING_ERROR = re.compile(r"\w+\(\) (takes|needs|got) ")


@pytest.mark.parametrize("function", FUNCTIONS, ids=lambda f: f.__qualname__)
def test_arguments_bind_as_the_line_says(function: Any) -> None:
    name, parameters = function.__name__, inspect.signature(function).parameters
    names = [*parameters, "bogus", "other"]
    for given in range(len(parameters) + 2):
        for count in range(min(len(names), 4) + 1):
            for keywords in itertools.permutations(names, count):
                error = ""
                try:
                    function(*[object()] * given, **dict.fromkeys(keywords, object()))
                except Exception as raised:
                    error = str(raised) if BINDING_ERROR.match(str(raised)) else ""
                assert error == expected_error(name, parameters, given, keywords), (given, keywords)


def test_keywords_of_callers_in_c_are_strings() -> None:
    call = pytest.importorskip("_testcapi").pyobject_vectorcall
    for keywords in ((1,), ("bogus", 1)):
        with pytest.raises(TypeError, match=r"^coerce_state\(\) keywords must be strings$"):
            call(ts.coerce_state, (1, 2, 3)[: 1 + len(keywords)], keywords)


def test_the_collector_shows_nobody_what_a_watch_keeps() -> None:
    init = vars(ts.WindowSpec)["__init__"]
    assert sum(type(holder) is dict for holder in gc.get_referrers(init)) == 1


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
    del function.__doc__, function.note
    assert function.__doc__ is None
    for name, value in (("__name__", 1), ("__qualname__", None), ("__annotations__", [])):
        with pytest.raises(TypeError, match=name):
            setattr(function, name, value)
    function.__doc__, function.__annotations__, function.__module__ = saved
