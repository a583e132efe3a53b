"""The module in plain Python: to be read, and to test and measure the native one against.

The sections are one module cut into files. They are run in this order in one namespace, so that
every name is looked up in the module at the moment of use.

    import reference
    module = reference.load()
"""

import __future__

import builtins
import contextlib
import sys
from collections.abc import Iterator
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
    other = sys.modules.get(NAME)
    sys.modules[NAME] = module
    try:
        yield
    finally:
        del sys.modules[NAME]
        if other is not None:
            sys.modules[NAME] = other


def load(bare: bool = False) -> ModuleType:
    """A new module object, which is not left in `sys.modules`.

    Bare functions, for measurements, are those of the sections. The others are documented with
    their signature lines and have the module's own argument errors.
    """
    module = ModuleType(NAME)
    names: dict[str, Any] = vars(module)
    names["__builtins__"] = dict(vars(builtins))  # as they are now, whoever changes one later
    with registered(module):
        for section in SECTIONS:
            path = FOLDER / f"{section}.py"
            # Annotations stay the text that they are in the source.
            flags = __future__.annotations.compiler_flag
            exec(compile(path.read_text(), path, "exec", flags, dont_inherit=True), names)
    names["__builtins__"] = builtins
    if not bare:
        classes = [value for value in names.values() if isinstance(value, type)]
        for holder in (module, *(cls for cls in classes if cls.__module__ == NAME)):
            for name, value in list(vars(holder).items()):
                if (made := finished(value, FOLDER)) is not value:
                    setattr(holder, name, made)
    return module
