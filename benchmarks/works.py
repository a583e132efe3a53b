"""The works that are timed: a statement, and the names that it runs with.

A work is made for a namespace of classes (the native module or its plain-Python version), so that
both do the same thing to the same payload.
"""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from types import ModuleType
from typing import Any

import numpy as np
import payloads
import refusals
from payloads import deep_graph_payload, graph_payload, stage_payload, state_payload

Setup = Callable[[ModuleType], dict[str, Any]]


@dataclass(frozen=True)
class Work:
    name: str
    floor: float | None  # how many times as fast as plain Python it has to be; None: no floor
    statement: str
    setup: Setup
    unit: int = 1  # nodes or entries in one call


def _raw(raw: object, **names: str) -> Setup:
    """The payload as `raw`, and attributes of the module by name."""
    return lambda module: {
        "raw": raw,
        **{name: getattr(module, attribute) for name, attribute in names.items()},
    }


def _graph(name: str, floor: float | None, payload: dict[str, Any], nodes: int) -> Work:
    return Work(name, floor, "coerce_graph(raw)", _raw(payload, coerce_graph="coerce_graph"), nodes)


def _equal(name: str, floor: float | None, a: object, b: object, unit: int) -> Work:
    return Work(
        f"states_equal, {name}",
        floor,
        "states_equal(a, b)",
        lambda module: {"a": a, "b": b, "states_equal": module.states_equal},
        unit,
    )


def _arrays_equal(size: int, floor: float) -> Work:
    return _equal(f"float64 x {size:,}", floor, payloads.array(size), payloads.array(size), size)


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
        size,
    )


def _from_raw(name: str, class_name: str, raw: object, floor: float | None = 3.5) -> Work:
    return Work(name, floor, "Class.from_raw(raw)", _raw(raw, Class=class_name))


def _access(name: str, statement: str, class_name: str, floor: float | None = None) -> Work:
    """A look into a usual instance of the class, which the statement calls `record`."""

    def setup(module: ModuleType) -> dict[str, Any]:
        fields = payloads.record_fields()[class_name]
        return {"record": getattr(module, class_name)(**fields), "np": np}

    return Work(name, floor, statement, setup)


def _stage(name: str, statement: str) -> Work:
    """An accessor of stage data of 300 keys."""

    def setup(module: ModuleType) -> dict[str, Any]:
        return {"stage": module.StageData.from_mapping(stage_payload()), "array": np.zeros((64, 5))}

    return Work(name, None, statement, setup)


def _constructor(class_name: str) -> Work:
    def setup(module: ModuleType) -> dict[str, Any]:
        fields = payloads.record_fields()[class_name]
        return {"Class": getattr(module, class_name), "fields": fields}

    return Work(f"{class_name}(**fields)", None, "Class(**fields)", setup)


def _refused(call: str) -> Work:
    statement = f"try: {call}\nexcept Exception: pass"
    return Work(f"refusal: {call}", 0.9, statement, refusals.names_of)


def _values_equal(module: ModuleType) -> dict[str, Any]:
    return {
        "equal": module._states_value_equal,
        "a": module.coerce_state(payloads.containers_payload()),
        "b": module.coerce_state(payloads.containers_payload()),
    }


def _differing(key: str) -> dict[str, Any]:
    return {**payloads.containers_payload(), key: "other"}


# Those that have a floor.
GUARDED = [
    _graph("graph, 1,000 nodes", 5.5, graph_payload(1000), 1000),
    _graph("graph, 150 levels deep", 5, deep_graph_payload(150), 150),
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
    _equal("containers", 70, payloads.containers_payload(), payloads.containers_payload(), 85),
    _equal("with an array", 60, state_payload(), state_payload(), 85),
    _arrays_equal(1000, 45),
    _arrays_equal(1_000_000, 18),
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
        _raw(payloads.SCHEMA, ParamSpec="ParamSpec"),
        20,
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
    _from_raw("checkpoint manifest", "CheckpointManifest", payloads.MANIFEST),
    _from_raw("era-index manifest", "EraIndexManifest", payloads.ERA_INDEX),
    _from_raw("metaparameters", "Metaparameters", {"p1": {"rank": "a"}, "p2": {"rank": "b"}}),
    Work(
        "target instrument",
        3.5,
        "Entry.from_raw(raw, 3)",
        _raw({"symbol": "ES", "weight": 1.0}, Entry="TargetInstrumentEntry"),
    ),
    _access("evidence subscription", "record['score']", "Evidence", 1.3),
    _access("mask subscription", "record['a']", "UniverseMasks", 1.3),
    *map(_refused, refusals.CALLS.strip().splitlines()),
]

# The other entry points, for information.
FURTHER = [
    _equal("unequal at the first key", None, payloads.containers_payload(), _differing("tick"), 1),
    _equal(
        "unequal at the last key",
        None,
        payloads.containers_payload(),
        {**payloads.containers_payload(), "per_signal": {}},
        85,
    ),
    _equal("float64, unequal shapes", None, payloads.array(1000), payloads.array(999), 1),
    Work("_states_value_equal, containers", None, "equal(a, b)", _values_equal, 85),
    Work(
        "coerce_state, an array",
        None,
        "coerce_state(raw)",
        _raw(np.zeros(16), coerce_state="coerce_state"),
    ),
    Work("coerce_state, a scalar", None, "coerce_state(raw)", _raw(1, coerce_state="coerce_state")),
    _from_raw("window from an int", "WindowSpec", 20, None),
    _access("WindowSpec.picked", "record.picked()", "WindowSpec"),
    Work(
        "ParamSpec.from_raw",
        None,
        "Class.from_raw('span', raw)",
        _raw(payloads.SCHEMA["param_0"], Class="ParamSpec"),
    ),
    Work(
        "ParamSpec.from_mapping, 20 entries",
        None,
        "Class.from_mapping(raw)",
        _raw(payloads.SCHEMA, Class="ParamSpec"),
        20,
    ),
    Work(
        "UniverseMasks.from_raw, float64 x 50",
        None,
        "Class.from_raw(raw, n_alloc=50)",
        _raw({"a": np.ones(50), "b": np.ones(50)}, Class="UniverseMasks"),
    ),
    Work(
        "CostResult.from_raw",
        None,
        "Class.from_raw(record)",
        lambda module: {
            "Class": module.CostResult,
            "record": module.CostResult(np.zeros(50)),
        },
    ),
    _stage("StageData.value", "stage.value('opaque_50')"),
    _stage("StageData.set_value", "stage.set_value('flat_50', array)"),
    _stage("StageData.has_value", "stage.has_value('opaque_50')"),
    _stage("StageData.is_empty", "stage.is_empty()"),
    _stage("StageData.feature_names, 100 arrays", "stage.feature_names()"),
    _access("Evidence[...] = ...", "record['score'] = 2.0", "Evidence"),
    _access("... in Evidence", "'score' in record", "Evidence"),
    _access("Evidence.get", "record.get('none', 1)", "Evidence"),
    _access("Evidence.items", "record.items()", "Evidence"),
    _access("Evidence.keys", "record.keys()", "Evidence"),
    _access("Evidence.values", "record.values()", "Evidence"),
    _access("... in UniverseMasks", "'a' in record", "UniverseMasks"),
    _access("UniverseMasks.get", "record.get('none')", "UniverseMasks"),
    _access("UniverseMasks.items", "record.items()", "UniverseMasks"),
    _access("UniverseMasks.keys", "record.keys()", "UniverseMasks"),
    _access("history subscription", "record['feature_1']", "HistoryData"),
    _access("... in HistoryData", "'feature_1' in record", "HistoryData"),
    _access("CostResult.shape", "record.shape", "CostResult"),
    _access("len(CostResult)", "len(record)", "CostResult"),
    _access("cost subscription", "record[3]", "CostResult"),
    _access("np.asarray(CostResult)", "np.asarray(record, dtype=float)", "CostResult"),
    *map(_constructor, payloads.record_fields()),
    _graph("graph, an odd leaf 150 levels down", None, payloads.odd_leaf_graph(150), 300),
    _equal("an odd leaf 150 levels down", None, *payloads.odd_leaf_states(150), 300),
]

WORKS = GUARDED + FURTHER
