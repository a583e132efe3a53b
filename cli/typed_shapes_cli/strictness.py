"""Finds what the library passes over in silence, with the schema of the kind and a validator."""

import json
from collections.abc import Iterator
from dataclasses import dataclass
from difflib import get_close_matches
from functools import cache
from importlib import resources
from typing import TYPE_CHECKING, Any

from typed_shapes_cli.outcomes import PathStep, format_path
from typed_shapes_cli.places import places

if TYPE_CHECKING:
    from jsonschema import Draft202012Validator, ValidationError

Steps = tuple[PathStep, ...]
JSON_TYPES = {dict: "object", list: "array", str: "string", bool: "boolean", type(None): "null"}


@dataclass(frozen=True)
class Finding:
    """One thing that the library passes over: what and where, by path and by line of the file."""

    at: str
    text: str
    line: int

    def __str__(self) -> str:
        return f"{self.at or 'the payload'} {self.text}"


def schema_text(kind: str) -> str:
    """The JSON Schema of a kind; empty for one whose payloads are arrays."""
    file = resources.files("typed_shapes_cli") / "schemas" / f"{kind}.json"
    return file.read_text("utf-8") if file.is_file() else ""


def findings(kind: str, payload: Any, text: str, first_line: int) -> list[Finding]:
    """What the schema refuses in a payload that the library takes, and the keys given twice."""
    wrong: dict[Steps, str] = {}
    for at, complaint in _complaints(kind, payload):
        wrong.setdefault(at, complaint)
    found: dict[Steps, Finding] = {(): Finding("", wrong[()], first_line)} if () in wrong else {}
    twice = []
    line, counted = first_line, 0
    for place in places(text):
        if place.again or place.at in wrong:
            line, counted = line + text.count("\n", counted, place.offset), place.offset
            way = format_path(place.at)
            if place.again:
                said = "is given more than once; only the last value is read"
                twice.append(Finding(way, said, line))
            if place.at in wrong:
                found[place.at] = Finding(way, wrong[place.at], line)
    return sorted([*found.values(), *twice], key=lambda finding: finding.line)


def line_of(at: Steps, text: str) -> int | None:
    """The line on which a part of a payload stands."""
    offset = None
    for place in places(text):
        if place.at == at:
            offset = place.offset
    return None if offset is None else 1 + text.count("\n", 0, offset)


@cache
def _validator(kind: str) -> "Draft202012Validator":
    from jsonschema import Draft202012Validator

    return Draft202012Validator(json.loads(schema_text(kind)))


def _complaints(kind: str, payload: Any) -> Iterator[tuple[Steps, str]]:
    for path, part in _nodes(payload) if kind == "graph" else [((), payload)]:
        for error in _validator(kind).iter_errors(part):
            at = (*path, *error.absolute_path)
            if error.validator == "additionalProperties":
                known = error.schema["properties"]
                for key in error.instance.keys() - known.keys():
                    yield (*at, key), "is not read" + _meant(key, known)
            else:
                yield at, _said(error)


def _nodes(root: Any) -> Iterator[tuple[Steps, Any]]:
    """Every node of a graph without its children: the validator would recurse through them."""
    rest: list[tuple[Steps, Any]] = [((), root)]
    while rest:
        path, node = rest.pop()
        if not isinstance(node, dict):
            yield path, node
            continue
        lists = [key for key in ("children", "args") if isinstance(node.get(key), list)]
        yield path, {**node, **{key: [] for key in lists}}
        for key in lists[:1]:
            rest += [((*path, key, index), child) for index, child in enumerate(node[key])]


def _meant(key: str, known: dict[str, Any]) -> str:
    alike = get_close_matches(key.lower(), known, n=1)
    return f"; did you mean {alike[0]!r}?" if alike else ""


def _said(error: "ValidationError") -> str:
    if "errorMessage" in error.schema:
        return str(error.schema["errorMessage"])
    if error.validator == "type":
        got = JSON_TYPES.get(type(error.instance), "number")
        types = error.validator_value
        return f"should be {types if isinstance(types, str) else ' or '.join(types)}; got {got}"
    return str(error.message)
