"""The reference with bare functions, as a module of its own that `pickle` finds by its name."""

import sys
from pathlib import Path
from typing import Any

sys.path.append(str(Path(__file__).parent.parent))

import reference

sys.modules[__name__] = reference.load(__name__, bare=True)


def __getattr__(name: str) -> Any: ...  # for type checkers
