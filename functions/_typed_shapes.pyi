"""Typed records for the boundary between the simulation engine and the function layer.

A constructor checks its fields in order and raises ``SchemaError`` for the first misfit. Arrays
are kept by reference, never copied or converted. T counts ticks (always axis 0), N instruments,
``n_alloc`` allocation slots.

``from_raw`` and its siblings take ``Any`` on purpose: there untyped payloads become typed. An
overload for ``None`` would match such a payload too and turn ``WindowSpec | None`` into ``Any``.
Fields typed ``Mapping`` are for reading; a constructor that checks one wants a real ``dict``.
"""

from collections.abc import ItemsView, Iterator, KeysView, Mapping, ValuesView
from dataclasses import dataclass, field
from typing import Any, NoReturn, Self, TypeAlias, TypeVar, overload

import numpy as np
from numpy.typing import DTypeLike, NDArray

__all__ = [  # noqa: RUF022 - in the order of the module itself
    "SchemaError",
    "InvalidFunctionStateError",
    "FunctionState",
    "validate_function_state",
    "FunctionGraphNode",
    "ParamSpec",
    "WindowSpec",
    "LiveCheckpoint",
    "UniverseMasks",
    "HistoryData",
    "CostResult",
    "Evidence",
    "CheckpointManifest",
    "Metaparameters",
    "StageData",
    "EraIndexManifest",
    "TargetInstrumentEntry",
    "AggregationOutput",
    "StateScalar",
    "StateArray",
    "StateMapping",
    "StateSequence",
    "StateValue",
    "coerce_state",
    "states_equal",
]

_T = TypeVar("_T")
_Mask: TypeAlias = NDArray[np.float64 | np.float16 | np.bool_]

class SchemaError(ValueError):
    """A payload does not fit its record; the message names the class, the field and the misfit."""

class InvalidFunctionStateError(ValueError):
    """A restore payload was refused; the attributes say for which function, and why.

    ``reason`` is "not_function_state", "function_name_mismatch", "function_version_mismatch" or
    "data_not_dict". ``state_type`` names the type of the whole payload, never that of its data.
    """

    function_name: str | None
    """The function that refused: the expected name."""
    expected_function_version: int | None
    """The version that it expected."""
    state_type: str | None
    """The name of the type of the whole payload."""
    reason: str | None
    """Which check failed; the four codes are in the text of the class."""

    def __init__(
        self,
        message: str,
        *,
        function_name: str | None = None,
        expected_function_version: int | None = None,
        state_type: str | None = None,
        reason: str | None = None,
    ) -> None: ...

@dataclass(frozen=True)
class FunctionState:
    """A stateful function's state in transport; ``validate_function_state`` does the checking."""

    function_name: str
    """The name of the function whose state this is."""
    function_version: int
    """The version of the layout of that function's state."""
    data: Any
    """The state; a restore accepts a ``dict`` only."""

def _reject_function_state(
    message: str, *, expected_name: str, expected_version: int, state: Any, reason: str
) -> NoReturn:
    """Raise the ``InvalidFunctionStateError`` for a refused payload."""

def validate_function_state(
    state: Any, *, expected_name: str, expected_version: int
) -> dict[str, Any]:
    """Return ``state.data`` itself, once the record is known to belong to this function.

    Raises ``InvalidFunctionStateError`` for anything but a ``FunctionState`` of this name and
    version whose data is a ``dict``. Versions are compared, not converted: 3.0 matches 3.
    """

_MISSING: object
"""Marks an argument that was not given; compared by identity only."""

_GRAPH_RUNTIME_TYPES: frozenset[str]
"""The node kinds of the graph runtime; other types but "expression" name an operation."""

@dataclass(eq=False)
class FunctionGraphNode:
    """A node of a function graph, the tree that the engine and the function layer both walk.

    ``type`` is a non-empty ``str``, ``children`` a ``list`` of nodes, ``config`` a ``dict``; else
    ``SchemaError``. Equality and hash go by identity, since the graph layer caches per node: the
    two underscored fields are its slots, and this module never touches them.
    """

    type: str
    """The kind: "rotation", "feature", "signal" and so on."""
    node: Any = None
    """What the kind applies: the name of an operation, a feature or a function."""
    children: list[FunctionGraphNode] = field(default_factory=list)
    """The nodes whose results this one takes, in their order."""
    config: dict[str, Any] = field(default_factory=dict)
    """The parameters of the operation, by name."""
    canonical_id: str | None = None
    """The node's identifier in the graph layer and in checkpoints."""
    family: str | None = None
    """The family to which the node belongs; free-form."""
    value: Any = None
    """The value that the node carries, such as a constant; free-form."""
    _node_identities: dict[str, Any] | None = field(default=None, compare=False, repr=False)
    """A cache of the graph layer."""
    _collect_nodes_cache: Any | None = field(default=None, compare=False, repr=False)
    """A cache of the graph layer."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> Self:
        """Parse a JSON graph mapping, and all its descendants, into a typed tree.

        Older keys stand in for absent ones: "name" or "function_name" for "node", "args" for
        "children", "params" for "config"; without a "type", or with "expression", "op" tells the
        kind. ``SchemaError`` for what is not a mapping (nodes included), a missing kind and
        children that are not a ``list``; a config that is not a ``dict`` becomes an empty one.
        """

def coerce_graph(raw: Any) -> FunctionGraphNode:
    """Parse a whole graph: ``FunctionGraphNode.from_raw`` under a shorter name."""

@dataclass(frozen=True)
class WindowSpec:
    """The window parameter of a stateful rotation.

    Each field is an ``int`` or ``None``, else ``SchemaError``; a ``bool`` is not a window length.
    How the four relate is not checked: a minimum may exceed the maximum.
    """

    minimum: int | None = None
    """The lower bound; "min" in a payload."""
    maximum: int | None = None
    """The upper bound; "max" in a payload."""
    default: int | None = None
    """The length where no value is given."""
    value: int | None = None
    """The length that was chosen."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> WindowSpec | None:
        """Coerce a bare ``int`` (the value) or a ``dict`` with "min", "max", "default", "value".

        ``None`` stays ``None`` and a spec is returned as it is. Anything else, ``bool`` and
        NumPy integers included, raises ``SchemaError``.
        """

    def picked(self, clamp_to: int = 1440) -> int | None:
        """The window length to use: the value, else the default, else ``clamp_to`` in bounds.

        Only the last is clamped, and the minimum wins over the maximum. ``None`` when neither
        value nor default is set and a bound is missing.
        """

@dataclass(frozen=True)
class ParamSpec:
    """One parameter declaration of a function entry.

    ``name`` is a non-empty ``str`` and ``window`` a ``WindowSpec`` or ``None``, else
    ``SchemaError``. The other fields are kept as they are given.
    """

    name: str
    """The name of the parameter."""
    type: str | None = None
    """The name of its type, as the declaration says it; not checked."""
    default: Any = None
    """Its default value."""
    minimum: Any = None
    """Its lower bound; "min" in a payload."""
    maximum: Any = None
    """Its upper bound; "max" in a payload."""
    variadic: bool = False
    """Whether it takes any number of values."""
    window: WindowSpec | None = None
    """Its window, if it has one."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, name: str, raw: Any) -> ParamSpec:
        """Build the declaration of ``name``.

        Accepted: ``None`` (all defaults); a ``ParamSpec`` (itself, or a copy under ``name``); a
        ``WindowSpec`` (the window, and its default); a ``dict`` with "type", "default", "min",
        "max", "variadic"; anything else is the default value. A ``dict`` with "min" or "max", or
        named "window", is read as a window too, so its bounds must be integers.
        """

    @classmethod
    def from_mapping(cls, raw: Any) -> list[ParamSpec]:
        """Build the declarations of a name-to-entry ``dict`` or a list of named entries.

        ``None`` gives an empty list; ``SchemaError`` for other payloads and for list entries
        without a usable ``name`` attribute.
        """

    @classmethod
    def coerce_specs(cls, raw: Any) -> dict[str, ParamSpec]:
        """``from_mapping``, by name; of two declarations with one name the later one stays."""

def _param_name(spec: Any) -> str:
    """The ``name`` attribute of a list entry; ``SchemaError`` unless it is a non-empty ``str``."""

@dataclass
class LiveCheckpoint:
    """A live evaluation's state per signal and per node: two ``dict``, else ``SchemaError``."""

    signals: dict[str, dict[str, Any]] = field(default_factory=dict)
    """The state of each signal, by name."""
    nodes: dict[str, dict[str, Any]] = field(default_factory=dict)
    """The state of each graph node, by name."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> Self:
        """Coerce a mapping with "signals" and "nodes"; a missing or empty one becomes ``{}``.

        ``SchemaError`` for what is not a mapping, a ``LiveCheckpoint`` included; a part that
        ``dict()`` cannot convert raises what ``dict()`` raises.
        """

@dataclass
class UniverseMasks:
    """The universe masks of one tick: per tag one C-contiguous array of shape (n_alloc,).

    A mask is float64, float16 or bool. A float16 mask has three states, NaN, 0.0 and 1.0, and
    nothing else is allowed; -0.0 would pass for 0.0 by value and is refused by its sign.
    ``n_alloc`` is a positive ``int``. ``SchemaError`` for every misfit, with the index and value
    of the first bad float16 entry.

    ``by_tag`` is typed loosely, so that a ``dict`` of masks of one dtype is accepted.
    """

    by_tag: dict[str, NDArray[Any]]
    """The mask of each universe, by its tag."""
    n_alloc: int
    """The number of allocation slots, which is the length of every mask."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any, *, n_alloc: int) -> UniverseMasks:
        """Coerce a ``dict`` of masks (copied at the top level), or pass an instance through.

        ``SchemaError`` for an instance of another ``n_alloc`` and for any other payload.
        """

    def __contains__(self, tag: object) -> bool:
        """Whether there is a mask of this tag."""

    def __getitem__(self, tag: str) -> _Mask:
        """The mask of ``tag``; ``KeyError`` if there is none."""

    @overload
    def get(self, tag: str, default: None = None) -> _Mask | None:
        """The mask of ``tag``, or ``default``."""
    @overload
    def get(self, tag: str, default: _T) -> _Mask | _T: ...
    def keys(self) -> KeysView[str]:
        """The tags, as a live view of ``by_tag``."""

    def items(self) -> ItemsView[str, _Mask]:
        """The pairs of tag and mask, as a live view of ``by_tag``."""

@dataclass
class HistoryData:
    """The history of one replay or backfill batch: per feature a float64 array of shape (T, N).

    ``SchemaError`` for an empty name, another rank or another dtype. T and N may differ between
    features, and any memory layout will do.
    """

    by_feature: dict[str, NDArray[np.float64]]
    """The values of each feature, by name: a row a tick, a column an instrument."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any, *, context: str = "history fetch") -> HistoryData:
        """Coerce a ``dict`` of arrays (copied at the top level), or pass an instance through.

        ``SchemaError`` for any other payload; ``context`` names the producer in its message.
        """

    def __contains__(self, feat: object) -> bool:
        """Whether there is a feature of this name."""

    def __getitem__(self, feat: str) -> NDArray[np.float64]:
        """The array of ``feat``; ``KeyError`` if there is none."""

@dataclass
class CostResult:
    """What a cost engine returns for one tick: the total, and its named components.

    All are arrays of any shape and dtype. A component has a non-empty name other than "total";
    ``SchemaError`` otherwise. ``shape``, ``len``, subscription and NumPy's conversion are those
    of ``total``, and raise what NumPy raises.
    """

    total: NDArray[Any]
    """The cost, by slot or however the engine lays it out."""
    breakdown: dict[str, NDArray[Any]] = field(default_factory=dict)
    """Its named components. They need not have the shape of the total, nor add up to it."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any, *, context: str = "cost engine") -> CostResult:
        """Pass an instance through; else ``SchemaError``, naming ``context``, even for an array."""

    @property
    def shape(self) -> tuple[int, ...]:
        """The shape of ``total``."""

    def __len__(self) -> int:
        """The length of the first axis of ``total``."""

    def __getitem__(self, key: Any) -> Any:
        """``total[key]``, with NumPy's rules."""

    def __array__(self, dtype: DTypeLike | None = None) -> NDArray[Any]:
        """``total`` itself for ``np.asarray(result)``, converted where a dtype is asked for."""

@dataclass
class Evidence:
    """The evidence of one check: a free-form ``dict`` (else ``SchemaError``) and access to it."""

    data: dict[str, Any] = field(default_factory=dict)
    """What the check found, under keys of its own."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> Self:
        """Copy a mapping; ``None`` is empty; else ``SchemaError``, even for an ``Evidence``."""

    def __getitem__(self, key: str) -> Any:
        """The value of ``key``; ``KeyError`` if there is none."""

    def __setitem__(self, key: str, value: Any) -> None:
        """Set the value of ``key``."""

    def __contains__(self, key: object) -> bool:
        """Whether there is a value of ``key``."""

    def items(self) -> ItemsView[str, Any]:
        """The pairs of ``data``, as a live view."""

    def keys(self) -> KeysView[str]:
        """The keys of ``data``, as a live view."""

    def values(self) -> ValuesView[Any]:
        """The values of ``data``, as a live view."""

    @overload
    def get(self, key: str, default: None = None) -> Any | None:
        """The value of ``key``, or ``default``."""
    @overload
    def get(self, key: str, default: _T) -> Any | _T: ...

_CHECKPOINT_REQUIRED: tuple[str, ...]
"""The keys that a checkpoint manifest must have."""

@dataclass
class CheckpointManifest:
    """The manifest of a checkpoint, as loaded from ``manifest.pkl``.

    ``canonical_id_to_filename`` maps a node's canonical id to the file of its checkpoint and is a
    ``dict``, else ``SchemaError``. ``extras`` keeps all other keys, so that manifests of newer
    producers still load.
    """

    tick_timestamp: Any
    """When the checkpoint was taken, as its producer writes it."""
    dag_metadata: Any
    """What the producer says about the function graph."""
    canonical_id_to_filename: Mapping[str, str]
    """The file of each node's state, by the node's canonical identifier."""
    extras: Mapping[str, Any] = field(default_factory=dict)
    """All other keys of the payload."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> Self:
        """Coerce a mapping that has the three required keys; ``None`` counts as a value.

        ``SchemaError`` for what is not a mapping, and one for all missing keys together; the
        error of ``dict()`` itself for a file map that it cannot convert.
        """

@dataclass(frozen=True)
class Metaparameters:
    """``{pool_id: {stage: option}}``, a non-empty ``dict`` of ``dict``, else ``SchemaError``."""

    by_pool: Mapping[str, Mapping[str, str]]
    """For each pool the option that was chosen for each stage."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> Metaparameters | None:
        """Tell the per-pool form from all others: an instance for it, ``None`` for the rest.

        Never raises; ``None`` also stands for the flat form, an empty ``dict`` and mappings that
        are not a ``dict``. An instance passes through; a ``dict`` is copied at the top level.
        """

@dataclass
class StageData:
    """The stage data of a batch, sorted once by kind so that consumers need no type tests.

    ``flat`` holds arrays with T on axis 0, ``nested`` dictionaries that may hold such arrays,
    ``opaque`` everything else, other mappings included. All three are ``dict``, else
    ``SchemaError``; what is inside is checked by no constructor.
    """

    flat: dict[str, NDArray[Any]] = field(default_factory=dict)
    """The arrays, with T on axis 0."""
    nested: dict[str, Mapping[str, Any]] = field(default_factory=dict)
    """The dictionaries, in which arrays have T on axis 0."""
    opaque: dict[str, Any] = field(default_factory=dict)
    """Everything else, which passes through unchanged."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_mapping(cls, raw: Mapping[str, Any]) -> Self:
        """Sort a mapping into the three buckets; ``SchemaError`` for what is not a mapping."""

    @classmethod
    def from_raw(cls, raw: Any) -> NoReturn:
        """Raise ``SchemaError``, whatever it is given: producers call ``from_mapping``."""

    @classmethod
    def from_optional_mapping(cls, raw: Mapping[str, Any] | None) -> Self:
        """``from_mapping``, with an empty instance for ``None``."""

    def slice_t(self, t_start: int | None, t_end: int | None) -> StageData:
        """Cut flat arrays, and arrays one level down in nested ones, to ticks [t_start, t_end).

        The bounds mean what they mean in a Python slice. The new arrays are views of the old; a
        nested dictionary without arrays is shared. Always a plain ``StageData``.
        """

    @overload
    def value(self, key: str) -> Any:
        """The value under ``key``: from ``flat``, then ``nested``, then ``opaque``.

        For an absent key ``default``, even if that is ``None``; ``KeyError`` when none was given.
        """
    @overload
    def value(self, key: str, default: _T) -> Any | _T: ...
    def set_value(self, key: str, value: Any) -> None:
        """Store a value in the bucket of its kind, and only there."""

    def has_value(self, key: str) -> bool:
        """Whether any bucket has ``key``."""

    def is_empty(self) -> bool:
        """Whether all buckets are empty."""

    def feature_names(self) -> set[str]:
        """The keys of the two-dimensional arrays in ``flat``."""

@dataclass
class EraIndexManifest:
    """The manifest that indexes the eras of an output bundle.

    ``schema_version`` equals 2, ``bundle_kind`` equals "era_index" and ``epochs`` is a ``dict``,
    else ``SchemaError``. ``extras`` keeps all other keys, to survive a read and a write.
    """

    schema_version: int
    """The version of the format: 2."""
    bundle_kind: str
    """The kind of the bundle: "era_index"."""
    epochs: dict[str, Any]
    """The index itself, by era; its values are the producer's."""
    extras: dict[str, Any] = field(default_factory=dict)
    """All other keys of the payload."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any) -> Self:
        """Coerce a mapping leniently and leave the verdict to the constructor.

        A version that is not an ``int`` becomes 0, a missing kind "", and epochs that are not a
        ``dict`` become ``{}``. ``SchemaError`` for what is not a mapping, and from the constructor.
        """

@dataclass(frozen=True)
class TargetInstrumentEntry:
    """An entry of a ``target_instruments`` list: its payload, a ``dict`` (else ``SchemaError``)."""

    payload: Mapping[str, Any]
    """The entry as it came; its keys are for the output writer."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any, index: int) -> TargetInstrumentEntry:
        """Wrap a ``dict``, shared and not copied, or pass an instance through.

        Anything else raises a plain ``ValueError``, not ``SchemaError``, naming ``index``.
        """

@dataclass(frozen=True)
class AggregationOutput:
    """The outputs of an aggregation step: arrays of shape (T, n_alloc) by "<plugin>.<output>".

    A ``dict`` with non-empty ``str`` keys and array values, else ``SchemaError``. The dot and the
    shape are for the producer to keep; they are not checked. Iteration yields the keys.
    """

    by_dotted_key: Mapping[str, NDArray[Any]]
    """The arrays, by "<plugin>.<output>"."""

    def __post_init__(self) -> None: ...
    @classmethod
    def from_raw(cls, raw: Any, *, function_name: str = "<unknown>") -> AggregationOutput | None:
        """Coerce a ``dict`` (copied at the top level); ``None`` and instances pass through.

        ``SchemaError`` for any other payload; ``function_name`` stands in its message.
        """

    def items(self) -> ItemsView[str, NDArray[Any]]:
        """The pairs of dotted key and array, as a live view."""

    def __iter__(self) -> Iterator[str]:
        """Iterate over the dotted keys."""

@dataclass(frozen=True)
class StateScalar:
    """A state value that is neither array nor container; any object is kept as it is."""

    value: Any
    """The value itself."""

@dataclass(frozen=True)
class StateArray:
    """An array in a state, of any shape and dtype; ``SchemaError`` for what is not an array."""

    data: NDArray[Any]
    """The array itself, not a copy."""

    def __post_init__(self) -> None: ...

@dataclass(frozen=True)
class StateMapping:
    """State values by key; ``SchemaError`` unless the entries are a ``dict``."""

    entries: Mapping[str, StateValue]
    """The typed values, by key."""

    def __post_init__(self) -> None: ...

@dataclass(frozen=True)
class StateSequence:
    """State values in order, from a list or a tuple alike; nothing is checked."""

    items_: tuple[StateValue, ...]
    """The typed values, in order."""

StateValue: TypeAlias = StateScalar | StateArray | StateMapping | StateSequence

def coerce_state(raw: Any) -> StateValue:
    """Type a state payload to any depth; a state value inside it is kept as it is.

    Arrays, ``dict`` (whose keys become ``str``), lists and tuples get their own kinds; all else is
    a ``StateScalar``. Refuses nothing; a payload that contains itself ends in ``RecursionError``.
    """

def states_equal(a: Any, b: Any) -> bool:
    """Whether two state payloads hold the same state, after ``coerce_state``.

    Exact, but for NaN, which equals NaN. Arrays need the same shape and dtype; mappings may
    differ in order. Two scalars at the top give what their ``==`` gives.
    """

def _states_value_equal(a: StateValue, b: StateValue) -> bool:
    """``states_equal`` of two typed values; different kinds are unequal."""
