"""Count which lines of the C++ sources run, subprocesses included.

Without a command the tests run, at least 98 % of the lines must be hit, and each of the others
needs its reason in uncovered.toml. With one (`-m harden.coverage --json FILE python -m ...`) that
runs on the counting module, and only the report is written, for others to judge.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tomllib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(sys.executable).parent
BUILD = ROOT / "build" / "coverage"
CONFIGURE = f"""{BIN}/cmake -S {ROOT} -B {BUILD} -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DTYPED_SHAPES_COVERAGE=ON -DPython_EXECUTABLE={sys.executable}
    -DCMAKE_MAKE_PROGRAM={BIN}/ninja -DCMAKE_INSTALL_PREFIX={BUILD}/site"""
TESTS = f"{sys.executable} -m pytest -q -p no:cacheprovider".split()


def measure(command: list[str], report: Path) -> int:
    for step in CONFIGURE, f"{BIN}/cmake --build {BUILD} --target install":
        subprocess.run(step.split(), check=True, stdout=subprocess.DEVNULL)
    for counts in BUILD.rglob("*.gcda"):
        counts.unlink()
    path = [f"{BUILD}/site", f"{ROOT}/cli", os.environ.get("PYTHONPATH", f"{ROOT}/tests")]
    env = {**os.environ, "PYTHONPATH": os.pathsep.join(path)}
    status = subprocess.run(command, cwd=ROOT, env=env).returncode
    gcovr = f"{BIN}/gcovr --root {ROOT} --filter {ROOT}/src/ {BUILD} --json {report}"
    subprocess.run([*gcovr.split(), "--merge-mode-functions=merge-use-line-min"], check=True)
    return status


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--json", type=Path, default=BUILD / "coverage.json")
    parser.add_argument("--quick", action="store_true", help="the same; the job is quick")
    parser.add_argument("command", nargs=argparse.REMAINDER, help="instead of the tests")
    options = parser.parse_args()
    status = measure(options.command or TESTS, options.json)
    if status and not options.command:
        print("figures: the tests fail, so their lines were not counted")
        return status
    reasons = tomllib.loads((ROOT / "tests/harden/uncovered.toml").read_text())
    total = missed = unknown = 0
    for file in json.loads(options.json.read_text())["files"]:
        texts = (ROOT / file["file"]).read_text().splitlines()
        known = {**reasons["*"], **reasons.get(file["file"], {})}
        counts: dict[int, int] = {}  # a line of a template is there once for each instance
        names: dict[int, str] = {}
        for line in file["lines"]:
            number, name = line["line_number"], line["function_name"]
            counts[number] = counts.get(number, 0) + line["count"]
            name = re.sub(r"\(anonymous .*?::|[<(](?!anonymous).*", "", name)
            names[number] = name.split("::")[-1] + "()"
        total += len(counts)
        for number in sorted(number for number, count in counts.items() if count == 0):
            missed += 1
            text = texts[number - 1].strip()
            reason = known.get(text, known.get(names[number]))
            unknown += reason is None
            if not options.command:
                print(f"{file['file']}:{number}: {text}   [{reason or 'NO REASON'}]")
    percent = 100 * (total - missed) / total
    rest = "" if options.command else f", {unknown} without a listed reason"
    print(f"figures: {percent:.2f} % of {total} lines run{rest}")
    return status or (not options.command and (percent < 98 or unknown > 0))


if __name__ == "__main__":
    sys.exit(main())
