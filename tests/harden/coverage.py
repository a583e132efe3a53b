"""Count which lines of the C++ sources run, subprocesses included.

The tests run on a module that counts. At least 98 % of the lines must be hit, and each of the
others needs its reason in uncovered.toml.
"""

import json
import os
import re
import subprocess
import sys
import tomllib
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(sys.executable).parent
BUILD = ROOT / "build" / "coverage"
REPORT = BUILD / "coverage.json"
CONFIGURE = f"""{BIN}/cmake -S {ROOT} -B {BUILD} -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DTYPED_SHAPES_COVERAGE=ON -DPython_EXECUTABLE={sys.executable}
    -DCMAKE_MAKE_PROGRAM={BIN}/ninja -DCMAKE_INSTALL_PREFIX={BUILD}/site"""


@dataclass
class Line:
    place: str
    text: str
    reason: str | None  # to be missed
    count: int = 0


def lines_run_by(*command: str) -> tuple[int, list[Line]]:
    """The status of a command that runs on the counting module, and all lines with their counts."""
    for step in CONFIGURE, f"{BIN}/cmake --build {BUILD} --target install":
        subprocess.run(step.split(), check=True, stdout=subprocess.DEVNULL)
    for counts in BUILD.rglob("*.gcda"):
        counts.unlink()
    path = [f"{BUILD}/site", f"{ROOT}/cli", f"{ROOT}/tests"]
    env = {**os.environ, "PYTHONPATH": os.pathsep.join(path)}
    status = subprocess.run([sys.executable, *command], cwd=ROOT, env=env).returncode
    gcovr = f"{BIN}/gcovr --root {ROOT} --filter {ROOT}/src/ {BUILD} --json {REPORT}"
    subprocess.run([*gcovr.split(), "--merge-mode-functions=merge-use-line-min"], check=True)
    reasons = tomllib.loads((ROOT / "tests/harden/uncovered.toml").read_text())
    lines: dict[str, Line] = {}  # a line of a template is counted once for each instance
    for file in json.loads(REPORT.read_text())["files"]:
        texts = (ROOT / file["file"]).read_text().splitlines()
        known = {**reasons["*"], **reasons.get(file["file"], {})}
        for line in file["lines"]:
            place, text = f"{file['file']}:{line['line_number']}", texts[line["line_number"] - 1]
            name = re.sub(r"\(anonymous .*?::|[<(](?!anonymous).*", "", line["function_name"])
            reason = known.get(text.strip(), known.get(name.split("::")[-1] + "()"))
            lines.setdefault(place, Line(place, text.strip(), reason)).count += line["count"]
    return status, list(lines.values())


def main() -> int:
    status, lines = lines_run_by("-m", "pytest", "-q", "-p", "no:cacheprovider")
    if status:
        print("figures: the tests fail, so their lines were not counted")
        return status
    missed = [line for line in lines if line.count == 0]
    for line in missed:
        print(f"{line.place}: {line.text}   [{line.reason or 'NO REASON'}]")
    percent = 100 * (1 - len(missed) / len(lines))
    unknown = sum(line.reason is None for line in missed)
    print(f"figures: {percent:.2f} % of {len(lines)} lines run, {unknown} without a listed reason")
    return int(percent < 98 or unknown > 0)


if __name__ == "__main__":
    sys.exit(main())
