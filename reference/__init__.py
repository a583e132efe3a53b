"""The module in plain Python: to be read, and to test and measure the native one against.

The sections are one module cut into files. They are run in this order in one namespace, so that
every name is looked up in the module at the moment of use.

    import reference
    module = reference.load()
"""

import builtins
import contextlib
import sys
from collections.abc import Iterator
from importlib.machinery import SourceFileLoader
from pathlib import Path
from types import ModuleType
from typing import Any

from reference.arguments import finished

NAME = "quillmere.functions._typed_shapes"
FOLDER = Path(__file__).parent
SECTIONS = ("frame", "graph", "live", "batch", "outputs", "state")


@contextlib.contextmanager
def registered(module: ModuleType) -> Iterator[None]:
    """Let the interpreter find this module under its name: `dataclass` and `pickle` look there."""
    name = module.__name__
    other = sys.modules.get(name)
    sys.modules[name] = module
    try:
        yield
    finally:
        del sys.modules[name]
        if other is not None:
            sys.modules[name] = other


def load(name: str = NAME, bare: bool = False) -> ModuleType:
    """A new module object, which is not left in `sys.modules`.

    Bare functions, for measurements, are those of the sections. The others are documented with
    their signature lines and have the module's own argument errors.
    """
    module = ModuleType(name)
    names: dict[str, Any] = vars(module)
    names["__builtins__"] = dict(vars(builtins))  # as they are now, whoever changes one later
    with registered(module):
        for section in SECTIONS:
            code = SourceFileLoader(name, str(FOLDER / f"{section}.py")).get_code(name)
            assert code is not None
            exec(code, names)
            del names["annotations"]  # what the import from __future__ left
    names["__builtins__"] = builtins
    if not bare:
        classes = [value for value in names.values() if isinstance(value, type)]
        for holder in (module, *(cls for cls in classes if cls.__module__ == name)):
            for attribute, value in list(vars(holder).items()):
                if (made := finished(value, FOLDER)) is not value:
                    setattr(holder, attribute, made)
    return module
