"""Run clang-tidy over the C++ sources, on all cores."""

from __future__ import annotations

import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BIN = Path(sys.executable).parent
BUILD = ROOT / "build" / "tidy"


def configure() -> None:
    """A build directory of its own: clang does not know the release build's options of GCC."""
    command = [f"{BIN}/cmake", "-S", f"{ROOT}", "-B", f"{BUILD}", "-G", "Ninja"]
    options = [
        "-DCMAKE_BUILD_TYPE=Debug",
        f"-DPython_EXECUTABLE={sys.executable}",
        f"-DCMAKE_MAKE_PROGRAM={BIN / 'ninja'}",
    ]
    subprocess.run([*command, *options], check=True, stdout=subprocess.DEVNULL)


def tidy(source: Path) -> subprocess.CompletedProcess[str]:
    command = [f"{BIN}/clang-tidy", "-p", f"{BUILD}", "--quiet", f"{source}"]
    return subprocess.run(command, capture_output=True, text=True)


def main() -> int:
    configure()
    sources = [Path(name) for name in sys.argv[1:]] or sorted((ROOT / "src").glob("*/*.cpp"))
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(tidy, sources))
    failed = [result for result in results if result.returncode != 0]
    for result in failed:
        print(result.stdout or result.stderr, end="")
    print(f"clang-tidy: {len(sources)} files, {len(failed)} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
