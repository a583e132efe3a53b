"""The restore contract, and the two error classes."""

from __future__ import annotations

from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts


class Loose:
    """Equal to anything it is compared with."""

    def __eq__(self, other: object) -> bool:
        return True

    def __ne__(self, other: object) -> bool:
        return False

    __hash__ = None  # type: ignore[assignment]


def test_a_valid_record_gives_its_data() -> None:
    data = {"a": 1}
    for version in (3, 3.0, Loose()):
        for cls in (ts.FunctionState, type("Child", (ts.FunctionState,), {})):
            record = cls("f", version, data)
            assert ts.validate_function_state(record, expected_name="f", expected_version=3) is data
    assert (
        ts.validate_function_state(
            ts.FunctionState("f", True, data), expected_name="f", expected_version=1
        )
        is data
    )


RESTORE = [
    ({}, "not_function_state", "FunctionState required for 'f', got dict"),
    (None, "not_function_state", "FunctionState required for 'f', got NoneType"),
    (("g", 9, []), "function_name_mismatch", "State function_name 'g' does not match 'f'"),
    (
        ("f", 2, []),
        "function_version_mismatch",
        "State function_version 2 does not match entry function_version 3 for 'f'",
    ),
    (("f", 3, []), "data_not_dict", "FunctionState.data for 'f' must be dict, got list"),
]


@pytest.mark.parametrize(("raw", "reason", "text"), RESTORE)
def test_refused_records(raw: Any, reason: str, text: str) -> None:
    state = ts.FunctionState(*raw) if isinstance(raw, tuple) else raw
    with pytest.raises(ts.InvalidFunctionStateError) as caught:
        ts.validate_function_state(state, expected_name="f", expected_version=3)
    error = caught.value
    assert (error.args, error.reason, error.state_type) == ((text,), reason, type(state).__name__)
    assert (error.function_name, error.expected_function_version) == ("f", 3)
    assert list(vars(error)) == "function_name expected_function_version state_type reason".split()


def test_a_rejection_that_returns_lets_the_checks_go_on(monkeypatch: pytest.MonkeyPatch) -> None:
    reasons: list[str] = []
    monkeypatch.setattr(
        ts, "_reject_function_state", lambda text, **options: reasons.append(options["reason"])
    )
    record = ts.FunctionState("g", 2, [5])
    assert ts.validate_function_state(record, expected_name="f", expected_version=3) == [5]
    assert reasons == ["function_name_mismatch", "function_version_mismatch", "data_not_dict"]


def test_the_error_classes() -> None:
    assert ts.SchemaError.__bases__ == ts.InvalidFunctionStateError.__bases__ == (ValueError,)
    bare = ts.InvalidFunctionStateError(message="text")
    assert (str(bare), bare.args, bare.reason, bare.state_type) == ("text", ("text",), None, None)
    child = type("Child", (ts.InvalidFunctionStateError,), {})("m", reason="r")
    assert (child.args, child.reason) == (("m",), "r")
