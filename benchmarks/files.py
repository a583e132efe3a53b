"""The result files: our own, and pyperf's."""

from __future__ import annotations

import json
import shutil
from pathlib import Path
from typing import Any

import pyperf  # type: ignore[import-untyped]
from quillmere.functions import _typed_shapes as native

ROOT = Path(__file__).parent.parent
FOLDER = ROOT / "build" / "bench"
RESULTS = FOLDER / "results.json"  # of the last whole run
PARTIAL = FOLDER / "partial.json"  # of the last quick or selected one
Rounds = list[dict[str, Any]]


def write(results: dict[str, Any], complete: bool) -> None:
    FOLDER.mkdir(parents=True, exist_ok=True)
    path = RESULTS if complete else PARTIAL
    path.write_text(json.dumps(results, indent=1) + "\n")


def read() -> dict[str, Any]:
    results: dict[str, Any] = json.loads(RESULTS.read_text())
    return results


def write_pyperf(processes: Rounds) -> None:
    """native.json and plain.json, one run a process: `pyperf compare_to plain.json native.json`."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    for who in ("native", "plain"):
        benchmarks = [_benchmark(name, who, processes) for name in processes[0]]
        suite = pyperf.BenchmarkSuite(benchmarks)
        suite.dump(str(FOLDER / f"{who}.json"), replace=True)


def _benchmark(name: str, who: str, processes: Rounds) -> pyperf.Benchmark:
    runs = []
    for process in processes:
        taken = process[name]
        metadata = {"name": name, "loops": taken["loops"][who]}
        runs.append(pyperf.Run(taken[who], metadata=metadata, collect_metadata=False))
    return pyperf.Benchmark(runs)


def site() -> str:
    """A folder with nothing but the module, to import it under another interpreter."""
    folder = FOLDER / "site"
    package = folder / "quillmere" / "functions"
    package.mkdir(parents=True, exist_ok=True)
    shutil.copy2(str(native.__file__), package)
    return str(folder)
