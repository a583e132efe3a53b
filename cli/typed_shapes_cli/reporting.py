"""Writes results for people and for programs."""

import contextlib
import json
import os
from collections import Counter
from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field

import typer
from rich.console import Console, RenderableType
from rich.measure import Measurement
from rich.progress import BarColumn, MofNCompleteColumn, Progress, TextColumn, TimeRemainingColumn
from rich.text import Text

from typed_shapes_cli.checking import STATUS, Result
from typed_shapes_cli.outcomes import FITS, HUNG_UP, printable

PIPED_WIDTH = 10_000
MANY_FILES = 20


class _Console(Console):
    def on_broken_pipe(self) -> None:
        """Ends the command where nobody reads any more, with the code that a signal would give."""
        with contextlib.suppress(SystemExit):
            super().on_broken_pipe()
        raise SystemExit(HUNG_UP)


def console(stderr: bool = False) -> Console:
    """A console on the terminal; piped, one so wide that every node stays on one line."""
    made = _Console(stderr=stderr, highlight=False, markup=False, emoji=False)
    if not made.is_terminal and "COLUMNS" not in os.environ:
        made.width = PIPED_WIDTH
    return made


def show(out: Console, what: RenderableType) -> None:
    """Prints a record; where deep guides leave no room for the words, the terminal folds lines."""
    needed = Measurement.get(out, out.options.update(width=PIPED_WIDTH), what)
    if needed.minimum > out.width:
        out.width = needed.maximum
    out.print(what)


def problem(errors: Console, result: Result) -> None:
    """Prints why a payload was refused, with the library's text as it is."""
    place = Text(printable(result.place), "bold")
    errors.print(place.append(f": {printable(result.error or '')}", "not bold red"), soft_wrap=True)
    if result.at:
        errors.print(Text(f"  at {result.at}"), soft_wrap=True)


@dataclass
class Tally:
    """Counts results as they pass, so that none has to be kept."""

    files: int
    codes: Counter[int] = field(default_factory=Counter)

    def counted(self, results: Iterable[Result]) -> Iterator[Result]:
        for result in results:
            self.codes[result.code] += 1
            yield result

    @property
    def exit_code(self) -> int:
        return max(self.codes, default=FITS)

    def as_json(self) -> dict[str, int]:
        """The counts under the names that programs read."""
        return {"files": self.files, **{name: self.codes[code] for code, name in STATUS.items()}}

    def __str__(self) -> str:
        files = "1 file" if self.files == 1 else f"{self.files} files"
        counts = ", ".join(f"{self.codes[code]} {name}" for code, name in STATUS.items())
        return f"{files}: {counts}"


def write_json(kind: str, results: Iterable[Result], tally: Tally) -> None:
    """One JSON document with a line for each result, written as the results come."""
    try:
        typer.echo(f'{{"kind": {json.dumps(kind)}, "results": [', nl=False)
        separator = "\n  "
        for result in tally.counted(results):
            typer.echo(separator + json.dumps(result.as_json()), nl=False)
            separator = ",\n  "
        typer.echo(f'\n], "summary": {json.dumps(tally.as_json())}}}')
    except BrokenPipeError:
        console().on_broken_pipe()


def write_misfits(results: Iterable[Result], tally: Tally, errors: Console) -> None:
    """What went wrong, on the error stream."""
    for result in tally.counted(results):
        if result.code != FITS:
            problem(errors, result)


def write_summary(kind: str, tally: Tally) -> None:
    """The line that sums up a check."""
    style = "green" if tally.exit_code == FITS else "red"
    console().print(Text(f"{kind}: {tally}", style))


def progress(errors: Console, number: int) -> Progress:
    """A bar on the error stream, which shows itself for many files and to a terminal only."""
    return Progress(
        TextColumn("checking"),
        BarColumn(),
        MofNCompleteColumn(),
        TimeRemainingColumn(),
        console=errors,
        transient=True,
        redirect_stdout=False,
        redirect_stderr=False,
        disable=not errors.is_terminal or number < MANY_FILES,
    )
