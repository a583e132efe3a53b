"""The sub-commands of `typed-shapes`."""

import io
import platform
import sys
from difflib import get_close_matches
from enum import StrEnum
from importlib.metadata import version
from pathlib import Path
from typing import Annotated, Any

import typer
from rich.text import Text

from typed_shapes_cli import rendering, reporting
from typed_shapes_cli.checking import Result, results
from typed_shapes_cli.difference import first_difference
from typed_shapes_cli.kinds import KINDS, Options
from typed_shapes_cli.loading import Document, single_payload
from typed_shapes_cli.outcomes import FITS, MISFIT, TOO_DEEP, UNREADABLE, InputError, Misfit

EXAMPLES = """[bold]Examples[/]
  typed-shapes show momentum.json
  typed-shapes show --as masks --n-alloc 500 universe.npz
  typed-shapes check --as graph graphs/*.json
  curl -s $URL | typed-shapes check --as evidence --lines -
  typed-shapes same before.npz after.npz
"""
EXIT_CODES = """[bold]Exit codes[/]
  0    all is well
  1    a payload does not fit its record, or two states differ
  2    input that cannot be read, or a command line that cannot be understood
  130  after Ctrl-C
  141  the reader of the output went away
"""

app = typer.Typer(
    help="Look at payloads the way the simulation engine and its functions see them.\n\n"
    "Every payload is coerced into its typed record. One that does not fit is refused with the "
    "library's own text, and with the place in the payload where that can be told.",
    epilog=EXAMPLES + "\n" + EXIT_CODES,
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
        alike = get_close_matches(kind, KINDS, n=1)
        hint = f"Did you mean {alike[0]!r}?" if alike else f"There are {', '.join(KINDS)}."
        raise typer.BadParameter(f"{kind!r} is no kind of payload. {hint}")
    return kind


def _kinds_from(incomplete: str) -> list[tuple[str, str]]:
    return [(name, kind.about) for name, kind in KINDS.items() if name.startswith(incomplete)]


def _print_version(wanted: bool) -> None:
    if wanted:
        python, own = platform.python_version(), version("quillmere-typed-shapes")
        typer.echo(f"typed-shapes {own} (Python {python}, NumPy {version('numpy')})")
        raise typer.Exit


KindOption = Annotated[
    str,
    typer.Option(
        "--as",
        metavar="KIND",
        help=f"What the payload is: {', '.join(KINDS)}. See [bold]typed-shapes kinds[/].",
        callback=_known,
        autocompletion=_kinds_from,
    ),
]
AllocOption = Annotated[
    int | None,
    typer.Option("--n-alloc", metavar="N", help="Slots of a mask; else those of the first mask."),
]
LinesOption = Annotated[
    bool,
    typer.Option("--lines", help="A payload on each line, whatever the name of the file."),
]
INPUTS = (
    "JSON (NaN and Infinity may stand in it), JSON Lines (.jsonl or .ndjson, a payload on each "
    "line), .npz for payloads of arrays, or - for the standard input."
)


@app.callback()
def common(
    show_version: Annotated[
        bool,
        typer.Option(
            "--version", callback=_print_version, is_eager=True, help="Show the version and exit."
        ),
    ] = False,
) -> None:
    """Holds what belongs to no sub-command; the help of the application is above."""


@app.command(
    epilog="[bold]Examples[/]\n  typed-shapes show momentum.json\n"
    "  typed-shapes show --as masks --n-alloc 500 universe.npz"
)
def show(
    file: Annotated[Path, typer.Argument(metavar="FILE", help=INPUTS)],
    kind: KindOption = "graph",
    n_alloc: AllocOption = None,
    lines: LinesOption = False,
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
    reporting.write_misfits(results(chosen, file, Options(n_alloc, lines), shown), tally, errors)
    if not tally.codes:
        errors.print(Text(f"{file}: holds no payload", "dim"))
    raise typer.Exit(tally.exit_code)


@app.command(
    epilog="[bold]Examples[/]\n  typed-shapes check --as graph graphs/*.json\n"
    "  typed-shapes check --as evidence --format json checks.jsonl"
)
def check(
    files: Annotated[list[str], typer.Argument(metavar="FILE...", help=INPUTS, show_default=False)],
    kind: KindOption,
    n_alloc: AllocOption = None,
    lines: LinesOption = False,
    form: Annotated[
        Format, typer.Option("--format", help="For people, or one document for programs.")
    ] = Format.text,
) -> None:
    """Check whether the payloads of many files fit their record."""
    errors = reporting.console(stderr=True)
    tally = reporting.Tally(files=len(files))
    options = Options(n_alloc, lines)
    # A document on the terminal is its own sign of progress, and a bar would overwrite it.
    quiet = form is Format.json and reporting.console().is_terminal
    with reporting.progress(errors, 0 if quiet else len(files)) as bar:
        every = (
            result
            for name in bar.track(files)
            for result in results(KINDS[kind], Path(name), options)
        )
        if form is Format.json:
            reporting.write_json(kind, every, tally)
        else:
            reporting.write_misfits(every, tally, errors)
    if form is Format.text:
        reporting.write_summary(kind, tally)
    raise typer.Exit(tally.exit_code)


@app.command(epilog="[bold]Example[/]\n  typed-shapes same before.json after.json")
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


@app.command()
def kinds() -> None:
    """List the kinds of payloads that --as may name."""
    rows = ((kind.name, kind.about, kind.files) for kind in KINDS.values())
    reporting.show(reporting.console(), rendering.kinds(rows))


def main() -> None:
    """Runs the command; characters that the output cannot encode are written as escapes."""
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")
    app(prog_name="typed-shapes")
