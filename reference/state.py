# State values, and their equality.

from __future__ import annotations


@dataclass(frozen=True)
class StateScalar:
    """Atomic state value (None, bool, int, float, str, ...)."""

    value: Any


@dataclass(frozen=True)
class StateArray:
    """Array-valued state node (compared with NaN tolerance)."""

    data: np.ndarray

    def __post_init__(self) -> None:
        if not isinstance(self.data, np.ndarray):
            raise SchemaError("StateArray.data must be np.ndarray; got " + type(self.data).__name__)


@dataclass(frozen=True)
class StateMapping:
    """Mapping-valued state node (key -> StateValue)."""

    entries: Mapping[str, "StateValue"]

    def __post_init__(self) -> None:
        if not isinstance(self.entries, dict):
            raise SchemaError(
                "StateMapping.entries must be a dict; got " + type(self.entries).__name__
            )


@dataclass(frozen=True)
class StateSequence:
    """Ordered state node (list/tuple)."""

    items_: Tuple["StateValue", ...]


StateValue = Union[StateScalar, StateArray, StateMapping, StateSequence]


def coerce_state(raw: Any) -> StateValue:
    """Coerce an arbitrary state payload into the typed StateValue sum type.

    Accepted kinds: None, bool, int, float, str, np.ndarray, dict (str-keyed), list and
    tuple. Anything else is wrapped as ``StateScalar(value=raw)``.
    """
    if (
        isinstance(raw, StateScalar)
        or isinstance(raw, StateArray)
        or isinstance(raw, StateMapping)
        or isinstance(raw, StateSequence)
    ):
        return raw
    if isinstance(raw, np.ndarray):
        return StateArray(data=raw)
    if isinstance(raw, dict):
        return StateMapping(entries={str(key): coerce_state(value) for key, value in raw.items()})
    if isinstance(raw, (list, tuple)):
        return StateSequence(items_=tuple(coerce_state(item) for item in raw))
    return StateScalar(value=raw)


def states_equal(a: Any, b: Any) -> bool:
    """Deep equality of two state payloads with NaN tolerance.

    Each operand is coerced to ``StateValue`` first. None on both sides is True;
    mismatched variants are False; arrays compare via ``np.allclose(equal_nan=True)``.
    """
    if a is None and b is None:
        return True
    if a is None or b is None:
        return False
    ta = coerce_state(a)
    tb = coerce_state(b)
    return _states_value_equal(ta, tb)


def _states_value_equal(a: StateValue, b: StateValue) -> bool:
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
        except (TypeError, ValueError):  # of dtypes that it cannot compute with
            return bool(np.array_equal(a.data, bd))
    if isinstance(a, StateMapping):
        be = b.entries
        if set(a.entries.keys()) != set(be.keys()):
            return False
        for k in a.entries:
            if not _states_value_equal(a.entries[k], be[k]):
                return False
        return True
    if isinstance(a, StateSequence):
        bi = b.items_
        if len(a.items_) != len(bi):
            return False
        for x, y in zip(a.items_, bi):
            if not _states_value_equal(x, y):
                return False
        return True
    return False
