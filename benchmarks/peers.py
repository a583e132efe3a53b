"""Libraries that turn untyped payloads into typed objects, at the nearest work that they can do.

What each leaves out, next to the module:

- All of them know one spelling of a graph node: no older keys, no kind derived from "op", and a
  config that is no dict is refused, not emptied. None words its refusals as the engine expects.
- None looks into an array: no shape, rank, dtype, order or value. They see an `np.ndarray` or not.
- msgspec checks builtin types in C. Struct: no conditions across fields. A Struct's own constructor
  checks nothing, so records are converted from a dict. dataclass: the same, and the class's own
  `__init__` is not called.
- pydantic: types are checked in its core, in strict mode, so that nothing is converted (its
  default would turn "1" into 1). No conditions across fields.
- attrs with cattrs: cattrs converts what it can (`str(value)`, `dict(value)`) instead of checking;
  the checks are attrs' `instance_of` validators on the outer type of each field.
- mashumaro: generated Python that trusts the payload: a `str` field takes any value as it is.
- dacite: isinstance checks by annotation, in Python at each call; nothing is generated.
"""

from __future__ import annotations

import dataclasses
import gc
import timeit
import types
import typing
from collections import deque
from typing import Any

import attrs
import cattrs
import dacite
import msgspec
import numpy as np
import payloads
import plain
import pydantic
from mashumaro.config import BaseConfig
from mashumaro.mixins.dict import DataClassDictMixin
from quillmere.functions import _typed_shapes as native
from timing import Effort, Timer, minima

Way = tuple[str, dict[str, Any]]  # a statement that converts `raw`, and its names
Rows = dict[str, dict[str, float]]

KEPT = 50
REQUIRED: Any = object()
Text = str | None
Whole = int | None
ByName = dict[str, Any]
Arrays = dict[str, np.ndarray]

# The fields of each record: name, type, default; a type as default makes a new object.
RECORDS: dict[str, list[tuple[str, Any, Any]]] = {
    "FunctionState": [
        ("function_name", str, REQUIRED),
        ("function_version", int, REQUIRED),
        ("data", Any, REQUIRED),
    ],
    "WindowSpec": [(name, Whole, None) for name in ("minimum", "maximum", "default", "value")],
    "ParamSpec": [
        ("name", str, REQUIRED),
        ("type", Text, None),
        ("default", Any, None),
        ("minimum", Any, None),
        ("maximum", Any, None),
        ("variadic", bool, False),
        ("window", Any, None),
    ],
    "LiveCheckpoint": [("signals", dict[str, ByName], dict), ("nodes", dict[str, ByName], dict)],
    "UniverseMasks": [("by_tag", Arrays, REQUIRED), ("n_alloc", int, REQUIRED)],
    "HistoryData": [("by_feature", Arrays, REQUIRED)],
    "CostResult": [("total", np.ndarray, REQUIRED), ("breakdown", Arrays, dict)],
    "Evidence": [("data", ByName, dict)],
    "CheckpointManifest": [
        ("tick_timestamp", Any, REQUIRED),
        ("dag_metadata", Any, REQUIRED),
        ("canonical_id_to_filename", dict[str, str], REQUIRED),
        ("extras", ByName, dict),
    ],
    "Metaparameters": [("by_pool", dict[str, dict[str, str]], REQUIRED)],
    "StageData": [
        ("flat", Arrays, dict),
        ("nested", dict[str, ByName], dict),
        ("opaque", ByName, dict),
    ],
    "EraIndexManifest": [
        ("schema_version", int, REQUIRED),
        ("bundle_kind", str, REQUIRED),
        ("epochs", ByName, REQUIRED),
        ("extras", ByName, dict),
    ],
    "TargetInstrumentEntry": [("payload", ByName, REQUIRED)],
    "AggregationOutput": [("by_dotted_key", Arrays, REQUIRED)],
    "StateScalar": [("value", Any, REQUIRED)],
    "StateArray": [("data", np.ndarray, REQUIRED)],
    "StateMapping": [("entries", ByName, REQUIRED)],
    "StateSequence": [("items_", tuple[Any, ...], REQUIRED)],
}


class Struct(msgspec.Struct):
    type: str
    node: Any = None
    children: list[Struct] = msgspec.field(default_factory=list)
    config: dict[str, Any] = msgspec.field(default_factory=dict)
    canonical_id: str | None = None
    family: str | None = None
    value: Any = None
    node_identities: Any = None
    collect_nodes_cache: Any = None


@dataclasses.dataclass
class Node:
    type: str
    node: Any = None
    children: list[Node] = dataclasses.field(default_factory=list)
    config: dict[str, Any] = dataclasses.field(default_factory=dict)
    canonical_id: str | None = None
    family: str | None = None
    value: Any = None
    node_identities: Any = None
    collect_nodes_cache: Any = None


class Model(pydantic.BaseModel, strict=True):
    type: str
    node: Any = None
    children: list[Model] = []
    config: dict[str, Any] = {}
    canonical_id: str | None = None
    family: str | None = None
    value: Any = None
    node_identities: Any = None
    collect_nodes_cache: Any = None


@attrs.define(eq=False)
class Attrs:
    type: str = attrs.field(validator=attrs.validators.instance_of(str))
    node: Any = None
    children: list[Attrs] = attrs.field(factory=list, validator=attrs.validators.instance_of(list))
    config: dict[str, Any] = attrs.field(factory=dict, validator=attrs.validators.instance_of(dict))
    canonical_id: str | None = None
    family: str | None = None
    value: Any = None
    node_identities: Any = None
    collect_nodes_cache: Any = None


@dataclasses.dataclass
class Mixed(DataClassDictMixin):
    type: str
    node: Any = None
    children: list[Mixed] = dataclasses.field(default_factory=list)
    config: dict[str, Any] = dataclasses.field(default_factory=dict)
    canonical_id: str | None = None
    family: str | None = None
    value: Any = None
    node_identities: Any = None
    collect_nodes_cache: Any = None


def _checked_array(value: Any, _type: object = None) -> Any:
    if not isinstance(value, np.ndarray):
        raise TypeError("an array is needed")
    return value


CONVERTER = cattrs.Converter()
CONVERTER.register_structure_hook(np.ndarray, _checked_array)


def _ways(struct: Any, record: Any, model: Any, checked: Any, mixed: Any) -> dict[str, Way]:
    """How each library converts a payload to its target."""
    convert = {"convert": msgspec.convert}
    return {
        "msgspec Struct": ("convert(raw, Target)", {**convert, "Target": struct}),
        "msgspec dataclass": ("convert(raw, Target)", {**convert, "Target": record}),
        "pydantic": ("validate(raw)", {"validate": model.model_validate}),
        "attrs + cattrs": (
            "structure(raw, Target)",
            {"structure": CONVERTER.structure, "Target": checked},
        ),
        "mashumaro": ("from_dict(raw)", {"from_dict": mixed.from_dict}),
        "dacite": ("from_dict(Target, raw)", {"from_dict": dacite.from_dict, "Target": record}),
    }


def _record_ways(name: str) -> dict[str, Way]:
    """How each library makes this record from a dict of its fields."""
    fields = RECORDS[name]
    struct = msgspec.defstruct(name, [_struct_field(*field) for field in fields])
    record = dataclasses.make_dataclass(name, [_dataclass_field(*field) for field in fields])
    definitions: Any = {field: (kind, _model_default(default)) for field, kind, default in fields}
    model = pydantic.create_model(
        name,
        __config__=pydantic.ConfigDict(arbitrary_types_allowed=True, strict=True),
        **definitions,
    )
    checked = attrs.make_class(name, {field[0]: _attrs_field(*field) for field in fields})
    config = type("Config", (BaseConfig,), {"serialization_strategy": {np.ndarray: _PASSED_ARRAYS}})
    mixed = dataclasses.make_dataclass(
        name,
        [_dataclass_field(*field) for field in fields],
        bases=(DataClassDictMixin,),
        namespace={"Config": config},
    )
    return _ways(struct, record, model, checked, mixed)


_PASSED_ARRAYS = {"deserialize": _checked_array, "serialize": _checked_array}


def _struct_field(name: str, kind: Any, default: Any) -> Any:
    if default is REQUIRED:
        return name, kind
    made = msgspec.field(default_factory=default) if isinstance(default, type) else default
    return name, kind, made


def _dataclass_field(name: str, kind: Any, default: Any) -> Any:
    if default is REQUIRED:
        return name, kind
    if isinstance(default, type):
        return name, kind, dataclasses.field(default_factory=default)
    return name, kind, dataclasses.field(default=default)


def _model_default(default: Any) -> Any:
    if default is REQUIRED:
        return ...
    return pydantic.Field(default_factory=default) if isinstance(default, type) else default


def _attrs_field(_name: str, kind: Any, default: Any) -> Any:
    options: dict[str, Any] = {"type": kind}
    if default is not REQUIRED:
        options["factory" if isinstance(default, type) else "default"] = default
    outer = typing.get_origin(kind) or kind
    if outer is not Any:
        checked = kind if outer is types.UnionType else outer
        options["validator"] = attrs.validators.instance_of(checked)
    return attrs.field(**options)


def _row(raw: Any, ways: dict[str, Way], effort: Effort) -> dict[str, float]:
    timers = {
        who: Timer(statement, {**names, "raw": raw}, effort)
        for who, (statement, names) in ways.items()
    }
    return minima(timers, effort)


def _graph_ways() -> dict[str, Way]:
    return {
        "native": ("coerce_graph(raw)", {"coerce_graph": native.coerce_graph}),
        "plain": ("coerce_graph(raw)", {"coerce_graph": plain.coerce_graph}),
        **_ways(Struct, Node, Model, Attrs, Mixed),
    }


def kept(who: str, calls: int) -> float:
    """Seconds for a graph of 1,000 nodes while the last 50 of them stay alive.

    The mean and not the minimum: the collector comes seldom and then stays long. To be called in a
    process of its own, because its cost depends on all that is alive.
    """
    statement, names = _graph_ways()[who]
    names = {**names, "raw": payloads.graph_payload(1000)}
    made = deque((eval(statement, names) for _ in range(KEPT)), maxlen=KEPT)
    timer = timeit.Timer(
        f"kept.append({statement})", "gc.enable()", globals={**names, "gc": gc, "kept": made}
    )
    return timer.timeit(calls) / calls


def measured(effort: Effort, selected: str) -> Rows:
    """Seconds for each work and library."""
    rows = {}
    if selected in "graph, 1,000 nodes":
        rows["graph, 1,000 nodes"] = _row(payloads.graph_payload(1000), _graph_ways(), effort)
    for name in RECORDS:
        if selected in name:
            ways: dict[str, Way] = {
                "native": ("Class(**raw)", {"Class": getattr(native, name)}),
                "plain": ("Class(**raw)", {"Class": getattr(plain, name)}),
                **_record_ways(name),
            }
            rows[name] = _row(payloads.record_fields()[name], ways, effort)
    return rows
