"""Plant small faults in a copy of the committed sources and print those that the suite misses.

A mutant counts as killed when a test fails, crashes or does not end. What compiles to the same
object code as before is no mutant. The seed chooses the sample, as many in a file as it has lines.
"""

from __future__ import annotations

import argparse
import contextlib
import hashlib
import io
import os
import random
import shutil
import subprocess
import sys
from collections import Counter
from pathlib import Path

from build_folder import BIN, configure
from universalmutator.mutator import mutants_regexp

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutants"
TREE, BUILD, SITE = WORK / "tree", WORK / "cmake", WORK / "site"
RULES = ["universal.rules", "c_like.rules", "cpp.rules"]
# Comments, declarations, and the texts of documentation.
PASSED_OVER = [r"^\s*//", r"^#", r"^\s*\"", r"^using|^namespace|static_assert|\[\[noreturn\]\]"]
TIMEOUT = 400

Mutant = tuple[Path, int, str]  # a file, a line of it, and what stands there instead


def copy_sources() -> None:
    shutil.rmtree(TREE, ignore_errors=True)
    TREE.mkdir(parents=True)
    archive = subprocess.run(["git", "archive", "HEAD"], cwd=ROOT, check=True, capture_output=True)
    subprocess.run(["tar", "-x", "-C", f"{TREE}"], input=archive.stdout, check=True)
    configure(TREE, BUILD, CMAKE_CXX_FLAGS="-O1 -g0", CMAKE_INSTALL_PREFIX=SITE)


def build() -> str:
    """A digest of the module that the sources make now; empty where they do not compile."""
    command = [f"{BIN}/cmake", "--build", f"{BUILD}", "--target", "install"]
    if subprocess.run(command, capture_output=True).returncode != 0:
        return ""
    (module,) = SITE.glob("quillmere/functions/*.so")
    return hashlib.sha256(module.read_bytes()).hexdigest()


def suite_passes() -> bool:
    command = [sys.executable, "-m", "pytest", "-x", "-q", "-p", "no:cacheprovider"]
    command += [f"--ignore=tests/test_{name}.py" for name in ("cli", "dask", "drawing")]
    environment = {**os.environ, "PYTHONPATH": f"{SITE}:{TREE / 'cli'}:{TREE / 'tests'}"}
    with contextlib.suppress(subprocess.TimeoutExpired):
        done = subprocess.run(
            command, cwd=TREE, env=environment, capture_output=True, timeout=TIMEOUT
        )
        return done.returncode == 0
    return False


def all_mutants() -> list[Mutant]:
    """Every mutant of every file, each line once, in an order of the generator's choice."""
    found: list[Mutant] = []
    for path in sorted((TREE / "src").glob("*/*.*")):
        lines = path.read_text().splitlines(keepends=True)
        with contextlib.redirect_stdout(io.StringIO()):  # it tells what it does
            made = mutants_regexp(lines, ruleFiles=RULES, ignorePatterns=PASSED_OVER)
        by_line: dict[int, list[str]] = {}
        for number, text, *_ in made:
            by_line.setdefault(number, []).append(text)
        found += [(path, number, random.choice(texts)) for number, texts in by_line.items()]
    random.shuffle(found)
    return found


def outcome(mutant: Mutant, unchanged: str) -> str:
    path, number, text = mutant
    before = path.read_text()
    lines = before.splitlines(keepends=True)
    lines[number - 1] = text
    path.write_text("".join(lines))
    try:
        digest = build()
        if digest in ("", unchanged):
            return "no mutant"
        return "survived" if suite_passes() else "killed"
    finally:
        path.write_text(before)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--count", type=int, default=60, help="how many mutants to try")
    parser.add_argument("--seed", type=int, default=1, help="which ones")
    options = parser.parse_args()
    random.seed(options.seed)
    copy_sources()
    unchanged = build()
    if not unchanged or not suite_passes():
        print("the sources as they are must build and pass first")
        return 2
    seen: Counter[str] = Counter()
    for mutant in all_mutants():
        if seen["killed"] + seen["survived"] == options.count:
            break
        result = outcome(mutant, unchanged)
        seen[result] += 1
        if result == "survived":
            path, number, text = mutant
            was = path.read_text().splitlines()[number - 1].strip()
            print(f"{path.relative_to(TREE)}:{number}: {was}\n  survived as: {text.strip()}")
    tried = seen["killed"] + seen["survived"]
    print(f"figures: {seen['killed']} of {tried} mutants killed, seed {options.seed}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
