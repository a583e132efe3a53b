"""What may go wrong with a payload, and the exit codes that tell a caller of the command."""

import contextlib
import gc
import sys
import traceback
from collections.abc import Iterator, Sequence

FITS, MISFIT, UNREADABLE, BROKEN_PIPE = 0, 1, 2, 141

PathStep = str | int
DEEPEST = 1000  # levels of brackets in a payload
TOO_DEEP = f"too deeply nested: the limit is about {DEEPEST} levels"


class Misfit(Exception):
    """A payload that was read but does not fit its record.

    `raised` is the class of the library's error, None where the words are the command's own, and
    `at` is where in the payload, if known.
    """

    def __init__(self, text: str, raised: str | None = None, at: Sequence[PathStep] = ()) -> None:
        super().__init__(text)
        self.text = text
        self.raised = raised
        self.at = tuple(at)


class NoRecord(ValueError):
    """A payload of which the library makes no record and raises nothing either."""


class InputError(Exception):
    """A file that cannot be read, or whose content is not what its name says."""


@contextlib.contextmanager
def collector_paused() -> Iterator[None]:
    """Pauses the garbage collector while a payload is processed.

    Of the millions of objects that a large one becomes none is garbage, and to look through them
    again and again takes longer than to parse them.
    """
    gc.disable()
    try:
        yield
    finally:
        gc.enable()


def allow_depth() -> None:
    """Gives payloads of the documented depth room on top of the calls that are in progress."""
    in_progress = sum(1 for _ in traceback.walk_stack(None))
    sys.setrecursionlimit(max(sys.getrecursionlimit(), in_progress + DEEPEST + 25))


def too_large(max_bytes: int) -> InputError:
    """The error for a payload that would take more memory than the command line allows."""
    return InputError(f"holds more than {max_bytes} bytes, the limit that --max-bytes sets")


def reason(error: Exception) -> str:
    """What an error says, in the first sentence of its first line."""
    return str(error).partition("\n")[0].partition(". ")[0] or type(error).__name__


def printable(text: str) -> str:
    """Escapes the characters that would act on a terminal or that no encoding can write."""
    if text.isprintable():
        return text
    return "".join(
        c if c.isprintable() else c.encode("unicode_escape").decode("ascii") for c in text
    )


def format_path(steps: Sequence[PathStep]) -> str:
    """Writes a way into a payload the way one would in code: `children[2].config["a b"]`."""
    text = ""
    for step in steps:
        if isinstance(step, int):
            text += f"[{step}]"
        elif isinstance(step, str) and step.isidentifier():
            text += f".{step}" if text else step
        else:
            text += f"[{step!r}]"
    return text
