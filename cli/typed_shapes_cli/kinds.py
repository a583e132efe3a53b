"""The table of payload kinds: how each is coerced, located in, taken from arrays and shown."""

from collections.abc import Callable, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as shapes
from rich.console import RenderableType

from typed_shapes_cli import rendering
from typed_shapes_cli.loading import Document, nest_by_slash
from typed_shapes_cli.locating import (
    in_fields,
    in_graph,
    in_order,
    in_parameters,
    in_window,
    nowhere,
)
from typed_shapes_cli.outcomes import TOO_DEEP, InputError, Misfit, PathStep


@dataclass(frozen=True)
class Options:
    """What the command line may say about the payloads beyond their kind."""

    max_bytes: int
    n_alloc: int | None = None
    lines: bool = False


@dataclass(frozen=True)
class Kind:
    """One kind of payload.

    `render` takes the record and how many of its entries to show at most, `locate` finds the
    misfit in a payload that was refused, and `from_arrays` is set where an .npz may hold it.
    """

    name: str
    about: str
    coerce: Callable[[Any, Options], Any]
    render: Callable[[Any, int], RenderableType] = rendering.record
    locate: Callable[[Any, Callable[[Any], Any]], Sequence[PathStep]] = nowhere
    from_arrays: Callable[[dict[str, Any]], Any] | None = None

    @property
    def files(self) -> str:
        """The files that may hold a payload; a dict of arrays cannot come from JSON."""
        if self.from_arrays is None:
            return "JSON"
        return ".npz" if self.from_arrays is dict else "JSON, .npz"

    def load(self, document: Document) -> Any:
        """Reads the payload of a document."""
        if not document.arrays:
            return document.payload()
        if self.from_arrays is None:
            takers = ", ".join(kind.name for kind in KINDS.values() if kind.from_arrays)
            raise InputError(
                f"holds arrays, but a payload of kind {self.name} is JSON; arrays are for {takers}"
            )
        return self.from_arrays(document.payload())

    def typed(self, payload: Any, options: Options) -> Any:
        """Coerces a payload; raises Misfit with the library's own text where it does not fit."""

        def coerce(part: Any) -> Any:
            return self.coerce(part, options)

        try:
            return coerce(payload)
        except RecursionError:
            raise Misfit(TOO_DEEP) from None
        except (ValueError, TypeError) as error:
            raise Misfit(str(error), self.locate(payload, coerce)) from error


def _unless_none(coerce: Callable[[Any], Any], sentence: str) -> Callable[[Any, Options], Any]:
    """Makes a misfit of None, with which some classes answer that the shape is not theirs."""

    def checked(payload: Any, options: Options) -> Any:
        record = coerce(payload)
        if record is None:
            raise ValueError(sentence)
        return record

    return checked


def _plain(coerce: Callable[[Any], Any]) -> Callable[[Any, Options], Any]:
    return lambda payload, options: coerce(payload)


def _masks(payload: Any, options: Options) -> shapes.UniverseMasks:
    n_alloc = options.n_alloc
    if n_alloc is None:
        first = next(iter(payload.values()), None) if isinstance(payload, dict) else None
        n_alloc = first.shape[0] if isinstance(first, np.ndarray) and first.ndim else 1
    return shapes.UniverseMasks.from_raw(payload, n_alloc=n_alloc)


def _target_instruments(payload: Any, options: Options) -> list[shapes.TargetInstrumentEntry]:
    if not isinstance(payload, list):
        raise TypeError(f"target_instruments must be a list; got {type(payload).__name__}")
    from_raw = shapes.TargetInstrumentEntry.from_raw
    return [from_raw(entry, index) for index, entry in enumerate(payload)]


NO_WINDOW = "the payload is null, which declares no window"
NOT_PER_POOL = "not metaparameters per pool: every pool id must hold an object of stage options"
NO_OUTPUT = "the payload is null, which means that the function gave no aggregation output"

KINDS = {
    kind.name: kind
    for kind in (
        Kind(
            "graph",
            "a function graph: nodes with type, children and config",
            _plain(shapes.coerce_graph),
            rendering.graph,
            in_graph,
        ),
        Kind(
            "window",
            "the window parameter of a rotation",
            _unless_none(shapes.WindowSpec.from_raw, NO_WINDOW),
            rendering.window,
            in_window,
        ),
        Kind(
            "params",
            "parameter declarations by name",
            _plain(shapes.ParamSpec.coerce_specs),
            rendering.parameters,
            in_parameters,
        ),
        Kind(
            "checkpoint",
            "a live evaluation's state by signal and by node",
            _plain(shapes.LiveCheckpoint.from_raw),
            locate=in_fields(signals={}, nodes={}),
        ),
        Kind("evidence", "the evidence of one check", _plain(shapes.Evidence.from_raw)),
        Kind(
            "manifest",
            "the manifest of a checkpoint",
            _plain(shapes.CheckpointManifest.from_raw),
            locate=in_fields(tick_timestamp=None, dag_metadata=None, canonical_id_to_filename={}),
        ),
        Kind(
            "metaparameters",
            "stage options per pool",
            _unless_none(shapes.Metaparameters.from_raw, NOT_PER_POOL),
            locate=in_order,
        ),
        Kind(
            "era-index",
            "the manifest of an output bundle's eras",
            _plain(shapes.EraIndexManifest.from_raw),
            locate=in_fields(schema_version=2, bundle_kind="era_index", epochs={}),
        ),
        Kind(
            "target-instruments",
            "a list of target instruments",
            _target_instruments,
            locate=in_order,
        ),
        Kind(
            "stage",
            "the stage data of a batch",
            _plain(shapes.StageData.from_mapping),
            from_arrays=nest_by_slash,
        ),
        Kind("masks", "the universe masks of one tick", _masks, locate=in_order, from_arrays=dict),
        Kind(
            "history",
            "float64 arrays (T, N) by feature",
            _plain(shapes.HistoryData.from_raw),
            locate=in_order,
            from_arrays=dict,
        ),
        Kind(
            "aggregation",
            "arrays (T, n_alloc) by plugin.output",
            _unless_none(shapes.AggregationOutput.from_raw, NO_OUTPUT),
            locate=in_order,
            from_arrays=dict,
        ),
    )
}
