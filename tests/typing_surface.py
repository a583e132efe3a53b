"""Every class and function of the module in use, for the type checkers to read.

``assert_type`` states what a checker must infer; the ignored errors state what it must refuse. The
functions run as well: ``python tests/typing_surface.py``.
"""

from collections.abc import ItemsView, KeysView, Mapping, ValuesView
from typing import Any, NoReturn, assert_type

import numpy as np
from numpy.typing import NDArray
from quillmere.functions import _typed_shapes
from quillmere.functions._typed_shapes import (
    AggregationOutput,
    CheckpointManifest,
    CostResult,
    EraIndexManifest,
    Evidence,
    FunctionGraphNode,
    FunctionState,
    HistoryData,
    InvalidFunctionStateError,
    LiveCheckpoint,
    Metaparameters,
    ParamSpec,
    SchemaError,
    StageData,
    StateArray,
    StateMapping,
    StateScalar,
    StateSequence,
    StateValue,
    TargetInstrumentEntry,
    UniverseMasks,
    WindowSpec,
    coerce_graph,
    coerce_state,
    states_equal,
    validate_function_state,
)

Mask = NDArray[np.float64 | np.float16 | np.bool_]


def errors() -> None:
    schema: ValueError = SchemaError("WindowSpec payload cannot be bool")
    assert_type(schema.args, tuple[Any, ...])
    refused = InvalidFunctionStateError(
        "State function_version 2 does not match entry function_version 3 for 'ema'",
        function_name="ema",
        expected_function_version=3,
        state_type="FunctionState",
        reason="function_version_mismatch",
    )
    assert_type(refused.function_name, str | None)
    assert_type(refused.expected_function_version, int | None)
    assert_type(refused.state_type, str | None)
    assert_type(refused.reason, str | None)


def function_state() -> None:
    record = FunctionState(function_name="ema", function_version=3, data={"last": 1.5})
    data = validate_function_state(record, expected_name="ema", expected_version=3)
    assert_type(data, dict[str, Any])
    try:
        record.function_version = 4  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
    except AttributeError:
        pass
    else:
        raise AssertionError("a frozen record took an assignment")


def refuse_function_state() -> NoReturn:
    _typed_shapes._reject_function_state(
        "FunctionState required for 'ema', got dict",
        expected_name="ema",
        expected_version=3,
        state={},
        reason="not_function_state",
    )


def function_graph() -> None:
    leaf = FunctionGraphNode("feature", "close")
    root = FunctionGraphNode("rotation", "rank", [leaf], {"window": 60}, "r0", "momentum", 1.0)
    assert_type(root.type, str)
    assert_type(root.children, list[FunctionGraphNode])
    assert_type(root.config, dict[str, Any])
    assert_type(root.canonical_id, str | None)
    assert_type(root.family, str | None)
    assert_type(root._node_identities, dict[str, Any] | None)
    assert_type(root._collect_nodes_cache, Any | None)
    assert_type({leaf: 1, root: 2}, dict[FunctionGraphNode, int])
    payload = {"op": "rank", "args": [{"type": "feature", "name": "close"}]}
    assert_type(FunctionGraphNode.from_raw(payload), FunctionGraphNode)
    assert_type(coerce_graph(payload).children[0].node, Any)

    class Traced(FunctionGraphNode):
        pass

    assert_type(Traced.from_raw(payload), Traced)


def parameters(payload: Any) -> None:
    window = WindowSpec(minimum=1, maximum=240, default=60, value=None)
    assert_type(window.minimum, int | None)
    assert_type(window.picked(), int | None)
    assert_type(window.picked(clamp_to=100), int | None)
    assert_type(WindowSpec.from_raw(payload), WindowSpec | None)
    spec = ParamSpec("lookback", type="int", default=20, minimum=5, variadic=False, window=window)
    assert_type(spec.type, str | None)
    assert_type(spec.window, WindowSpec | None)
    assert_type(ParamSpec.from_raw("lookback", payload), ParamSpec)
    assert_type(ParamSpec.from_mapping({"lookback": payload}), list[ParamSpec])
    assert_type(ParamSpec.coerce_specs([spec]), dict[str, ParamSpec])
    assert_type(_typed_shapes._param_name(spec), str)
    assert_type({window: spec}, dict[WindowSpec, ParamSpec])


def live_evaluation() -> None:
    checkpoint = LiveCheckpoint.from_raw({"signals": {"s": {"last": 1}}})
    assert_type(checkpoint, LiveCheckpoint)
    assert_type(LiveCheckpoint(nodes={"n": {}}).signals, dict[str, dict[str, Any]])

    by_tag = {"tradable": np.ones(3, dtype=np.float16)}
    masks = UniverseMasks(by_tag=by_tag, n_alloc=3)
    assert_type(masks.n_alloc, int)
    assert_type(masks.by_tag, dict[str, NDArray[Any]])
    assert_type(masks["tradable"], Mask)
    assert_type(masks.get("halted"), Mask | None)
    assert_type(masks.get("halted", 0), Mask | int)
    assert_type(masks.keys(), KeysView[str])
    assert_type(masks.items(), ItemsView[str, Mask])
    assert_type("tradable" in masks, bool)
    assert_type(UniverseMasks.from_raw(by_tag, n_alloc=3), UniverseMasks)

    by_feature = {"close": np.zeros((2, 3))}
    history = HistoryData(by_feature)
    assert_type(history["close"], NDArray[np.float64])
    assert_type(history.by_feature, dict[str, NDArray[np.float64]])
    assert_type("close" in history, bool)
    assert_type(HistoryData.from_raw(by_feature, context="replay"), HistoryData)

    cost = CostResult(total=np.zeros(3), breakdown={"fees": np.zeros(3, dtype=np.float32)})
    assert_type(cost.total, NDArray[Any])
    assert_type(cost.breakdown, dict[str, NDArray[Any]])
    assert_type(cost.shape, tuple[int, ...])
    assert_type(len(cost), int)
    assert_type(cost[0], Any)
    assert_type(cost.__array__(np.float32), NDArray[Any])
    assert np.asarray(cost) is cost.total
    assert_type(CostResult.from_raw(cost, context="slippage"), CostResult)


def evidence() -> None:
    found = Evidence.from_raw({"checked": 7})
    found["passed"] = 7
    assert_type(found, Evidence)
    assert_type(found.data, dict[str, Any])
    assert_type(found["passed"], Any)
    assert_type(found.get("failed"), Any | None)
    assert_type(found.get("failed", 0), Any | int)
    assert_type("passed" in found, bool)
    assert_type(found.keys(), KeysView[str])
    assert_type(found.values(), ValuesView[Any])
    assert_type(found.items(), ItemsView[str, Any])


def manifests() -> None:
    manifest = CheckpointManifest(
        tick_timestamp=0, dag_metadata=None, canonical_id_to_filename={"r0": "r0.npy"}
    )
    assert_type(manifest.canonical_id_to_filename, Mapping[str, str])
    assert_type(manifest.extras, Mapping[str, Any])
    payload = dict.fromkeys(_typed_shapes._CHECKPOINT_REQUIRED, ())
    assert_type(CheckpointManifest.from_raw(payload), CheckpointManifest)

    index = EraIndexManifest(schema_version=2, bundle_kind="era_index", epochs={"e1": [0, 10]})
    assert_type(index.epochs, dict[str, Any])
    assert_type(index.extras, dict[str, Any])
    assert_type(
        EraIndexManifest.from_raw({"schema_version": 2, "bundle_kind": "era_index"}),
        EraIndexManifest,
    )


def metaparameters(payload: Any) -> None:
    options = {"p1": {"rank": "fast"}}
    assert_type(Metaparameters(by_pool=options).by_pool, Mapping[str, Mapping[str, str]])
    assert_type(Metaparameters.from_raw(payload), Metaparameters | None)


def stage_data() -> None:
    stage = StageData(flat={"close": np.zeros((4, 2))}, nested={"aux": {}}, opaque={"seed": 7})
    assert_type(stage.flat, dict[str, NDArray[Any]])
    assert_type(stage.nested, dict[str, Mapping[str, Any]])
    assert_type(stage.opaque, dict[str, Any])
    assert_type(stage.slice_t(1, 3), StageData)
    assert_type(stage.slice_t(-2, None), StageData)
    assert_type(stage.value("seed"), Any)
    assert_type(stage.value("absent", None), Any | None)
    assert_type(stage.value("absent", default=0), Any | int)
    stage.set_value("seed", 8)
    assert_type(stage.has_value("seed"), bool)
    assert_type(stage.is_empty(), bool)
    assert_type(stage.feature_names(), set[str])

    class Traced(StageData):
        pass

    assert_type(Traced.from_mapping({"seed": 7}), Traced)
    assert_type(Traced.from_optional_mapping(None), Traced)


def refuse_stage_data() -> NoReturn:
    StageData.from_raw({})


def aggregation(payload: Any) -> None:
    entry = TargetInstrumentEntry.from_raw({"symbol": "A"}, index=0)
    assert_type(entry, TargetInstrumentEntry)
    assert_type(TargetInstrumentEntry(payload={}).payload, Mapping[str, Any])

    by_key = {"alpha.weights": np.zeros((4, 3))}
    output = AggregationOutput(by_dotted_key=by_key)
    assert_type(output.by_dotted_key, Mapping[str, NDArray[Any]])
    assert_type(output.items(), ItemsView[str, NDArray[Any]])
    assert_type(list(output), list[str])
    assert_type(
        AggregationOutput.from_raw(payload, function_name="alpha"), AggregationOutput | None
    )


def kind(state: StateValue) -> str:
    match state:
        case StateScalar(value=value):
            assert_type(value, Any)
            return "scalar"
        case StateArray(data=data):
            assert_type(data, NDArray[Any])
            return "array"
        case StateMapping(entries=entries):
            assert_type(entries, Mapping[str, StateValue])
            return "mapping"
        case StateSequence(items_=items):
            assert_type(items, tuple[StateValue, ...])
            return "sequence"


def states() -> None:
    state = coerce_state({"a": [1, (2, 3)], "b": np.zeros(3)})
    assert_type(state, StateScalar | StateArray | StateMapping | StateSequence)
    assert kind(state) == "mapping"
    one = StateScalar(value=1)
    built = StateMapping(entries={"a": StateSequence(items_=(one, StateArray(data=np.zeros(3))))})
    assert_type(states_equal(built, {"a": [1, np.zeros(3)]}), bool)
    assert_type(_typed_shapes._states_value_equal(built, one), bool)


def constants() -> None:
    assert_type(_typed_shapes._MISSING, object)
    assert_type(_typed_shapes._GRAPH_RUNTIME_TYPES, frozenset[str])
    assert_type(_typed_shapes._CHECKPOINT_REQUIRED, tuple[str, ...])
    assert_type(_typed_shapes.__all__, list[str])


def refused_by_checkers() -> None:
    for wrong in (
        lambda: WindowSpec(minimum="1"),  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
        lambda: ParamSpec(),  # type: ignore[call-arg]  # pyright: ignore[reportCallIssue]
        lambda: StageData.from_mapping(None),  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
        lambda: HistoryData({"close": np.zeros((2, 3), dtype=np.int64)}),  # pyright: ignore[reportArgumentType]
        lambda: UniverseMasks.from_raw({}, 3),  # type: ignore[call-arg]  # pyright: ignore[reportCallIssue]
    ):
        try:
            wrong()
        except (SchemaError, TypeError):
            continue
        raise AssertionError("a wrong call passed")


def main() -> None:
    for check in (
        errors,
        function_state,
        function_graph,
        live_evaluation,
        evidence,
        manifests,
        stage_data,
        states,
        constants,
        refused_by_checkers,
    ):
        check()
    parameters({"min": 1, "max": 240})
    metaparameters({"p1": {"rank": "fast"}})
    aggregation(None)
    for refusal in (refuse_function_state, refuse_stage_data):
        try:
            refusal()
        except (InvalidFunctionStateError, SchemaError):
            continue


if __name__ == "__main__":
    main()
