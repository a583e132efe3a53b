"""Calls made from bytes, for atheris: fuzz_bytes.sh builds the module for it and runs this.

A file is one call after the other: a byte for which, and the choices in making it.
"""

import random
import sys

from generators import GENERATORS
from support import agree

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
        sources = Bytes(data[1:]), Bytes(data[1:])
        waiting = iter(sources)
        agree(CALLS[data[0] % len(CALLS)], lambda: next(waiting), "the same file")
        data = data[1 + sources[0].at :]


if __name__ == "__main__":
    import atheris

    myself = f"{sys.executable} {sys.argv[0]}"  # a merge starts it again, through the shell
    atheris.Setup([myself, *sys.argv[1:]], run_one)
    atheris.Fuzz()
