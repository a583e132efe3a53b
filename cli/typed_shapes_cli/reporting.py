"""Writes results for people and for programs."""

import json
from collections import Counter
from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field

from rich.console import Console
from rich.progress import BarColumn, MofNCompleteColumn, Progress, TextColumn, TimeRemainingColumn

from typed_shapes_cli.checking import STATUS, Result
from typed_shapes_cli.console import console, print_view, words, write_plain
from typed_shapes_cli.outcomes import FITS

MANY_FILES = 20


def problem(errors: Console, result: Result) -> None:
    """Prints why a payload was refused, with the library's text as it is.

    An error that `except SchemaError` would not catch is shown with its class.
    """
    for finding in result.findings:
        place = words((f"{result.file}:{finding.line}", "bold"), (f": {finding}", "red"))
        errors.print(place, soft_wrap=True)
    if result.error is None:
        return
    unusual = f"{result.raised}: " if result.raised not in (None, "SchemaError") else ""
    place = words((result.place, "bold"), (f": {unusual}{result.error}", "red"))
    errors.print(place, soft_wrap=True)
    if result.at:
        errors.print(words(f"  at {result.at}"), soft_wrap=True)


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
    """One JSON document, in ASCII, with a line for each result as the results come."""
    write_plain(f'{{"kind": {json.dumps(kind)}, "results": [')
    separator = "\n  "
    for result in tally.counted(results):
        write_plain(separator + json.dumps(result.as_json()))
        separator = ",\n  "
    write_plain(f'\n], "summary": {json.dumps(tally.as_json())}}}\n')


def write_misfits(results: Iterable[Result], tally: Tally, errors: Console) -> None:
    """What went wrong, on the error stream."""
    for result in tally.counted(results):
        if result.code != FITS:
            problem(errors, result)


def write_records(results: Iterable[Result], tally: Tally, out: Console, errors: Console) -> None:
    """The view of each record, and on the error stream what went wrong."""
    for result in tally.counted(results):
        if result.view is None:
            problem(errors, result)
            continue
        if result.line is not None:
            out.print(words((result.place, "bold")), soft_wrap=True)
        print_view(out, result.view)


def write_summary(kind: str, tally: Tally) -> None:
    """The line that sums up a check."""
    style = "green" if tally.exit_code == FITS else "red"
    console().print(words((f"{kind}: {tally}", style)))


def progress(errors: Console, number: int) -> Progress:
    """A bar on the error stream, which shows itself for many files and to a terminal only."""
    return Progress(
        TextColumn("{task.description}"),
        BarColumn(),
        MofNCompleteColumn(),
        TimeRemainingColumn(),
        console=errors,
        transient=True,
        redirect_stdout=False,
        redirect_stderr=False,
        disable=not errors.is_terminal or number < MANY_FILES,
    )
