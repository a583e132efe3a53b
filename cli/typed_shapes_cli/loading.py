"""Reads payloads from JSON, JSON Lines and .npz files, one at a time."""

import json
import sys
import zipfile
import zlib
from collections.abc import Callable, Generator
from contextlib import AbstractContextManager, closing, nullcontext
from dataclasses import dataclass
from functools import partial
from io import BytesIO
from pathlib import Path
from typing import IO, Any

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


STDIN = Path("-")
ONE_A_LINE = (".jsonl", ".ndjson")
ARCHIVE_START = b"PK"  # no JSON document begins so


@dataclass(frozen=True)
class Document:
    """One payload of a file, not yet parsed, so that each line of a file can fail alone."""

    file: Path
    line: int | None
    read: Callable[[], Any]
    arrays: bool = False

    @property
    def place(self) -> str:
        """The file, and the line where the file has a payload on each."""
        name = printable(str(self.file))
        return name if self.line is None else f"{name}:{self.line}"


def documents(file: Path, lines: bool = False) -> Generator[Document, None, None]:
    """Yields the payloads of a file; raises InputError where it cannot be opened.

    Each must be read before the next is asked for.
    """
    try:
        with _opened(file) as stream:
            if lines or file.suffix in ONE_A_LINE:
                for number, line in enumerate(stream, start=1):
                    if not line.isspace():
                        yield Document(file, number, partial(_parse, line))
            elif file.suffix == ".npz":
                yield Document(file, None, partial(_read_arrays, stream), arrays=True)
            elif (content := stream.read()).startswith(ARCHIVE_START):
                yield Document(file, None, partial(_read_arrays, BytesIO(content)), arrays=True)
            else:
                yield Document(file, None, partial(_parse, content))
    except OSError as error:
        raise _unreadable(error) from error


def _opened(file: Path) -> AbstractContextManager[IO[bytes]]:
    return nullcontext(sys.stdin.buffer) if file == STDIN else file.open("rb")


def single_payload(file: Path) -> Any:
    """The payload of a file that holds exactly one."""
    if file.suffix in ONE_A_LINE:
        raise InputError("holds one payload a line; a single JSON document or .npz is needed")
    with closing(documents(file)) as found:
        return next(found).read()


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
    if not content.strip():
        raise InputError("is empty")
    try:
        return json.loads(content.decode("utf-8-sig"))
    except RecursionError:
        raise Misfit(TOO_DEEP) from None
    except json.JSONDecodeError as error:
        line = f"line {error.lineno}, " if b"\n" in content.strip() else ""
        where = f"{line}column {error.colno}"
        raise InputError(f"is not valid JSON: {error.msg} ({where})") from error
    except UnicodeDecodeError as error:
        raise InputError(f"is not UTF-8 text, as JSON is: see byte {error.start}") from error
    except ValueError as error:  # what is left is the interpreter's guard
        digits = sys.get_int_max_str_digits()
        raise InputError(f"holds an integer of more than {digits} digits") from error


def _read_arrays(stream: IO[bytes]) -> dict[str, Any]:
    """Reads every array at once; whatever would have to be unpickled is refused by NumPy."""
    try:
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
