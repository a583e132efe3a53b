"""What all functions of the module share: signature lines, and messages for misfit arguments.

It stands apart from the sections, so that they read as plain Python.
"""

import functools
import inspect
from collections.abc import Callable, Iterable
from pathlib import Path
from types import FunctionType
from typing import Any


def signature_line(function: Callable[..., Any]) -> str:
    """The first line of the function's documentation."""
    parts: list[str] = []
    for parameter in inspect.signature(function).parameters.values():
        if parameter.kind is parameter.KEYWORD_ONLY and "*" not in parts:
            parts.append("*")
        text, default = parameter.name, parameter.default
        if parameter.annotation is not parameter.empty:
            text += f": {parameter.annotation}"
        if type(default) is object:
            text += " = _MISSING"
        elif default is not parameter.empty:
            text += " = " + "u" * isinstance(default, str) + repr(default)
        parts.append(text)
    line = f"{function.__qualname__}({', '.join(parts)})"
    returned = function.__annotations__.get("return")
    return line if returned is None else f"{line} -> {returned}"


def misfit(function: Callable[..., Any], given: int, keywords: Iterable[str]) -> str:
    """What is wrong with so many positional arguments and these keywords, or nothing."""
    name, parameters = function.__name__, inspect.signature(function).parameters
    positional = [p.name for p in parameters.values() if p.kind is not p.KEYWORD_ONLY]
    required = [p.name for p in parameters.values() if p.default is p.empty]
    least, filled = len({*positional} & {*required}), positional[:given]

    def count(number: int) -> str:
        few = number < least
        word = "exactly" if least == len(positional) else "at least" if few else "at most"
        bound = least if few else len(positional)
        plural = "s" * (bound != 1)
        return f"{name}() takes {word} {bound} positional argument{plural} ({number} given)"

    if given > len(positional):
        return count(given)
    for missing in required:
        if missing not in filled and missing not in keywords:
            if missing in positional:
                return count(positional.index(missing))
            return f"{name}() needs keyword-only argument {missing}"
    for keyword in keywords:
        if keyword in filled:
            return f"{name}() got multiple values for keyword argument '{keyword}'"
    for keyword in keywords:
        if keyword not in parameters:
            return f"{name}() got an unexpected keyword argument '{keyword}'"
    return ""


def bound(function: Callable[..., Any]) -> Callable[..., Any]:
    """The function, documented with its signature line, with the module's argument errors."""

    @functools.wraps(function)
    def checked(*given: Any, **keywords: Any) -> Any:
        if wrong := misfit(function, len(given), keywords):
            raise TypeError(wrong)
        return function(*given, **keywords)

    checked.__doc__ = "\n".join(filter(None, [signature_line(function), inspect.getdoc(function)]))
    return checked


def finished(value: Any, folder: Path) -> Any:
    """A function from this folder, or the class method or property of one, made `bound`."""
    if isinstance(value, classmethod):
        return classmethod(bound(value.__func__))
    if isinstance(value, property) and value.fget is not None:
        return property(bound(value.fget))
    if isinstance(value, FunctionType) and value.__code__.co_filename.startswith(str(folder)):
        return bound(value)
    return value
