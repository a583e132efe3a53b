"""Every class and function of the module in use, for the type checkers to read.

``assert_type`` states what a checker must infer where that is more than the field's own annotation;
the ignored errors state what it must refuse.
"""

from collections.abc import ItemsView, KeysView
from typing import Any, assert_type

import numpy as np
from numpy.typing import NDArray
from quillmere.functions import _typed_shapes as ts

Mask = NDArray[np.float64 | np.float16 | np.bool_]


class TracedNode(ts.FunctionGraphNode):
    pass


class TracedStage(ts.StageData):
    pass


def taken(payload: Any, state: ts.StateValue) -> None:
    record = ts.FunctionState(function_name="ema", function_version=3, data={"last": 1.5})
    data = ts.validate_function_state(record, expected_name="ema", expected_version=3)
    assert_type(data, dict[str, Any])
    assert_type(ts.InvalidFunctionStateError("text", reason="data_not_dict").reason, str | None)
    leaf = ts.FunctionGraphNode("feature", "close")
    root = ts.FunctionGraphNode("rotation", "rank", [leaf], {"window": 60}, "r0", "momentum", 1.0)
    assert_type({leaf: 1, root: 2}, dict[ts.FunctionGraphNode, int])
    assert_type(TracedNode.from_raw(payload), TracedNode)
    assert_type(ts.coerce_graph(payload).children, list[ts.FunctionGraphNode])
    window = ts.WindowSpec(minimum=1, maximum=240, default=60, value=None)
    assert_type(window.picked(clamp_to=100), int | None)
    assert_type(ts.WindowSpec.from_raw(payload), ts.WindowSpec | None)
    spec = ts.ParamSpec("lookback", type="int", default=20, minimum=5, window=window)
    assert_type(ts.ParamSpec.from_raw("lookback", payload), ts.ParamSpec)
    assert_type(ts.ParamSpec.from_mapping({"lookback": payload}), list[ts.ParamSpec])
    assert_type(ts.ParamSpec.coerce_specs([spec]), dict[str, ts.ParamSpec])
    assert_type(ts._param_name(spec), str)

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

    assert_type(ts.CheckpointManifest.from_raw(payload), ts.CheckpointManifest)
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
    assert_type(stage.feature_names(), set[str])
    assert_type(ts.TargetInstrumentEntry.from_raw({}, index=0), ts.TargetInstrumentEntry)
    output = ts.AggregationOutput(by_dotted_key={"alpha.weights": np.zeros((4, 3))})
    assert_type(output.items(), ItemsView[str, NDArray[Any]])
    assert_type(list(output), list[str])
    assert_type(ts.AggregationOutput.from_raw(payload), ts.AggregationOutput | None)

    assert_type(ts.coerce_state(payload), ts.StateValue)
    assert_type(ts.states_equal(state, payload), bool)
    assert_type(ts._states_value_equal(state, ts.StateScalar(value=1)), bool)


def matched(state: ts.StateValue) -> str:
    match state:
        case ts.StateScalar() | ts.StateMapping():
            return "scalar or mapping"
        case ts.StateArray(data=data):
            assert_type(data, NDArray[Any])
            return "array"
        case ts.StateSequence(items_=items):
            assert_type(items, tuple[ts.StateValue, ...])
            return "sequence"


def refused() -> None:
    ts.WindowSpec(minimum="1")  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
    ts.ParamSpec()  # type: ignore[call-arg]  # pyright: ignore[reportCallIssue]
    ts.StageData.from_mapping(None)  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
    ts.HistoryData({"close": np.zeros((2, 3), int)})  # pyright: ignore[reportArgumentType]
    ts.UniverseMasks.from_raw({}, 3)  # type: ignore[call-arg]  # pyright: ignore[reportCallIssue]
