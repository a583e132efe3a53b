"""The build directories of the scripts, made with the cmake and the ninja of the venv."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

BIN = Path(sys.executable).parent


def configure(sources: Path, folder: Path, **options: object) -> None:
    """Configure `folder` for this interpreter, without the release build's options of GCC."""
    options |= {
        "CMAKE_BUILD_TYPE": "Debug",
        "CMAKE_MAKE_PROGRAM": BIN / "ninja",
        "Python_EXECUTABLE": sys.executable,
    }
    command = [f"{BIN}/cmake", "-S", f"{sources}", "-B", f"{folder}", "-G", "Ninja"]
    command += [f"-D{name}={value}" for name, value in options.items()]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
