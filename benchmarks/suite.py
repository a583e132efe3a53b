"""The same works under pyperf, with their spread: python benchmarks/suite.py -o FILE."""

from __future__ import annotations

import plain
import pyperf
from quillmere.functions import _typed_shapes as native
from works import WORKS


def main() -> None:
    runner = pyperf.Runner()
    for work in WORKS:
        for name, module in (("native", native), ("plain", plain)):
            runner.timeit(
                f"{work.name}: {name}",
                work.statement,
                globals=work.setup(module),
                inner_loops=None,
            )


if __name__ == "__main__":
    main()
