"""Timing in turn: one short round of each timer after the other, and the shortest of each.

What else a machine does only ever adds time, and among many short rounds some meet none of it.
"""

from __future__ import annotations

import gc
import timeit
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from types import ModuleType
from typing import Any

Setup = Callable[[ModuleType], dict[str, Any]]


@dataclass(frozen=True)
class Work:
    """A statement, and the names that it runs with.

    The names are made for a namespace of classes (the native module or its plain-Python version),
    so that both do the same thing to the same payload.
    """

    name: str
    floor: float  # how many times as fast as plain Python it has to be
    statement: str
    setup: Setup


@dataclass(frozen=True)
class Effort:
    """How long a measurement may take."""

    rounds: int = 60
    seconds: float = 0.0005  # the least that a round takes


QUICK = Effort(rounds=15, seconds=0.0002)


class Timer:
    """Times a statement; the collector runs meanwhile, as it does in any program."""

    def __init__(self, statement: str, names: Mapping[str, Any], effort: Effort) -> None:
        self._timer = timeit.Timer(statement, "gc.enable()", globals={**names, "gc": gc})
        self.loops = 1
        while self._timer.timeit(self.loops) < effort.seconds:
            self.loops *= 2

    def round(self) -> float:
        """Seconds for one execution of the statement."""
        return self._timer.timeit(self.loops) / self.loops


def in_turn(timers: Mapping[str, Timer], effort: Effort) -> dict[str, list[float]]:
    """The rounds of each timer."""
    rounds: dict[str, list[float]] = {name: [] for name in timers}
    for _ in range(effort.rounds):
        for name, timer in timers.items():
            rounds[name].append(timer.round())
    return rounds


def minima(timers: Mapping[str, Timer], effort: Effort) -> dict[str, float]:
    return {name: min(taken) for name, taken in in_turn(timers, effort).items()}
