"""Finds where in a refused payload the first misfit is, by coercing its parts again.

A part is to blame where it draws the very text that the whole payload drew.
"""

from collections.abc import Callable, Iterator, Mapping
from functools import partial
from typing import Any

from quillmere.functions import _typed_shapes as shapes

from typed_shapes_cli.outcomes import PathStep

Path = list[PathStep]
Coerce = Callable[[Any], Any]


def refusal(coerce: Coerce, payload: Any) -> str | None:
    """The text with which a payload is refused, or None where it fits."""
    try:
        coerce(payload)
    except RecursionError:  # near the limit, where these calls stand deeper than the first
        return None
    except Exception as error:  # a payload's own methods may raise anything
        return str(error)
    return None


def nowhere(payload: Any, coerce: Coerce) -> Path:
    """For kinds that are refused as a whole or not at all."""
    return []


def in_graph(payload: Any, coerce: Coerce) -> Path:
    """The first node, in the order of the library, that is refused without its children.

    Each node is coerced once and alone. To coerce whole subtrees on the way down would take time
    quadratic in the depth.
    """
    path: Path = []
    levels: list[Iterator[tuple[int, Any]]] = []
    node = payload
    while True:
        if not isinstance(node, Mapping) or refusal(coerce, {**node, "children": []}):
            return path
        name = "children" if node.get("children") is not None else "args"
        children = node.get(name)
        if children is not None and not isinstance(children, list):
            return [*path, name]
        path += [name, -1]
        levels.append(enumerate(children or []))
        while (following := next(levels[-1], None)) is None:
            levels.pop()
            del path[-2:]
            if not levels:
                return []
        path[-1], node = following


def in_order(payload: Any, coerce: Coerce) -> Path:
    """The first entry of a dict or a list that is refused where it stands alone."""
    if isinstance(payload, list):
        entries: Iterator[tuple[Any, Any]] = ((i, [item]) for i, item in enumerate(payload))
    elif isinstance(payload, dict):
        entries = ((key, {key: item}) for key, item in payload.items())
    else:
        return []
    return next(([step] for step, alone in entries if refusal(coerce, alone) is not None), [])


def in_fields(**fitting: Any) -> Callable[[Any, Coerce], Path]:
    """Finds the field that is refused where all others have a value that fits."""

    def locate(payload: Any, coerce: Coerce) -> Path:
        text = refusal(coerce, payload)
        if text is not None and isinstance(payload, Mapping):
            for name in fitting:
                if name in payload and refusal(coerce, {**fitting, name: payload[name]}) == text:
                    return [name]
        return []

    return locate


in_window = in_fields(min=None, max=None, default=None, value=None)


def in_parameters(payload: Any, coerce: Coerce) -> Path:
    """The parameter whose entry is refused, and the bound in it that is none."""
    path = in_order(payload, coerce)
    if path and isinstance(payload, dict):
        name = path[0]
        if isinstance(name, str) and name:
            path += in_window(payload[name], partial(shapes.ParamSpec.from_raw, name))
    return path
