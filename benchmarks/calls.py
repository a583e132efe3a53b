"""The small calls that are timed: every accessor, every constructor, and a refusal of every kind.

A call is its own name, and runs with the classes and functions of a module, with a usual instance
of each record, and with the payloads below.
"""

from __future__ import annotations

import copy
from types import ModuleType
from typing import Any

import numpy as np
import payloads
from timing import Work

# How many times as fast as plain Python they have to be.
ACCEPTED = {
    1.0: """
WindowSpec.from_raw(20)
WindowSpec.from_raw(window)
window.picked()
ParamSpec.from_raw('span', PARAMETER)
ParamSpec.from_raw('span', param)
ParamSpec.from_mapping(SCHEMA)
UniverseMasks.from_raw(MASKS, n_alloc=50)
UniverseMasks.from_raw(masks, n_alloc=50)
'a' in masks
masks.get('none')
masks.items()
masks.keys()
HistoryData.from_raw(history)
history['feature_1']
'feature_1' in history
AggregationOutput.from_raw(outputs)
outputs.items()
iter(outputs)
CostResult.from_raw(cost)
cost.shape
len(cost)
cost[3]
np.asarray(cost)
np.asarray(cost, dtype=float)
'score' in evidence
evidence['score'] = 2.0
evidence.get('none', 1)
evidence.items()
evidence.keys()
evidence.values()
FunctionGraphNode.from_raw({'type': 'rotation', 'node': 'rank'})
StageData.from_optional_mapping(None)
stage.value('opaque_50')
stage.set_value('flat_50', ARRAY)
stage.has_value('opaque_50')
stage.is_empty()
stage.feature_names()
coerce_state(1)
coerce_state(ARRAY)
states_equal(ARRAY, OTHER_SHAPE)
states_equal(STATE, DIFFERS_AT_ONCE)
states_equal(STATE, DIFFERS_AT_THE_END)
_states_value_equal(coerced, coerced_again)
""",
    1.3: """
evidence['score']
masks['a']
""",
    1.8: """
validate_function_state(state, expected_name='ema', expected_version=3)
""",
}

# Each class through its constructor and through `from_raw`, errors of arguments, and the last entry
# of a large payload. Most of the time goes to the exception and its traceback.
REFUSED = """
FunctionGraphNode('')
FunctionGraphNode.from_raw([])
FunctionGraphNode.from_raw({'type': 'rotation', 'children': [1]})
ParamSpec('')
ParamSpec.from_raw('', 1)
ParamSpec.from_raw('span', {'min': 'a'})
ParamSpec.from_mapping(5)
WindowSpec(1.5)
WindowSpec.from_raw(True)
LiveCheckpoint([])
LiveCheckpoint.from_raw([])
UniverseMasks([], 5)
UniverseMasks.from_raw([], n_alloc=5)
HistoryData([])
HistoryData.from_raw([])
CostResult(1)
CostResult.from_raw(1)
Evidence([])
Evidence.from_raw([])
CheckpointManifest(1, 2, [])
CheckpointManifest.from_raw({})
Metaparameters({})
StageData([])
StageData.from_raw([])
StageData.from_mapping([])
EraIndexManifest(1, 'era_index', {})
EraIndexManifest.from_raw({})
TargetInstrumentEntry([])
TargetInstrumentEntry.from_raw(5, 0)
AggregationOutput([])
AggregationOutput.from_raw([])
StateArray(1)
StateMapping([])
validate_function_state(1, expected_name='ema', expected_version=3)
Evidence.from_raw()
Evidence({})['score']
StageData().value('score')
FunctionGraphNode.from_raw(BAD_GRAPH)
UniverseMasks({'a': BAD_MASK}, 5000)
"""
REFUSED_FLOOR = 0.9

INSTANCES = {
    "window": "WindowSpec",
    "param": "ParamSpec",
    "masks": "UniverseMasks",
    "history": "HistoryData",
    "outputs": "AggregationOutput",
    "cost": "CostResult",
    "evidence": "Evidence",
    "state": "FunctionState",
}


def bad_graph() -> dict[str, Any]:
    """A graph of 1,000 nodes whose last one is wrong."""
    payload = payloads.graph_payload(1000)
    payload["children"].append("close")
    return payload


PAYLOADS: dict[str, Any] = {
    "np": np,
    "ARRAY": np.zeros((64, 5)),
    "OTHER_SHAPE": np.zeros((64, 4)),
    "BAD_GRAPH": bad_graph(),
    "BAD_MASK": payloads.bad_mask(5000),
    "MASKS": {"a": np.ones(50), "b": np.ones(50)},
    "PARAMETER": payloads.SCHEMA["param_0"],
    "SCHEMA": payloads.SCHEMA,
    "STATE": payloads.containers_payload(),
    "DIFFERS_AT_ONCE": {**payloads.containers_payload(), "tick": "other"},
    "DIFFERS_AT_THE_END": {**payloads.containers_payload(), "per_signal": {}},
}


def names_of(module: ModuleType) -> dict[str, Any]:
    fields = copy.deepcopy(payloads.record_fields())
    return {
        **vars(module),
        **PAYLOADS,
        **{name: getattr(module, of)(**fields[of]) for name, of in INSTANCES.items()},
        "stage": module.StageData.from_mapping(payloads.stage_payload()),
        "coerced": module.coerce_state(payloads.containers_payload()),
        "coerced_again": module.coerce_state(payloads.containers_payload()),
    }


def _constructor(name: str) -> Work:
    def setup(module: ModuleType) -> dict[str, Any]:
        return {"Class": getattr(module, name), "fields": payloads.record_fields()[name]}

    return Work(f"{name}(**fields)", 1.0, "Class(**fields)", setup)


CONSTRUCTORS = [*map(_constructor, payloads.record_fields())]
ACCEPTED_WORKS = [
    *(
        Work(call, floor, call, names_of)
        for floor, calls in ACCEPTED.items()
        for call in calls.split("\n")[1:-1]
    ),
    *CONSTRUCTORS,
]
REFUSED_WORKS = [
    Work(call, REFUSED_FLOOR, f"try: {call}\nexcept Exception: pass", names_of)
    for call in REFUSED.split("\n")[1:-1]
]
