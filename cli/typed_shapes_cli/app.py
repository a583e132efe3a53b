"""The sub-commands of `typed-shapes`."""

import io
import sys
from enum import StrEnum
from pathlib import Path
from typing import Annotated, Any

import typer
from rich.text import Text

from typed_shapes_cli import reporting
from typed_shapes_cli.checking import Result, results
from typed_shapes_cli.difference import first_difference
from typed_shapes_cli.kinds import KINDS, Options
from typed_shapes_cli.loading import Document, single_payload
from typed_shapes_cli.outcomes import FITS, MISFIT, TOO_DEEP, UNREADABLE, InputError, Misfit

app = typer.Typer(
    help="Look at payloads the way the simulation engine and its functions see them.",
    epilog="Exit codes: 0 all is well, 1 a misfit or a difference, 2 input that cannot be read.",
    no_args_is_help=True,
    pretty_exceptions_enable=False,
    rich_markup_mode="rich",
    context_settings={"help_option_names": ["-h", "--help"]},
)


class Format(StrEnum):
    """How `check` writes its results."""

    text = "text"
    json = "json"


def _known(kind: str) -> str:
    if kind not in KINDS:
        raise typer.BadParameter(f"{kind!r} is none of {', '.join(KINDS)}")
    return kind


def _kinds_from(incomplete: str) -> list[str]:
    return [name for name in KINDS if name.startswith(incomplete)]


KindOption = Annotated[
    str,
    typer.Option(
        "--as",
        metavar="KIND",
        help="What the payload is: " + ", ".join(KINDS) + ".",
        callback=_known,
        autocompletion=_kinds_from,
    ),
]
AllocOption = Annotated[
    int | None,
    typer.Option("--n-alloc", metavar="N", help="Slots of a mask; else those of the first mask."),
]
INPUTS = "JSON, JSON Lines (.jsonl, a payload on each line) or .npz for payloads of arrays."


@app.command(
    epilog="Examples:\n\n  typed-shapes show momentum.json\n\n"
    "  typed-shapes show --as masks --n-alloc 500 universe.npz"
)
def show(
    file: Annotated[Path, typer.Argument(metavar="FILE", help=INPUTS)],
    kind: KindOption = "graph",
    n_alloc: AllocOption = None,
    limit: Annotated[
        int, typer.Option(min=0, help="Show so many nodes or entries at most; 0 shows all.")
    ] = 200,
) -> None:
    """Coerce a payload into its record and show the record."""
    out, errors = reporting.console(), reporting.console(stderr=True)
    chosen = KINDS[kind]

    def shown(document: Document, record: Any) -> None:
        if document.line is not None:
            out.print(Text(document.place, "bold"), soft_wrap=True)
        reporting.show(out, chosen.render(record, limit))

    tally = reporting.Tally(files=1)
    reporting.write_misfits(results(chosen, file, Options(n_alloc), shown), tally, errors)
    raise typer.Exit(tally.exit_code)


@app.command(
    epilog="Examples:\n\n  typed-shapes check --as graph graphs/*.json\n\n"
    "  typed-shapes check --as evidence --format json checks.jsonl"
)
def check(
    files: Annotated[
        list[Path], typer.Argument(metavar="FILE...", help=INPUTS, show_default=False)
    ],
    kind: KindOption,
    n_alloc: AllocOption = None,
    form: Annotated[
        Format, typer.Option("--format", help="For people, or one document for programs.")
    ] = Format.text,
) -> None:
    """Check whether the payloads of many files fit their record."""
    errors = reporting.console(stderr=True)
    tally = reporting.Tally(files=len(files))
    options = Options(n_alloc)
    with reporting.progress(errors, len(files)) as bar:
        every = (
            result for file in bar.track(files) for result in results(KINDS[kind], file, options)
        )
        if form is Format.json:
            reporting.write_json(kind, every, tally)
        else:
            reporting.write_misfits(every, tally, errors)
    if form is Format.text:
        reporting.write_summary(kind, tally)
    raise typer.Exit(tally.exit_code)


@app.command(epilog="Example:\n\n  typed-shapes same before.json after.json")
def same(
    a: Annotated[
        Path, typer.Argument(metavar="A", help="A state payload, JSON or .npz.", show_default=False)
    ],
    b: Annotated[Path, typer.Argument(metavar="B", help="The payload to compare it with.")],
) -> None:
    """Tell whether two state payloads are equal, and if not, where they first differ.

    NaN equals NaN, the order of keys does not count, numbers are compared exactly.
    """
    out, errors = reporting.console(), reporting.console(stderr=True)
    payloads = []
    for file in (a, b):
        try:
            payloads.append(single_payload(file))
        except (InputError, Misfit) as error:
            reporting.problem(errors, Result(str(file), code=UNREADABLE, error=str(error)))
            raise typer.Exit(UNREADABLE) from error
    try:
        difference = first_difference(*payloads)
    except RecursionError as error:
        reporting.problem(errors, Result(f"{a}, {b}", code=UNREADABLE, error=TOO_DEEP))
        raise typer.Exit(UNREADABLE) from error
    if difference is None:
        out.print(Text("equal", "green"))
        raise typer.Exit(FITS)
    out.print(Text.assemble(("different ", "red"), ("at " + (difference.at or "the top"), "bold")))
    for file, value in ((a, difference.left), (b, difference.right)):
        out.print(Text(f"  {file.name}: {value}"), soft_wrap=True)
    raise typer.Exit(MISFIT)


def main() -> None:
    """Runs the command; characters that the output cannot encode are written as escapes."""
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")
    app(prog_name="typed-shapes")
