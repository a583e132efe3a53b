"""The payloads that the works are timed on."""

from __future__ import annotations

import json
from collections import OrderedDict
from typing import Any

import numpy as np
from numpy.typing import NDArray

Array = NDArray[Any]


def graph_payload(nodes: int) -> dict[str, Any]:
    """A graph as a JSON parser gives it: three children a node, a config on each."""
    made = 1

    def node(depth: int) -> dict[str, Any]:
        nonlocal made
        children = []
        if depth:
            for _ in range(3):
                if made >= nodes:
                    break
                made += 1
                children.append(node(depth - 1))
        return {
            "type": "rotation",
            "node": "rank",
            "children": children,
            "config": {"window": 20, "method": "average"},
        }

    depth = 1
    while (3 ** (depth + 1) - 1) // 2 < nodes:
        depth += 1
    return parsed(node(depth))


def deep_graph_payload(levels: int) -> dict[str, Any]:
    payload: dict[str, Any] = {"type": "feature", "name": "close"}
    for _ in range(levels - 1):
        payload = {"type": "rotation", "node": "rank", "children": [payload], "config": {"w": 5}}
    return parsed(payload)


def odd_leaf_graph(levels: int) -> dict[str, Any]:
    """A chain of nodes, each with a sibling, over a leaf that only the canonical path takes."""
    payload: dict[str, Any] = OrderedDict(type="feature", name="close")
    for _ in range(levels):
        payload = {"op": "rank", "children": [{"type": "feature", "name": "open"}, payload]}
    return payload


def odd_leaf_states(levels: int) -> tuple[Any, Any]:
    """Two equal states over an array of a kind that only NumPy compares."""
    state: Any = np.array(["a"])
    for _ in range(levels):
        state = [{"mean": 0.5}, np.float64(1), state]
    return state, state


def parsed(payload: dict[str, Any]) -> dict[str, Any]:
    """The payload as a JSON parser makes it: no object in it is shared with anything."""
    made: dict[str, Any] = json.loads(json.dumps(payload))
    return made


def state_payload() -> dict[str, Any]:
    """About 85 nodes: scalars, nested dicts, lists, a small array."""
    return {
        "tick": 118,
        "warm": True,
        "weights": np.linspace(0.0, 1.0, 16),
        "history": [float(i) * 0.25 for i in range(24)],
        "per_signal": {
            f"signal_{i}": {"mean": 0.1 * i, "count": i, "last": None, "tags": ["a", "b"]}
            for i in range(7)
        },
    }


def containers_payload() -> dict[str, Any]:
    """The same state without its array."""
    return {key: value for key, value in state_payload().items() if key != "weights"}


def array(size: int) -> Array:
    """float64 numbers, with a few NaN."""
    made = np.arange(size, dtype=np.float64)
    made[:: max(1, size // 7)] = np.nan
    return made


def mask(size: int) -> Array:
    """A float16 mask that has all three states."""
    made = np.ones(size, dtype=np.float16)
    made[::3] = 0.0
    made[::7] = np.nan
    return made


def bad_mask(size: int) -> Array:
    """A float16 mask whose last entry is none of the three states."""
    made = mask(size)
    made[-1] = 0.5
    return made


def stage_payload() -> dict[str, Any]:
    raw: dict[str, Any] = {}
    for i in range(100):
        raw[f"flat_{i}"] = np.zeros((64, 5))
        raw[f"nested_{i}"] = {"values": np.zeros((64, 5)), "label": "x"}
        raw[f"opaque_{i}"] = i
    return raw


def arrays(prefix: str, count: int) -> dict[str, Array]:
    return {f"{prefix}{i}": np.zeros((4, 3)) for i in range(count)}


SCHEMA = {
    f"param_{i}": {"type": "int", "default": 20, "min": 5, "max": 50, "variadic": False}
    for i in range(20)
}
MANIFEST = {
    "tick_timestamp": 1700000000,
    "dag_metadata": {"version": 3},
    "canonical_id_to_filename": {"n1": "n1.pkl", "n2": "n2.pkl"},
    "producer": "engine-7",
    "compression": "zstd",
}
ERA_INDEX = {
    "schema_version": 2,
    "bundle_kind": "era_index",
    "epochs": {"e1": [0, 10], "e2": [10, 20]},
    "note": "x",
}


def record_fields() -> dict[str, dict[str, Any]]:
    """For each record the fields of a usual instance."""
    return {
        "FunctionState": {"function_name": "ema", "function_version": 3, "data": {"mean": 1.0}},
        "FunctionGraphNode": {"type": "rotation", "node": "rank", "config": {"window": 20}},
        "WindowSpec": {"minimum": 1, "maximum": 240, "default": 60},
        "ParamSpec": {"name": "span", "type": "int", "default": 20, "minimum": 5, "maximum": 50},
        "LiveCheckpoint": {"signals": {"s": {"a": 1}}, "nodes": {"n": {"b": 2}}},
        "UniverseMasks": {"by_tag": {"a": np.ones(50), "b": np.ones(50)}, "n_alloc": 50},
        "HistoryData": {"by_feature": arrays("feature_", 4)},
        "CostResult": {"total": np.zeros(50), "breakdown": arrays("part_", 2)},
        "Evidence": {"data": {"score": 1.0, "reason": "ok"}},
        "CheckpointManifest": {
            "tick_timestamp": 1700000000,
            "dag_metadata": {"version": 3},
            "canonical_id_to_filename": {"n1": "n1.pkl", "n2": "n2.pkl"},
        },
        "Metaparameters": {"by_pool": {"p1": {"rank": "a"}, "p2": {"rank": "b"}}},
        "StageData": {"flat": arrays("flat_", 2), "nested": {"n": {"x": 1}}, "opaque": {"o": 1}},
        "EraIndexManifest": {
            "schema_version": 2,
            "bundle_kind": "era_index",
            "epochs": {"e1": [0, 10], "e2": [10, 20]},
        },
        "TargetInstrumentEntry": {"payload": {"symbol": "ES", "weight": 1.0}},
        "AggregationOutput": {"by_dotted_key": arrays("plugin.output_", 4)},
        "StateScalar": {"value": 1},
        "StateArray": {"data": np.zeros(16)},
        "StateMapping": {"entries": {"a": 1}},
        "StateSequence": {"items_": (1, 2)},
    }
