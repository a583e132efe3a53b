"""Whether the tests and these jobs notice the faults that are planted in a copy of the tree.

Each fault of faults.toml edits one text of one file; its job, a command line that passes on the
copy as it is, must then fail. Words pick the faults that have one of them in their names.
"""

import os
import shutil
import subprocess
import sys
import tomllib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
TREE, BIN = ROOT / "build/faults/tree", Path(sys.executable).parent
BUILD = f"""{BIN}/cmake -S {TREE} -B {TREE}/build/plain -G Ninja -DCMAKE_CXX_FLAGS=-O1
    -DPython_EXECUTABLE={sys.executable} -DCMAKE_MAKE_PROGRAM={BIN}/ninja
    -DCMAKE_BUILD_TYPE= -DCMAKE_INSTALL_PREFIX={TREE}/build/plain/site"""
INSTALL = f"{BIN}/cmake --build {TREE}/build/plain --target install"
PATHS = os.pathsep.join(f"{TREE}/{part}" for part in ("build/plain/site", "cli", "tests"))
ENVIRONMENT = {**os.environ, "PYTHONPATH": PATHS, "PATH": f"{BIN}:{os.environ['PATH']}",
               "PYTEST_ADDOPTS": "-q -x -p no:cacheprovider"}  # fmt: skip


def copy_tree() -> None:
    """Write what differs, so that a second run compiles only that."""
    listed = subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).splitlines()
    for stale in {str(path.relative_to(TREE)) for path in TREE.glob("src/*/*")} - {*listed}:
        (TREE / stale).unlink()
    for name in listed:
        target, content = TREE / name, (ROOT / name).read_bytes()
        target.parent.mkdir(parents=True, exist_ok=True)
        if not target.exists() or target.read_bytes() != content:
            shutil.copy(ROOT / name, target)


def status_of(job: str) -> int:
    subprocess.run(INSTALL.split(), check=True, stdout=subprocess.DEVNULL)
    command = ["timeout", "-k", "9", "300", "bash", "-c", job]
    return subprocess.run(command, cwd=TREE, env=ENVIRONMENT, capture_output=True).returncode


def main() -> int:
    words = sys.argv[1:]
    table = tomllib.loads((ROOT / "tests/harden/faults.toml").read_text())
    faults = [(TREE / file, *fault) for file, named in table.items() for fault in named.items()]
    faults = [fault for fault in faults if not words or any(word in fault[1] for word in words)]
    os.nice(10)
    copy_tree()
    subprocess.run(["ln", "-sfn", ROOT / ".venv", TREE / ".venv"], check=True)
    subprocess.run(BUILD.split(), check=True, stdout=subprocess.DEVNULL)
    jobs = {fault["job"] for _, _, fault in faults}
    for job in jobs:
        assert status_of(job) == 0, f"fails without a fault: {job}"
    killed = 0
    for path, name, fault in faults:
        text = path.read_text()
        assert text.count(fault["edit"][0]) == 1, f"no such place: {name}"
        try:
            path.write_text(text.replace(*fault["edit"]))
            status = status_of(fault["job"])
        finally:
            path.write_text(text)
        is_killed = status not in (0, 124, 137)  # to run out of time does not count
        killed += is_killed
        print(f"{'killed' if is_killed else 'NOT KILLED'} by {fault['job']}: {name}", flush=True)
    print(f"figures: {killed} of {len(faults)} planted faults killed by {len(jobs)} jobs")
    return int(killed != len(faults))


if __name__ == "__main__":
    sys.exit(main())
