"""A line on the terminal that tells what goes on with a large input, and is gone at the end."""

from time import monotonic

from rich.console import Console
from rich.progress import Progress

from typed_shapes_cli.outcomes import printable

QUIET_FOR = 1.0  # seconds from the start
EVERY = 0.2
LARGE = 8_000_000  # bytes that take a parser long enough; no line can be drawn meanwhile


class Life:
    """Tells of work on the error stream if that is a terminal; where a bar is shown, beside it."""

    def __init__(self, errors: Console | None = None, bar: Progress | None = None) -> None:
        self._errors = (
            errors if errors and errors.is_terminal and not errors.is_dumb_terminal else None
        )
        self._bar = bar if bar and not bar.disable else None
        self._last = monotonic() + QUIET_FOR - EVERY
        self._shown = False

    def read(self, name: str, size: int) -> None:
        """Tells how much was read of an input."""
        self._tell(f"reading {name}: {_amount(size)}", urgent=False)

    def goes_on(self, what: str, name: str, size: int) -> None:
        """Tells of a step that lets nobody else draw before it is done."""
        self._tell(f"{what} {name}: {_amount(size)}", urgent=size >= LARGE)

    def compared(self, entries: int) -> None:
        """Tells how many entries of two payloads were compared."""
        self._tell(f"comparing: {entries:,} entries", urgent=False)

    def clear(self) -> None:
        """Takes the line away before anything else is printed."""
        if self._shown and self._errors:
            self._show("checking" if self._bar else "")
            self._shown = False

    def _tell(self, text: str, urgent: bool) -> None:
        if self._errors and (urgent or monotonic() - self._last >= EVERY):
            self._last = max(self._last, monotonic())
            self._shown = True
            self._show(printable(text))

    def _show(self, text: str) -> None:
        assert self._errors
        if self._bar:
            for task in self._bar.task_ids:
                self._bar.update(task, description=text, refresh=True)
        else:
            self._errors.file.write("\r" + text[: self._errors.width - 1] + "\x1b[K")
            if not text:
                self._errors.file.write("\r")
            self._errors.file.flush()


def _amount(size: int) -> str:
    return f"{size / 1e6:.1f} MB" if size >= 100_000 else f"{size / 1e3:.1f} kB"
