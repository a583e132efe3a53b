"""What every record refuses, and with which text."""

from __future__ import annotations

from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as ts
from support import (
    EmptyLookingStr,
    StrChild,
    canonical_path,
)

Window, Param = ts.WindowSpec, ts.ParamSpec
HALF = np.array([np.nan, 0.0, 1.0], np.float16)
MANIFEST = {
    "tick_timestamp": None,
    "dag_metadata": 1,
    "canonical_id_to_filename": [("a", "b")],
    "x": 2,
    5: 6,
}
ERA = {"schema_version": 2, "bundle_kind": "era_index"}


def masks(**by_tag: Any) -> Any:
    return ts.UniverseMasks(by_tag, 3)


# --- Texts ---

REFUSED: list[tuple[Any, str]] = [
    (lambda: Window(maximum=True), "WindowSpec.maximum must be int or None; got bool"),
    (lambda: Window(1.5, "x"), "WindowSpec.minimum must be int or None; got float"),
    (lambda: Window.from_raw({"min": "5"}), "WindowSpec.minimum must be int or None; got str"),
    (lambda: Window.from_raw(False), "WindowSpec payload cannot be bool"),
    (
        lambda: Window.from_raw(np.int64(5)),
        "WindowSpec payload must be int, dict, or None; got int64",
    ),
    (lambda: Param.from_raw("", 3), "ParamSpec.name must be a non-empty str; got ''"),
    (lambda: Param(3), "ParamSpec.name must be a non-empty str; got 3"),
    (lambda: Param("a", window=5), "ParamSpec.window must be WindowSpec or None; got int"),
    (
        lambda: Param.from_raw("alpha", {"min": 0.1}),
        "WindowSpec.minimum must be int or None; got float",
    ),
    (
        lambda: Param.from_mapping(("a",)),
        "ParamSpec list payload must be dict, list, or None; got tuple",
    ),
    (
        lambda: Param.coerce_specs([{"name": "a"}]),
        "ParamSpec list entry missing .name attribute; got dict",
    ),
    (
        lambda: ts._param_name(SimpleNamespace(name="")),
        "ParamSpec list entry missing .name attribute; got SimpleNamespace",
    ),
    (lambda: ts.LiveCheckpoint([], 5), "LiveCheckpoint.signals must be a dict; got list"),
    (lambda: ts.LiveCheckpoint(nodes=5), "LiveCheckpoint.nodes must be a dict; got int"),
    (
        lambda: ts.LiveCheckpoint.from_raw(ts.LiveCheckpoint()),
        "LiveCheckpoint JSON mapping payload required; got LiveCheckpoint",
    ),
    (lambda: ts.UniverseMasks([], 0), "UniverseMasks.by_tag must be a dict; got list"),
    (lambda: ts.UniverseMasks({}, 0), "UniverseMasks.n_alloc must be a positive int; got 0"),
    (lambda: ts.UniverseMasks({}, 5.0), "UniverseMasks.n_alloc must be a positive int; got 5.0"),
    (
        lambda: ts.UniverseMasks({"": 1}, 3),
        "UniverseMasks tag must be a non-empty str; got ''",
    ),
    (
        lambda: ts.UniverseMasks({StrChild("t"): [1]}, 3),
        "UniverseMasks['shown otherwise'] must be np.ndarray; got list",
    ),
    (
        lambda: masks(a=np.ones(4)),
        "UniverseMasks['a'] has shape (4,), expected (3,)",
    ),
    (lambda: masks(a=np.ones(())), "UniverseMasks['a'] has shape (), expected (3,)"),
    (
        lambda: masks(a=np.ones(3, ">f8").astype(">i4")),
        "UniverseMasks['a'] has dtype >i4, expected float64, float16, or bool",
    ),
    (lambda: masks(a=np.ones(6)[::2]), "UniverseMasks['a'] must be C-contiguous"),
    (
        lambda: masks(ok=HALF, a=np.array([1.0, -0.0, 0.5], np.float16)),
        f"UniverseMasks['a'] has invalid float16 state value at index 1: {np.float16(-0.0)!r}; "
        "expected NaN, positive zero, or positive one",
    ),
    (
        lambda: ts.UniverseMasks.from_raw(masks(), n_alloc=6),
        "UniverseMasks coerced with n_alloc=6 but payload has n_alloc=3",
    ),
    (
        lambda: ts.UniverseMasks.from_raw(None, n_alloc=5),
        "UniverseMasks payload must be dict[str, np.ndarray]; got NoneType",
    ),
    (lambda: ts.HistoryData(()), "HistoryData.by_feature must be a dict; got tuple"),
    (
        lambda: ts.HistoryData({None: 1}),
        "HistoryData feature name must be a non-empty str; got None",
    ),
    (
        lambda: ts.HistoryData({StrChild("f"): [1]}),
        "HistoryData['f'] must be np.ndarray; got list",
    ),
    (
        lambda: ts.HistoryData({"close": np.zeros(5)}),
        "HistoryData['close'] must be 2D (T, N); got shape (5,)",
    ),
    (
        lambda: ts.HistoryData({"ok": np.zeros((0, 0)), "x": np.zeros((2, 3), int)}),
        "HistoryData['x'] has dtype int64, expected float64",
    ),
    (
        lambda: ts.HistoryData.from_raw(MappingProxyType({}), context="replay"),
        "replay returned mappingproxy, expected dict[str, np.ndarray]",
    ),
    (lambda: ts.CostResult([1]), "CostResult.total must be np.ndarray; got list"),
    (lambda: ts.CostResult(HALF, []), "CostResult.breakdown must be a dict; got list"),
    (
        lambda: ts.CostResult(HALF, {3: HALF}),
        "CostResult.breakdown label must be a non-empty str; got 3",
    ),
    (
        lambda: ts.CostResult(HALF, {"total": []}),
        "CostResult.breakdown must not contain 'total'",
    ),
    (
        lambda: ts.CostResult(HALF, {StrChild("fee"): []}),
        "CostResult.breakdown['fee'] must be np.ndarray; got list",
    ),
    (lambda: ts.CostResult.from_raw(HALF), "cost engine returned ndarray, expected CostResult"),
    (lambda: ts.Evidence([]), "Evidence.data must be a dict; got list"),
    (
        lambda: ts.Evidence.from_raw([("a", 1)]),
        "Evidence JSON mapping payload required or None; got list",
    ),
    (
        lambda: ts.CheckpointManifest(1, 2, MappingProxyType({})),
        "CheckpointManifest.canonical_id_to_filename must be a dict; got mappingproxy",
    ),
    (
        lambda: ts.CheckpointManifest.from_raw(None),
        "CheckpointManifest JSON mapping payload required; got NoneType",
    ),
    (
        lambda: ts.CheckpointManifest.from_raw({"canonical_id_to_filename": {}}),
        "CheckpointManifest missing required fields: ['dag_metadata', 'tick_timestamp']",
    ),
    (lambda: ts.Metaparameters([]), "Metaparameters.by_pool must be a dict; got list"),
    (lambda: ts.Metaparameters({}), "Metaparameters.by_pool must be non-empty"),
    (
        lambda: ts.Metaparameters({"p": {}, 7: []}),
        "Metaparameters.by_pool[7] must be a dict; got list",
    ),
    (lambda: ts.StageData([], 1), "StageData.flat must be a dict; got list"),
    (lambda: ts.StageData({}, 1, 2), "StageData.nested must be a dict; got int"),
    (lambda: ts.StageData({}, {}, 2), "StageData.opaque must be a dict; got int"),
    (
        lambda: ts.StageData.from_mapping(None),
        "StageData producer boundary mapping required; got NoneType",
    ),
    (
        lambda: ts.StageData.from_raw(ts.StageData()),
        "StageData producer boundary requires StageData.from_mapping() before runtime consumers; "
        "got StageData",
    ),
    (
        lambda: ts.EraIndexManifest.from_raw({**ERA, "schema_version": 2.0}),
        "EraIndexManifest.schema_version must be 2; got 0",
    ),
    (
        lambda: ts.EraIndexManifest.from_raw({**ERA, "schema_version": True}),
        "EraIndexManifest.schema_version must be 2; got True",
    ),
    (
        lambda: ts.EraIndexManifest.from_raw({"schema_version": 2}),
        "EraIndexManifest.bundle_kind must be 'era_index'; got ''",
    ),
    (
        lambda: ts.EraIndexManifest(2.0, "era_index", []),
        "EraIndexManifest.epochs must be a dict; got list",
    ),
    (
        lambda: ts.EraIndexManifest.from_raw([("schema_version", 2)]),
        "EraIndexManifest JSON mapping payload required; got list",
    ),
    (
        lambda: ts.TargetInstrumentEntry(payload=[]),
        "TargetInstrumentEntry.payload must be a dict; got list",
    ),
    (
        lambda: ts.AggregationOutput([]),
        "AggregationOutput.by_dotted_key must be a dict; got list",
    ),
    (
        lambda: ts.AggregationOutput.from_raw({1: HALF}),
        "AggregationOutput key must be a non-empty str; got 1",
    ),
    (
        lambda: ts.AggregationOutput.from_raw({EmptyLookingStr("a.b"): HALF}),
        "AggregationOutput key must be a non-empty str; got 'a.b'",
    ),
    (
        lambda: ts.AggregationOutput.from_raw({"a.b": [1, 2]}),
        "AggregationOutput['a.b'] must be np.ndarray; got list",
    ),
    (
        lambda: ts.AggregationOutput.from_raw([], function_name="f"),
        "aggregation output for 'f' was not a dict keyed by plugin.output (got list)",
    ),
]


@pytest.mark.parametrize(("call", "text"), REFUSED, ids=[text for _, text in REFUSED])
def test_refusals(call: Any, text: str) -> None:
    for path in (None, canonical_path()):
        with path or pytest.MonkeyPatch.context(), pytest.raises(ts.SchemaError) as caught:
            call()
        assert caught.value.args == (text,)


def test_a_target_instrument_is_refused_with_a_plain_value_error() -> None:
    with pytest.raises(ValueError, match=r"^target_instruments\[3\] must be an object$") as caught:
        ts.TargetInstrumentEntry.from_raw("x", 3)
    assert type(caught.value) is ValueError
