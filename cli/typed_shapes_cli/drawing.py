"""The sub-command that draws a function graph."""

from collections.abc import Callable
from pathlib import Path
from shutil import which
from typing import Annotated

import typer

from typed_shapes_cli import reporting
from typed_shapes_cli.checking import Result
from typed_shapes_cli.console import console, words
from typed_shapes_cli.drawing_nodes import Node, walk
from typed_shapes_cli.drawing_page import page
from typed_shapes_cli.drawing_picture import as_picture, as_text
from typed_shapes_cli.kinds import KINDS, Options
from typed_shapes_cli.life import Life
from typed_shapes_cli.loading import single_payload
from typed_shapes_cli.options import MAX_BYTES, SizeOption
from typed_shapes_cli.outcomes import UNREADABLE, InputError, Misfit, collector_paused

FORMS: dict[str, Callable[[Node, int | None, str], str]] = {
    ".svg": as_picture,
    ".html": page,
    ".gv": as_text,
}


def _drawable(output: Path) -> Path:
    if output.suffix not in FORMS:
        raise typer.BadParameter(f"{output.name!r} must end in one of {', '.join(FORMS)}")
    if output.suffix == ".svg" and which("dot") is None:
        raise typer.BadParameter(
            "an .svg takes the program dot of Graphviz, which is not on the path "
            "(Debian: the package graphviz); .html and .gv do without"
        )
    return output


def draw(
    file: Annotated[
        Path, typer.Argument(metavar="GRAPH", help="A graph in JSON, or - for the standard input.")
    ],
    output: Annotated[
        Path,
        typer.Option(
            "--output",
            "-o",
            metavar="FILE",
            help="Name of a picture (.svg), a page whose branches fold (.html), or text for "
            "Graphviz (.gv).",
            callback=_drawable,
        ),
    ],
    depth: Annotated[
        int | None,
        typer.Option(
            min=1,
            show_default="all",
            help="Levels to draw; in .html, levels that are open at first.",
        ),
    ] = None,
    max_bytes: SizeOption = MAX_BYTES,
) -> None:
    """Draw a function graph, with a colour for each kind of node."""
    errors = console(stderr=True)
    life, refused = Life(errors), None
    try:
        with collector_paused():
            payload = single_payload(file, max_bytes, life)
            root = KINDS["graph"].typed(payload, Options(max_bytes))
        drawn = FORMS[output.suffix](root, depth, file.name)
    except Misfit as misfit:
        refused = Result.of_misfit(str(file), None, misfit)
    except InputError as unreadable:
        refused = Result(str(file), code=UNREADABLE, error=str(unreadable))
    life.clear()
    if refused:
        reporting.problem(errors, refused)
        raise typer.Exit(refused.code)
    output.write_text(drawn, encoding="utf-8")
    nodes = sum(1 for _ in walk(root))
    console().print(words(f"{output}: {nodes} node{'s' * (nodes != 1)}"), soft_wrap=True)
