"""Random parts of payloads: scalars and keys, arrays, what only looks as if it fits.

An oddness from 0 to 1 says how many are of the kinds that the fast paths leave alone.
"""

import math
import random
import struct
from collections import OrderedDict
from collections.abc import Callable
from decimal import Decimal
from types import MappingProxyType, SimpleNamespace
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as ts
from support import *

NAN = float("nan")


def functions(head: str, table: str, **others: Any) -> list[Any]:
    """What a table of expressions says, in the names of the module, of here and the others."""
    names = {**vars(ts), **globals(), **others}
    return [eval(f"lambda {head}: {text.strip()}", names) for text in table.split(";")]


# --- Scalars and keys ---

NUMPY_SCALARS = [np.float64(NAN), np.float32(1), np.int64(1), np.bool_(True), np.str_("a")]
NUMPY_SCALARS += [np.float16(NAN), np.longdouble(1), np.complex64(1j), np.datetime64("NaT", "D")]
BUILTIN_SCALARS = [None, True, 0, 1, 1.0, -1, -0.0, NAN, 2**53 + 1, 2.0**53, 2**61 - 1, -(10**25)]
BUILTIN_SCALARS += ["", "a", "\ud800", b"a", 1j, math.inf]
# Equal ones, ones of equal hash, ones that become equal as text.
KEYS = ["a", "b", "c", 1, "1", True, "True", 1.0, None, "None", -1, -2, 2**61, NAN, "nan", b"a"]
ODD_KEYS = [
    StrSubclass("a"),
    (1,),
    10**25,
    10**5000,
    np.int64(1),
    np.str_("a"),
    FloatSubclass(1),
    1j,
]


def random_scalar(rng: random.Random, oddness: float) -> Any:
    kind = rng.randrange(6)
    if kind == 0:
        return struct.unpack("d", rng.randbytes(8))[0]
    if kind == 1:
        return int.from_bytes(rng.randbytes(rng.choice([1, 4, 8, 9])), "little", signed=True)
    if kind == 2:
        return rng.randbytes(2 * rng.randrange(4)).decode("utf-16-le", "replace")
    if kind == 3:
        return rng.choice(NUMPY_SCALARS)
    if kind == 4 and rng.random() < oddness:
        return rng.choice([FloatSubclass(NAN), FloatSubclass(1), StrSubclass("a"), Decimal("NaN")])
    return rng.choice(BUILTIN_SCALARS)


def random_key(rng: random.Random, oddness: float) -> Any:
    if rng.random() < 0.5:
        return "".join([rng.choice("abc"), "d"])  # equal to others, but an object of its own
    return rng.choice(ODD_KEYS if rng.random() < oddness else KEYS)


# --- Arrays ---

NUMBERS = "? b B h H i I l L q Q e f d F D g".split()
OTHER_TYPES = [">f8", ">f2", "O", "U2", "S3", "M8[s]", "m8[s]", [("x", "f8"), ("y", "i1")]]
EDGES = [0.0, -0.0, 1.0, NAN, -NAN, math.inf, -math.inf, 5e-324, 65504.0, 3.4e38, 1.7e308, 9e307]
INTEGERS = [0, 1, 2**53, 2**53 + 1, 2**62, -1, 127, -128, 255]
SHAPES = [(), (0,), (1,), (3,), (5,), (2, 3), (3, 1), (3, 0), (2, 1, 3), (1025,)]


def misaligned(array: np.ndarray) -> np.ndarray:
    if array.dtype.hasobject or not array.size:
        return array
    view = np.zeros(array.nbytes + 1, "u1")[1:].view(array.dtype).reshape(array.shape)
    view[...] = array
    return view


FORMS = functions("array", """
    array.astype(array.dtype.newbyteorder()); np.repeat(np.atleast_1d(array), 2, axis=0)[::2];
    np.atleast_1d(array)[::-1]; np.asfortranarray(array); array.T; misaligned(array);
    np.broadcast_to(array[..., :1], array.shape) if array.ndim else array; array.view(ArrayChild);
    np.ma.masked_array(array, np.resize([False, True], array.shape))""")  # fmt: skip


def random_array(rng: random.Random, dtype: Any = None) -> np.ndarray:
    dtype = dtype or rng.choice(NUMBERS if rng.random() < 0.8 else OTHER_TYPES)
    shape, number = rng.choice(SHAPES), str(dtype) in NUMBERS
    size = math.prod(shape)
    if number and dtype != "g" and rng.random() < 0.2:  # any bits at all, repeated
        bits = rng.randbytes(4 * np.dtype(dtype).itemsize)
        array = np.resize(np.frombuffer(bits, dtype), shape)
    else:
        edges = EDGES if dtype in ("e", "f", "d", "F", "D", "g") else INTEGERS
        values = [rng.choice(edges) if rng.random() < 0.1 else float(i % 3) for i in range(7)]
        with np.errstate(all="ignore"):
            wide = np.resize(np.array(values, np.longdouble), size)
            if dtype in ("F", "D"):
                wide = wide + 1j * wide[::-1]
            array = (wide if number else wide.astype("i1")).astype(dtype).reshape(shape)
    return rng.choice(FORMS)(array) if rng.random() < 0.5 else array


def change_one(rng: random.Random, array: np.ndarray) -> np.ndarray:
    changed = array.copy()
    if changed.size:
        with np.errstate(all="ignore"):
            edges = EDGES if array.dtype.kind in "fc" else [0, 1, 3]
            changed.flat[rng.randrange(changed.size)] = rng.choice(edges)
    return changed


def arrays(rng: random.Random) -> Any:
    dtype = rng.choice(NUMBERS)
    a = random_array(rng, dtype)
    draw = rng.random()
    if draw < 0.4:
        b = a.copy(order=rng.choice("CF"))
    elif draw < 0.8:
        b = change_one(rng, a)
    else:
        b = random_array(rng, rng.choice([dtype, None]))
    return (ts.states_equal, *rng.choice([(a, b), ({"x": [a]}, {"x": (b,)})]))


# --- Things that only look as if they fit ---

CLAIMED = [dict, list, str, np.ndarray, ts.StateScalar]
ODD = functions("", """
    DictSubclass(op="x"); OrderedDict(a=[1]); Registered({"op": "x"}); ListSubclass([{"op": "y"}]);
    MappingProxyType({"op": "x"}); [("k", 1)]; {"feature"}; StrSubclass("feature");
    EmptyLookingStr("zscore"); np.zeros((2, 3)).view(ArrayChild); np.array([NAN, 1.0], object);
    WindowSpec(1, 2); ParamSpec("p"); SimpleNamespace(name="n"); StateMapping({1: StateScalar(1)});
    StateSequence([StateScalar(1), 2]); StateScalar(np.zeros(2)); object.__new__(StateArray);
    StateSequence("ab"); StateSequence(5)
    """)  # fmt: skip


def odd(rng: random.Random) -> Any:
    return rng.choice(ODD)() if rng.randrange(8) else Claims(rng.choice(CLAIMED))
