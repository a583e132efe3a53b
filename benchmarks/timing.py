"""Timing in turn: several timers, one round of each after the other, so that all meet one noise."""

from __future__ import annotations

import gc
import statistics
import timeit
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any


@dataclass(frozen=True)
class Effort:
    """How long a measurement may take."""

    rounds: int = 7
    seconds: float = 0.01  # the least that a round takes


QUICK = Effort(rounds=3, seconds=0.002)


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


def medians(timers: Mapping[str, Timer], effort: Effort) -> dict[str, float]:
    return {name: statistics.median(taken) for name, taken in in_turn(timers, effort).items()}
