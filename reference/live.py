# What is exchanged once per tick of live evaluation.

from __future__ import annotations


@dataclass
class LiveCheckpoint:
    """Live-evaluation checkpoint payload.

    Replaces the dict ``{"signals": {...}, "nodes": {...}}``.
    """

    signals: Dict[str, Dict[str, Any]] = field(default_factory=dict)
    nodes: Dict[str, Dict[str, Any]] = field(default_factory=dict)

    def __post_init__(self) -> None:
        if not isinstance(self.signals, dict):
            raise SchemaError(
                "LiveCheckpoint.signals must be a dict; got " + type(self.signals).__name__
            )
        if not isinstance(self.nodes, dict):
            raise SchemaError(
                "LiveCheckpoint.nodes must be a dict; got " + type(self.nodes).__name__
            )

    @classmethod
    def from_raw(cls, raw: Any) -> "LiveCheckpoint":
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "LiveCheckpoint JSON mapping payload required; got " + type(raw).__name__
            )
        signals = dict(raw.get("signals") or {})
        nodes = dict(raw.get("nodes") or {})
        return cls(signals=signals, nodes=nodes)


@dataclass
class UniverseMasks:
    """Per-tag universe-mask payload for one tick.

    Each mask is a C-contiguous array of shape ``(n_alloc,)`` and dtype float64, float16
    or bool; a float16 mask holds NaN, positive zero or positive one.
    """

    by_tag: Dict[str, np.ndarray]
    n_alloc: int

    def __post_init__(self) -> None:
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
                    f"UniverseMasks['{tag!s}'] must be np.ndarray; got " + type(mask).__name__
                )
            if mask.ndim != 1 or mask.shape[0] != self.n_alloc:
                raise SchemaError(
                    f"UniverseMasks['{tag!s}'] has shape {mask.shape!s}, "
                    f"expected ({self.n_alloc!s},)"
                )
            if mask.dtype != np.float64 and mask.dtype != np.float16 and mask.dtype != np.bool_:
                raise SchemaError(
                    f"UniverseMasks['{tag!s}'] has dtype {mask.dtype!s}, "
                    "expected float64, float16, or bool"
                )
            if not mask.flags["C_CONTIGUOUS"]:
                raise SchemaError(f"UniverseMasks['{tag!s}'] must be C-contiguous")
            if mask.dtype == np.float16:
                valid = np.isnan(mask) | (mask == np.float16(0.0)) | (mask == np.float16(1.0))
                # Negative zero equals zero, so it passes as valid.
                negative_zero = (mask == np.float16(0.0)) & np.signbit(mask)
                invalid = ~valid | negative_zero
                if np.any(invalid):
                    invalid_index = int(np.flatnonzero(invalid)[0])
                    raise SchemaError(
                        f"UniverseMasks['{tag!s}'] has invalid float16 state value at index "
                        f"{invalid_index!s}: {mask[invalid_index]!r}; "
                        "expected NaN, positive zero, or positive one"
                    )

    @classmethod
    def from_raw(cls, raw: Any, *, n_alloc: int) -> "UniverseMasks":
        if isinstance(raw, UniverseMasks):
            if raw.n_alloc != n_alloc:
                raise SchemaError(
                    f"UniverseMasks coerced with n_alloc={n_alloc!s} "
                    f"but payload has n_alloc={raw.n_alloc!s}"
                )
            return raw
        if not isinstance(raw, dict):
            raise SchemaError(
                "UniverseMasks payload must be dict[str, np.ndarray]; got " + type(raw).__name__
            )
        return cls(by_tag=dict(raw), n_alloc=n_alloc)

    def __contains__(self, tag: object) -> bool:
        return tag in self.by_tag

    def __getitem__(self, tag: str) -> np.ndarray:
        return self.by_tag[tag]

    def get(self, tag: str, default: Any = None) -> Any:
        return self.by_tag.get(tag, default)

    def keys(self):
        return self.by_tag.keys()

    def items(self):
        return self.by_tag.items()


# The two that come next show a name as the text that it is, whatever a subclass of str makes of it.


@dataclass
class HistoryData:
    """Per-feature historical-data payload for one replay or backfill batch."""

    by_feature: Dict[str, np.ndarray]

    def __post_init__(self) -> None:
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
                    "HistoryData['".__add__(feat)
                    + "'] must be np.ndarray; got "
                    + type(arr).__name__
                )
            if arr.ndim != 2:
                raise SchemaError(
                    "HistoryData['".__add__(feat) + f"'] must be 2D (T, N); got shape {arr.shape!s}"
                )
            if arr.dtype != np.float64:
                raise SchemaError(
                    "HistoryData['".__add__(feat) + f"'] has dtype {arr.dtype!s}, expected float64"
                )

    @classmethod
    def from_raw(cls, raw: Any, *, context: str = "history fetch") -> "HistoryData":
        if isinstance(raw, HistoryData):
            return raw
        if not isinstance(raw, dict):
            raise SchemaError(
                f"{context!s} returned " + type(raw).__name__ + ", expected dict[str, np.ndarray]"
            )
        return cls(by_feature=dict(raw))

    def __contains__(self, feat: object) -> bool:
        return feat in self.by_feature

    def __getitem__(self, feat: str) -> np.ndarray:
        return self.by_feature[feat]


@dataclass
class CostResult:
    """Single-tick cost-engine output.

    ``total`` is the cost array; ``breakdown`` holds its named components. ``shape``,
    ``len``, subscription and NumPy's conversion are those of ``total``.
    """

    total: np.ndarray
    breakdown: Dict[str, np.ndarray] = field(default_factory=dict)

    def __post_init__(self) -> None:
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
                    "CostResult.breakdown['".__add__(label)
                    + "'] must be np.ndarray; got "
                    + type(arr).__name__
                )

    @classmethod
    def from_raw(cls, raw: Any, *, context: str = "cost engine") -> "CostResult":
        """Validate an engine's compute_tick output is already a CostResult."""
        if isinstance(raw, CostResult):
            return raw
        raise SchemaError(f"{context!s} returned " + type(raw).__name__ + ", expected CostResult")

    @property
    def shape(self) -> Tuple[int, ...]:
        """Array-compatible shape for direct engine tests and diagnostics."""
        return self.total.shape

    def __len__(self) -> int:
        return len(self.total)

    def __getitem__(self, key: Any) -> Any:
        return self.total[key]

    def __array__(self, dtype: Any = None) -> np.ndarray:
        return np.asarray(self.total, dtype=dtype)


@dataclass
class Evidence:
    """Typed wrapper for per-check evidence payloads."""

    data: Dict[str, Any] = field(default_factory=dict)

    def __post_init__(self) -> None:
        if not isinstance(self.data, dict):
            raise SchemaError("Evidence.data must be a dict; got " + type(self.data).__name__)

    @classmethod
    def from_raw(cls, raw: Any) -> "Evidence":
        if raw is None:
            return cls()
        if not isinstance(raw, Mapping):
            raise SchemaError(
                "Evidence JSON mapping payload required or None; got " + type(raw).__name__
            )
        return cls(data=dict(raw))

    def __getitem__(self, key: str) -> Any:
        return self.data[key]

    def __setitem__(self, key: str, value: Any) -> None:
        self.data[key] = value

    def __contains__(self, key: object) -> bool:
        return key in self.data

    def items(self):
        return self.data.items()

    def keys(self):
        return self.data.keys()

    def values(self):
        return self.data.values()

    def get(self, key: str, default: Any = None) -> Any:
        return self.data.get(key, default)
