"""The sub-commands of `typed-shapes`."""

import errno
import io
import os
import platform
import sys
import warnings
from enum import StrEnum
from importlib.metadata import version
from pathlib import Path
from typing import Annotated, Any

import typer
from typer.core import TyperGroup

from typed_shapes_cli import drawing, rendering, reporting
from typed_shapes_cli.checking import Result, results
from typed_shapes_cli.console import (
    BOXES,
    COLUMNS,
    console,
    epilog,
    output_failed,
    print_view,
    printable_usage_errors,
    words,
    write_plain,
)
from typed_shapes_cli.difference import first_difference
from typed_shapes_cli.kinds import KINDS, Options
from typed_shapes_cli.life import Life
from typed_shapes_cli.loading import single_payload
from typed_shapes_cli.options import (
    INPUTS,
    MAX_BYTES,
    AllocOption,
    KindOption,
    LinesOption,
    SizeOption,
    StrictOption,
    read_once,
    schema_of,
)
from typed_shapes_cli.outcomes import (
    FITS,
    MISFIT,
    TOO_DEEP,
    UNREADABLE,
    InputError,
    allow_depth,
    collector_paused,
    reason,
)

EXAMPLES = epilog(
    "Examples",
    "typed-shapes show momentum.json",
    "typed-shapes show --as masks --n-alloc 500 universe.npz",
    "typed-shapes check --as graph graphs/*.json",
    "curl -s $URL | typed-shapes check --as evidence --lines -",
    "typed-shapes same before.npz after.npz",
    "typed-shapes draw momentum.json -o momentum.svg",
)
EXIT_CODES = epilog(
    "Exit codes",
    "0    all is well",
    "1    a payload does not fit its record, --strict found something, or two states differ",
    "2    unreadable or too deep input, unwritable output, a wrong command line",
    "130  after Ctrl-C",
    "141  the reader of the output went away",
)


class _Commands(TyperGroup):
    """The sub-commands, which repeat words of the command line and of payloads safely."""

    def make_context(self, *args: Any, **options: Any) -> Any:
        with printable_usage_errors():
            return super().make_context(*args, **options)

    def invoke(self, ctx: Any) -> Any:
        """Runs a sub-command. NumPy's warnings about numbers of a payload are not its business."""
        with printable_usage_errors(), warnings.catch_warnings():
            warnings.simplefilter("ignore")
            allow_depth()
            return super().invoke(ctx)


app = typer.Typer(
    cls=_Commands,
    help="Look at payloads the way the simulation engine and its functions see them.\n\n"
    "Every payload is coerced into its typed record. One that does not fit is refused with the "
    "library's own text, and with the place in the payload where that can be told.",
    epilog=EXAMPLES + "\n\n" + EXIT_CODES,
    no_args_is_help=True,
    pretty_exceptions_enable=False,
    rich_markup_mode="rich" if BOXES else None,
    context_settings={
        "help_option_names": ["-h", "--help"],
        **({} if BOXES else {"terminal_width": COLUMNS}),
    },
)


class Format(StrEnum):
    """How `check` writes its results."""

    text = "text"
    json = "json"


def _print_version(wanted: bool) -> None:
    if wanted:
        python, own = platform.python_version(), version("quillmere-typed-shapes")
        console().print(f"typed-shapes {own} (Python {python}, NumPy {version('numpy')})")
        raise typer.Exit


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
    epilog=epilog(
        "Examples",
        "typed-shapes show momentum.json",
        "typed-shapes show --as masks --n-alloc 500 universe.npz",
    )
)
def show(
    file: Annotated[Path, typer.Argument(metavar="FILE", help=INPUTS)],
    kind: KindOption = "graph",
    n_alloc: AllocOption = None,
    lines: LinesOption = False,
    max_bytes: SizeOption = MAX_BYTES,
    limit: Annotated[
        int, typer.Option(min=0, help="Show at most this many nodes or entries; 0 shows all.")
    ] = 200,
) -> None:
    """Coerce a payload into its record and show the record."""
    out, errors = console(), console(stderr=True)
    chosen = KINDS[kind]
    tally = reporting.Tally(files=1)
    options = Options(max_bytes, n_alloc, lines, life=Life(errors))
    found = results(chosen, file, options, lambda record: chosen.render(record, limit))
    reporting.write_records(found, tally, out, errors)
    if not tally.codes:
        errors.print(words((f"{file}: contains no payload", "dim")), soft_wrap=True)
    raise typer.Exit(tally.exit_code)


@app.command(
    epilog=epilog(
        "Examples",
        "typed-shapes check --as graph graphs/*.json",
        "typed-shapes check --as evidence --format json checks.jsonl",
    )
)
def check(
    files: Annotated[
        list[str],
        typer.Argument(metavar="FILE...", help=INPUTS, show_default=False, callback=read_once),
    ],
    kind: KindOption,
    n_alloc: AllocOption = None,
    lines: LinesOption = False,
    max_bytes: SizeOption = MAX_BYTES,
    strict: StrictOption = False,
    form: Annotated[
        Format, typer.Option("--format", help="For people, or one document for programs.")
    ] = Format.text,
) -> None:
    """Check whether the payloads of many files fit their record."""
    errors = console(stderr=True)
    tally = reporting.Tally(files=len(files))
    if strict:
        schema_of(kind)
    # A document on the terminal is its own sign of progress, and a bar would overwrite it.
    quiet = form is Format.json and console().is_terminal
    with reporting.progress(errors, 0 if quiet else len(files)) as bar:
        options = Options(max_bytes, n_alloc, lines, strict, Life(errors, bar))
        every = (
            result
            for name in bar.track(files, description="checking")
            for result in results(KINDS[kind], Path(name), options)
        )
        if form is Format.json:
            reporting.write_json(kind, every, tally)
        else:
            reporting.write_misfits(every, tally, errors)
    if form is Format.text:
        reporting.write_summary(kind, tally)
    raise typer.Exit(tally.exit_code)


@app.command(epilog=epilog("Example", "typed-shapes same before.json after.json"))
def same(
    a: Annotated[
        Path, typer.Argument(metavar="A", help="A state payload, JSON or .npz.", show_default=False)
    ],
    b: Annotated[Path, typer.Argument(metavar="B", help="The payload to compare it with.")],
    max_bytes: SizeOption = MAX_BYTES,
) -> None:
    """Tell whether two state payloads are equal, and if not, where they first differ.

    NaN equals NaN, the order of keys does not count, and there is no tolerance.
    Integers in arrays compare as float64: beyond 2**53, neighbours can be equal.
    """
    read_once([str(a), str(b)])
    out, errors = console(), console(stderr=True)
    life = Life(errors)

    def refuse(file: str, text: str) -> typer.Exit:
        life.clear()
        reporting.problem(errors, Result(file, code=UNREADABLE, error=text))
        return typer.Exit(UNREADABLE)

    with collector_paused():
        payloads = []
        for file in (a, b):
            try:
                payloads.append(single_payload(file, max_bytes, life))
            except InputError as error:
                raise refuse(str(file), str(error)) from error
        try:
            difference = first_difference(payloads[0], payloads[1], life.compared)
        except RecursionError as error:
            raise refuse(f"{a}, {b}", TOO_DEEP) from error
        except Exception as error:  # whatever NumPy raises for arrays that it cannot compare
            text = f"cannot be compared: {type(error).__name__}: {reason(error)}"
            raise refuse(f"{a}, {b}", text) from error
    life.clear()
    if difference is None:
        out.print(words(("equal", "green")))
        raise typer.Exit(FITS)
    at = "at " + (difference.at or "the top")
    out.print(words(("different ", "red"), (at, "bold")), soft_wrap=True)
    for file, value in ((a, difference.left), (b, difference.right)):
        out.print(words(f"  {file.name}: {value}"), soft_wrap=True)
    raise typer.Exit(MISFIT)


app.command(
    epilog=epilog(
        "Examples",
        "typed-shapes draw momentum.json -o momentum.svg",
        "typed-shapes draw --depth 3 alphas.json -o alphas.html",
    )
)(drawing.draw)


@app.command(epilog=epilog("Example", "typed-shapes schema --as graph > graph.schema.json"))
def schema(kind: KindOption) -> None:
    """Print the JSON Schema (2020-12) of a kind, for editors and validators."""
    write_plain(schema_of(kind))


@app.command()
def kinds() -> None:
    """List the kinds of payloads that --as may name."""
    rows = ((kind.name, kind.about, kind.files) for kind in KINDS.values())
    print_view(console(), rendering.kinds(rows))


def main() -> None:
    """Runs the command; characters that the output cannot encode are written as escapes."""
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")
    try:
        if sys.stdout is None:
            raise OSError(errno.EBADF, os.strerror(errno.EBADF))
        app(prog_name="typed-shapes")
    except OSError as error:  # the errors of the input are results
        output_failed(error)
