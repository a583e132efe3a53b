"""Cost against size: nodes of a graph, and bytes of masks and arrays."""

from __future__ import annotations

import dataclasses
from typing import Any

import limit
import msgspec
import numpy as np
import payloads
import plain
from peers import Struct
from quillmere.functions import _typed_shapes as native
from timing import Effort, Timer, minima

Curve = list[dict[str, float]]


def nodes(effort: Effort, largest: int) -> Curve:
    """Seconds for a node of graphs of ever more nodes."""
    curve = []
    loop = limit.make_graph()
    size = 10
    while size <= largest:
        names: dict[str, Any] = {
            "raw": payloads.graph_payload(size),
            "native": native.coerce_graph,
            "plain": plain.coerce_graph,
            "loop": loop,
            "convert": msgspec.convert,
            "Struct": Struct,
        }
        statements = {
            "native": "native(raw)",
            "plain": "plain(raw)",
            "msgspec Struct": "convert(raw, Struct)",
            "C loop": "loop(raw)",
        }
        few = dataclasses.replace(effort, rounds=3) if size > 10_000 else effort
        taken = minima({who: Timer(code, names, few) for who, code in statements.items()}, few)
        curve.append({"size": size, **{who: seconds / size for who, seconds in taken.items()}})
        size *= 10
    return curve


def throughput(effort: Effort, largest: int) -> Curve:
    """Bytes a second of the mask check and of array equality, and of one pass over the same memory.

    The pass over a mask is an OR of its 64-bit words; the passes over two arrays are a memcmp of
    the same bytes, and a NumPy comparison that knows nothing of NaN.
    """
    curve = []
    size = 1 << 12
    while size <= largest:
        mask = payloads.mask(size // 2)
        a, b = payloads.array(size // 8), payloads.array(size // 8)
        numbers = np.arange(size // 8, dtype=np.float64)
        names: dict[str, Any] = {
            "UniverseMasks": native.UniverseMasks,
            "by_tag": {"tradable": mask},
            "n": size // 2,
            "words": mask.view(np.uint64),
            "union": np.bitwise_or.reduce,
            "states_equal": native.states_equal,
            "array_equal": np.array_equal,
            "a": a,
            "b": b,
            "c": numbers,
            "d": numbers.copy(),
            "a_bytes": a.tobytes(),
            "b_bytes": b.tobytes(),
        }
        statements = {
            "mask check": "UniverseMasks(by_tag, n)",
            "mask, one pass": "union(words)",
            "array equality": "states_equal(a, b)",
            "arrays, memcmp": "a_bytes == b_bytes",
            "arrays, np.array_equal": "array_equal(c, d)",
        }
        taken = minima(
            {what: Timer(code, names, effort) for what, code in statements.items()}, effort
        )
        read = {what: size if what.startswith("mask") else 2 * size for what in statements}
        curve.append(
            {"size": size, **{what: read[what] / seconds for what, seconds in taken.items()}}
        )
        size *= 2
    return curve
