"""The one way to the terminal: whatever passes through here is printable when it gets there."""

import contextlib
import os
import shutil
import sys
from collections.abc import Iterator
from typing import NoReturn

import typer
from rich.console import (
    Console,
    ConsoleOptions,
    ConsoleRenderable,
    RenderableType,
    RenderHook,
    RenderResult,
)
from rich.measure import Measurement
from rich.segment import Segment
from rich.text import Text

from typed_shapes_cli.outcomes import BROKEN_PIPE, UNREADABLE, printable

PIPED_WIDTH = 10_000
# In fewer columns than these the boxes of the help leave no room for its words.
COLUMNS = shutil.get_terminal_size().columns
BOXES = COLUMNS >= 60


def epilog(title: str, *lines: str) -> str:
    """A titled block of the help whose lines stay as they are."""
    title = f"[bold]{title}[/]" if BOXES else f"\b\n{title}"
    return "\n".join([title, *(f"  {line}" for line in lines)])


def words(*parts: str | tuple[str, str]) -> Text:
    """A text of plain or (text, style) parts, made printable before its width is measured."""
    pairs = ((part, "") if isinstance(part, str) else part for part in parts)
    return Text.assemble(*((printable(text), style) for text, style in pairs))


class _Guarded:
    """Anything that rich can show, without the characters that would act on the terminal."""

    def __init__(self, inner: RenderableType) -> None:
        self.inner = inner

    def __rich_console__(self, console: Console, options: ConsoleOptions) -> RenderResult:
        for segment in console.render(self.inner, options):
            if segment.control:
                yield segment
            else:
                yield Segment(_printable_lines(segment.text), segment.style)


class _Guard(RenderHook):
    """Sees all that is printed, so that no caller can forget to make a text printable."""

    def process_renderables(self, renderables: list[ConsoleRenderable]) -> list[ConsoleRenderable]:
        return [_Guarded(renderable) for renderable in renderables]


class _Console(Console):
    def on_broken_pipe(self) -> None:
        """Ends the command where nobody reads any more, with the code that a signal would give."""
        with contextlib.suppress(SystemExit):
            super().on_broken_pipe()
        raise SystemExit(BROKEN_PIPE)


def console(stderr: bool = False) -> Console:
    """A console on the terminal; piped, one so wide that every node stays on one line."""
    made = _Console(stderr=stderr, highlight=False, markup=False, emoji=False)
    made.push_render_hook(_Guard())
    if not made.is_terminal and "COLUMNS" not in os.environ:
        made.width = PIPED_WIDTH
    return made


def print_view(out: Console, what: RenderableType) -> None:
    """Prints a record; where deep guides leave no room for the words, the terminal folds lines."""
    needed = Measurement.get(out, out.options.update(width=PIPED_WIDTH), what)
    if needed.minimum > out.width:
        out.width = needed.maximum
    out.print(what)


def write_plain(text: str) -> None:
    """Writes a piece of a document for programs to the output."""
    try:
        typer.echo(_printable_lines(text), nl=False)
    except BrokenPipeError:
        console().on_broken_pipe()


@contextlib.contextmanager
def printable_usage_errors() -> Iterator[None]:
    """Makes the words of the command line printable where an error repeats them."""
    try:
        yield
    except typer.TyperException as error:
        error.message = _printable_lines(error.message)
        raise


def output_failed(error: OSError) -> NoReturn:
    """Ends the command where its output cannot be written, with a line on the error stream."""
    with contextlib.suppress(OSError):
        reason = error.strerror or str(error)
        text = f"typed-shapes: the output cannot be written: {reason}"
        console(stderr=True).print(words(text), soft_wrap=True)
    # What is left in the buffers is written when the interpreter ends, and would fail once more.
    nowhere = os.open(os.devnull, os.O_WRONLY)
    for stream in (sys.stdout, sys.stderr):
        if stream is not None:
            os.dup2(nowhere, stream.fileno())
    sys.exit(UNREADABLE)


def _printable_lines(text: str) -> str:
    return "\n".join(map(printable, text.split("\n")))
