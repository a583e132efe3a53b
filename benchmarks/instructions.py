"""Count the instructions of fixed works and compare them with the committed counts.

Times depend on what else a machine does, instruction counts do not. A count that moved by more than
the tolerance fails; `--update` writes the counts anew. The difference of two runs of one process,
with and without the calls, leaves the start of the interpreter out.
"""

from __future__ import annotations

import argparse
import json
import os
import platform
import re
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy

COUNTS = Path(__file__).with_name("instructions.json")
TOLERANCE = 0.05
CALLS = {
    "graph, 1,000 nodes": 12,
    "graph, an odd leaf 150 levels down": 20,
    "graph node constructor": 40_000,
    "coerce_state, 85 nodes": 200,
    "states_equal, with an array": 800,
    "states_equal, float64 x 1,000": 8000,
    "states_equal, an odd leaf 150 levels down": 20,
    "validate_function_state": 40_000,
    "parameter schema, 20 entries": 120,
    "masks, float16 x 5,000": 4000,
    "history batch, 200 arrays": 800,
    "stage slice_t, 300 keys": 20,
}
CHILD = """
import gc, sys
from works import WORKS
from quillmere.functions import _typed_shapes as native
work = next(work for work in WORKS if work.name == sys.argv[1])
names = work.setup(native)
exec(f"def run(calls):\\n for _ in range(calls): {work.statement}", names)
gc.collect()
gc.disable()
names["run"](10 + int(sys.argv[2]))
"""


def instructions(name: str, calls: int) -> int:
    """The instructions of one process that makes the calls, and some more to warm up."""
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", sys.executable]
    environment = {**os.environ, "PYTHONHASHSEED": "0", "OPENBLAS_NUM_THREADS": "1"}
    environment["PYTHONPATH"] = os.pathsep.join(
        [str(Path(__file__).parent), environment.get("PYTHONPATH", "")]
    )
    done = subprocess.run(
        [*command, "-c", CHILD, name, str(calls)],
        capture_output=True,
        text=True,
        env=environment,
        check=True,
    )
    found = re.search(r"Collected : (\d+)", done.stderr)
    if found is None:
        raise RuntimeError(f"callgrind told no count:\n{done.stderr}")
    return int(found[1])


def measure(name: str) -> float:
    calls = CALLS[name]
    return (instructions(name, calls) - instructions(name, 0)) / calls


def measure_all() -> dict[str, int]:
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        return {
            name: round(count) for name, count in zip(CALLS, pool.map(measure, CALLS), strict=True)
        }


def versions() -> dict[str, str]:
    return {"python": platform.python_version(), "numpy": numpy.__version__}


def compare(counts: dict[str, int]) -> int:
    committed = json.loads(COUNTS.read_text())
    if committed["versions"] != versions():
        print(f"note: the committed counts are of {committed['versions']}, these of {versions()}")
    moved = 0
    for name, count in counts.items():
        before = committed["counts"][name]
        change = count / before - 1
        verdict = "" if abs(change) <= TOLERANCE else "  MOVED"
        moved += bool(verdict)
        print(f"{name:42}{before:12,} {count:12,} {change:+8.1%}{verdict}")
    return 1 if moved else 0


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--update", action="store_true", help="write the counts anew")
    options = parser.parse_args()
    if shutil.which("valgrind") is None:
        print("valgrind is missing (Debian: the package valgrind)")
        return 2
    counts = measure_all()
    if options.update:
        COUNTS.write_text(json.dumps({"versions": versions(), "counts": counts}, indent=2) + "\n")
        return 0
    return compare(counts)


if __name__ == "__main__":
    sys.exit(main())
