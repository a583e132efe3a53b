"""Calls made from bytes that atheris evolves by the coverage of the C++, under AddressSanitizer:
`fuzz_bytes [--quick | --seconds N] [input ...]`; a file that is named is run once, alone.

To renew the corpus: `scripts/atheris.sh harden.fuzz_bytes -merge=1 <new folder> build/found`.
"""

from __future__ import annotations

import argparse
import os
import random
import re
import subprocess
import sys
from pathlib import Path
from typing import Any

from generators import GENERATORS
from support import agree

ROOT = Path(__file__).resolve().parents[2]
CALLS = [*GENERATORS.values()] + [*GENERATORS.values()][:3] * 16  # as often as all records


class Bytes(random.Random):
    """Choices read from bytes; behind their end come zeros, which make the smallest things."""

    def __init__(self, data: bytes) -> None:
        super().__init__(0)
        self.data, self.at = data, 0

    def randbytes(self, n: int) -> bytes:
        self.at += n
        return self.data[self.at - n : self.at].ljust(n, b"\0")

    def getrandbits(self, k: int) -> int:
        return int.from_bytes(self.randbytes((k + 7) // 8), "little") & ((1 << k) - 1)

    def random(self) -> float:
        return 1 - (self.getrandbits(8) + 1) / 257

    def _randbelow(self, n: int) -> int:  # one byte a choice: one that changes moves no other
        return self.getrandbits(n.bit_length() + 7 & ~7) % n


def run_one(data: bytes) -> None:
    while data:
        sources: list[Any] = []
        source = lambda: sources.append(Bytes(data[1:])) or sources[-1]  # noqa: E731
        agree(CALLS[data[0] % len(CALLS)], source, "the same file")
        data = data[1 + sources[-1].at :]


def main() -> int:
    if "asan_with_fuzzer" in os.environ.get("LD_PRELOAD", ""):
        import atheris

        atheris.Setup(sys.argv, run_one)
        atheris.Fuzz()
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_const", dest="seconds", const=20, default=600)
    parser.add_argument("--seconds", type=int)
    parser.add_argument("inputs", nargs="*", default=["build/found", "tests/harden/corpus"])
    options = parser.parse_args()
    (ROOT / "build/found").mkdir(parents=True, exist_ok=True)
    settings = ["-max_len=500", "-len_control=0", f"-max_total_time={options.seconds}"]
    command = ["scripts/atheris.sh", "harden.fuzz_bytes", *settings, *options.inputs]
    ended = subprocess.run(command, cwd=ROOT, capture_output=True, text=True, errors="replace")
    text = ended.stdout + ended.stderr
    print(
        *re.findall(r"INFO: Seed.*|#\d+\s+DONE.*|Executed.*", text), text[-5000:] * ended.returncode
    )
    points = re.findall(r"(\d+) PCs", text)[-1]
    runs, covered = (re.findall(r"#(\d+)\s.*cov: (\d+)", text) or [(len(options.inputs), "?")])[-1]
    print(f"figures: {runs} runs, {covered} of {points} edges, exit status {ended.returncode}")
    return ended.returncode


if __name__ == "__main__":
    sys.exit(main())
