"""Run clang-tidy, on all cores, over the C++ sources that have changed since they last passed.

A source counts as changed when any byte of it, of a header that it includes or of the rules is
another, or when it is compiled otherwise or looked at by another clang-tidy. --all forgets that.
"""

from __future__ import annotations

import argparse
import hashlib
import json
import os
import platform
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from importlib.metadata import version
from pathlib import Path

from build_folder import BIN, configure

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "tidy"
PASSED = BUILD / "passed"  # a file for each source, with the digest of what passed
INCLUDE = re.compile(rb'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def read_with(source: Path) -> list[Path]:
    """The source and the project's headers that it includes, at any depth."""
    files = [source]
    for file in files:
        for name in map(os.fsdecode, INCLUDE.findall(file.read_bytes())):
            here = (file.parent / name, ROOT / "src" / name)
            files += [path for path in here if path.is_file() and path not in files]
    return files


def digests() -> dict[Path, str]:
    """For every source of the build, a digest of all that the verdict on it depends on."""
    common = [platform.python_version(), version("numpy"), version("clang-tidy")]
    common.append((ROOT / ".clang-tidy").read_text())
    found = {}
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        source = Path(entry["file"])
        digest = hashlib.sha256("\0".join([*common, entry["command"]]).encode())
        for file in read_with(source):
            digest.update(b"\0%b\0" % os.fsencode(file) + file.read_bytes())
        found[source] = digest.hexdigest()
    return found


def tidy(source: Path, digest: str) -> subprocess.CompletedProcess[str]:
    command = [f"{BIN}/clang-tidy", "-p", f"{BUILD}", "--quiet", f"{source}"]
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode == 0:
        (PASSED / source.name).write_text(digest)  # at once: an interrupted run counts as well
    return done


def passed(source: Path, digest: str) -> bool:
    mark = PASSED / source.name
    return mark.exists() and mark.read_text() == digest


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--all", action="store_true", help="those that did not change as well")
    everything = parser.parse_args().all
    # A folder of its own: clang does not know the release build's options of GCC.
    configure(ROOT, BUILD)
    PASSED.mkdir(exist_ok=True)
    known = digests()
    changed = {s: d for s, d in sorted(known.items()) if everything or not passed(s, d)}
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(tidy, changed, changed.values()))
    failed = [result for result in results if result.returncode != 0]
    for result in failed:
        print(result.stdout or result.stderr, end="")
    print(f"clang-tidy: {len(changed)} of {len(known)} files, {len(failed)} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
