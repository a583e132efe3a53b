"""Compute stage data in batches on a Dask cluster, and compare with a single process.

    python examples/batches_on_dask.py --workers 4 --batches 32
    python examples/batches_on_dask.py --scheduler tcp://scheduler:8786

Each batch is a `StageData`, cut along T with `slice_t`; each result is an `AggregationOutput`. Both
are dataclasses, so Dask pickles them with protocol 5 and sends their arrays beside the pickle,
uncopied. A batch is an argument of its task: if a worker is lost, the scheduler still has the batch
and gives it to another one (`--lose-a-worker` shows that). The price is that batches go through the
scheduler, so only a few are under way at any time.
"""

from __future__ import annotations

import argparse
import os
import signal
import sys
import time
from collections.abc import Iterable, Iterator, Sequence
from contextlib import ExitStack
from itertools import islice
from typing import cast

import numpy as np
from distributed import Client, LocalCluster, as_completed
from distributed.protocol.serialize import serialize
from quillmere.functions._typed_shapes import AggregationOutput, StageData, states_equal

LOOKBACK = 20
UNDER_WAY = 2  # batches for each worker


# --- The work: what a function computes from stage data ---


def make_stage(rows: int, instruments: int) -> StageData:
    rng = np.random.default_rng(7)
    close = 100 * np.exp(np.cumsum(rng.normal(0, 0.01, (rows, instruments)), axis=0))
    close[rng.random(close.shape) < 0.01] = np.nan  # not traded
    return StageData.from_mapping(
        {
            "close": close,
            "volume": rng.integers(1, 10_000, (rows, instruments)).astype(np.float64),
            "universe": {"tradable": ~np.isnan(close), "name": "all"},
            "calendar": "continuous",
        }
    )


def aggregate(stage: StageData, lead: int) -> AggregationOutput:
    """The outputs of the rows after the lead, which are there to look back at."""
    close, tradable = stage.value("close"), stage.value("universe")["tradable"]
    before = np.full_like(close, np.nan)
    before[LOOKBACK:] = close[:-LOOKBACK]
    momentum = close / before - 1
    volume = np.where(tradable, stage.value("volume"), 0.0)
    outputs = {
        "momentum.change": momentum,
        "momentum.rank": momentum.argsort(axis=1, kind="stable").argsort(axis=1, kind="stable"),
        "liquidity.weight": volume / volume.sum(axis=1, keepdims=True),
    }
    # A copy: a view of the remaining rows would keep the lead alive.
    return AggregationOutput({key: array[lead:].copy() for key, array in outputs.items()})


# --- Batches ---


def cut(stage: StageData, batches: int) -> Iterator[tuple[StageData, int]]:
    """The batches in order, each with the number of rows that lead into it."""
    rows = len(stage.value("close"))
    for number in range(batches):
        start, end = rows * number // batches, rows * (number + 1) // batches
        lead = min(start, LOOKBACK)
        yield stage.slice_t(start - lead, end), lead


def join(outputs: Sequence[AggregationOutput]) -> AggregationOutput:
    return AggregationOutput(
        {key: np.concatenate([part.by_dotted_key[key] for part in outputs]) for key in outputs[0]}
    )


def computed(
    client: Client, batches: Iterable[tuple[StageData, int]], at_once: int
) -> Iterator[tuple[int, AggregationOutput]]:
    """Number and output of each batch, in the order in which they are done."""
    waiting = enumerate(batches)

    def submit(count: int) -> list[object]:
        return [
            client.submit(aggregate, batch, lead, key=("aggregate", number), pure=False)
            for number, (batch, lead) in islice(waiting, count)
        ]

    under_way = as_completed(submit(at_once))
    for future in under_way:
        yield future.key[1], future.result()
        for new in submit(1):
            under_way.add(new)


# --- The cluster ---


def kill_a_busy_worker(client: Client, pids: dict[str, int]) -> bool:
    """As the system does when memory runs out; false where no worker has anything to do."""
    # Such calls give coroutines only to a client made for asyncio, which checkers cannot see.
    for address, keys in cast(dict[str, list[str]], client.processing()).items():
        if keys:
            os.kill(pids[address], signal.SIGKILL)
            print(f"killed      worker process {pids[address]} with {len(keys)} batches on it")
            return True
    return False


def show_size(what: str, record: object) -> None:
    """The frames that Dask sends: the pickle, then the arrays."""
    pickled, *arrays = (memoryview(frame).nbytes for frame in serialize(record)[1])
    print(f"{what:12}{pickled:,} bytes of pickle, {sum(arrays):,} bytes in {len(arrays)} arrays")


def on_cluster(client: Client, stage: StageData, batches: int, lose: bool) -> AggregationOutput:
    pids = cast(dict[str, int], client.run(os.getpid))
    outputs: dict[int, AggregationOutput] = {}
    for number, output in computed(client, cut(stage, batches), UNDER_WAY * len(pids)):
        outputs[number] = output
        lose = lose and not kill_a_busy_worker(client, pids)
    if lose:
        raise RuntimeError("no worker was busy when a batch was done: take more batches")
    return join([outputs[number] for number in range(batches)])


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--workers", type=int, default=2, help="processes of a local cluster")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="use this cluster instead")
    parser.add_argument("--batches", type=int, default=16)
    parser.add_argument("--rows", type=int, default=8_000)
    parser.add_argument("--instruments", type=int, default=500)
    parser.add_argument("--lose-a-worker", action="store_true", help="kill one on the way")
    options = parser.parse_args()
    if options.scheduler and options.lose_a_worker:
        parser.error("only a worker of a local cluster can be killed")
    return options


def main() -> int:
    options = arguments()
    stage = make_stage(options.rows, options.instruments)
    with ExitStack() as stack:
        address = options.scheduler or stack.enter_context(
            LocalCluster(
                options.workers,
                threads_per_worker=1,
                # No dashboard; the pages that the scheduler serves nevertheless take a free port.
                dashboard_address="127.0.0.1:0",
                scheduler_kwargs={"dashboard": False},
            )
        )
        client = stack.enter_context(Client(address))
        start = time.perf_counter()
        joined = on_cluster(client, stage, options.batches, options.lose_a_worker)
        took = time.perf_counter() - start
    start = time.perf_counter()
    whole = aggregate(stage, 0)
    alone = time.perf_counter() - start
    batch, lead = list(cut(stage, options.batches))[-1]
    show_size("batch", batch)
    show_size("its output", aggregate(batch, lead))
    print(f"took        {took:.2f} s on the cluster, {alone:.2f} s in a single process")
    equal = states_equal(joined.by_dotted_key, whole.by_dotted_key)
    print("equal" if equal else "different")
    return 0 if equal else 1


if __name__ == "__main__":
    sys.exit(main())
