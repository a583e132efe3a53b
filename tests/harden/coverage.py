"""Count which lines of the C++ sources run, subprocesses included.

Without a command the tests run, at least 98 % of the lines must be hit, and every other line needs
its reason in uncovered.toml. With one (`python -m harden.coverage --json FILE python -m ...`) the
command runs on the counting module, and the report is written for others to judge.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import tomllib
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(sys.executable).parent
BUILD = ROOT / "build" / "coverage"
WANTED = 98.0


def build() -> None:
    options = f"""-DCMAKE_BUILD_TYPE=Debug -DTYPED_SHAPES_COVERAGE=ON -DPython_EXECUTABLE={sys.executable}
        -DCMAKE_MAKE_PROGRAM={BIN}/ninja -DCMAKE_INSTALL_PREFIX={BUILD}/site""".split()
    configure = [f"{BIN}/cmake", "-S", f"{ROOT}", "-B", f"{BUILD}", "-G", "Ninja", *options]
    for step in configure, [f"{BIN}/cmake", "--build", f"{BUILD}", "--target", "install"]:
        subprocess.run(step, check=True, stdout=subprocess.DEVNULL)
    for counts in BUILD.rglob("*.gcda"):
        counts.unlink()


def measure(command: list[str], report: Path) -> int:
    path = [f"{BUILD}/site", f"{ROOT}/cli", os.environ.get("PYTHONPATH", "")]
    env = {**os.environ, "PYTHONPATH": os.pathsep.join(filter(None, path))}
    status = subprocess.run(command, cwd=ROOT, env=env).returncode
    gcovr = [f"{BIN}/gcovr", "--root", f"{ROOT}", "--filter", f"{ROOT}/src/", f"{BUILD}", "--json"]
    merge = "--merge-mode-functions=merge-use-line-min"
    subprocess.run([*gcovr, f"{report}", merge], check=True)
    return status


def uncovered(report: Path) -> Iterator[tuple[str, int, str]]:
    """Each line that could run and did not; the number of all lines comes last."""
    total = 0
    for file in json.loads(report.read_text())["files"]:
        counts: dict[int, int] = {}
        for line in file["lines"]:
            counts[line["line_number"]] = counts.get(line["line_number"], 0) + line["count"]
        total += len(counts)
        texts = (ROOT / file["file"]).read_text().splitlines()
        for number in sorted(number for number, count in counts.items() if count == 0):
            yield file["file"], number, texts[number - 1].strip()
    yield "", total, ""


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--json", type=Path, default=BUILD / "coverage.json")
    parser.add_argument("--quick", action="store_true", help="the same; the job is quick")
    parser.add_argument("command", nargs=argparse.REMAINDER, help="instead of the tests")
    options = parser.parse_args()
    build()
    tests = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider"]
    status = measure(options.command or tests, options.json)
    *lines, (_, total, _) = uncovered(options.json)
    reasons = tomllib.loads((ROOT / "tests/harden/uncovered.toml").read_text())
    unknown = 0
    for file, number, text in [] if options.command else lines:
        reason = next((why for part, why in reasons.get(file, {}).items() if part in text), None)
        unknown += reason is None
        print(f"{file}:{number}: {text}   [{reason or 'NO REASON'}]")
    percent = 100 * (total - len(lines)) / total
    print(f"figures: {percent:.2f} % of {total} lines run, {unknown} without a listed reason")
    enough = bool(options.command) or (percent >= WANTED and unknown == 0)
    return status or not enough


if __name__ == "__main__":
    sys.exit(main())
