"""Count the instructions of fixed works and compare them with the committed counts.

Times depend on what else a machine does, instruction counts do not. A count that moved by more than
the tolerance fails; `--update` writes the counts anew. One process under callgrind runs all works,
with a mark before and after each: a call of a C function that nothing else calls, at which
callgrind writes down what it counted since the last one.
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
import tempfile
from pathlib import Path

import calls
import numpy

COUNTS = Path(__file__).with_name("instructions.json")
TOLERANCE = 0.03
MARK = "getloadavg"
# How often each is run: some 10 million instructions each.
WORKS = {
    **dict.fromkeys(
        [
            "graph, 1,000 nodes",
            "graph, an odd leaf 150 levels down",
            "states_equal, an odd leaf 150 levels down",
            "stage slice_t, 300 keys",
        ],
        6,
    ),
    **dict.fromkeys(
        [
            "coerce_state, 85 nodes",
            "states_equal, containers",
            "states_equal, with an array",
            "parameter schema, 20 entries",
            "history batch, 200 arrays",
            "aggregation output, 200 arrays",
            "stage partition, 300 keys",
            "_states_value_equal(coerced, coerced_again)",
        ],
        200,
    ),
    **dict.fromkeys(
        [
            "states_equal, float64 x 1,000",
            "masks, float16 x 5,000",
            "window from a dict",
            "evidence from a mapping",
            "live checkpoint from a mapping",
            "checkpoint manifest",
            "era-index manifest",
            "metaparameters",
            "target instrument",
            "validate_function_state(state, expected_name='ema', expected_version=3)",
            "window.picked()",
            "evidence['score']",
            "evidence.items()",
            "np.asarray(cost)",
            "stage.set_value('flat_50', ARRAY)",
            "FunctionGraphNode('')",
            "Evidence.from_raw([])",
            "Evidence.from_raw()",
            *(work.name for work in calls.CONSTRUCTORS),
        ],
        4000,
    ),
}
CHILD = f"""
import gc, json, os, sys
from works import WORKS
from quillmere.functions import _typed_shapes as native
by_name = {{work.name: work for work in WORKS}}
for name, times in json.loads(sys.argv[1]).items():
    work = by_name[name]
    names = work.setup(native)
    body = work.statement.replace("\\n", "\\n  ")
    exec(f"def run(times):\\n for _ in range(times):\\n  {{body}}", names)
    gc.collect()
    gc.disable()
    names["run"](20)
    os.{MARK}()
    names["run"](times)
    os.{MARK}()
    gc.enable()
"""


def measure_all() -> dict[str, int]:
    """The instructions of one execution of each work."""
    environment = {**os.environ, "PYTHONHASHSEED": "0", "OPENBLAS_NUM_THREADS": "1"}
    environment["PYTHONPATH"] = os.pathsep.join(
        [str(Path(__file__).parent), environment.get("PYTHONPATH", "")]
    )
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / "out"
        command = ["valgrind", "--tool=callgrind", f"--dump-before={MARK}"]
        command += [f"--callgrind-out-file={out}", sys.executable, "-c", CHILD, json.dumps(WORKS)]
        subprocess.run(command, check=True, capture_output=True, env=environment)
        # Before a work and after it, in turn.
        counted = [
            int(re.findall(r"^totals: (\d+)", Path(f"{out}.{part}").read_text(), re.MULTILINE)[0])
            for part in range(2, 2 * len(WORKS) + 1, 2)
        ]
    return {
        name: round(count / times)
        for (name, times), count in zip(WORKS.items(), counted, strict=True)
    }


def versions() -> dict[str, str]:
    compiler = subprocess.run(
        [os.environ.get("CXX", "c++"), "--version"], capture_output=True, text=True, check=True
    )
    return {
        "python": platform.python_version(),
        "numpy": numpy.__version__,
        "compiler": compiler.stdout.splitlines()[0],
    }


def compare(counts: dict[str, int]) -> int:
    committed = json.loads(COUNTS.read_text())
    if committed["versions"] != versions():
        print(f"Not compared: the counts are of {committed['versions']}, these of {versions()}.")
        return 0
    moved = 0
    for name, count in counts.items():
        before = committed["counts"][name]
        change = count / before - 1
        verdict = "" if abs(change) <= TOLERANCE else "  MOVED"
        moved += bool(verdict)
        print(f"{name:72}{before:12,} {count:12,} {change:+8.1%}{verdict}")
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
