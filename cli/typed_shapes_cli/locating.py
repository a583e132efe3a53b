"""Finds where in a refused payload the first misfit is, by coercing its parts again."""

from collections.abc import Callable, Mapping
from functools import partial
from typing import Any

from quillmere.functions import _typed_shapes as shapes

from typed_shapes_cli.outcomes import PathStep

Path = list[PathStep]


def _refused(coerce: Callable[[Any], Any], payload: Any) -> bool:
    try:
        coerce(payload)
    except (ValueError, TypeError):
        return True
    except RecursionError:  # near the limit, where these calls stand deeper than the first
        return False
    return False


def in_graph(payload: Any) -> Path:
    """Follows the children that are refused down to the node that is refused by itself."""
    path: Path = []
    node = payload
    while isinstance(node, Mapping):
        if _refused(shapes.coerce_graph, {**node, "children": []}):
            break
        key = "children" if node.get("children") is not None else "args"
        children = node.get(key)
        if not isinstance(children, list):
            break
        bad = next((i for i, c in enumerate(children) if _refused(shapes.coerce_graph, c)), None)
        if bad is None:
            break
        path += [key, bad]
        node = children[bad]
    return path


def in_parameters(payload: Any) -> Path:
    """The parameter whose entry is refused."""
    if isinstance(payload, dict):
        for name, entry in payload.items():
            if _refused(partial(shapes.ParamSpec.from_raw, name), entry):
                return [name]
    if isinstance(payload, list):
        for index, entry in enumerate(payload):
            if _refused(shapes.ParamSpec.from_mapping, [entry]):
                return [index]
    return []


def in_mapping(payload: Any, coerce: Callable[[Any], Any]) -> Path:
    """The one key of a mapping with which, were it an empty object, the whole would fit."""
    if isinstance(payload, Mapping):
        for key in payload:
            if not _refused(coerce, {**payload, key: {}}):
                return [key]
    return []


def in_pools(payload: Any) -> Path:
    """The first pool that does not hold an object."""
    if isinstance(payload, dict):
        for pool, stages in payload.items():
            if not isinstance(stages, dict):
                return [pool]
    return []
