"""Count which lines of the C++ sources run, subprocesses included.

The tests run on a module that counts. At least 98 % of the lines must be hit, and each of the
others needs its reason in uncovered.toml.
"""

import json
import re
import subprocess
import sys
import tomllib
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "coverage"
REPORT = BUILD / "coverage.json"
ON_COUNTING_MODULE = f""". scripts/build_for.sh
build_for {sys.executable} coverage -DCMAKE_BUILD_TYPE=Debug -DTYPED_SHAPES_COVERAGE=ON
find {BUILD} -name '*.gcda' -delete
# What was noted of sources that have gone stops gcovr.
{Path(sys.executable).with_name("ninja")} -C {BUILD} -t cleandead >/dev/null
for note in $(find {BUILD} -name '*.gcno'); do [ -e "${{note%.gcno}}.o" ] || rm "$note"; done
exec {sys.executable} "$@" """


@dataclass
class Line:
    place: str
    text: str
    reason: str | None  # to be missed
    count: int = 0


def lines_run_by(*command: str) -> tuple[int, list[Line]]:
    """The status of a command that runs on the counting module, and all lines with their counts."""
    script = ["bash", "-ec", ON_COUNTING_MODULE, "bash", *command]
    status = subprocess.run(script, cwd=ROOT).returncode
    gcovr = f"{Path(sys.executable).parent}/gcovr --root {ROOT} --filter {ROOT}/src/ {BUILD}"
    options = f"--json {REPORT} --merge-mode-functions=merge-use-line-min"
    subprocess.run([*gcovr.split(), *options.split()], check=True)
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
