"""Walks through the examples with the installed command, and fails where one surprises."""

import json
import subprocess
import sys
import time
from pathlib import Path

from quillmere.functions._typed_shapes import FunctionGraphNode, coerce_graph

EXAMPLES = Path(__file__).resolve().parent.parent / "examples"
COMMAND = Path(sys.executable).parent / "typed-shapes"
LARGE = EXAMPLES / "graphs" / "composite_48_alphas.json"
SHOWN_OF_LARGE = 20

surprises: list[str] = []


def heading(text: str) -> None:
    print(f"\n{text}\n{'-' * len(text)}", flush=True)


def run(*arguments: str | Path, expect: int = 0) -> None:
    """Runs the command as a user would, and notes an exit code that is not the expected one."""
    words = [str(a.relative_to(EXAMPLES)) if isinstance(a, Path) else a for a in arguments]
    line = "typed-shapes " + " ".join(words)
    print(f"\n$ {line}", flush=True)
    code = subprocess.run([COMMAND, *words], cwd=EXAMPLES, check=False).returncode
    if code != expect:
        surprises.append(f"{line}: exit code {code} instead of {expect}")


def kind_of(file: Path) -> str:
    return file.stem.replace("_", "-")


def files_in(*folder: str) -> list[Path]:
    return sorted(file for file in EXAMPLES.joinpath(*folder).iterdir() if file.is_file())


def count(node: FunctionGraphNode) -> int:
    return 1 + sum(map(count, node.children))


def time_per_node(file: Path, seconds: float = 0.5) -> None:
    payload = json.loads(file.read_text())
    nodes = count(coerce_graph(payload))
    best = float("inf")
    until = time.perf_counter() + seconds
    while time.perf_counter() < until:
        start = time.perf_counter()
        coerce_graph(payload)
        best = min(best, time.perf_counter() - start)
    print(
        f"\n{file.name}: {nodes} nodes in {best * 1e6:.0f} us, {best / nodes * 1e9:.0f} ns a node"
    )


def main() -> int:
    if not COMMAND.exists():
        print("the command typed-shapes is not installed; run `make demo`", file=sys.stderr)
        return 1

    heading("Function graphs, as the simulation engine gets them")
    for file in files_in("graphs"):
        limit = SHOWN_OF_LARGE if file == LARGE else 0
        run("show", file, "--limit", str(limit))
    time_per_node(LARGE)

    heading("Graphs that do not fit")
    for file in files_in("graphs", "broken"):
        run("show", file, expect=1)

    heading("A payload of every other kind")
    for file in files_in("payloads"):
        run("show", "--as", kind_of(file), file)

    heading("Checks, as a nightly job would run them")
    run("check", "--as", "graph", *files_in("graphs"))
    for file in files_in("payloads", "broken"):
        run("check", "--as", kind_of(file), file, expect=1)
    evidence = [EXAMPLES / folder / "evidence.jsonl" for folder in ("payloads", "payloads/broken")]
    run("check", "--as", "evidence", "--format", "json", *evidence, expect=1)

    heading("Are two states the same?")
    states = EXAMPLES / "payloads" / "states"
    run("same", states / "evening.json", states / "evening_reordered.json")
    run("same", states / "evening.json", states / "next_morning.json", expect=1)
    run("same", states / "ring_buffer.npz", states / "ring_buffer_drifted.npz", expect=1)

    heading("Done" if not surprises else "Not as expected")
    print("\n".join(surprises) or "Every example did what it should.")
    return 1 if surprises else 0


if __name__ == "__main__":
    sys.exit(main())
