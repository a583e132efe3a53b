"""Whether the tests and these jobs notice faults: twenty of them, each planted in a copy of the tree.

Each fault of faults.toml replaces one text of one file; its job, a command line that passes on the
copy as it is, must then fail. Words pick the faults that have one of them in their names.
"""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import time
import tomllib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
TREE, BIN = ROOT / "build/faults/tree", Path(sys.executable).parent
CONFIGURE = f"""{BIN}/cmake -S {TREE} -B {TREE}/build/plain -G Ninja -DCMAKE_BUILD_TYPE=
    -DCMAKE_CXX_FLAGS=-O1 -DPython_EXECUTABLE={sys.executable}
    -DCMAKE_MAKE_PROGRAM={BIN}/ninja -DCMAKE_INSTALL_PREFIX={TREE}/build/plain/site"""
BUILD = f"{BIN}/cmake --build {TREE}/build/plain --target install"
PATHS = os.pathsep.join(f"{TREE}/{part}" for part in ("build/plain/site", "cli", "tests"))
ENVIRONMENT = {**os.environ, "PYTHONPATH": PATHS, "PATH": f"{BIN}:{os.environ['PATH']}",
               "PYTEST_ADDOPTS": "-q -x -p no:cacheprovider"}  # fmt: skip
LIMIT = 300


def copy_tree() -> None:
    """Write what differs, so that a second run compiles only that."""
    command = ["git", "ls-files", "-z"]
    names = subprocess.run(command, cwd=ROOT, check=True, capture_output=True, text=True).stdout
    for stale in TREE.glob("src/*/*"):
        if str(stale.relative_to(TREE)) not in names:
            stale.unlink()
    for name in filter(None, names.split("\0")):
        target, content = TREE / name, (ROOT / name).read_bytes()
        target.parent.mkdir(parents=True, exist_ok=True)
        if not target.exists() or target.read_bytes() != content:
            target.write_bytes(content)
            shutil.copymode(ROOT / name, target)
    (TREE / ".venv").exists() or (TREE / ".venv").symlink_to(ROOT / ".venv")


def run(job: str) -> tuple[int, str]:
    """The status of a job and the end of its output; the copy is built first."""
    subprocess.run(BUILD.split(), check=True, stdout=subprocess.DEVNULL)
    command = ["timeout", "-k", "9", f"{LIMIT}", "bash", "-c", job]
    done = subprocess.run(command, cwd=TREE, env=ENVIRONMENT, capture_output=True, text=True)
    return done.returncode, (done.stdout + done.stderr)[-1500:]


def main() -> int:
    words = [word for word in sys.argv[1:] if not word.startswith("--")]
    if "--quick" in sys.argv:
        print("figures: none planted, this takes the full run")
        return 0
    table = tomllib.loads((ROOT / "tests/harden/faults.toml").read_text())
    faults = [
        (file, name, fault)
        for file, named in table.items()
        for name, fault in named.items()
        if not words or any(word in name for word in words)
    ]
    os.nice(10)
    began = time.monotonic()
    copy_tree()
    subprocess.run(CONFIGURE.split(), check=True, stdout=subprocess.DEVNULL)
    jobs = dict.fromkeys(fault["job"] for _, _, fault in faults)
    for job in jobs:
        status, output = run(job)
        assert status == 0, f"fails without a fault: {job}\n{output}"
    killed = 0
    for file, name, fault in faults:
        text = (TREE / file).read_text()
        assert text.count(fault["old"]) == 1, f"{name}: no such place in {file}"
        (TREE / file).write_text(text.replace(fault["old"], fault["new"]))
        try:
            status, output = run(fault["job"])
        finally:
            (TREE / file).write_text(text)
        killed += status not in (0, 124, 137)
        verdict = "killed" if status not in (0, 124, 137) else f"NOT KILLED ({status})"
        print(f"{verdict} by {fault['job']}: {name}", flush=True)
        if "--verbose" in words or "--verbose" in sys.argv:
            print(output)
    print(f"figures: {killed} of {len(faults)} planted faults killed by {len(jobs)} jobs", end="")
    print(f", {time.monotonic() - began:.0f} s")
    return int(killed != len(faults))


if __name__ == "__main__":
    sys.exit(main())
