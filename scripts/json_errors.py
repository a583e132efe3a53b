"""Find what plain JSON raises besides SchemaError, and keep the table of docs/records/errors.md.

    python scripts/json_errors.py            # print the table
    python scripts/json_errors.py --write    # put it into the page

Each entry point has a payload that fits. Every part of it, and the whole, is replaced by each of
VALUES, and what is raised is noted by place and class. That leaves out depth, so every entry point
also gets a payload that is deeper than any recursion limit.
"""

from __future__ import annotations

import json
import re
import sys
from collections import defaultdict
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any, TypeAlias

from quillmere.functions import _typed_shapes as ts

PAGE = Path(__file__).resolve().parent.parent / "docs" / "records" / "errors.md"
TABLE = re.compile(r"(?<=<!-- by scripts/json_errors.py -->\n).*?(?=<!-- end -->)", re.DOTALL)
HEAD = "| raised | by | JSON there, for example |\n|---|---|---|\n"

VALUES = r"""
null true false 0 1 -5 2.5 1e999 NaN "" "a" "ab" "carry" [] [1] ["a"] ["ab"] [[]] [["a",1]] [[[],1]]
[{}] [{"name":"a"}] {} {"a":1} {"a":{}} {"name":""}
"""
TOO_DEEP = "too many levels"
DEEP = 20_000  # CPython 3.13 allows 10,000 levels of native code

Fitting: TypeAlias = dict[str, Any] | None
NODE = {"type": "rotation", "op": "rank", "node": "rank", "name": "a", "function_name": "a"}
NODE |= {"canonical_id": "a", "family": "a", "value": "a"}
NODE |= {"config": {"a": 1}, "params": {"a": 1}}  # type: ignore[dict-item]
WINDOW = {"min": 1, "max": 2, "default": 1, "value": 1}
PARAM = {"type": "int", "variadic": False} | WINDOW
MANIFEST = {"tick_timestamp": 0, "dag_metadata": {}, "canonical_id_to_filename": {"a": "a"}, "b": 1}
ERAS = {"schema_version": 2, "bundle_kind": "era_index", "epochs": {"a": 1}, "b": 1}


def restored(raw: Any) -> object:
    return ts.validate_function_state(raw, expected_name="a", expected_version=1)


# A payload that fits has every key that is looked at, in a graph also as a child has them.
ENTRY_POINTS: dict[str, tuple[Callable[[Any], object], Fitting]] = {
    "FunctionGraphNode.from_raw": (
        ts.FunctionGraphNode.from_raw,
        NODE | {"children": [NODE], "args": [NODE]},
    ),
    "WindowSpec.from_raw": (ts.WindowSpec.from_raw, WINDOW),
    "ParamSpec.from_raw": (lambda raw: ts.ParamSpec.from_raw("window", raw), PARAM),
    "ParamSpec.from_mapping": (ts.ParamSpec.from_mapping, {"a": PARAM, "window": WINDOW}),
    "ParamSpec.coerce_specs": (ts.ParamSpec.coerce_specs, {"a": PARAM, "window": WINDOW}),
    "LiveCheckpoint.from_raw": (ts.LiveCheckpoint.from_raw, {"signals": {}, "nodes": {}}),
    "UniverseMasks.from_raw": (lambda raw: ts.UniverseMasks.from_raw(raw, n_alloc=1), {}),
    "HistoryData.from_raw": (ts.HistoryData.from_raw, {}),
    "CostResult.from_raw": (ts.CostResult.from_raw, None),
    "Evidence.from_raw": (ts.Evidence.from_raw, {"a": 1}),
    "CheckpointManifest.from_raw": (ts.CheckpointManifest.from_raw, MANIFEST),
    "Metaparameters.from_raw": (ts.Metaparameters.from_raw, {"a": {"a": "a"}}),
    "StageData.from_mapping": (ts.StageData.from_mapping, {"a": {"a": 1}, "b": 1}),
    "StageData.from_optional_mapping": (ts.StageData.from_optional_mapping, {"a": {"a": 1}}),
    "StageData.from_raw": (ts.StageData.from_raw, None),
    "EraIndexManifest.from_raw": (ts.EraIndexManifest.from_raw, ERAS),
    "TargetInstrumentEntry.from_raw": (
        lambda raw: ts.TargetInstrumentEntry.from_raw(raw, 0),
        {"a": 1},
    ),
    "AggregationOutput.from_raw": (ts.AggregationOutput.from_raw, {}),
    "coerce_state": (ts.coerce_state, {"a": [1]}),
    "states_equal": (lambda raw: ts.states_equal(raw, raw), {"a": [1]}),
    "validate_function_state": (restored, None),
}


def entry_points_left_out() -> set[str]:
    """The class methods of exported classes that ENTRY_POINTS lacks."""
    classes = [value for name in ts.__all__ if isinstance(value := getattr(ts, name), type)]
    return {
        f"{owner.__name__}.{name}"
        for owner in classes
        for name, value in vars(owner).items()
        if isinstance(value, classmethod)
    } - ENTRY_POINTS.keys()


def variants(payload: Any, value: Any, place: str = "the payload") -> Iterator[tuple[str, Any]]:
    """The payload with each of its parts replaced in turn, and the place where that was done."""
    yield place, value
    if isinstance(payload, dict):
        for key, part in payload.items():
            for where, changed in variants(part, value, f"`{key}`"):
                yield where, payload | {key: changed}
    elif isinstance(payload, list):
        for index, part in enumerate(payload):
            inside = "the payload" if part is NODE else place
            for where, changed in variants(part, value, inside):
                yield where, [*payload[:index], changed, *payload[index + 1 :]]


def raised(call: Callable[[Any], object], payload: Any) -> str | None:
    """The class of what is raised; whatever it is, this script is to find it."""
    try:
        call(payload)
    except Exception as error:
        return type(error).__name__
    return None


def findings() -> Iterator[tuple[str, str, str, str]]:
    """For whatever is no SchemaError: the entry point, its class, the place, and the JSON there."""
    node: dict[str, Any] = {"op": "a"}
    nested: list[Any] = []
    for _ in range(DEEP):
        node, nested = {"op": "a", "args": [node]}, [nested]
    if left_out := entry_points_left_out():
        raise LookupError(f"ENTRY_POINTS lacks {left_out}")
    for name, (call, fitting) in ENTRY_POINTS.items():
        for text in VALUES.split():
            for place, payload in variants(fitting, json.loads(text)):
                if (error := raised(call, payload)) not in (None, "SchemaError"):
                    yield name, str(error), place, text
        for deep in (node, nested):
            if (error := raised(call, deep)) not in (None, "SchemaError"):
                yield name, str(error), "the payload", TOO_DEEP


def examples(texts: list[str]) -> str:
    """The first text of each kind of JSON value."""
    first: dict[type, str] = {}
    for text in texts:
        if text != TOO_DEEP:
            first.setdefault(type(json.loads(text)), text)
    return ", ".join(f"`{text}`" for text in first.values()) or TOO_DEEP


def table() -> str:
    found: dict[tuple[str, str], dict[str, list[str]]] = defaultdict(lambda: defaultdict(list))
    for name, error, place, text in findings():
        found[name, error][place].append(text)
    rows: dict[tuple[str, str, str], list[str]] = defaultdict(list)
    for (name, error), places in found.items():
        for place, texts in places.items():
            rows[name, examples(texts), error].append(place)
    return HEAD + "".join(
        f"| `{error}` | `{name}`: {', '.join(places)} | {texts} |\n"
        for (name, texts, error), places in rows.items()
    )


def main() -> None:
    if "--write" in sys.argv[1:]:
        PAGE.write_text(TABLE.sub(lambda _: table(), PAGE.read_text()))
    else:
        sys.stdout.write(table())


if __name__ == "__main__":
    main()
