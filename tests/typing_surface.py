"""The module in use, for the type checkers to read: ``assert_type`` states what they must infer
where that is more than a line of the stub says, the ignored errors what they must refuse."""

from collections.abc import ItemsView, KeysView
from typing import Any, assert_type

import numpy as np
from numpy.typing import NDArray
from quillmere.functions import _typed_shapes as ts

Mask = NDArray[np.float64 | np.float16 | np.bool_]


class TracedNode(ts.FunctionGraphNode): ...


class TracedStage(ts.StageData): ...


def taken(payload: Any, state: ts.StateValue) -> None:
    record = ts.FunctionState(function_name="ema", function_version=3, data={"last": 1.5})
    data = ts.validate_function_state(record, expected_name="ema", expected_version=3)
    assert_type(data, dict[str, Any])
    assert_type(ts.InvalidFunctionStateError("text", reason="data_not_dict").reason, str | None)
    leaf = ts.FunctionGraphNode("feature", "close")
    root = ts.FunctionGraphNode("rotation", "rank", [leaf], {"window": 60}, "r0", "momentum", 1.0)
    assert_type({leaf: 1, root: 2}, dict[ts.FunctionGraphNode, int])
    assert_type(TracedNode.from_raw(payload), TracedNode)
    window = ts.WindowSpec(minimum=1, maximum=240, default=60, value=None)
    assert_type(window.picked(clamp_to=100), int | None)
    specs = [ts.ParamSpec("lookback", type="int", default=20, minimum=5, window=window)]
    assert_type(ts.ParamSpec.coerce_specs(specs), dict[str, ts.ParamSpec])
    masks = ts.UniverseMasks.from_raw({"tradable": np.ones(3, dtype=np.float16)}, n_alloc=3)
    assert_type(masks["tradable"], Mask)
    assert_type(masks.get("halted"), Mask | None)
    assert_type(masks.get("halted", 0), Mask | int)
    assert_type(masks.keys(), KeysView[str])
    assert_type(masks.items(), ItemsView[str, Mask])
    history = ts.HistoryData.from_raw({"close": np.zeros((2, 3))}, context="replay")
    assert_type(history["close"], NDArray[np.float64])
    cost = ts.CostResult(total=np.zeros(3), breakdown={"fees": np.zeros(3, dtype=np.float32)})
    assert_type(cost.__array__(np.float32), NDArray[Any])
    found = ts.Evidence.from_raw({"checked": 7})
    found["passed"] = 7
    assert_type(found.get("failed"), Any | None)
    stage = TracedStage.from_mapping({"seed": 7})
    assert_type(stage, TracedStage)
    assert_type(TracedStage.from_optional_mapping(None), TracedStage)
    assert_type(stage.slice_t(-2, None), ts.StageData)
    assert_type(stage.value("seed"), Any)
    assert_type(stage.value("absent", None), Any | None)
    assert_type(stage.value("absent", default=0), Any | int)
    assert_type(stage.feature_names(), set[str])
    output = ts.AggregationOutput(by_dotted_key={"alpha.weights": np.zeros((4, 3))})
    assert_type(output.items(), ItemsView[str, NDArray[Any]])
    assert_type(list(output), list[str])
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
