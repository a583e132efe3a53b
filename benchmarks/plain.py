"""The same classes in plain Python: what the native module is measured against.

Written the way an engineer would write them without the native module; used for nothing else.
"""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from typing import Any, Dict, List, Mapping, Optional, Tuple

import numpy as np

_MISSING = object()
_GRAPH_RUNTIME_TYPES = frozenset(
    (
        "feature",
        "signal",
        "aggregation",
        "rotation",
        "reduction",
        "filtration",
        "int",
        "float",
        "string",
        "bool",
        "list",
    )
)
_CHECKPOINT_REQUIRED = ("tick_timestamp", "dag_metadata", "canonical_id_to_filename")


class SchemaError(ValueError):
    pass


class InvalidFunctionStateError(ValueError):
    def __init__(
        self,
        message,
        *,
        function_name=None,
        expected_function_version=None,
        state_type=None,
        reason=None,
    ):
        super().__init__(message)
        self.function_name = function_name
        self.expected_function_version = expected_function_version
        self.state_type = state_type
        self.reason = reason


@dataclass(frozen=True)
class FunctionState:
    function_name: str
    function_version: int
    data: Any


def _reject_function_state(message, *, expected_name, expected_version, state, reason):
    raise InvalidFunctionStateError(
        message,
        function_name=expected_name,
        expected_function_version=expected_version,
        state_type=type(state).__name__,
        reason=reason,
    )


def validate_function_state(state, *, expected_name, expected_version):
    if not isinstance(state, FunctionState):
        _reject_function_state(
            f"FunctionState required for '{expected_name}', got {type(state).__name__}",
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="not_function_state",
        )
    if state.function_name != expected_name:
        _reject_function_state(
            f"State function_name '{state.function_name}' does not match '{expected_name}'",
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="function_name_mismatch",
        )
    if state.function_version != expected_version:
        _reject_function_state(
            f"State function_version {state.function_version} does not match entry "
            f"function_version {expected_version} for '{expected_name}'",
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="function_version_mismatch",
        )
    if not isinstance(state.data, dict):
        _reject_function_state(
            f"FunctionState.data for '{expected_name}' must be dict, "
            f"got {type(state.data).__name__}",
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="data_not_dict",
        )
    return state.data


@dataclass(eq=False)
class FunctionGraphNode:
    type: str
    node: Any = None
    children: List[FunctionGraphNode] = field(default_factory=list)
    config: Dict[str, Any] = field(default_factory=dict)
    canonical_id: Optional[str] = None
    family: Optional[str] = None
    value: Any = None
    _node_identities: Optional[Dict[str, Any]] = field(default=None, compare=False, repr=False)
    _collect_nodes_cache: Optional[Any] = field(default=None, compare=False, repr=False)

    def __post_init__(self):
        if not isinstance(self.type, str) or not self.type:
            raise SchemaError(
                "FunctionGraphNode.type must be a non-empty str; got " + repr(self.type)
            )
        if not isinstance(self.children, list):
            raise SchemaError(
                "FunctionGraphNode.children must be a list; got " + type(self.children).__name__
            )
        for i, child in enumerate(self.children):
            if not isinstance(child, FunctionGraphNode):
                raise SchemaError(
                    "FunctionGraphNode.children["
                    + str(i)
                    + "] must be FunctionGraphNode; got "
                    + type(child).__name__
                )
        if not isinstance(self.config, dict):
            raise SchemaError(
                "FunctionGraphNode.config must be a dict; got " + type(self.config).__name__
            )

    @classmethod
    def from_raw(cls, raw):
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "FunctionGraphNode JSON mapping payload required; got " + type(raw).__name__
            )
        node_type = raw.get("type")
        op = raw.get("op")
        node = raw.get("node")
        if node is None:
            node = raw.get("name")
        if node is None:
            node = raw.get("function_name")
        if node_type in _GRAPH_RUNTIME_TYPES:
            kind = node_type
            if node is None and op is not None:
                node = op
        elif node_type == "expression" or node_type is None:
            if op == "feature":
                kind, node = "feature", raw.get("name")
            elif op == "filtration":
                kind, node = "filtration", "filtration"
            elif op:
                kind, node = "rotation", op
            else:
                kind = node_type
        else:
            kind = "rotation"
            if node is None:
                node = node_type
        if not isinstance(kind, str) or not kind:
            raise SchemaError("graph node missing required str 'type' field; got " + repr(kind))
        children = raw.get("children")
        if children is None:
            children = raw.get("args", [])
        if children is None:
            children = []
        if not isinstance(children, list):
            raise SchemaError(
                "FunctionGraphNode.children must be a list; got " + type(children).__name__
            )
        typed_children = [cls.from_raw(child) for child in children]
        config = raw.get("config")
        if config is None:
            config = raw.get("params", {})
        return cls(
            type=kind,
            node=node,
            children=typed_children,
            config=dict(config) if isinstance(config, dict) else {},
            canonical_id=raw.get("canonical_id"),
            family=raw.get("family"),
            value=raw.get("value"),
        )


def coerce_graph(raw):
    return FunctionGraphNode.from_raw(raw)


@dataclass(frozen=True)
class WindowSpec:
    minimum: Optional[int] = None
    maximum: Optional[int] = None
    default: Optional[int] = None
    value: Optional[int] = None

    def __post_init__(self):
        for name, value in (
            ("minimum", self.minimum),
            ("maximum", self.maximum),
            ("default", self.default),
            ("value", self.value),
        ):
            if value is None:
                continue
            if not isinstance(value, int) or isinstance(value, bool):
                raise SchemaError(
                    "WindowSpec." + name + " must be int or None; got " + type(value).__name__
                )

    @classmethod
    def from_raw(cls, raw):
        if raw is None:
            return None
        if isinstance(raw, WindowSpec):
            return raw
        if isinstance(raw, bool):
            raise SchemaError("WindowSpec payload cannot be bool")
        if isinstance(raw, int):
            return cls(value=raw)
        if isinstance(raw, dict):
            return cls(
                minimum=raw.get("min"),
                maximum=raw.get("max"),
                default=raw.get("default"),
                value=raw.get("value"),
            )
        raise SchemaError(
            "WindowSpec payload must be int, dict, or None; got " + type(raw).__name__
        )

    def picked(self, clamp_to=1440):
        if self.value is not None:
            return self.value
        if self.default is not None:
            return self.default
        if self.minimum is not None and self.maximum is not None:
            return max(self.minimum, min(clamp_to, self.maximum))
        return None


@dataclass(frozen=True)
class ParamSpec:
    name: str
    type: Optional[str] = None
    default: Any = None
    minimum: Any = None
    maximum: Any = None
    variadic: bool = False
    window: Optional[WindowSpec] = None

    def __post_init__(self):
        if not isinstance(self.name, str) or not self.name:
            raise SchemaError("ParamSpec.name must be a non-empty str; got " + repr(self.name))
        if self.window is not None and not isinstance(self.window, WindowSpec):
            raise SchemaError(
                "ParamSpec.window must be WindowSpec or None; got " + type(self.window).__name__
            )

    @classmethod
    def from_raw(cls, name, raw):
        if isinstance(raw, ParamSpec):
            if raw.name != name:
                return ParamSpec(
                    name=name,
                    type=raw.type,
                    default=raw.default,
                    minimum=raw.minimum,
                    maximum=raw.maximum,
                    variadic=raw.variadic,
                    window=raw.window,
                )
            return raw
        if isinstance(raw, WindowSpec):
            return cls(name=name, window=raw, default=raw.default)
        if raw is None:
            return cls(name=name)
        if not isinstance(raw, dict):
            return cls(name=name, default=raw)
        window = None
        if name == "window" or "min" in raw or "max" in raw:
            window = WindowSpec.from_raw(raw)
        return cls(
            name=name,
            type=raw.get("type"),
            default=raw.get("default"),
            minimum=raw.get("min"),
            maximum=raw.get("max"),
            variadic=bool(raw.get("variadic", False)),
            window=window,
        )

    @classmethod
    def from_mapping(cls, raw):
        if raw is None:
            return []
        if isinstance(raw, list):
            return [
                entry if isinstance(entry, ParamSpec) else cls.from_raw(_param_name(entry), entry)
                for entry in raw
            ]
        if isinstance(raw, dict):
            return [cls.from_raw(key, value) for key, value in raw.items()]
        raise SchemaError(
            "ParamSpec list payload must be dict, list, or None; got " + type(raw).__name__
        )

    @classmethod
    def coerce_specs(cls, raw):
        result = {}
        for spec in cls.from_mapping(raw):
            result[spec.name] = spec
        return result


def _param_name(spec):
    name = getattr(spec, "name", None)
    if isinstance(name, str) and name:
        return name
    raise SchemaError("ParamSpec list entry missing .name attribute; got " + type(spec).__name__)


@dataclass
class LiveCheckpoint:
    signals: Dict[str, Dict[str, Any]] = field(default_factory=dict)
    nodes: Dict[str, Dict[str, Any]] = field(default_factory=dict)

    def __post_init__(self):
        if not isinstance(self.signals, dict):
            raise SchemaError(
                "LiveCheckpoint.signals must be a dict; got " + type(self.signals).__name__
            )
        if not isinstance(self.nodes, dict):
            raise SchemaError(
                "LiveCheckpoint.nodes must be a dict; got " + type(self.nodes).__name__
            )

    @classmethod
    def from_raw(cls, raw):
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "LiveCheckpoint JSON mapping payload required; got " + type(raw).__name__
            )
        signals = dict(raw.get("signals") or {})
        nodes = dict(raw.get("nodes") or {})
        return cls(signals=signals, nodes=nodes)


@dataclass
class UniverseMasks:
    by_tag: Dict[str, np.ndarray]
    n_alloc: int

    def __post_init__(self):
        if not isinstance(self.by_tag, dict):
            raise SchemaError(
                "UniverseMasks.by_tag must be a dict; got " + type(self.by_tag).__name__
            )
        if not isinstance(self.n_alloc, int) or self.n_alloc <= 0:
            raise SchemaError(
                "UniverseMasks.n_alloc must be a positive int; got " + repr(self.n_alloc)
            )
        for tag, mask in self.by_tag.items():
            if not isinstance(tag, str) or not tag:
                raise SchemaError("UniverseMasks tag must be a non-empty str; got " + repr(tag))
            if not isinstance(mask, np.ndarray):
                raise SchemaError(
                    f"UniverseMasks['{tag}'] must be np.ndarray; got {type(mask).__name__}"
                )
            if mask.ndim != 1 or mask.shape[0] != self.n_alloc:
                raise SchemaError(
                    f"UniverseMasks['{tag}'] has shape {mask.shape}, expected ({self.n_alloc},)"
                )
            if mask.dtype != np.float64 and mask.dtype != np.float16 and mask.dtype != np.bool_:
                raise SchemaError(
                    f"UniverseMasks['{tag}'] has dtype {mask.dtype}, "
                    "expected float64, float16, or bool"
                )
            if not mask.flags["C_CONTIGUOUS"]:
                raise SchemaError(f"UniverseMasks['{tag}'] must be C-contiguous")
            if mask.dtype == np.float16:
                valid = np.isnan(mask) | (mask == np.float16(0.0)) | (mask == np.float16(1.0))
                negative_zero = (mask == np.float16(0.0)) & np.signbit(mask)
                invalid = ~valid | negative_zero
                if np.any(invalid):
                    index = int(np.flatnonzero(invalid)[0])
                    raise SchemaError(
                        f"UniverseMasks['{tag}'] has invalid float16 state value at index "
                        f"{index}: {mask[index]!r}; expected NaN, positive zero, or positive one"
                    )

    @classmethod
    def from_raw(cls, raw, *, n_alloc):
        if isinstance(raw, UniverseMasks):
            if raw.n_alloc != n_alloc:
                raise SchemaError(
                    f"UniverseMasks coerced with n_alloc={n_alloc} "
                    f"but payload has n_alloc={raw.n_alloc}"
                )
            return raw
        if not isinstance(raw, dict):
            raise SchemaError(
                "UniverseMasks payload must be dict[str, np.ndarray]; got " + type(raw).__name__
            )
        return cls(by_tag=dict(raw), n_alloc=n_alloc)

    def __contains__(self, tag):
        return tag in self.by_tag

    def __getitem__(self, tag):
        return self.by_tag[tag]

    def get(self, tag, default=None):
        return self.by_tag.get(tag, default)

    def keys(self):
        return self.by_tag.keys()

    def items(self):
        return self.by_tag.items()


@dataclass
class HistoryData:
    by_feature: Dict[str, np.ndarray]

    def __post_init__(self):
        if not isinstance(self.by_feature, dict):
            raise SchemaError(
                "HistoryData.by_feature must be a dict; got " + type(self.by_feature).__name__
            )
        for feat, arr in self.by_feature.items():
            if not isinstance(feat, str) or not feat:
                raise SchemaError(
                    "HistoryData feature name must be a non-empty str; got " + repr(feat)
                )
            if not isinstance(arr, np.ndarray):
                raise SchemaError(
                    "HistoryData['" + feat + "'] must be np.ndarray; got " + type(arr).__name__
                )
            if arr.ndim != 2:
                raise SchemaError(
                    "HistoryData['" + feat + "'] must be 2D (T, N); got shape " + str(arr.shape)
                )
            if arr.dtype != np.float64:
                raise SchemaError(
                    "HistoryData['" + feat + "'] has dtype " + str(arr.dtype) + ", expected float64"
                )

    @classmethod
    def from_raw(cls, raw, *, context="history fetch"):
        if isinstance(raw, HistoryData):
            return raw
        if not isinstance(raw, dict):
            raise SchemaError(
                f"{context} returned {type(raw).__name__}, expected dict[str, np.ndarray]"
            )
        return cls(by_feature=dict(raw))

    def __contains__(self, feat):
        return feat in self.by_feature

    def __getitem__(self, feat):
        return self.by_feature[feat]


@dataclass
class CostResult:
    total: np.ndarray
    breakdown: Dict[str, np.ndarray] = field(default_factory=dict)

    def __post_init__(self):
        if not isinstance(self.total, np.ndarray):
            raise SchemaError(
                "CostResult.total must be np.ndarray; got " + type(self.total).__name__
            )
        if not isinstance(self.breakdown, dict):
            raise SchemaError(
                "CostResult.breakdown must be a dict; got " + type(self.breakdown).__name__
            )
        for label, arr in self.breakdown.items():
            if not isinstance(label, str) or not label:
                raise SchemaError(
                    "CostResult.breakdown label must be a non-empty str; got " + repr(label)
                )
            if label == "total":
                raise SchemaError("CostResult.breakdown must not contain 'total'")
            if not isinstance(arr, np.ndarray):
                raise SchemaError(
                    "CostResult.breakdown['"
                    + label
                    + "'] must be np.ndarray; got "
                    + type(arr).__name__
                )

    @classmethod
    def from_raw(cls, raw, *, context="cost engine"):
        if isinstance(raw, CostResult):
            return raw
        raise SchemaError(f"{context} returned {type(raw).__name__}, expected CostResult")

    @property
    def shape(self):
        return self.total.shape

    def __len__(self):
        return len(self.total)

    def __getitem__(self, key):
        return self.total[key]

    def __array__(self, dtype=None):
        return np.asarray(self.total, dtype=dtype)


@dataclass
class Evidence:
    data: Dict[str, Any] = field(default_factory=dict)

    def __post_init__(self):
        if not isinstance(self.data, dict):
            raise SchemaError("Evidence.data must be a dict; got " + type(self.data).__name__)

    @classmethod
    def from_raw(cls, raw):
        if raw is None:
            return cls()
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "Evidence JSON mapping payload required or None; got " + type(raw).__name__
            )
        return cls(data=dict(raw))

    def __getitem__(self, key):
        return self.data[key]

    def __setitem__(self, key, value):
        self.data[key] = value

    def __contains__(self, key):
        return key in self.data

    def items(self):
        return self.data.items()

    def keys(self):
        return self.data.keys()

    def values(self):
        return self.data.values()

    def get(self, key, default=None):
        return self.data.get(key, default)


@dataclass
class CheckpointManifest:
    tick_timestamp: Any
    dag_metadata: Any
    canonical_id_to_filename: Mapping[str, str]
    extras: Mapping[str, Any] = field(default_factory=dict)

    def __post_init__(self):
        if not isinstance(self.canonical_id_to_filename, dict):
            raise SchemaError(
                "CheckpointManifest.canonical_id_to_filename must be a dict; got "
                + type(self.canonical_id_to_filename).__name__
            )

    @classmethod
    def from_raw(cls, raw):
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "CheckpointManifest JSON mapping payload required; got " + type(raw).__name__
            )
        missing = [k for k in _CHECKPOINT_REQUIRED if k not in raw]
        if missing:
            raise SchemaError("CheckpointManifest missing required fields: " + str(sorted(missing)))
        return cls(
            tick_timestamp=raw["tick_timestamp"],
            dag_metadata=raw["dag_metadata"],
            canonical_id_to_filename=dict(raw["canonical_id_to_filename"]),
            extras={k: v for k, v in raw.items() if k not in _CHECKPOINT_REQUIRED},
        )


@dataclass(frozen=True)
class Metaparameters:
    by_pool: Mapping[str, Mapping[str, str]]

    def __post_init__(self):
        if not isinstance(self.by_pool, dict):
            raise SchemaError(
                "Metaparameters.by_pool must be a dict; got " + type(self.by_pool).__name__
            )
        if not self.by_pool:
            raise SchemaError("Metaparameters.by_pool must be non-empty")
        for pool_id, stages in self.by_pool.items():
            if not isinstance(stages, dict):
                raise SchemaError(
                    "Metaparameters.by_pool["
                    + repr(pool_id)
                    + "] must be a dict; got "
                    + type(stages).__name__
                )

    @classmethod
    def from_raw(cls, raw):
        if isinstance(raw, Metaparameters):
            return raw
        if raw is None or not isinstance(raw, dict) or not raw:
            return None
        for value in raw.values():
            if not isinstance(value, dict):
                return None
        return cls(by_pool=dict(raw))


@dataclass
class StageData:
    flat: Dict[str, np.ndarray] = field(default_factory=dict)
    nested: Dict[str, Mapping[str, Any]] = field(default_factory=dict)
    opaque: Dict[str, Any] = field(default_factory=dict)

    def __post_init__(self):
        if not isinstance(self.flat, dict):
            raise SchemaError("StageData.flat must be a dict; got " + type(self.flat).__name__)
        if not isinstance(self.nested, dict):
            raise SchemaError("StageData.nested must be a dict; got " + type(self.nested).__name__)
        if not isinstance(self.opaque, dict):
            raise SchemaError("StageData.opaque must be a dict; got " + type(self.opaque).__name__)

    @classmethod
    def from_mapping(cls, raw):
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "StageData producer boundary mapping required; got " + type(raw).__name__
            )
        flat, nested, opaque = {}, {}, {}
        for key, val in raw.items():
            if isinstance(val, np.ndarray):
                flat[key] = val
            elif isinstance(val, dict):
                nested[key] = val
            else:
                opaque[key] = val
        return cls(flat=flat, nested=nested, opaque=opaque)

    def slice_t(self, t_start, t_end):
        new_flat = {key: arr[t_start:t_end] for key, arr in self.flat.items()}
        new_nested = {}
        for outer_key, inner in self.nested.items():
            inner_new = {}
            has_array = False
            for k2, v2 in inner.items():
                if isinstance(v2, np.ndarray):
                    inner_new[k2] = v2[t_start:t_end]
                    has_array = True
                else:
                    inner_new[k2] = v2
            new_nested[outer_key] = inner_new if has_array else inner
        return StageData(flat=new_flat, nested=new_nested, opaque=dict(self.opaque))

    def value(self, key: str, default: Any = _MISSING) -> Any:
        for bucket in (self.flat, self.nested, self.opaque):
            if key in bucket:
                return bucket[key]
        if default is not _MISSING:
            return default
        raise KeyError(key)

    def set_value(self, key: str, value: Any) -> None:
        self.flat.pop(key, None)
        self.nested.pop(key, None)
        self.opaque.pop(key, None)
        if isinstance(value, np.ndarray):
            self.flat[key] = value
        elif isinstance(value, dict):
            self.nested[key] = value
        else:
            self.opaque[key] = value

    def has_value(self, key: str) -> bool:
        return key in self.flat or key in self.nested or key in self.opaque

    def is_empty(self) -> bool:
        return not self.flat and not self.nested and not self.opaque

    def feature_names(self) -> set[str]:
        return {key for key, value in self.flat.items() if value.ndim == 2}


@dataclass
class EraIndexManifest:
    schema_version: int
    bundle_kind: str
    epochs: Dict[str, Any]
    extras: Dict[str, Any] = field(default_factory=dict)

    def __post_init__(self):
        if self.schema_version != 2:
            raise SchemaError(
                "EraIndexManifest.schema_version must be 2; got " + repr(self.schema_version)
            )
        if self.bundle_kind != "era_index":
            raise SchemaError(
                "EraIndexManifest.bundle_kind must be 'era_index'; got " + repr(self.bundle_kind)
            )
        if not isinstance(self.epochs, dict):
            raise SchemaError(
                "EraIndexManifest.epochs must be a dict; got " + type(self.epochs).__name__
            )

    @classmethod
    def from_raw(cls, raw):
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "EraIndexManifest JSON mapping payload required; got " + type(raw).__name__
            )
        return cls(
            schema_version=raw.get("schema_version", 0)
            if isinstance(raw.get("schema_version", 0), int)
            else 0,
            bundle_kind=str(raw.get("bundle_kind", "")),
            epochs=dict(raw.get("epochs") or {}) if isinstance(raw.get("epochs"), dict) else {},
            extras={
                k: v for k, v in raw.items() if k not in ("schema_version", "bundle_kind", "epochs")
            },
        )


@dataclass(frozen=True)
class TargetInstrumentEntry:
    payload: Mapping[str, Any]

    def __post_init__(self):
        if not isinstance(self.payload, dict):
            raise SchemaError(
                "TargetInstrumentEntry.payload must be a dict; got " + type(self.payload).__name__
            )

    @classmethod
    def from_raw(cls, raw, index):
        if isinstance(raw, TargetInstrumentEntry):
            return raw
        if isinstance(raw, dict):
            return cls(payload=raw)
        raise ValueError(f"target_instruments[{index}] must be an object")


@dataclass(frozen=True)
class AggregationOutput:
    by_dotted_key: Mapping[str, np.ndarray]

    def __post_init__(self):
        if not isinstance(self.by_dotted_key, dict):
            raise SchemaError(
                "AggregationOutput.by_dotted_key must be a dict; got "
                + type(self.by_dotted_key).__name__
            )
        for key, value in self.by_dotted_key.items():
            if not isinstance(key, str) or not key:
                raise SchemaError("AggregationOutput key must be a non-empty str; got " + repr(key))
            if not isinstance(value, np.ndarray):
                raise SchemaError(
                    "AggregationOutput["
                    + repr(key)
                    + "] must be np.ndarray; got "
                    + type(value).__name__
                )

    @classmethod
    def from_raw(cls, raw, *, function_name="<unknown>"):
        if raw is None:
            return None
        if isinstance(raw, AggregationOutput):
            return raw
        if not isinstance(raw, dict):
            raise SchemaError(
                f"aggregation output for {function_name!r} was not a dict keyed by "
                f"plugin.output (got {type(raw).__name__})"
            )
        return cls(by_dotted_key=dict(raw))


@dataclass(frozen=True)
class StateScalar:
    value: Any


@dataclass(frozen=True)
class StateArray:
    data: np.ndarray

    def __post_init__(self):
        if not isinstance(self.data, np.ndarray):
            raise SchemaError("StateArray.data must be np.ndarray; got " + type(self.data).__name__)


@dataclass(frozen=True)
class StateMapping:
    entries: Mapping[str, Any]

    def __post_init__(self):
        if not isinstance(self.entries, dict):
            raise SchemaError(
                "StateMapping.entries must be a dict; got " + type(self.entries).__name__
            )


@dataclass(frozen=True)
class StateSequence:
    items_: Tuple[Any, ...]


def coerce_state(raw):
    if isinstance(raw, (StateScalar, StateArray, StateMapping, StateSequence)):
        return raw
    if isinstance(raw, np.ndarray):
        return StateArray(data=raw)
    if isinstance(raw, dict):
        return StateMapping(entries={str(k): coerce_state(v) for k, v in raw.items()})
    if isinstance(raw, (list, tuple)):
        return StateSequence(items_=tuple(coerce_state(item) for item in raw))
    return StateScalar(value=raw)


def states_equal(a, b):
    if a is None and b is None:
        return True
    if a is None or b is None:
        return False
    ta = coerce_state(a)
    tb = coerce_state(b)
    return _states_value_equal(ta, tb)


def _states_value_equal(a, b):
    if type(a) is not type(b):
        return False
    if isinstance(a, StateScalar):
        av = a.value
        bv = b.value
        if isinstance(av, float) and isinstance(bv, float) and math.isnan(av) and math.isnan(bv):
            return True
        return av == bv
    if isinstance(a, StateArray):
        bd = b.data
        if a.data.shape != bd.shape or a.data.dtype != bd.dtype:
            return False
        try:
            return bool(np.allclose(a.data, bd, rtol=0, atol=0, equal_nan=True))
        except (TypeError, ValueError):
            return bool(np.array_equal(a.data, bd))
    if isinstance(a, StateMapping):
        be = b.entries
        if set(a.entries.keys()) != set(be.keys()):
            return False
        return all(_states_value_equal(a.entries[k], be[k]) for k in a.entries)
    if isinstance(a, StateSequence):
        bi = b.items_
        if len(a.items_) != len(bi):
            return False
        return all(_states_value_equal(x, y) for x, y in zip(a.items_, bi))
    return False
