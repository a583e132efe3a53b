# Batches, checkpoints and aggregation.

from __future__ import annotations

_CHECKPOINT_REQUIRED = ("tick_timestamp", "dag_metadata", "canonical_id_to_filename")


@dataclass
class CheckpointManifest:
    """Typed view of the deserialized ``manifest.pkl`` payload."""

    tick_timestamp: Any
    dag_metadata: Any
    canonical_id_to_filename: Mapping[str, str]
    extras: Mapping[str, Any] = field(default_factory=dict)

    def __post_init__(self) -> None:
        if not isinstance(self.canonical_id_to_filename, dict):
            raise SchemaError(
                "CheckpointManifest.canonical_id_to_filename must be a dict; got "
                + type(self.canonical_id_to_filename).__name__
            )

    @classmethod
    def from_raw(cls, raw: Any) -> "CheckpointManifest":
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
    """Per-pool nested metaparameters mapping ``{pool_id: {stage: option}}``."""

    by_pool: Mapping[str, Mapping[str, str]]

    def __post_init__(self) -> None:
        if not isinstance(self.by_pool, dict):
            raise SchemaError(
                "Metaparameters.by_pool must be a dict; got " + type(self.by_pool).__name__
            )
        if not self.by_pool:
            raise SchemaError("Metaparameters.by_pool must be non-empty")
        for pool_id, stages in self.by_pool.items():
            if not isinstance(stages, dict):
                raise SchemaError(
                    f"Metaparameters.by_pool[{pool_id!r}] must be a dict; got "
                    + type(stages).__name__
                )

    @classmethod
    def from_raw(cls, raw: Any) -> Optional["Metaparameters"]:
        """Coerce raw input to Metaparameters if shape matches; return None otherwise.

        Returns ``None`` for ``None``, empty dictionaries, flat dictionaries (any non-mapping
        value) and non-mapping payloads, and a typed ``Metaparameters`` when every top-level
        value is itself a mapping.
        """
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
    """Typed wrapper for batch-orchestrator ``stage_data`` mapping.

    ``flat`` holds arrays indexed by time step along axis 0, ``nested`` dicts whose arrays
    are indexed the same way, ``opaque`` everything else.
    """

    flat: Dict[str, np.ndarray] = field(default_factory=dict)
    nested: Dict[str, Mapping[str, Any]] = field(default_factory=dict)
    opaque: Dict[str, Any] = field(default_factory=dict)

    def __post_init__(self) -> None:
        if not isinstance(self.flat, dict):
            raise SchemaError("StageData.flat must be a dict; got " + type(self.flat).__name__)
        if not isinstance(self.nested, dict):
            raise SchemaError("StageData.nested must be a dict; got " + type(self.nested).__name__)
        if not isinstance(self.opaque, dict):
            raise SchemaError("StageData.opaque must be a dict; got " + type(self.opaque).__name__)

    @classmethod
    def from_mapping(cls, raw: Mapping[str, Any]) -> "StageData":
        """Build StageData at an explicit producer boundary from a mapping."""
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "StageData producer boundary mapping required; got " + type(raw).__name__
            )
        flat = {}
        nested = {}
        opaque = {}
        for key, val in raw.items():
            if isinstance(val, np.ndarray):
                flat[key] = val
            elif isinstance(val, dict):
                nested[key] = val
            else:
                opaque[key] = val
        return cls(flat=flat, nested=nested, opaque=opaque)

    @classmethod
    def from_raw(cls, raw: Any) -> "StageData":
        raise SchemaError(
            "StageData producer boundary requires StageData.from_mapping() before runtime "
            "consumers; got " + type(raw).__name__
        )

    @classmethod
    def from_optional_mapping(cls, raw: Optional[Mapping[str, Any]]) -> "StageData":
        if raw is None:
            return cls()
        return cls.from_mapping(raw)

    def slice_t(self, t_start: int, t_end: int) -> "StageData":
        """Return a new StageData with arrays sliced along the T axis."""
        new_flat = {}
        for key, arr in self.flat.items():
            for base in type(arr).__mro__:
                if "__getitem__" in base.__dict__:
                    break
            else:
                raise TypeError(f"'{type(arr).__name__:.200}' object is unsliceable")
            new_flat[key] = arr[t_start:t_end]
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
        """Return one stage-data value without exposing a mapping facade."""
        if key in self.flat:
            return self.flat[key]
        if key in self.nested:
            return self.nested[key]
        if key in self.opaque:
            return self.opaque[key]
        if default is not _MISSING:
            return default
        raise KeyError(key)

    def set_value(self, key: str, value: Any) -> None:
        """Set one stage-data value into its typed bucket."""
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

    def feature_names(self) -> set:
        """Return the set of top-level flat keys whose ndarray has ``ndim == 2``."""
        return {key for key, arr in self.flat.items() if arr.ndim == 2}
