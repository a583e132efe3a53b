"""Typed dataclasses used at simulator_engine + functions boundaries.

These shapes replace the historical ``isinstance(x, dict)/else: getattr``
dual-mode dispatchers. Producers (cost engines, checkpoint loader, mask
builder, history fetcher, signal registration, graph parser, registry
entry constructor, evidence assembler) emit typed instances; consumers
read typed attributes directly.

Validation lives in ``__post_init__``. Out-of-shape inputs raise
``SchemaError`` with field context. No runtime ``isinstance`` dispatch
exists after coercion.
"""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from typing import Any, Dict, Iterable, List, Mapping, Optional, Sequence, Tuple, Union

import numpy as np

__all__ = [
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


class SchemaError(ValueError):
    """Raised when a typed-shape constructor receives an incompatible payload."""


class InvalidFunctionStateError(ValueError):
    """Raised when a restore payload is not the canonical FunctionState record."""

    def __init__(
        self,
        message: str,
        *,
        function_name: str | None = None,
        expected_function_version: int | None = None,
        state_type: str | None = None,
        reason: str | None = None,
    ):
        super().__init__(message)
        self.function_name = function_name
        self.expected_function_version = expected_function_version
        self.state_type = state_type
        self.reason = reason


@dataclass(frozen=True)
class FunctionState:
    """Canonical state transport record for stateful function restoration."""

    function_name: str
    function_version: int
    data: Any


def _reject_function_state(
    message: str, *, expected_name: str, expected_version: int, state: Any, reason: str
) -> None:
    raise InvalidFunctionStateError(
        message,
        function_name=expected_name,
        expected_function_version=expected_version,
        state_type=type(state).__name__,
        reason=reason,
    )


# A rejection that returns, since somebody bound the name to something else, lets the checks go on.
def validate_function_state(
    state: Any, *, expected_name: str, expected_version: int
) -> dict[str, Any]:
    """Return ``state.data`` after enforcing the single restore record contract."""
    if not isinstance(state, FunctionState):
        _reject_function_state(
            f"FunctionState required for '{expected_name!s}', got " + type(state).__name__,
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="not_function_state",
        )
    if state.function_name != expected_name:
        _reject_function_state(
            f"State function_name '{state.function_name!s}' does not match '{expected_name!s}'",
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="function_name_mismatch",
        )
    if state.function_version != expected_version:
        _reject_function_state(
            f"State function_version {state.function_version!s} does not match entry "
            f"function_version {expected_version!s} for '{expected_name!s}'",
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="function_version_mismatch",
        )
    if not isinstance(state.data, dict):
        _reject_function_state(
            f"FunctionState.data for '{expected_name!s}' must be dict, got "
            + type(state.data).__name__,
            expected_name=expected_name,
            expected_version=expected_version,
            state=state,
            reason="data_not_dict",
        )
    return state.data


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
