"""Runs the measurements in child processes and puts the results together."""

from __future__ import annotations

import dataclasses
import importlib.metadata
import json
import os
import platform
import statistics
import subprocess
import sys
from pathlib import Path
from typing import Any

import files
import numpy as np
from memory import MODULES, WHATS
from timing import QUICK, Effort
from works import GROUPS

HERE = Path(__file__).parent
LIBRARIES = ("msgspec", "pydantic", "attrs", "cattrs", "mashumaro", "dacite")
IMPORTS = {
    "native": "from quillmere.functions import _typed_shapes",
    "plain": "import plain_module",
}
GRAPH, KEPT = "graph, 1,000 nodes", "graph, with 50 kept alive"
PEER_FLOORS = {GRAPH: 1.1, KEPT: 2.0}
Results = dict[str, Any]


class Progress:
    """Says on stderr what is being measured."""

    def __call__(self, what: str) -> None:
        print(f"... {what}", file=sys.stderr, flush=True)


@dataclasses.dataclass(frozen=True)
class Plan:
    selected: str = ""
    quick: bool = False

    @property
    def effort(self) -> Effort:
        return QUICK if self.quick else Effort()

    @property
    def processes(self) -> int:
        return 1 if self.quick else 3

    @property
    def whole(self) -> bool:
        return not self.selected

    @property
    def complete(self) -> bool:
        """Whether the results are those to keep and to draw."""
        return self.whole and not self.quick


def child(job: str, python: str = sys.executable, path: str | None = None, **order: Any) -> Any:
    """The result of one job in a process of its own."""
    environment = {**os.environ, "OPENBLAS_NUM_THREADS": "1"}
    if path is not None:
        environment["PYTHONPATH"] = path
    command = [python, str(HERE / "worker.py"), json.dumps({"job": job, **order})]
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, check=True)
    return json.loads(done.stdout)


def timed_works(plan: Plan, **where: str) -> list[dict[str, Any]]:
    """What each process took for the selected works."""
    effort = dataclasses.asdict(plan.effort)
    return [
        child("works", selected=plan.selected, effort=effort, **where)
        for _ in range(plan.processes)
    ]


def ratios(processes: list[dict[str, Any]]) -> list[dict[str, Any]]:
    """Each work's ratio: the median over processes of the ratio of minima in one process."""
    rows = []
    for group, work in ((group, work) for group, works in GROUPS.items() for work in works):
        if work.name not in processes[0]:
            continue
        taken = [process[work.name] for process in processes]
        pairs = [(min(t["native"]), min(t["plain"])) for t in taken]
        each = sorted(plain / native for native, plain in pairs)
        ratio = statistics.median(each)
        rows.append(
            {
                "group": group,
                "name": work.name,
                "native": min(native for native, _ in pairs),
                "plain": min(plain for _, plain in pairs),
                "ratio": ratio,
                "lowest": each[0],
                "highest": each[-1],
                "floor": work.floor,
                "met": ratio >= work.floor,
            }
        )
    return rows


def memory(quick: bool) -> list[dict[str, Any]]:
    nodes = 20_000 if quick else 200_000
    return [
        {
            "what": what,
            "how": how,
            **{who: child(how, who=who, what=what, nodes=nodes) for who in MODULES},
        }
        for what in WHATS
        for how in ("traced", "resident")
    ]


def _import_time(statement: str) -> float:
    """Microseconds that importing takes after NumPy: all that -X importtime lists after it."""
    command = [sys.executable, "-X", "importtime", "-c", f"import numpy; {statement}"]
    path = os.pathsep.join([str(files.FOLDER), os.environ.get("PYTHONPATH", "")])
    environment = {**os.environ, "PYTHONPATH": path, "OPENBLAS_NUM_THREADS": "1"}
    environment.pop("PYTHONDONTWRITEBYTECODE", None)  # a user's modules are compiled once
    done = subprocess.run(command, env=environment, capture_output=True, text=True, check=True)
    lines = [line.split("|") for line in done.stderr.splitlines() if "|" in line]
    names = [line[2].rstrip() for line in lines]
    after = lines[names.index(" numpy") + 1 :]
    return sum(float(line[0].split(":")[1]) for line in after)


def _write_plain_module() -> None:
    """The sections of the reference as the one file that somebody would write."""
    import reference

    future = "from __future__ import annotations\n"
    sections = [(reference.FOLDER / f"{name}.py").read_text() for name in reference.SECTIONS]
    text = future + "".join(section.replace(future, "") for section in sections)
    files.FOLDER.mkdir(parents=True, exist_ok=True)
    (files.FOLDER / "plain_module.py").write_text(text)


def imports(quick: bool) -> dict[str, float]:
    """Medians in milliseconds, the processes in turn; the first only writes the bytecode."""
    _write_plain_module()
    rounds: dict[str, list[float]] = {who: [] for who in IMPORTS}
    for _ in range(4 if quick else 21):
        for who, statement in IMPORTS.items():
            rounds[who].append(_import_time(statement))
    return {who: statistics.median(taken[1:]) / 1e3 for who, taken in rounds.items()}


def environment() -> dict[str, Any]:
    return {
        "python": platform.python_version(),
        "numpy": np.__version__,
        "machine": f"{platform.system()} {platform.machine()}, {os.cpu_count()} processors",
        "load": [os.getloadavg()[0]],
        "libraries": {name: importlib.metadata.version(name) for name in LIBRARIES},
    }


def under_numpy(python: str, path: str, plan: Plan) -> dict[str, Any]:
    """The array works under another interpreter with another NumPy."""
    version = subprocess.run(
        [python, "-c", "import numpy; print(numpy.__version__)"],
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    ).stdout.strip()
    rows = []
    for selected in ("float16 x", "float64 x 1,"):
        narrowed = dataclasses.replace(plan, selected=selected)
        rows += ratios(timed_works(narrowed, python=python, path=path))
    return {"numpy": version, "works": rows}


def measured(plan: Plan) -> tuple[Results, list[dict[str, Any]]]:
    """All results, and the rounds of the works for pyperf's files."""
    say = Progress()
    results: Results = {"environment": environment()}
    effort = dataclasses.asdict(plan.effort)
    say("works")
    processes = timed_works(plan)
    results["works"] = ratios(processes)
    say("peers")
    results["peers"] = child("peers", selected=plan.selected, effort=effort)
    results["peer_floors"] = PEER_FLOORS
    if plan.whole:
        calls = 60 if plan.quick else 300
        row = {who: child("kept", who=who, calls=calls) for who in results["peers"][GRAPH]}
        results["peers"] = {GRAPH: results["peers"][GRAPH], KEPT: row, **results["peers"]}
        say("cost per node")
        results["nodes"] = child(
            "nodes", largest=10_000 if plan.quick else 1_000_000, effort=effort
        )
        say("what is left of a node")
        results["limit"] = [
            row
            for nodes, rounds in ((1000, 300), (10_000 if plan.quick else 300_000, 9))
            for row in child("limit", nodes=nodes, rounds=rounds)
        ]
        say("throughput")
        results["throughput"] = child("throughput", largest=1 << 26, effort=effort)
        say("memory")
        results["memory"] = memory(plan.quick)
        say("imports")
        results["imports"] = imports(plan.quick)
    results["environment"]["load"].append(os.getloadavg()[0])
    return results, processes
