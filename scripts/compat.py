"""Run the tests on the wheel in dist/ under several versions of NumPy: one binary for all.

Each version has a venv of its own under build/compat/, which stays for the next run. All arguments
go to pytest.
"""

from __future__ import annotations

import json
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
VENVS = ROOT / "build" / "compat"
NUMPYS = ("numpy==1.23.5", "numpy==1.26.*", "numpy>=2")
# pip of this venv installs into the others.
PIP = [sys.executable, "-m", "pip", "--disable-pip-version-check", "--quiet"]
SMOKE = """
import numpy, quillmere.functions._typed_shapes as ts
node = ts.FunctionGraphNode.from_raw({"op": "rank", "args": [{"type": "feature", "name": "close"}]})
assert node.children[0].node == "close"
assert ts.states_equal({"a": numpy.array([1.0, numpy.nan])}, {"a": numpy.array([1.0, numpy.nan])})
"""


def run(*command: str | Path) -> str:
    done = subprocess.run([*map(str, command)], cwd=ROOT, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{done.stdout}{done.stderr}\nfailed: {' '.join(map(str, command))}")
    return done.stdout


def newest(requirement: str) -> str:
    """The newest version that fits, as pip would choose it."""
    options = ["--dry-run", "--ignore-installed", "--no-deps", "--only-binary", ":all:"]
    report = run(*PIP, "install", *options, "--report", "-", requirement)
    version: str = json.loads(report)["install"][0]["metadata"]["version"]
    return version


def install(python: Path, *words: str | Path) -> None:
    run(*PIP, "--python", python, "install", *words)


def installs_alone(wheel: Path) -> None:
    """In an empty venv the wheel brings all that the module needs."""
    with tempfile.TemporaryDirectory() as folder:
        run(sys.executable, "-m", "venv", "--without-pip", folder)
        python = Path(folder, "bin", "python")
        install(python, "--only-binary", ":all:", wheel)
        run(python, "-I", "-W", "error", "-c", SMOKE)


def prepared(version: str, wheel: Path) -> Path:
    """The interpreter of the venv for this NumPy, with the wheel in it."""
    folder = VENVS / version
    python, mark = folder / "bin" / "python", folder / "prepared"
    wanted = (ROOT / "pyproject.toml").read_text()
    if not mark.exists() or mark.read_text() != wanted:
        run(sys.executable, "-m", "venv", "--clear", "--without-pip", folder)
        install(python, f"numpy=={version}", "--group", "test", "--group", "cli")
        mark.write_text(wanted)
    install(python, "--force-reinstall", "--no-deps", wheel)
    return python


def passes(version: str, python: Path) -> bool:
    found = run(python, "-I", "-c", "import numpy; print(numpy.__version__)").strip()
    if found != version:
        sys.exit(f"NumPy {found} is in the venv of {version}")
    # No cache: what failed under one NumPy is no news to another.
    command = [str(python), "-m", "pytest", "-q", "-p", "no:cacheprovider", *sys.argv[1:]]
    done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    if done.returncode != 0:
        print(done.stdout, done.stderr)
    print(f"NumPy {version:8}{done.stdout.strip().rpartition(chr(10))[2].strip('= ')}", flush=True)
    return done.returncode == 0


def main() -> int:
    (wheel,) = (ROOT / "dist").glob("*.whl")
    installs_alone(wheel)
    print(f"{wheel.name} installs in an empty venv", flush=True)
    results = [passes(v, prepared(v, wheel)) for v in map(newest, NUMPYS)]
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
