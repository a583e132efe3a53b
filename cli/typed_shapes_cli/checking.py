"""Coerces the payloads of files one by one and keeps of each only whether it fits."""

from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from typed_shapes_cli.kinds import Kind, Options
from typed_shapes_cli.loading import Document, documents
from typed_shapes_cli.outcomes import FITS, MISFIT, UNREADABLE, InputError, Misfit

STATUS = {FITS: "fit", MISFIT: "misfit", UNREADABLE: "unreadable"}


@dataclass(frozen=True)
class Result:
    """What became of one payload, or of a file that gave none."""

    file: str
    line: int | None = None
    code: int = FITS
    error: str | None = None
    at: str | None = None

    @property
    def place(self) -> str:
        return self.file if self.line is None else f"{self.file}:{self.line}"

    def as_json(self) -> dict[str, Any]:
        """The result under the names that programs read."""
        return {
            "file": self.file,
            "line": self.line,
            "status": STATUS[self.code],
            "error": self.error,
            "at": self.at,
        }


def results(
    kind: Kind, file: Path, options: Options, use: Callable[[Document, Any], None] | None = None
) -> Iterator[Result]:
    """Checks every payload of a file; `use` is given each record as soon as it is made."""
    name = str(file)
    try:
        for document in documents(file, options.lines):
            try:
                record = kind.typed(kind.load(document), options)
                if use is not None:
                    use(document, record)
                yield Result(name, document.line)
            except Misfit as misfit:
                yield Result(name, document.line, MISFIT, misfit.text, misfit.at or None)
            except InputError as error:
                yield Result(name, document.line, UNREADABLE, str(error))
    except InputError as error:
        yield Result(name, code=UNREADABLE, error=str(error))
