"""Reads payloads from JSON, JSON Lines and .npz files, one at a time."""

import json
import zipfile
import zlib
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from functools import partial
from pathlib import Path
from typing import Any

import numpy as np

from typed_shapes_cli.outcomes import TOO_DEEP, InputError, Misfit, printable

BROKEN_ARCHIVE = (
    ValueError,
    EOFError,
    MemoryError,
    NotImplementedError,
    RuntimeError,
    zipfile.BadZipFile,
    zlib.error,
)


@dataclass(frozen=True)
class Document:
    """One payload of a file, not yet parsed, so that each line of a file can fail alone."""

    file: Path
    line: int | None
    read: Callable[[], Any]

    @property
    def place(self) -> str:
        """The file, and the line where the file has a payload on each."""
        name = printable(str(self.file))
        return name if self.line is None else f"{name}:{self.line}"


def documents(file: Path) -> Iterator[Document]:
    """Yields the payloads of a file; raises InputError where it cannot be opened."""
    try:
        if file.suffix == ".jsonl":
            with file.open("rb") as lines:
                for number, line in enumerate(lines, start=1):
                    if not line.isspace():
                        yield Document(file, number, partial(_parse, line))
        elif file.suffix == ".npz":
            yield Document(file, None, partial(_read_arrays, file))
        else:
            yield Document(file, None, partial(_parse, file.read_bytes()))
    except OSError as error:
        raise _unreadable(error) from error


def single_payload(file: Path) -> Any:
    """The payload of a file that holds exactly one."""
    if file.suffix == ".jsonl":
        raise InputError("holds one payload a line; a single JSON document or .npz is needed")
    return next(documents(file)).read()


def nest_by_slash(arrays: dict[str, Any]) -> dict[str, Any]:
    """Turns the names "outer/inner" of an archive into dictionaries in the dictionary."""
    nested: dict[str, Any] = {}
    for name, array in arrays.items():
        outer, slash, inner = name.partition("/")
        holder, key = (nested.setdefault(outer, {}), inner) if slash else (nested, outer)
        if not isinstance(holder, dict) or key in holder:
            raise InputError(f"names an array {outer!r} and also arrays within {outer!r}")
        holder[key] = array
    return nested


def _unreadable(error: OSError) -> InputError:
    return InputError(f"cannot be read: {error.strerror or error}")


def _parse(content: bytes) -> Any:
    try:
        return json.loads(content.decode("utf-8-sig"))
    except RecursionError:
        raise Misfit(TOO_DEEP) from None
    except json.JSONDecodeError as error:
        line = f"line {error.lineno}, " if b"\n" in content.strip() else ""
        where = f"{line}column {error.colno}"
        raise InputError(f"is not valid JSON: {error.msg} ({where})") from error
    except UnicodeDecodeError as error:
        raise InputError(f"is not UTF-8 text: byte {error.start} does not belong") from error
    except ValueError as error:
        raise InputError(f"is not valid JSON: {error}") from error


def _read_arrays(file: Path) -> dict[str, Any]:
    """Reads every array at once; whatever would have to be unpickled is refused by NumPy."""
    try:
        with file.open("rb") as stream:
            archive = np.load(stream, allow_pickle=False)
            if not isinstance(archive, np.lib.npyio.NpzFile):
                raise InputError("is not an .npz archive")
            with archive:
                return {name: archive[name] for name in archive.files}
    except OSError as error:
        raise _unreadable(error) from error
    except BROKEN_ARCHIVE as error:
        reason = str(error).partition("\n")[0].partition(". ")[0] or type(error).__name__
        raise InputError(f"is not a readable .npz archive: {reason}") from error
