"""The works that are timed: a statement, and the names that it runs with.

A work is made for a namespace of classes (the native module or its plain-Python version), so that
both do the same thing to the same payload.
"""

from __future__ import annotations

import json
from collections.abc import Callable
from dataclasses import dataclass
from types import ModuleType
from typing import Any

import numpy as np

Setup = Callable[[ModuleType], dict[str, Any]]


@dataclass(frozen=True)
class Work:
    name: str
    floor: float  # how many times as fast as plain Python it has to be
    statement: str
    setup: Setup
    unit: int = 1  # nodes or entries in one call


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
    payload: dict[str, Any] = json.loads(json.dumps(node(depth)))
    return payload


def deep_graph_payload(levels: int) -> dict[str, Any]:
    payload: dict[str, Any] = {"type": "feature", "name": "close"}
    for _ in range(levels - 1):
        payload = {"type": "rotation", "node": "rank", "children": [payload], "config": {"w": 5}}
    copied: dict[str, Any] = json.loads(json.dumps(payload))
    return copied


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


def _without_array(state: dict[str, Any]) -> dict[str, Any]:
    return {key: value for key, value in state.items() if key != "weights"}


def _array(size: int) -> np.ndarray:
    array = np.arange(size, dtype=np.float64)
    array[:: max(1, size // 7)] = np.nan
    return array


def _mask(size: int) -> np.ndarray:
    mask = np.ones(size, dtype=np.float16)
    mask[::3] = 0.0
    mask[::7] = np.nan
    return mask


def stage_payload() -> dict[str, Any]:
    raw: dict[str, Any] = {}
    for i in range(100):
        raw[f"flat_{i}"] = np.zeros((64, 5))
        raw[f"nested_{i}"] = {"values": np.zeros((64, 5)), "label": "x"}
        raw[f"opaque_{i}"] = i
    return raw


def _raw(raw: object, **names: str) -> Setup:
    """The payload as `raw`, and attributes of the module by dotted name."""

    def setup(module: ModuleType) -> dict[str, Any]:
        return {"raw": raw, **_attributes(module, names)}

    return setup


def _pair(a: object, b: object) -> Setup:
    return lambda module: {"a": a, "b": b, "states_equal": module.states_equal}


def _attributes(module: ModuleType, names: dict[str, str]) -> dict[str, Any]:
    return {name: getattr(module, attribute) for name, attribute in names.items()}


def _mask_work(size: int, floor: float) -> Work:
    return Work(
        f"masks, float16 x {size:,}",
        floor,
        "UniverseMasks(raw, n)",
        lambda module: {
            "UniverseMasks": module.UniverseMasks,
            "raw": {"tradable": _mask(size)},
            "n": size,
        },
        size,
    )


def _array_work(size: int, floor: float) -> Work:
    return Work(
        f"states_equal, float64 x {size:,}",
        floor,
        "states_equal(a, b)",
        _pair(_array(size), _array(size)),
        size,
    )


def _from_raw(name: str, class_name: str, raw: object, floor: float = 3.5) -> Work:
    return Work(name, floor, "Class.from_raw(raw)", _raw(raw, Class=class_name))


def _subscription(name: str, make: Callable[[ModuleType], Any]) -> Work:
    return Work(name, 1.3, "record['a']", lambda module: {"record": make(module)})


def _graph_work(name: str, floor: float, payload: dict[str, Any], nodes: int) -> Work:
    return Work(name, floor, "coerce_graph(raw)", _raw(payload, coerce_graph="coerce_graph"), nodes)


_SCHEMA = {
    f"param_{i}": {"type": "int", "default": 20, "min": 5, "max": 50, "variadic": False}
    for i in range(20)
}
_MANIFEST = {
    "tick_timestamp": 1700000000,
    "dag_metadata": {"version": 3},
    "canonical_id_to_filename": {"n1": "n1.pkl", "n2": "n2.pkl"},
    "producer": "engine-7",
    "compression": "zstd",
}
_ERA_INDEX = {
    "schema_version": 2,
    "bundle_kind": "era_index",
    "epochs": {"e1": [0, 10], "e2": [10, 20]},
    "note": "x",
}

WORKS = [
    _graph_work("graph, 1,000 nodes", 5.5, graph_payload(1000), 1000),
    _graph_work("graph, 150 levels deep", 5, deep_graph_payload(150), 150),
    Work(
        "graph node constructor",
        2.2,
        "Node('rotation', 'rank')",
        lambda module: {"Node": module.FunctionGraphNode},
    ),
    Work(
        "coerce_state, 85 nodes",
        10,
        "coerce_state(raw)",
        _raw(state_payload(), coerce_state="coerce_state"),
        85,
    ),
    Work(
        "states_equal, containers",
        70,
        "states_equal(a, b)",
        _pair(_without_array(state_payload()), _without_array(state_payload())),
        85,
    ),
    Work(
        "states_equal, with an array",
        60,
        "states_equal(a, b)",
        _pair(state_payload(), state_payload()),
        85,
    ),
    _array_work(1000, 45),
    _array_work(1_000_000, 18),
    Work(
        "state scalar constructor",
        2.4,
        "StateScalar(1)",
        lambda module: {"StateScalar": module.StateScalar},
    ),
    Work(
        "validate_function_state",
        1.8,
        "check(state, expected_name='ema', expected_version=3)",
        lambda module: {
            "check": module.validate_function_state,
            "state": module.FunctionState("ema", 3, {"mean": 1.0}),
        },
    ),
    Work(
        "window constructor",
        6,
        "WindowSpec(1, 240, 60)",
        lambda module: {"WindowSpec": module.WindowSpec},
    ),
    _from_raw("window from a dict", "WindowSpec", {"min": 1, "max": 240, "default": 60}, 6),
    Work(
        "parameter schema, 20 entries",
        8,
        "ParamSpec.coerce_specs(raw)",
        _raw(_SCHEMA, ParamSpec="ParamSpec"),
        20,
    ),
    _mask_work(5000, 90),
    _mask_work(1_000_000, 200),
    _from_raw(
        "history batch, 200 arrays",
        "HistoryData",
        {f"feature_{i}": np.zeros((4, 3)) for i in range(200)},
        12,
    ),
    _from_raw(
        "aggregation output, 200 arrays",
        "AggregationOutput",
        {f"plugin.output_{i}": np.zeros((4, 3)) for i in range(200)},
        8,
    ),
    Work(
        "stage partition, 300 keys",
        3.5,
        "StageData.from_mapping(raw)",
        _raw(stage_payload(), StageData="StageData"),
        300,
    ),
    Work(
        "stage slice_t, 300 keys",
        1.5,
        "stage.slice_t(8, 24)",
        lambda module: {"stage": module.StageData.from_mapping(stage_payload())},
        300,
    ),
    Work(
        "cost result constructor",
        4,
        "CostResult(total=total, breakdown=breakdown)",
        lambda module: {
            "CostResult": module.CostResult,
            "total": np.zeros(50),
            "breakdown": {"spread": np.zeros(50), "impact": np.zeros(50)},
        },
    ),
    _from_raw("evidence from a mapping", "Evidence", {"score": 1.0, "reason": "ok"}),
    _from_raw(
        "live checkpoint from a mapping",
        "LiveCheckpoint",
        {"signals": {"s": {"a": 1}}, "nodes": {"n": {"b": 2}}},
    ),
    _from_raw("checkpoint manifest", "CheckpointManifest", _MANIFEST),
    _from_raw("era-index manifest", "EraIndexManifest", _ERA_INDEX),
    _from_raw("metaparameters", "Metaparameters", {"p1": {"rank": "a"}, "p2": {"rank": "b"}}),
    Work(
        "target instrument",
        3.5,
        "Entry.from_raw(raw, 3)",
        _raw({"symbol": "ES", "weight": 1.0}, Entry="TargetInstrumentEntry"),
    ),
    _subscription("evidence subscription", lambda module: module.Evidence({"a": 1})),
    _subscription("mask subscription", lambda module: module.UniverseMasks({"a": np.ones(3)}, 3)),
]
