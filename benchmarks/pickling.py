"""What it costs to send a record: protocol 5, with the arrays out of band.

Each record is made three times from the same fields: by the module, as a plain dataclass, and as a
dict of the fields. Prints a table; the times are the least of many short rounds in turn, since what
else the machine does only ever adds to them.
"""

from __future__ import annotations

import dataclasses
import pickle
from typing import Any

import numpy as np
import payloads
import plain
from quillmere.functions import _typed_shapes as native
from timing import Effort, Timer, in_turn

EFFORT = Effort(rounds=150, seconds=0.001)
VERSIONS = ("native", "plain", "dict")
NODES = 1_000
SMALL = ("WindowSpec", "ParamSpec", "StageData", "AggregationOutput")


def batch_fields() -> dict[str, Any]:
    """A batch such as the one in examples/batches_on_dask.py: three arrays, 4.4 MB."""
    close = np.zeros((520, 500))
    return {
        "flat": {"close": close, "volume": close.copy()},
        "nested": {"universe": {"tradable": close > 0, "name": "all"}},
        "opaque": {"calendar": "continuous"},
    }


def versions(name: str, fields: dict[str, Any]) -> dict[str, Any]:
    made = [getattr(module, name)(**fields) for module in (native, plain)]
    return dict(zip(VERSIONS, [*made, fields], strict=True))


def records() -> dict[str, dict[str, Any]]:
    usual = payloads.record_fields()
    payload = payloads.graph_payload(NODES)
    graphs = [module.coerce_graph(payload) for module in (native, plain)]
    trees = [*graphs, dataclasses.asdict(graphs[0])]
    return {
        "StageData, 4.4 MB": versions("StageData", batch_fields()),
        **{name: versions(name, usual[name]) for name in SMALL},
        f"graph, {NODES:,} nodes": dict(zip(VERSIONS, trees, strict=True)),
    }


def measured(record: Any) -> tuple[int, int, dict[str, Timer]]:
    """Bytes in the pickle, bytes beside it, and the timers of both ways."""
    buffers: list[pickle.PickleBuffer] = []
    pickled = pickle.dumps(record, 5, buffer_callback=buffers.append)
    names = {"pickle": pickle, "record": record, "pickled": pickled, "buffers": buffers}
    timers = {
        "dumps": Timer("pickle.dumps(record, 5, buffer_callback=[].append)", names, EFFORT),
        "loads": Timer("pickle.loads(pickled, buffers=buffers)", names, EFFORT),
    }
    return len(pickled), sum(memoryview(buffer).nbytes for buffer in buffers), timers


def least(timers: dict[str, Timer]) -> str:
    rounds = in_turn(timers, EFFORT)
    return " / ".join(f"{1e6 * min(rounds[who]):,.1f}" for who in VERSIONS)


def main() -> None:
    print("| record | bytes beside the pickle | pickle, bytes | dumps, µs | loads, µs |")
    print("|---|---:|---:|---:|---:|")
    for name, records_of in records().items():
        results = {who: measured(record) for who, record in records_of.items()}
        sizes = " / ".join(f"{results[who][0]:,}" for who in VERSIONS)
        times = [
            least({who: timers[way] for who, (_, _, timers) in results.items()})
            for way in ("dumps", "loads")
        ]
        print(f"| {name} | {results['native'][1]:,} | {sizes} | {' | '.join(times)} |")
    print(f"\nEach cell: {', '.join(VERSIONS)}.")


if __name__ == "__main__":
    main()
