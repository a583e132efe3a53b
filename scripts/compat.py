"""Run the tests on the wheels in dist/ under several versions of NumPy: one binary for all of them.

The interpreters to try are named before `--`, besides the one that runs this; what comes after it
goes to pytest. Each pair of versions has a venv under build/compat/, which stays for the next run.
"""

from __future__ import annotations

import json
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
VENVS = ROOT / "build" / "compat"
# For each version of CPython an old NumPy that it has, the newest, and for 3.11 one in between.
NUMPYS = {
    "cp311": ("numpy==1.23.5", "numpy==1.26.*", "numpy>=2"),
    "cp312": ("numpy==1.26.*", "numpy>=2"),
    "cp313": ("numpy==2.1.*", "numpy>=2"),
}
TAG = "import sys; print('cp%d%d' % sys.version_info[:2])"
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


def newest(requirement: str, python: str) -> str:
    """The newest version that fits, as pip would choose it for the interpreter."""
    options = ["--dry-run", "--ignore-installed", "--no-deps", "--only-binary", ":all:"]
    report = run(*PIP, "--python", python, "install", *options, "--report", "-", requirement)
    version: str = json.loads(report)["install"][0]["metadata"]["version"]
    return version


def install(python: Path, *words: str | Path) -> None:
    run(*PIP, "--python", python, "install", *words)


def installs_alone(wheel: Path, base: str) -> None:
    """In an empty venv the wheel brings all that the module needs."""
    with tempfile.TemporaryDirectory() as folder:
        run(base, "-m", "venv", "--without-pip", folder)
        python = Path(folder, "bin", "python")
        install(python, "--only-binary", ":all:", wheel)
        run(python, "-I", "-W", "error", "-c", SMOKE)


def prepared(version: str, wheel: Path, base: str) -> Path:
    """The interpreter of the venv for this NumPy, with the wheel in it."""
    folder = VENVS / f"{wheel.name.split('-')[2]}-{version}"
    python, mark = folder / "bin" / "python", folder / "prepared"
    wanted = (ROOT / "pyproject.toml").read_text()
    if not mark.exists() or mark.read_text() != wanted:
        run(base, "-m", "venv", "--clear", "--without-pip", folder)
        install(python, f"numpy=={version}", "--group", "test", "--group", "cli")
        mark.write_text(wanted)
    install(python, "--force-reinstall", "--no-deps", wheel)
    return python


def passes(version: str, python: Path, options: list[str]) -> bool:
    found = run(python, "-I", "-c", "import numpy; print(numpy.__version__)").strip()
    if found != version:
        sys.exit(f"NumPy {found} is in the venv of {version}")
    # No cache: what failed under one NumPy is no news to another.
    command = [str(python), "-m", "pytest", "-q", "-p", "no:cacheprovider", *options]
    done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    if done.returncode != 0:
        print(done.stdout, done.stderr)
    print(f"NumPy {version:8}{done.stdout.strip().rpartition(chr(10))[2].strip('= ')}", flush=True)
    return done.returncode == 0


def main() -> int:
    at = sys.argv.index("--")
    others, options = sys.argv[1:at], sys.argv[at + 1 :]
    results = []
    for base in [sys.executable, *others]:
        tag = run(base, "-c", TAG).strip()
        (wheel,) = (ROOT / "dist").glob(f"*-{tag}-*.whl")
        installs_alone(wheel, base)
        print(f"{wheel.name} installs in an empty venv", flush=True)
        for version in [newest(requirement, base) for requirement in NUMPYS[tag]]:
            results.append(passes(version, prepared(version, wheel, base), options))
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
