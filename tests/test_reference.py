"""The native module shows the same surface as the reference; test_agreement.py has the answers."""

import ast
import dataclasses
import inspect
import itertools
import re
import typing
from collections.abc import Iterator
from types import ModuleType
from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts

import reference
from reference import FOLDER, SECTIONS
from reference.arguments import misfit

PLAIN = reference.load()
FIELD = "name type default default_factory init repr hash compare kw_only".split()
COMPILED = {"__firstlineno__", "__static_attributes__"}  # notes of 3.13 about a class statement
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
        defaults = function.__defaults__, function.__kwdefaults__
        return seen, function.__globals__ is vars(module), [value is None for value in defaults]
    assert set(typing.get_type_hints(value)) == set(vars(value).get("__annotations__", ()))
    seen["mro"] = [cls.__qualname__ for cls in value.__mro__]
    seen["members"] = sorted({*vars(value)} - COMPILED)
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


# --- The stub, as text: a type checker takes a misspelt name in it for Any ---

STUB = FOLDER.parent / "functions" / "_typed_shapes.pyi"
SHARPER = {  # where the stub says more
    "_reject_function_state ->": "NoReturn",
    "StageData.from_raw ->": "NoReturn",
    "StageData.slice_t t_start": "int | None",
    "StageData.slice_t t_end": "int | None",
    "StageData.feature_names ->": "set[str]",
    "CostResult.__array__ dtype": "DTypeLike | None",
}


def annotation(node: ast.expr | None, owner: str) -> str:
    text = ast.unparse(node).replace("'", "") if node else ""
    text = re.sub(r"\b(Dict|List|Tuple)\b", lambda found: found[0].lower(), text)
    text = re.sub(r"^Optional\[(.*)\]$", r"\1 | None", text)
    text = re.sub(r"NDArray\[[\w.]+\]|\b_Mask\b", "np.ndarray", text)
    return re.sub(r"^Self$", owner, text)


def declared(body: list[ast.stmt], owner: str = "") -> Iterator[tuple[str, tuple[str, str]]]:
    """Every field, parameter and result that a module declares, with annotation and default."""
    for node in body:
        if isinstance(node, ast.ClassDef):
            yield from declared(node.body, node.name)
        elif isinstance(node, ast.AnnAssign) and owner:
            default = ast.unparse(node.value) if node.value else ""
            yield (
                f"{owner}.{ast.unparse(node.target)}",
                (annotation(node.annotation, owner), default),
            )
        elif isinstance(node, ast.FunctionDef) and "overload" not in map(
            ast.unparse, node.decorator_list
        ):
            name, given = f"{owner}.{node.name}".lstrip("."), node.args
            defaults = [None] * (len(given.args) - len(given.defaults)) + given.defaults
            for arg, value in zip(
                given.args + given.kwonlyargs, defaults + given.kw_defaults, strict=True
            ):
                text = ast.unparse(value) if value else ""
                yield f"{name} {arg.arg}", (annotation(arg.annotation, owner), text)
            yield f"{name} ->", (annotation(node.returns, owner), "")


def test_the_stub_declares_what_the_reference_does() -> None:
    sections = [(FOLDER / f"{section}.py").read_text() for section in SECTIONS]
    plain = dict(itertools.chain(*(declared(ast.parse(text).body) for text in sections)))
    stub = dict(declared(ast.parse(STUB.read_text()).body))
    missing = {name.split()[0] for name in plain if name not in stub}
    assert missing == {"UniverseMasks.get", "Evidence.get", "StageData.value"}  # overloaded
    for name, (text, default) in plain.items():
        if name.split()[0] in missing:
            continue
        names = {SHARPER.get(name, text), *([stub[name][0]] if text == "" else [])}
        assert stub[name][0] in names and stub[name][1] in (default, "..."), name


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
