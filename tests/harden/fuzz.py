"""Millions of seeded calls down both paths: `fuzz [--quick] [generator ...]`.

Every run has seeds of its own unless TYPED_SHAPES_SEED names the first; TYPED_SHAPES_CASES is the
number of cases. A failure and a crash print what brings their one case back.
"""

from __future__ import annotations

import faulthandler
import gc
import multiprocessing
import os
import random
import sys
import time
from collections import Counter
from concurrent.futures import ProcessPoolExecutor
from typing import Any

from generators import GENERATORS
from support import agree_on

HEAVY = {"graphs": 12, "states": 12, "arrays": 8}  # the call of a record counts 1
CHUNK = 5_000
JOBS: list[tuple[str, range]] = []  # both are shared with the two processes by the fork
AT: Any = None  # the seed that each job has come to


def work(number: int) -> Counter[str]:
    name, seeds = JOBS[number]
    faulthandler.enable()
    seen: Counter[str] = Counter()
    for AT[number] in seeds:
        seen += agree_on(GENERATORS[name], AT[number], 1)
    return seen


def main() -> int:
    global AT
    words, first = sys.argv[1:], random.SystemRandom().getrandbits(40)
    first = int(os.environ.get("TYPED_SHAPES_SEED", first))
    total = int(os.environ.get("TYPED_SHAPES_CASES", 2e5 if "--quick" in words else 5e6))
    names = [word for word in words if not word.startswith("--")] or [*GENERATORS]
    whole, began = sum(HEAVY.get(name, 1) for name in names), time.monotonic()
    for name in names:
        seeds = range(first, first - (-total * HEAVY.get(name, 1) // whole))
        JOBS.extend((name, seeds[at : at + CHUNK]) for at in range(0, len(seeds), CHUNK))
    AT = multiprocessing.RawArray("q", [-1] * len(JOBS))
    print(f"seeds from {first}", flush=True)
    gc.freeze()  # what the imports left is none of a collection's business
    seen, faults = {name: Counter[str]() for name in names}, []
    with ProcessPoolExecutor(2) as pool:
        waiting = [pool.submit(work, number) for number in range(len(JOBS))]
        for number, future in enumerate(waiting):
            try:
                seen[JOBS[number][0]] += future.result()
            except Exception as error:
                faults.append(f"{JOBS[number][0]} at {AT[number]}: {error!s:.3000}")
    faults.sort(key=lambda text: " at -1: " in text)  # a crash takes jobs that had not begun along
    for name, counts in seen.items():
        share = counts["raises"] / max(counts.total(), 1)
        print(f"{counts.total():9,}  {share:4.0%} raised  {name}")
        if counts.total() > 200 and share > 0.9:
            faults.append(f"{name}: idle, {share:.0%} of its cases raised")
    print(*faults[:10], sep="\n")
    cases, seconds = sum(counts.total() for counts in seen.values()), time.monotonic() - began
    times = f"{seconds:.0f} s, {sum(os.times()[2:4]):.0f} s of processor time"
    print(f"figures: {cases:,} cases, {len(names)} generators, {len(faults)} faults, {times}")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
