"""Native functions: what they show, and how they take arguments."""

from __future__ import annotations

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
from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts

NATIVE = type(ts.coerce_graph)


def native_functions() -> list[Any]:
    found = [value for value in vars(ts).values() if type(value) is NATIVE]
    for cls in (value for value in vars(ts).values() if isinstance(value, type)):
        if cls.__module__ != ts.__name__:
            continue
        for value in vars(cls).values():
            inner = getattr(value, "__func__", getattr(value, "fget", value))
            if type(inner) is NATIVE:
                found.append(inner)
    return found


FUNCTIONS = native_functions()


def signature_line(function: Any) -> str:
    return str(function.__doc__).split("\n")[0]


class Parsed:
    """The signature line, read by Python's own parser."""

    def __init__(self, line: str) -> None:
        head, _, rest = line.partition("(")
        namespace: dict[str, Any] = {"_MISSING": ts._MISSING}
        code = f"from __future__ import annotations\ndef f({rest}: pass"
        exec(compile(code, "signature", "exec"), namespace)
        self.function = namespace["f"]
        self.name = head.rpartition(".")[2]
        self.qualname = head
        self.signature = inspect.signature(self.function)


@pytest.mark.parametrize("function", FUNCTIONS, ids=lambda f: f.__qualname__)
def test_shows_what_its_signature_line_says(function: Any) -> None:
    parsed = Parsed(signature_line(function))
    assert function.__name__ == parsed.name
    assert function.__qualname__ == parsed.qualname
    assert function.__module__ == ts.__name__
    assert function.__globals__ is vars(ts)
    assert function.__annotations__ == parsed.function.__annotations__
    assert list(function.__annotations__) == list(parsed.function.__annotations__)
    assert function.__defaults__ == parsed.function.__defaults__
    assert function.__kwdefaults__ == parsed.function.__kwdefaults__
    assert inspect.signature(function) == parsed.signature
    assert set(typing.get_type_hints(function)) == set(function.__annotations__)


# --- Binding ---


def expected_error(parsed: Parsed, given: int, keywords: tuple[str, ...]) -> str | None:
    parameters = list(parsed.signature.parameters.values())
    positional = [p for p in parameters if p.kind is not p.KEYWORD_ONLY]
    required = sum(1 for p in positional if p.default is p.empty)
    filled = {p.name for p in positional[:given]}

    def count_error(number: int) -> str:
        low = number < required
        quantity = "exactly" if required == len(positional) else ("at least" if low else "at most")
        bound = required if low else len(positional)
        plural = "" if bound == 1 else "s"
        return (
            f"{parsed.name}() takes {quantity} {bound} positional argument{plural} ({number} given)"
        )

    if given > len(positional):
        return count_error(given)
    for index, parameter in enumerate(positional):
        missing = parameter.name not in filled and parameter.name not in keywords
        if missing and parameter.default is parameter.empty:
            return count_error(index)
    for parameter in parameters[len(positional) :]:
        if parameter.default is parameter.empty and parameter.name not in keywords:
            return f"{parsed.name}() needs keyword-only argument {parameter.name}"
    for keyword in keywords:
        if keyword in filled:
            return f"{parsed.name}() got multiple values for keyword argument '{keyword}'"
    for keyword in keywords:
        if keyword not in parsed.signature.parameters:
            return f"{parsed.name}() got an unexpected keyword argument '{keyword}'"
    return None


BINDING_ERROR = re.compile(r"\w+\(\) (takes|needs|got) ")


@pytest.mark.parametrize("function", FUNCTIONS, ids=lambda f: f.__qualname__)
def test_arguments_bind_as_the_line_says(function: Any) -> None:
    parsed = Parsed(signature_line(function))
    names = [*parsed.signature.parameters, "bogus", "other"]
    for given in range(len(parsed.signature.parameters) + 2):
        for count in range(min(len(names), 4) + 1):
            for keywords in itertools.permutations(names, count):
                arguments = [object() for _ in range(given)]
                try:
                    function(*arguments, **{keyword: object() for keyword in keywords})
                    error = None
                except Exception as raised:
                    text = str(raised)
                    error = text if BINDING_ERROR.match(text) else None
                assert error == expected_error(parsed, given, keywords), (given, keywords)


def test_keywords_are_matched_by_value() -> None:
    class Name(str):
        __slots__ = ()

    name = "".join(["r", "a", "w"])
    assert ts.coerce_state(**{name: 1}).value == 1
    assert ts.coerce_state(**{Name("raw"): 1}).value == 1
    with pytest.raises(TypeError, match="unexpected keyword argument 'r\ud800'"):
        ts.coerce_state(1, **{"r\ud800": 1})


# --- Standing in for Python functions ---


def test_works_with_the_tools_for_functions() -> None:
    function: Any = ts.coerce_state
    assert pickle.loads(pickle.dumps(function)) is function
    assert pickle.loads(pickle.dumps(ts.WindowSpec.picked)) is ts.WindowSpec.picked
    assert pickle.loads(pickle.dumps(ts.WindowSpec.from_raw))(3) == ts.WindowSpec(value=3)
    assert copy.deepcopy(function) is function
    assert weakref.ref(function)() is function
    assert functools.partial(function, raw=2)().value == 2

    @functools.wraps(function)
    def wrapper(raw: object) -> object:
        return function(raw)

    assert wrapper.__name__ == "coerce_state"
    assert inspect.signature(wrapper) == inspect.signature(function)
    assert isinstance(ts.WindowSpec().picked, types.MethodType)
    assert function.__get__(None, object) is function
    assert repr(function).startswith("<function coerce_state at 0x")
    with pytest.raises(TypeError):
        NATIVE()


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


def test_takes_part_in_garbage_collection() -> None:
    function: Any = ts.coerce_graph
    referents = {id(o) for o in gc.get_referents(function)}
    for shown in (function.__doc__, function.__annotations__, function.__globals__):
        assert id(shown) in referents
    assert gc.is_tracked(function)
