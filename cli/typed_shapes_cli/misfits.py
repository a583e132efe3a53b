"""What is done with each kind of payload, and where a refused one does not fit.

`misfit_path` is for an `except` clause of any program; it needs nothing but the library and NumPy.
"""

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as shapes

from typed_shapes_cli.locating import (
    Coerce,
    Path,
    in_fields,
    in_graph,
    in_order,
    in_parameters,
    in_window,
    nowhere,
)
from typed_shapes_cli.outcomes import NoRecord, PathStep, format_path

__all__ = ["SHAPES", "Shape", "format_path", "misfit_path"]


@dataclass(frozen=True)
class Shape:
    """How a payload is coerced, and how the misfit in one that was refused is found.

    `coercion` takes the payload and the length of masks, and gives the call that coerces the
    payload or a part of it.
    """

    coercion: Callable[[Any, int | None], Coerce]
    locate: Callable[[Any, Coerce], Path] = nowhere


def misfit_path(kind: str, payload: Any, *, n_alloc: int | None = None) -> tuple[PathStep, ...]:
    """Where in a payload the first misfit is: keys and indexes from the outside in.

    `kind` is a name that `typed-shapes kinds` lists, and `n_alloc` the length of masks, by default
    that of the first one. The path is empty where the payload fits, or is refused as a whole.
    The time it takes grows in step with the payload.
    """
    if kind not in SHAPES:
        raise ValueError(f"{kind!r} is not a payload kind. Choose from {', '.join(SHAPES)}.")
    shape = SHAPES[kind]
    try:
        return tuple(shape.locate(payload, shape.coercion(payload, n_alloc)))
    except Exception:  # a payload's own methods may raise anything, and one error is enough
        return ()


def _plain(coerce: Coerce) -> Callable[[Any, int | None], Coerce]:
    return lambda payload, n_alloc: coerce


def _unless_none(coerce: Coerce, sentence: str) -> Callable[[Any, int | None], Coerce]:
    """Makes an error of None, with which some classes answer that the shape is not theirs."""

    def checked(payload: Any) -> Any:
        record = coerce(payload)
        if record is None:
            raise NoRecord(sentence)
        return record

    return _plain(checked)


def _masks(payload: Any, n_alloc: int | None) -> Coerce:
    if n_alloc is None:
        first = next(iter(payload.values()), None) if isinstance(payload, dict) else None
        n_alloc = first.shape[0] if isinstance(first, np.ndarray) and first.ndim else 1
    return lambda part: shapes.UniverseMasks.from_raw(part, n_alloc=n_alloc)


def _target_instruments(payload: Any) -> list[shapes.TargetInstrumentEntry]:
    if not isinstance(payload, list):
        raise NoRecord(f"target_instruments must be a list; got {type(payload).__name__}")
    from_raw = shapes.TargetInstrumentEntry.from_raw
    return [from_raw(entry, index) for index, entry in enumerate(payload)]


NO_WINDOW = "the payload is null, which declares no window"
NOT_PER_POOL = "not metaparameters per pool: every pool id must hold an object of stage options"
NO_OUTPUT = "the payload is null, which means that the function gave no aggregation output"

SHAPES = {
    "graph": Shape(_plain(shapes.coerce_graph), in_graph),
    "window": Shape(_unless_none(shapes.WindowSpec.from_raw, NO_WINDOW), in_window),
    "params": Shape(_plain(shapes.ParamSpec.coerce_specs), in_parameters),
    "checkpoint": Shape(_plain(shapes.LiveCheckpoint.from_raw), in_fields(signals={}, nodes={})),
    "evidence": Shape(_plain(shapes.Evidence.from_raw)),
    "manifest": Shape(
        _plain(shapes.CheckpointManifest.from_raw),
        in_fields(tick_timestamp=None, dag_metadata=None, canonical_id_to_filename={}),
    ),
    "metaparameters": Shape(_unless_none(shapes.Metaparameters.from_raw, NOT_PER_POOL), in_order),
    "era-index": Shape(
        _plain(shapes.EraIndexManifest.from_raw),
        in_fields(schema_version=2, bundle_kind="era_index", epochs={}),
    ),
    "target-instruments": Shape(_plain(_target_instruments), in_order),
    "stage": Shape(_plain(shapes.StageData.from_mapping)),
    "masks": Shape(_masks, in_order),
    "history": Shape(_plain(shapes.HistoryData.from_raw), in_order),
    "aggregation": Shape(_unless_none(shapes.AggregationOutput.from_raw, NO_OUTPUT), in_order),
}
