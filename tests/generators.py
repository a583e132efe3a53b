"""Calls made by a source of choices: payloads that fit, that nearly fit, that only look as if.

A generator takes the source, and gives a function and its arguments. `agree` in support.py sends
what it gives down both paths. The last of them have parts that call back and do harm.
"""

import copy
import dataclasses
import math
import pickle
import random
import struct
from collections import OrderedDict
from collections.abc import Callable
from decimal import Decimal
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
from harm import infested
from hostile import hostile_class
from parts import *
from quillmere.functions import _typed_shapes as ts
from support import *

# --- States ---


class States:
    """Makes states of bounded size; parts of one may occur in it again."""

    def __init__(self, rng: random.Random, oddness: float) -> None:
        self.rng, self.oddness = rng, oddness
        self.made: list[Any] = []

    def make(self, depth: int) -> Any:
        rng = self.rng
        if self.made and rng.random() < 0.05:
            return rng.choice(self.made)
        state = odd(rng) if rng.random() < self.oddness else self.even(depth)
        if not self.oddness and rng.random() < 0.05:
            state = ts.coerce_state(state)
        self.made.append(state)
        return state

    def even(self, depth: int) -> Any:
        rng = self.rng
        kind = rng.randrange(6 if depth else 3)
        if kind < 2:
            return random_scalar(rng, self.oddness)
        if kind == 2:
            return random_array(rng)
        if rng.randrange(64) == 1:
            state = self.even(0)  # a chain, with no other at its end
            for _ in range(rng.randrange(99)):
                state = rng.choice([[state], (state,), {"a": state}])
            return state
        children = [self.make(depth - 1) for _ in range(rng.randrange(4))]
        if kind == 3:
            return children
        if kind == 4:
            return tuple(children)
        return {random_key(rng, self.oddness): child for child in children}


def twin(value: Any) -> Any:
    """An equal state of other objects, as far down as there are builtin ones."""
    if type(value) in (list, tuple):
        return type(value)(map(twin, value))
    if type(value) is dict:
        return {key: twin(item) for key, item in value.items()}
    if type(value) is float:
        return float.fromhex(value.hex())
    return value.copy() if type(value) is np.ndarray else value


def spoil(rng: random.Random, state: Any) -> None:
    """Change one thing somewhere inside."""
    while type(state) in (list, dict) and state:
        place = rng.choice([*state] if type(state) is dict else range(len(state)))
        inner = state[place]
        if type(inner) is np.ndarray:
            state[place] = change_one(rng, inner)
        elif type(inner) not in (list, dict) or rng.random() < 0.2:
            state[place] = random_scalar(rng, 0.0)
        state = inner if state[place] is inner else None


COMPARISONS = functions("a, b", """
    states_equal(a, b); states_equal(a, b); _states_value_equal(a, b);
    _states_value_equal(coerce_state(a), coerce_state(b))""")  # fmt: skip


def states(rng: random.Random) -> Any:
    make = States(rng, rng.choice((0.0, 0.0, 0.05, 0.2))).make
    a = make(3)
    if rng.random() < 0.2:
        return ts.coerce_state, a
    draw = rng.random()
    b = make(3) if draw < 0.2 else a if draw < 0.25 else twin(a)
    if draw > 0.6:
        spoil(rng, b)
    return rng.choice(COMPARISONS), a, b


# --- Graphs ---

GRAPH_KEYS = """type op node name function_name children args config params canonical_id family
value other""".split()
STARTS = [("type",)] * 3 + [("op",)] * 3 + [("type", "op"), ()]
KINDS = ["feature", "filtration", "expression", "rotation", "zscore", "\ud800", "signal", ""]


class Graphs(States):
    def make(self, depth: int) -> Any:
        rng, payload = self.rng, {}
        if self.made and rng.random() < 0.05:
            return rng.choice(self.made)
        if rng.randrange(64) == 1:
            for _ in range(rng.randrange(99)):
                payload = {"op": "x", "children": [payload] * bool(payload)}
            return payload
        for key in (*rng.choice(STARTS), *rng.sample(GRAPH_KEYS, rng.randrange(5))):
            text: Any = "".join([key]) if rng.random() < 0.5 else key
            value = odd(rng) if rng.random() < self.oddness else self.fitting(key, depth)
            if rng.random() < self.oddness / 2:
                text = rng.choice([StrSubclass(key), 5, b""])
            payload[text] = value
        if rng.random() < self.oddness / 2:
            return rng.choice([DictSubclass, MappingProxyType, Registered])(payload)
        self.made.append(payload)
        return payload

    def fitting(self, key: str, depth: int) -> Any:
        rng = self.rng
        if rng.random() < 0.05:
            return self.even(2)
        if key in ("children", "args"):
            return [self.make(depth - 1) for _ in range(rng.randrange(4) if depth else 0)]
        if key in ("config", "params"):
            return {random_key(rng, self.oddness): 1}
        if key in ("type", "op"):
            return rng.choice(KINDS)
        return rng.choice(["close", 3, None])


def graphs(rng: random.Random) -> Any:
    payload = Graphs(rng, rng.choice((0.0, 0.02, 0.15))).make(3)
    return rng.choice([ts.coerce_graph, ts.FunctionGraphNode.from_raw]), payload


# --- Records ---

# The call, and what fits under which key: a kind of KINDS_OF_VALUES, or the literal itself.
RECORDS = """
WindowSpec(**raw) | minimum:int maximum:int default:int value:int
WindowSpec.from_raw(raw) | min:int max:int default:int value:int
WindowSpec(**raw).picked(5) | minimum:int maximum:int
ParamSpec("p", **raw) | type:any default:any minimum:any variadic:any window:window
ParamSpec.from_raw("window", raw) | min:int max:int default:int value:int type:any variadic:any
ParamSpec.from_raw("p", raw) | type:any default:any variadic:any window:any
ParamSpec.from_mapping(raw) | a:param b:param window:param
ParamSpec.coerce_specs([*raw.values()]) | a:ParamSpec b:ParamSpec
FunctionGraphNode(**raw) | type:text node:any children:nodes config:dict family:any value:any
FunctionGraphNode(*raw.values()) | type:text node:any children:nodes config:dict
LiveCheckpoint(**raw) | signals:dict nodes:dict
LiveCheckpoint.from_raw(raw) | signals:dict nodes:dict
UniverseMasks(raw, 3) | a:mask b:mask c:mask
UniverseMasks.from_raw(raw, n_alloc=3).get("a", 5) | a:mask
"b" in UniverseMasks(raw, n_alloc=3) | a:mask b:mask
HistoryData(raw) | a:matrix b:matrix c:matrix
HistoryData.from_raw(raw, context="x")["a"] | a:matrix b:matrix
CostResult(*raw.values()) | total:array breakdown:arrays
CostResult.from_raw(CostResult(**raw)).shape | total:array breakdown:arrays
np.asarray(CostResult(**raw)) | total:array
Evidence(raw) | a:any b:any
Evidence.from_raw(raw)["a"] | a:any b:any
[e := Evidence.from_raw(raw), e.get("a", 5), "b" in e, e.__setitem__("c", 5)] | a:any b:any
[*(e := Evidence(raw)).items(), *e.keys(), *e.values()] | a:any b:any
[c := CostResult(**raw), len(c), c[0]] | total:array
CheckpointManifest.from_raw(raw) | tick_timestamp:any dag_metadata:any x:any\
 canonical_id_to_filename:dict
CheckpointManifest(*raw.values()) | a:any b:any c:dict d:any
Metaparameters(raw) | a:dict b:dict
Metaparameters.from_raw(raw) | a:dict b:dict
StageData(**raw) | flat:arrays nested:dict opaque:dict
StageData.from_mapping(raw) | a:array b:arrays c:any
StageData.from_optional_mapping(raw).slice_t(0, 2) | a:array b:arrays c:any d:dict
[s := StageData.from_mapping(raw), s.has_value("b"), s.value("a", 5)] | a:array c:any
[m := UniverseMasks(raw, 3), *m.keys(), *m.items(), m["a"]] | a:mask
StageData.from_optional_mapping(raw).is_empty() | a:any
StageData.from_mapping(raw).feature_names() | a:array b:matrix c:any
[s := StageData(raw, dict(raw), {**raw}), s.set_value("a", s.value("b")), s] | a:array b:dict c:any
[s := StageData.from_mapping(raw), s.set_value("a", s.value("b")), s.is_empty()] | a:any b:array
EraIndexManifest.from_raw(raw) | schema_version:2 bundle_kind:"era_index" epochs:dict x:any
EraIndexManifest(**raw) | schema_version:2 bundle_kind:"era_index" epochs:dict
TargetInstrumentEntry(*raw.values()) | a:dict
TargetInstrumentEntry.from_raw(raw, 1) | a:any
AggregationOutput.from_raw(raw) | a.b:array c.d:array
[*AggregationOutput(raw)] | a.b:array c.d:array
StateArray(*raw.values()) | a:array
StateMapping(*raw.values()) | a:dict
repr(StateSequence(*raw.values())) == StateScalar(*raw.values()) | a:any
ParamSpec.coerce_specs(raw) | a:param b:param window:param
validate_function_state(FunctionState(**raw), expected_name="f", expected_version=3) |\
 function_name:"f" function_version:3 data:dict
""".strip().splitlines()

KINDS_OF_VALUES: dict[str, Callable[[random.Random], Any]] = {
    "any": lambda rng: random_scalar(rng, 0.0),
    "int": lambda rng: rng.choice([None, 0, 1, 5, 240, -(10**25)]),
    "text": lambda rng: rng.choice(KINDS),
    "dict": lambda rng: rng.choice([{}, {"a": 1}, {"a": {"b": "c"}, 5: ()}]).copy(),
    "array": random_array,
    "arrays": lambda rng: {"a": random_array(rng), "b": random_array(rng)},
    "matrix": lambda rng: rng.choice([np.zeros((2, 3)), np.ones((3, 2)).T, np.zeros((0, 3))]),
    "mask": lambda r: np.array(r.choice(MASKS[-r.choice([3, 3, 3, 7]) :]), r.choice("ed?")),
    "window": lambda rng: rng.choice([None, ts.WindowSpec(1, 5)]),
    "param": lambda rng: rng.choice([5, None, ts.WindowSpec(1, 2), {"min": 1, "default": 2}]),
    "ParamSpec": lambda rng: ts.ParamSpec(rng.choice("ab")),
    "nodes": lambda rng: [ts.FunctionGraphNode("a") for _ in range(rng.randrange(3))],
}

MASKS = [[0, 1], [[1]] * 3, [0, 0.5, 1], [1, -0.0, 1], [0, 1, 1], [1, NAN, 0], [NAN, 0, -NAN]]

# What is done with the result.
USES = functions("result", """
    result; result; result; result; repr(result); copy.copy(result); copy.deepcopy(result);
    result == copy.copy(result); {result: 1}[result]; pickle.loads(pickle.dumps(result, 5));
    dataclasses.replace(result)""", **globals())  # fmt: skip


def record(text: str, uses: Any = USES, **others: Any) -> Callable[[random.Random], Any]:
    call, _, fields = text.partition(" | ")
    entries = functions("raw", call, **globals()) + functions(
        "raw", call, **{**globals(), **others}
    )
    fits = []
    for field in fields.split():
        name, _, kind = field.partition(":")
        fits.append((name, KINDS_OF_VALUES.get(kind) or (lambda rng, kind=kind: eval(kind))))

    def make(rng: random.Random) -> Any:
        oddness = rng.choice((0.0, 0.1, 0.4))
        raw: dict[Any, Any] = {}
        for name, fitting in fits:
            if rng.random() < 0.1:
                continue
            key: Any = "".join([name])
            if rng.random() < oddness / 2:
                key = rng.choice([StrSubclass(name), "", 5, None])
            kind = rng.choice([*KINDS_OF_VALUES.values()]) if rng.random() < oddness else fitting
            raw[key] = odd(rng) if rng.random() < oddness else kind(rng)
        entry = rng.choice(entries)
        if rng.random() >= oddness:
            use = rng.choice(uses) if not oddness else uses[0]
            return lambda raw: use(entry(raw)), raw
        wrap = rng.choice([DictSubclass, MappingProxyType, Registered, list, None])
        return entry, odd(rng) if wrap is None else wrap(raw)

    make.__name__ = call
    return make


NOTING = {n: hostile_class(c, "child") for n, c in vars(ts).items() if dataclasses.is_dataclass(c)}
CALLED = [graphs, states, *(record(text, USES[:1], **NOTING) for text in RECORDS)]
EVERY = [graphs, states, arrays, *map(record, RECORDS), *(infested(make, ts) for make in CALLED)]
GENERATORS = {make.__name__: make for make in EVERY}
