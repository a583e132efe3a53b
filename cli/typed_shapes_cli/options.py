"""The options that several sub-commands share, and the checks of what they are given."""

import importlib.util
import re
import sys
from difflib import get_close_matches
from typing import Annotated

import typer

from typed_shapes_cli.kinds import KINDS
from typed_shapes_cli.strictness import schema_text

MAX_BYTES = 4 << 30


def _known(kind: str) -> str:
    if kind not in KINDS:
        alike = get_close_matches(kind, KINDS, n=1)
        hint = f"Did you mean {alike[0]!r}?" if alike else f"Choose from {', '.join(KINDS)}."
        raise typer.BadParameter(f"{kind!r} is not a payload kind. {hint}")
    return kind


def read_once(files: list[str]) -> list[str]:
    if sum(file in ("-", "/dev/stdin") for file in files) > 1:
        raise typer.BadParameter("the standard input can be read only once")
    return files


def _size(text: str) -> int:
    found = re.fullmatch("([1-9][0-9]{0,18})([KMGT]?)(I?B)?", str(text).upper())
    if found is None:
        raise typer.BadParameter(f"{text!r} is not a size such as 500M or 4G")
    size = int(found[1]) << 10 * " KMGT".index(found[2] or " ")
    return min(size, sys.maxsize - 1)


def _kinds_from(incomplete: str) -> list[tuple[str, str]]:
    return [(name, kind.about) for name, kind in KINDS.items() if name.startswith(incomplete)]


KindOption = Annotated[
    str,
    typer.Option(
        "--as",
        metavar="KIND",
        help=f"What the payload is: {', '.join(KINDS)}. See `typed-shapes kinds`.",
        callback=_known,
        autocompletion=_kinds_from,
    ),
]
AllocOption = Annotated[
    int | None,
    typer.Option(
        "--n-alloc",
        metavar="N",
        min=1,
        help="Number of allocation slots; default: the length of the first mask.",
    ),
]
LinesOption = Annotated[
    bool,
    typer.Option("--lines", help="A payload on each line, regardless of the file extension."),
]
SizeOption = Annotated[
    int,
    typer.Option(
        "--max-bytes",
        metavar="SIZE",
        parser=_size,
        show_default="4G",
        help="Refuse a payload of more bytes, such as 64K, 500M or 4G, after decompression.",
    ),
]


def _with_validator(wanted: bool) -> bool:
    if wanted and importlib.util.find_spec("jsonschema") is None:
        raise typer.BadParameter(
            "it needs its extra: pip install 'quillmere-typed-shapes[cli,strict]'"
        )
    return wanted


def schema_of(kind: str) -> str:
    """The schema of a kind; a usage error where its payloads are arrays."""
    if schema := schema_text(kind):
        return schema
    takers = ", ".join(name for name in KINDS if schema_text(name))
    raise typer.BadParameter(
        f"payloads of kind {kind} are arrays and have no schema; there is one for {takers}"
    )


StrictOption = Annotated[
    bool,
    typer.Option(
        "--strict",
        help="Also refuse what the library passes over: keys that it does not read, keys given "
        "twice, and values that it empties or does not look at.",
        callback=_with_validator,
    ),
]
INPUTS = (
    "JSON (NaN and Infinity are allowed), JSON Lines (.jsonl or .ndjson, a payload on each "
    "line), .npz for payloads of arrays, or - for the standard input."
)
