# What aggregation reads and writes.

from __future__ import annotations


@dataclass
class EraIndexManifest:
    """Era-index manifest JSON shape (schema_version=2, bundle_kind="era_index").

    Replaces an inline shape probe in the aggregation output configuration code that
    reads or initialises the manifest.
    """

    schema_version: int
    bundle_kind: str
    epochs: Dict[str, Any]
    extras: Dict[str, Any] = field(default_factory=dict)

    def __post_init__(self) -> None:
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
    def from_raw(cls, raw: Any) -> "EraIndexManifest":
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
                key: value
                for key, value in raw.items()
                if key != "schema_version" and key != "bundle_kind" and key != "epochs"
            },
        )


@dataclass(frozen=True)
class TargetInstrumentEntry:
    """Single entry in a ``target_instruments`` list.

    Carries the full raw payload, so that the writer can read its domain-specific keys
    via typed access.
    """

    payload: Mapping[str, Any]

    def __post_init__(self) -> None:
        if not isinstance(self.payload, dict):
            raise SchemaError(
                "TargetInstrumentEntry.payload must be a dict; got " + type(self.payload).__name__
            )

    @classmethod
    def from_raw(cls, raw: Any, index: int) -> "TargetInstrumentEntry":
        if isinstance(raw, TargetInstrumentEntry):
            return raw
        if isinstance(raw, dict):
            return cls(payload=raw)
        raise ValueError(f"target_instruments[{index}] must be an object")


@dataclass(frozen=True)
class AggregationOutput:
    """Plugin-output mapping returned by ``_compute_aggregation_outputs``.

    Each key is the dotted "<plugin>.<output>" identifier and each value a (T, N_alloc)
    ndarray.
    """

    by_dotted_key: Mapping[str, np.ndarray]

    def __post_init__(self) -> None:
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
                    f"AggregationOutput[{key!r}] must be np.ndarray; got " + type(value).__name__
                )

    @classmethod
    def from_raw(
        cls, raw: Any, *, function_name: str = "<unknown>"
    ) -> Optional["AggregationOutput"]:
        if raw is None:
            return None
        if isinstance(raw, AggregationOutput):
            return raw
        if not isinstance(raw, dict):
            raise SchemaError(
                f"aggregation output for {function_name!r} was not a dict keyed by plugin.output "
                "(got " + type(raw).__name__ + ")"
            )
        return cls(by_dotted_key=dict(raw))

    def items(self):
        return self.by_dotted_key.items()

    def __iter__(self):
        return iter(self.by_dotted_key)
