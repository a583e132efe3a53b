"""Replay a function graph over a history, stop half-way at a checkpoint, resume, and compare.

    python examples/replay.py                 # a graph of its own
    python examples/replay.py graph.json      # yours, of features, "spread" and "ewm"

A consumer of the records as a service may be one: payloads that nobody has checked come in at one
place, and behind it there is no type test.
"""

from __future__ import annotations

import json
import pickle
import sys
import tempfile
from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import NDArray
from quillmere.functions import _typed_shapes as shapes
from quillmere.functions._typed_shapes import FunctionGraphNode, FunctionState, HistoryData

Row = NDArray[np.float64]
UNFIT = (ValueError, TypeError, RecursionError)  # of payloads that nobody has checked before
TICKS, SLOTS, VERSION = 60, 4, 1
SCHEMA = '{"window": {"min": 2, "max": 240, "default": 20}, "method": "ewm"}'
GRAPH = """{"op": "ewm", "canonical_id": "e0", "params": {"window": 5}, "args": [
    {"op": "spread", "args": [{"op": "feature", "name": "ask"}, {"type": "feature", "node": "bid"}]}
]}"""


def window_of(node: FunctionGraphNode, specs: dict[str, shapes.ParamSpec]) -> int:
    """The node's own window, else that of the declaration."""
    window = shapes.WindowSpec.from_raw(node.config.get("window")) or specs["window"].window
    length = window.picked() if window else None
    if length is None:
        raise ValueError(f"no window for {node.node!r}")
    return length


class Replay:
    """Evaluates a graph tick by tick, with a state for each of its stateful nodes."""

    def __init__(self, graph: FunctionGraphNode, specs: dict[str, shapes.ParamSpec]) -> None:
        self.graph = graph
        self.states: dict[str, dict[str, Any]] = {}
        self.windows: dict[FunctionGraphNode, int] = {}  # a node equals itself alone
        waiting = [graph]
        while waiting:
            waiting += (node := waiting.pop()).children
            if node.node == "ewm":
                self.windows[node] = window_of(node, specs)
                self.states[self.key(node)] = {"mean": np.full(SLOTS, np.nan), "seen": 0}

    def key(self, node: FunctionGraphNode) -> str:
        return node.canonical_id or f"node-{list(self.windows).index(node)}"

    def value(self, node: FunctionGraphNode, history: HistoryData, tick: int) -> Row:
        match node:
            case FunctionGraphNode("feature", str(name)):
                row: Row = history[name][tick]
                return row
            case FunctionGraphNode("rotation", "spread", [first, second]):
                return self.value(first, history, tick) - self.value(second, history, tick)
            case FunctionGraphNode("rotation", "ewm", [child]):
                state, new = self.states[self.key(node)], self.value(child, history, tick)
                weight, mean = 2 / (self.windows[node] + 1), state["mean"]
                state["mean"] = np.where(np.isnan(mean), new, weight * new + (1 - weight) * mean)
                state["seen"] += 1
                return np.array(state["mean"])
            case _:
                raise NotImplementedError(f"{node.type} {node.node!r}")

    def run(self, history: HistoryData, ticks: range) -> shapes.AggregationOutput:
        rows = [self.value(self.graph, history, tick) for tick in ticks]
        return shapes.AggregationOutput({"replay.value": np.array(rows)})

    def save(self, folder: Path, tick: int) -> None:
        """One file for each state, and the manifest: a plain mapping, as its readers expect."""
        for key, state in self.states.items():
            record = FunctionState("ewm", VERSION, dict(state))
            (folder / f"{key}.pkl").write_bytes(pickle.dumps(record))
        files = {key: f"{key}.pkl" for key in self.states}
        manifest = {"tick_timestamp": tick, "dag_metadata": {"nodes": len(self.windows)}}
        manifest |= {"canonical_id_to_filename": files, "host": "sim-04"}
        (folder / "manifest.pkl").write_bytes(pickle.dumps(manifest))

    def resume(self, folder: Path) -> int:
        raw = pickle.loads((folder / "manifest.pkl").read_bytes())
        manifest = shapes.CheckpointManifest.from_raw(raw)
        for key, file in manifest.canonical_id_to_filename.items():
            self.states[key] = shapes.validate_function_state(
                pickle.loads((folder / file).read_bytes()),
                expected_name="ewm",
                expected_version=VERSION,
            )
        return int(manifest.tick_timestamp)


def quotes() -> HistoryData:
    rng = np.random.default_rng(7)
    bid = 100 * np.exp(np.cumsum(rng.normal(0, 0.01, (TICKS, SLOTS)), axis=0))
    return HistoryData.from_raw({"bid": bid, "ask": bid + 0.05}, context="quotes")


def cost_of(value: Row, masks: shapes.UniverseMasks) -> shapes.CostResult:
    fees = np.where(masks["tradable"] == 1, 0.001 * np.abs(value), 0.0)
    return shapes.CostResult(fees + 0.0005, {"fees": fees})


def main() -> int:
    text = Path(sys.argv[1]).read_text() if len(sys.argv) > 1 else GRAPH
    try:
        graph = FunctionGraphNode.from_raw(json.loads(text))
        specs = shapes.ParamSpec.coerce_specs(json.loads(SCHEMA))
        whole, first, second = (Replay(graph, specs) for _ in range(3))
    except UNFIT as error:
        sys.exit(f"the payload does not fit: {error}")
    outputs = whole.run(quotes(), range(TICKS))
    with tempfile.TemporaryDirectory() as folder:
        first.run(quotes(), range(TICKS // 2))
        first.save(Path(folder), TICKS // 2)
        rest = second.run(quotes(), range(second.resume(Path(folder)), TICKS))
    value = outputs.by_dotted_key["replay.value"]
    tradable = np.array([1, 0, np.nan, 1], dtype=np.float16)
    masks = shapes.UniverseMasks.from_raw({"tradable": tradable}, n_alloc=SLOTS)
    cost = shapes.CostResult.from_raw(cost_of(value[-1], masks), context="fees")
    same = shapes.states_equal(second.states, whole.states) and shapes.states_equal(
        rest.by_dotted_key["replay.value"], value[TICKS // 2 :]
    )
    evidence = shapes.Evidence.from_raw({"check": "resumed", "equal": same})
    evidence["costs"] = cost.total.tolist()
    print(json.dumps(evidence.data))
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
