"""The works that are timed: whole payloads, and then every other call."""

from __future__ import annotations

from typing import Any

import calls
import numpy as np
import payloads
from payloads import deep_graph_payload, graph_payload, stage_payload, state_payload
from timing import Setup, Work


def _raw(raw: object, **names: str) -> Setup:
    """The payload as `raw`, and attributes of the module by name."""
    return lambda module: {
        "raw": raw,
        **{name: getattr(module, attribute) for name, attribute in names.items()},
    }


def _graph(name: str, floor: float, payload: dict[str, Any]) -> Work:
    return Work(name, floor, "coerce_graph(raw)", _raw(payload, coerce_graph="coerce_graph"))


def _equal(name: str, floor: float, a: object, b: object) -> Work:
    return Work(
        f"states_equal, {name}",
        floor,
        "states_equal(a, b)",
        lambda module: {"a": a, "b": b, "states_equal": module.states_equal},
    )


def _arrays_equal(size: int, floor: float) -> Work:
    return _equal(f"float64 x {size:,}", floor, payloads.array(size), payloads.array(size))


def _masks(size: int, floor: float) -> Work:
    return Work(
        f"masks, float16 x {size:,}",
        floor,
        "UniverseMasks(raw, n)",
        lambda module: {
            "UniverseMasks": module.UniverseMasks,
            "raw": {"tradable": payloads.mask(size)},
            "n": size,
        },
    )


def _from_raw(name: str, class_name: str, raw: object, floor: float = 3.5) -> Work:
    return Work(name, floor, "Class.from_raw(raw)", _raw(raw, Class=class_name))


PAYLOADS = [
    _graph("graph, 1,000 nodes", 5.5, graph_payload(1000)),
    _graph("graph, 150 levels deep", 5, deep_graph_payload(150)),
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
    ),
    _equal("containers", 70, payloads.containers_payload(), payloads.containers_payload()),
    _equal("with an array", 60, state_payload(), state_payload()),
    _arrays_equal(1000, 45),
    _arrays_equal(1_000_000, 18),
    Work(
        "state scalar constructor",
        2.4,
        "StateScalar(1)",
        lambda module: {"StateScalar": module.StateScalar},
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
        _raw(payloads.SCHEMA, ParamSpec="ParamSpec"),
    ),
    _masks(5000, 90),
    _masks(1_000_000, 200),
    _from_raw("history batch, 200 arrays", "HistoryData", payloads.arrays("feature_", 200), 12),
    _from_raw(
        "aggregation output, 200 arrays",
        "AggregationOutput",
        payloads.arrays("plugin.output_", 200),
        8,
    ),
    Work(
        "stage partition, 300 keys",
        3.5,
        "StageData.from_mapping(raw)",
        _raw(stage_payload(), StageData="StageData"),
    ),
    Work(
        "stage slice_t, 300 keys",
        1.5,
        "stage.slice_t(8, 24)",
        lambda module: {"stage": module.StageData.from_mapping(stage_payload())},
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
    _from_raw("checkpoint manifest", "CheckpointManifest", payloads.MANIFEST),
    _from_raw("era-index manifest", "EraIndexManifest", payloads.ERA_INDEX),
    _from_raw("metaparameters", "Metaparameters", {"p1": {"rank": "a"}, "p2": {"rank": "b"}}),
    Work(
        "target instrument",
        3.5,
        "Entry.from_raw(raw, 3)",
        _raw({"symbol": "ES", "weight": 1.0}, Entry="TargetInstrumentEntry"),
    ),
    _graph("graph, an odd leaf 150 levels down", 1, payloads.odd_leaf_graph(150)),
    _equal("an odd leaf 150 levels down", 1, *payloads.odd_leaf_states(150)),
]

GROUPS = {
    "payloads": PAYLOADS,
    "other calls": calls.ACCEPTED_WORKS,
    "refusals": calls.REFUSED_WORKS,
}
WORKS = [work for group in GROUPS.values() for work in group]
