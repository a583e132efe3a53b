"""The table of payload kinds: what each is, how it is taken from arrays and shown."""

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from rich.console import RenderableType

from typed_shapes_cli import rendering
from typed_shapes_cli.life import Life
from typed_shapes_cli.loading import NO_LIFE, Document, nest_by_slash
from typed_shapes_cli.misfits import SHAPES
from typed_shapes_cli.outcomes import TOO_DEEP, InputError, Misfit, NoRecord


@dataclass(frozen=True)
class Options:
    """What the command line may say about the payloads beyond their kind."""

    max_bytes: int
    n_alloc: int | None = None
    lines: bool = False
    strict: bool = False
    life: Life = NO_LIFE


@dataclass(frozen=True)
class Kind:
    """One kind of payload.

    `render` takes the record and how many of its entries to show at most, and `from_arrays` is
    set where an .npz may hold the payload. How it is coerced stands in `SHAPES`.
    """

    name: str
    about: str
    render: Callable[[Any, int], RenderableType] = rendering.record
    from_arrays: Callable[[dict[str, Any]], Any] | None = None

    @property
    def files(self) -> str:
        """The files that may hold a payload; a dict of arrays cannot come from JSON."""
        if self.from_arrays is None:
            return "JSON"
        return ".npz" if self.from_arrays is dict else "JSON, .npz"

    def load(self, document: Document, options: Options) -> tuple[Any, str]:
        """Reads the payload of a document, and its text where that is looked into as well."""
        if not document.arrays:
            return document.payload_and_text() if options.strict else (document.payload(), "")
        if self.from_arrays is None:
            takers = ", ".join(kind.name for kind in KINDS.values() if kind.from_arrays)
            raise InputError(
                f"holds arrays, but a payload of kind {self.name} is JSON; arrays are for {takers}"
            )
        return self.from_arrays(document.payload()), ""

    def typed(self, payload: Any, options: Options) -> Any:
        """Coerces a payload; raises Misfit with the library's own text where it does not fit."""

        shape = SHAPES[self.name]
        coerce = shape.coercion(payload, options.n_alloc)
        try:
            return coerce(payload)
        except RecursionError:
            raise InputError(TOO_DEEP) from None
        except (ValueError, TypeError) as error:
            raised = None if isinstance(error, NoRecord) else type(error).__name__
            raise Misfit(str(error), raised, shape.locate(payload, coerce)) from error


KINDS = {
    kind.name: kind
    for kind in (
        Kind("graph", "a function graph: nodes with type, children and config", rendering.graph),
        Kind("window", "the window parameter of a rotation", rendering.window),
        Kind("params", "parameter declarations by name", rendering.parameters),
        Kind("checkpoint", "a live evaluation's state by signal and by node"),
        Kind("evidence", "the evidence of one check"),
        Kind("manifest", "the manifest of a checkpoint"),
        Kind("metaparameters", "stage options per pool"),
        Kind("era-index", "the manifest of an output bundle's eras"),
        Kind("target-instruments", "a list of target instruments"),
        Kind("stage", "the stage data of a batch", from_arrays=nest_by_slash),
        Kind("masks", "the universe masks of one tick", from_arrays=dict),
        Kind("history", "float64 arrays (T, N) by feature", from_arrays=dict),
        Kind("aggregation", "arrays (T, n_alloc) by plugin.output", from_arrays=dict),
    )
}
