"""Every class and function of the module in use, for the type checkers to read.

``assert_type`` states what a checker must infer where that is more than the field's own annotation;
the ignored errors state what it must refuse. It runs as well: ``python tests/typing_surface.py``.
"""

from collections.abc import ItemsView, KeysView
from typing import Any, assert_type

import numpy as np
from numpy.typing import NDArray
from quillmere.functions import _typed_shapes as ts

Mask = NDArray[np.float64 | np.float16 | np.bool_]
GRAPH = {"op": "rank", "args": [{"type": "feature", "name": "close"}]}


class TracedNode(ts.FunctionGraphNode):
    pass


class TracedStage(ts.StageData):
    pass


def restoring() -> None:
    record = ts.FunctionState(function_name="ema", function_version=3, data={"last": 1.5})
    data = ts.validate_function_state(record, expected_name="ema", expected_version=3)
    assert_type(data, dict[str, Any])
    assert_type(ts.InvalidFunctionStateError("text", reason="data_not_dict").reason, str | None)


def graphs(payload: Any) -> None:
    leaf = ts.FunctionGraphNode("feature", "close")
    root = ts.FunctionGraphNode("rotation", "rank", [leaf], {"window": 60}, "r0", "momentum", 1.0)
    assert_type({leaf: 1, root: 2}, dict[ts.FunctionGraphNode, int])
    assert_type(TracedNode.from_raw(GRAPH), TracedNode)
    assert_type(ts.coerce_graph(GRAPH).children, list[ts.FunctionGraphNode])
    window = ts.WindowSpec(minimum=1, maximum=240, default=60, value=None)
    assert_type(window.picked(clamp_to=100), int | None)
    assert_type(ts.WindowSpec.from_raw(payload), ts.WindowSpec | None)
    spec = ts.ParamSpec("lookback", type="int", default=20, minimum=5, window=window)
    assert_type(ts.ParamSpec.from_raw("lookback", payload), ts.ParamSpec)
    assert_type(ts.ParamSpec.from_mapping({"lookback": payload}), list[ts.ParamSpec])
    assert_type(ts.ParamSpec.coerce_specs([spec]), dict[str, ts.ParamSpec])
    assert_type(ts._param_name(spec), str)


def live_payloads() -> None:
    assert_type(ts.LiveCheckpoint.from_raw({"signals": {}}).nodes, dict[str, dict[str, Any]])
    masks = ts.UniverseMasks.from_raw({"tradable": np.ones(3, dtype=np.float16)}, n_alloc=3)
    assert_type(masks["tradable"], Mask)
    assert_type(masks.get("halted"), Mask | None)
    assert_type(masks.get("halted", 0), Mask | int)
    assert_type(masks.keys(), KeysView[str])
    assert_type(masks.items(), ItemsView[str, Mask])
    history = ts.HistoryData.from_raw({"close": np.zeros((2, 3))}, context="replay")
    assert_type(history["close"], NDArray[np.float64])
    cost = ts.CostResult(total=np.zeros(3), breakdown={"fees": np.zeros(3, dtype=np.float32)})
    assert_type(cost.shape, tuple[int, ...])
    assert_type(cost.__array__(np.float32), NDArray[Any])
    assert_type(ts.CostResult.from_raw(cost, context="slippage"), ts.CostResult)
    found = ts.Evidence.from_raw({"checked": 7})
    found["passed"] = 7
    assert_type(found.get("failed"), Any | None)
    assert_type(found.items(), ItemsView[str, Any])


def batch_payloads(payload: Any) -> None:
    required = dict.fromkeys(ts._CHECKPOINT_REQUIRED, ())
    assert_type(ts.CheckpointManifest.from_raw(required), ts.CheckpointManifest)
    index = ts.EraIndexManifest(schema_version=2, bundle_kind="era_index", epochs={"e1": [0, 10]})
    assert_type(index.extras, dict[str, Any])
    assert_type(ts.Metaparameters.from_raw(payload), ts.Metaparameters | None)
    stage = TracedStage.from_mapping({"seed": 7})
    assert_type(stage, TracedStage)
    assert_type(TracedStage.from_optional_mapping(None), TracedStage)
    assert_type(stage.slice_t(-2, None), ts.StageData)
    assert_type(stage.value("seed"), Any)
    assert_type(stage.value("absent", None), Any | None)
    assert_type(stage.value("absent", default=0), Any | int)
    stage.set_value("seed", 8)
    assert_type(stage.feature_names(), set[str])
    assert_type(ts.TargetInstrumentEntry.from_raw({}, index=0), ts.TargetInstrumentEntry)
    output = ts.AggregationOutput(by_dotted_key={"alpha.weights": np.zeros((4, 3))})
    assert_type(output.items(), ItemsView[str, NDArray[Any]])
    assert_type(list(output), list[str])
    assert_type(ts.AggregationOutput.from_raw(payload), ts.AggregationOutput | None)


def kind(state: ts.StateValue) -> str:
    match state:
        case ts.StateScalar():
            return "scalar"
        case ts.StateArray(data=data):
            assert_type(data, NDArray[Any])
            return "array"
        case ts.StateMapping():
            return "mapping"
        case ts.StateSequence(items_=items):
            assert_type(items, tuple[ts.StateValue, ...])
            return "sequence"


def states() -> None:
    state = ts.coerce_state({"a": [1, (2, 3)], "b": np.zeros(3)})
    assert kind(state) == "mapping"
    one = ts.StateScalar(value=1)
    assert_type(ts.states_equal(state, {"a": [1, np.zeros(3)]}), bool)
    assert_type(ts._states_value_equal(state, one), bool)


def refused_by_checkers() -> None:
    for wrong in (
        lambda: ts.WindowSpec(minimum="1"),  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
        lambda: ts.ParamSpec(),  # type: ignore[call-arg]  # pyright: ignore[reportCallIssue]
        lambda: ts.StageData.from_mapping(None),  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
        lambda: ts.HistoryData({"close": np.zeros((2, 3), dtype=np.int64)}),  # pyright: ignore[reportArgumentType]
        lambda: ts.UniverseMasks.from_raw({}, 3),  # type: ignore[call-arg]  # pyright: ignore[reportCallIssue]
    ):
        try:
            wrong()
        except (ts.SchemaError, TypeError):
            continue
        raise AssertionError("a wrong call passed")


if __name__ == "__main__":
    restoring()
    graphs({"min": 1, "max": 240})
    live_payloads()
    batch_payloads(None)
    states()
    refused_by_checkers()
