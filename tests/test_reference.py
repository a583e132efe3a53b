"""The native module shows the same surface as the reference; test_agreement.py has the answers."""

import dataclasses
import inspect
import itertools
import re
import typing
from types import ModuleType
from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts

import reference
from reference.arguments import misfit

PLAIN = reference.load()
FIELD = "name type default default_factory init repr hash compare kw_only".split()
SHOWN = "__module__ __name__ __qualname__ __match_args__ __annotations__".split()


def function_of(value: Any) -> Any:
    """What a method, class method or property of a class was made from."""
    return inspect.unwrap(getattr(value, "__func__", getattr(value, "fget", value)))


def look(value: Any, module: ModuleType) -> Any:
    """What somebody can find out about a class, function or constant of the module."""
    function = function_of(value)
    if getattr(function, "__module__", "") != module.__name__ or not callable(function):
        own = isinstance(value, (list, tuple, frozenset))
        return type(value), value if own else None if type(value) is object else str(value)
    seen: dict[str, Any] = {name: str(getattr(function, name, None)) for name in SHOWN}
    seen["documentation"] = inspect.cleandoc(getattr(value, "__func__", value).__doc__ or "")
    kinds = (type, classmethod, staticmethod, property)
    seen["kind"] = [kind for kind in kinds if isinstance(value, kind)]
    with_signature = not isinstance(value, type) or dataclasses.is_dataclass(value)
    for p in inspect.signature(function).parameters.values() if with_signature else ():
        default = "_MISSING" if p.default is module._MISSING else p.default
        seen[p.name] = (p.kind, default, type(default), p.annotation)
    if not isinstance(value, type):
        # Each annotation has a meaning where it stands.
        assert set(typing.get_type_hints(function)) == set(function.__annotations__)
        return seen, function.__globals__ is vars(module), function.__defaults__ is None
    assert set(typing.get_type_hints(value)) == set(vars(value).get("__annotations__", ()))
    seen["mro"] = [cls.__qualname__ for cls in value.__mro__]
    seen["members"] = sorted(vars(value))
    if dataclasses.is_dataclass(value):
        seen["decorator"] = repr(value.__dataclass_params__)  # type: ignore[attr-defined]
        fields = dataclasses.fields(value)
        seen["fields"] = [[getattr(field, name) for name in FIELD] for field in fields]
    return seen


def surface(module: ModuleType) -> dict[str, Any]:
    """Every name of a module and of its classes, with what it shows, in order."""
    shown: dict[str, Any] = {"documentation": module.__doc__}
    for name, value in vars(module).items():
        if not name.startswith("__") or name == "__all__":
            shown[name] = look(value, module)
            if isinstance(value, type) and value.__module__ == module.__name__:
                for member, inner in sorted(vars(value).items()):
                    if getattr(function_of(inner), "__module__", "") == module.__name__:
                        shown[f"{name}.{member}"] = look(inner, module)
    return shown


# Before the tests: those that take a name away put it back at the end.
NATIVE, REFERENCE = surface(ts), surface(PLAIN)


def test_names_and_their_order() -> None:
    assert list(NATIVE) == list(REFERENCE)


@pytest.mark.parametrize("name", REFERENCE)
def test_surface(name: str) -> None:
    assert NATIVE[name] == REFERENCE[name]


# --- Arguments ---

BINDING_ERROR = re.compile(r"\w+\(\) (takes|needs|got) ")
BOUND = type(ts.coerce_graph)


def functions(module: ModuleType) -> dict[str, Any]:
    classes = [value for value in vars(module).values() if isinstance(value, type)]
    holders = [module, *(cls for cls in classes if cls.__module__ == module.__name__)]
    values = [function_of(value) for holder in holders for value in vars(holder).values()]
    return {getattr(value, "__qualname__", ""): value for value in values}


OURS = {name: f for name, f in functions(ts).items() if type(f) is BOUND}


@pytest.mark.parametrize("name", OURS)
def test_arguments_bind_as_the_reference_says(name: str) -> None:
    function, plain = OURS[name], functions(PLAIN)[name]
    names = [*inspect.signature(plain).parameters, "bogus", "other"]
    for given in range(len(names)):
        for count in range(min(len(names), 4) + 1):
            for keywords in itertools.permutations(names, count):
                error = ""
                try:
                    function(*[object()] * given, **dict.fromkeys(keywords, object()))
                except Exception as raised:
                    error = str(raised) if BINDING_ERROR.match(str(raised)) else ""
                assert error == misfit(plain, given, keywords), (given, keywords)
