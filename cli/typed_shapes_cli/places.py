"""Tells on which line of a JSON text each part of its payload stands.

The parsers at hand give no positions, and lose all but the last of a key that is given twice.
"""

import json
import re
from collections.abc import Iterator
from dataclasses import dataclass

from typed_shapes_cli.outcomes import PathStep

TOKEN = re.compile(r'"(?:[^"\\]++|\\.)*+"|[{}\[\],:]|[^\s{}\[\],:"]++')


@dataclass(frozen=True)
class Place:
    """Where an element of an array or a key of an object begins; `again` if the key was before."""

    at: tuple[PathStep, ...]
    offset: int
    again: bool = False


def places(text: str) -> Iterator[Place]:
    """The places of a text that a parser has taken, in their order."""
    path: list[PathStep] = []
    keys: list[set[str] | None] = []  # of each object that is open; None for an array
    key_follows = False
    for token in TOKEN.finditer(text):
        first = token[0][0]
        if first in "}]":
            path.pop()
            keys.pop()
        elif first == ",":
            index = path[-1]
            if isinstance(index, int):
                path[-1] = index + 1
            key_follows = keys[-1] is not None
        elif first != ":":
            known = keys[-1] if keys else None
            if known is None:
                yield Place(tuple(path), token.start())
            elif key_follows:
                path[-1] = key = json.loads(token[0])
                yield Place(tuple(path), token.start(), again=key in known)
                known.add(key)
                key_follows = False
            if first in "{[":
                key_follows = first == "{"
                keys.append(set() if key_follows else None)
                path.append("" if key_follows else 0)
