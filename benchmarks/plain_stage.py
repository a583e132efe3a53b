"""The accessors of stage data in plain Python, for the works that time them."""

from __future__ import annotations

from typing import Any

import numpy as np
import plain

_MISSING = object()


class StageData(plain.StageData):
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
