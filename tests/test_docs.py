"""The examples in the documentation give the output that they show."""

from __future__ import annotations

import doctest
from pathlib import Path


def test_readme() -> None:
    path = Path(__file__).parent.parent / "README.md"
    results = doctest.testfile(str(path), module_relative=False)
    assert results.attempted >= 4
    assert results.failed == 0
