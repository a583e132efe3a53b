"""Coerces the payloads of files one by one and keeps of each only what became of it."""

from collections.abc import Callable, Iterator, Sequence
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any

from rich.console import RenderableType

from typed_shapes_cli.kinds import Kind, Options
from typed_shapes_cli.loading import Document, documents
from typed_shapes_cli.outcomes import (
    FITS,
    MISFIT,
    UNREADABLE,
    InputError,
    Misfit,
    collector_paused,
    format_path,
    reason,
)
from typed_shapes_cli.strictness import Finding, findings, line_of

STATUS = {FITS: "fit", MISFIT: "misfit", UNREADABLE: "unreadable"}


@dataclass(frozen=True)
class Result:
    """What became of one payload, or of a file that gave none.

    `view` shows a record, and `findings` are what --strict has to say of a payload that fits.
    """

    file: str
    line: int | None = None
    code: int = FITS
    error: str | None = None
    raised: str | None = None
    at: str | None = None
    view: RenderableType | None = None
    findings: Sequence[Finding] = ()

    @classmethod
    def of_misfit(cls, file: str, line: int | None, misfit: Misfit) -> "Result":
        """What the library said of a payload that it refused."""
        at = format_path(misfit.at) or None
        return cls(file, line, MISFIT, misfit.text, misfit.raised, at)

    @property
    def place(self) -> str:
        """The file, and the line where one is known."""
        return self.file if self.line is None else f"{self.file}:{self.line}"

    def as_json(self) -> dict[str, Any]:
        """The result under the names that programs read."""
        return {
            "file": self.file,
            "line": self.line,
            "status": STATUS[self.code],
            "error": self.error,
            "raised": self.raised,
            "at": self.at,
            "findings": [asdict(finding) for finding in self.findings],
        }


def results(
    kind: Kind, file: Path, options: Options, render: Callable[[Any], RenderableType] | None = None
) -> Iterator[Result]:
    """Checks every payload of a file; `render` makes the view of each record."""
    name = str(file)
    try:
        for document in documents(file, options.lines, options.max_bytes, options.life):
            with collector_paused():
                result = _result(name, document, kind, options, render)
            options.life.clear()
            yield result
    except InputError as error:
        options.life.clear()
        yield Result(name, code=UNREADABLE, error=str(error))


def _result(
    name: str,
    document: Document,
    kind: Kind,
    options: Options,
    render: Callable[[Any], RenderableType] | None,
) -> Result:
    text = ""
    try:
        payload, text = kind.load(document, options)
        record = kind.typed(payload, options)
        found = tuple(findings(kind.name, payload, text, document.line or 1)) if text else ()
        view = render(record) if render else None
        return Result(name, document.line, MISFIT if found else FITS, view=view, findings=found)
    except Misfit as misfit:
        return Result.of_misfit(name, document.line or line_of(misfit.at, text), misfit)
    except InputError as error:
        return Result(name, document.line, UNREADABLE, str(error))
    except Exception as error:  # a payload may raise anything, and the others are still to come
        text = f"cannot be checked: {type(error).__name__}: {reason(error)}"
        return Result(name, document.line, UNREADABLE, text)
