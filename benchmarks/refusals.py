"""The refusals that are timed: each class through its constructor and through `from_raw`, an error
of arguments, and the last entry of a large payload. Most of their time goes to the interpreter's
own frames.
"""

from __future__ import annotations

from types import ModuleType
from typing import Any

import payloads

CALLS = """
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


def bad_graph() -> dict[str, Any]:
    """A graph of 1,000 nodes whose last one is wrong."""
    payload = payloads.graph_payload(1000)
    payload["children"].append("close")
    return payload


def names_of(module: ModuleType) -> dict[str, Any]:
    return {**vars(module), "BAD_GRAPH": bad_graph(), "BAD_MASK": payloads.bad_mask(5000)}
