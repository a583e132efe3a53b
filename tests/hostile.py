"""Payload parts that note each operation on them, and in one of them do harm.

They are children of the class of what they stand for, proxies that claim to be of it, or aliens
that do not, and get keys beside them that collide with theirs.
"""

import contextlib
import dataclasses
import functools
import operator
import random
import weakref
from abc import ABCMeta
from typing import Any
from unittest import mock

import numpy as np
from support import Registered

SLOTS = """__eq__ __ne__ __lt__ __le__ __gt__ __hash__ __str__ __repr__ __bool__ __len__ __iter__
__next__ __getitem__ __setitem__ __contains__ __index__ __float__ __call__ __format__ get items keys
values pop copy""".split()
ARRAY_SLOTS = "__array_ufunc__ __array_function__".split()
ARRAY_FIELDS = "ndim shape dtype flags data".split()
CHILDREN = (dict, list, tuple, str, int, float, np.ndarray, np.float64)


Token = type("Token", (), {})  # one for each hostile part that is alive
ALIVE: weakref.WeakSet[Any] = weakref.WeakSet()


class Journal:
    """What the parts of one call were asked, and what is to happen at which step."""

    listening: Any = None

    def __init__(self, module: Any, function: Any, moment: int, action: Any) -> None:
        self.module, self.function, self.moment, self.action = module, function, moment, action
        self.steps, self.undo = list[str](), contextlib.ExitStack()
        self.arguments: tuple[Any, ...] = ()

    def __call__(self, steps: list[str], *arguments: Any) -> Any:
        """Call the function, and leave in the list what was asked on the way."""
        self.arguments = arguments
        try:
            if self.moment == 0:
                self.action(self)
            Journal.listening = self
            return self.function(*arguments)
        finally:
            Journal.listening = None
            self.undo.close()
            steps.append("\n".join(self.steps))

    def patch(self, holder: Any, name: str, value: Any) -> None:
        self.undo.enter_context(mock.patch.object(holder, name, value, create=True))


def shown(value: Any) -> str:
    return repr(value) if type(value) in (str, int, float, bool) else type(value).__name__


def note(slot: str, *given: Any) -> None:
    journal = Journal.listening
    if journal is None or (given and type(given[0]) is str and given[0].startswith("__array")):
        return  # NumPy's own look-ups
    journal.steps.append(" ".join([slot, *map(shown, given)]))
    if len(journal.steps) == journal.moment:
        Journal.listening = None
        try:
            journal.action(journal)
        finally:
            Journal.listening = journal


# --- Hostile parts ---


def inner(part: Any) -> Any:
    return object.__getattribute__(part, "inner")


def slot_method(name: str, base: type, kind: str) -> Any:
    def method(self: Any, *given: Any, **named: Any) -> Any:
        note(name, *given, *named)
        if kind == "alien" and name == "__eq__":
            return self is given[0]
        if name == "__array_ufunc__":
            ufunc, way, *given = map(bare, given)
            named = {key: bare(item) for key, item in named.items()}
            result = getattr(ufunc, way)(*given, **named)
            return result.view(type(self)) if type(result) is np.ndarray else result
        result = getattr(base, name)(self if kind == "child" else inner(self), *given, **named)
        is_pair = name == "__next__" and type(result) is tuple
        is_walked = is_pair or name in ("__iter__", "items", "keys", "values")
        return hostile(result, "alien") if is_walked else result

    return method


def bare(item: Any) -> Any:
    item = tuple(map(bare, item)) if type(item) is tuple else item
    return item.view(np.ndarray) if isinstance(item, np.ndarray) else item


def forwarded(part: Any, name: str) -> Any:
    if name.startswith("__array"):  # NumPy would take it for the array
        raise AttributeError(name)
    return getattr(inner(part), name)


def field(name: str, base: type) -> property:
    def read(self: Any) -> Any:
        note(name)
        return getattr(base, name).__get__(self)

    return property(read)


ASKED = "__getattribute__ __instancecheck__ __subclasscheck__".split()
Meta: Any = type("Meta", (ABCMeta,), {n: slot_method(n, ABCMeta, "child") for n in ASKED})


@functools.cache
def hostile_class(base: type, kind: str) -> Any:
    """A class with every slot of the base: a child of it, or one around an instance of it that
    claims to be it (proxy) or does not (alien)."""

    def claimed(self: Any) -> type:
        is_array or note("__class__")
        return type(inner(self) if kind == "proxy" else self)

    child, is_array = kind == "child", issubclass(base, np.ndarray)
    slots = SLOTS + ARRAY_SLOTS * child
    body = {name: slot_method(name, base, kind) for name in slots if getattr(base, name, None)}
    if child and dataclasses.is_dataclass(base):
        body["__init__"] = slot_method("__init__", base, kind)
    if is_array and child:
        body |= {name: field(name, base) for name in ARRAY_FIELDS}
    if not is_array:  # NumPy looks them up for itself, and goes on with an error pending
        owner = base if child else object
        body["__getattribute__"] = slot_method("__getattribute__", owner, "child")
    body["__class__"] = property(claimed)
    if not child:
        body["__getattr__"] = forwarded
    bases = (base,) if child else (Registered,) if (kind, base) == ("alien", dict) else (object,)
    return type(f"{kind}_{base.__name__}", bases, body)


def hostile(seed: Any, kind: str) -> Any:
    """The value as a hostile part, or as it is where it cannot be one."""
    base = type(seed)
    if kind == "child" and not (base in CHILDREN or dataclasses.is_dataclass(base)):
        return seed
    listening, Journal.listening = Journal.listening, None  # to make it does not count
    cls = hostile_class(base, kind)
    if kind == "child" and base in CHILDREN:
        part, kept = seed.view(cls) if base is np.ndarray else cls(seed), {}
    else:
        part = object.__new__(cls)
        kept = vars(seed) if kind == "child" else {"inner": seed}
    ALIVE.add(token := Token())
    object.__getattribute__(part, "__dict__").update(kept, token=token)
    Journal.listening = listening
    return part


def collide(mapping: Any, key: Any) -> None:
    """Put a hostile key with the hash of this one in front of it, where other keys were."""
    value, part = mapping.pop(key), hostile(key, "alien")
    mapping.update(dict.fromkeys(range(40)))
    [mapping.pop(number) for number in range(40)]
    mapping.update({part: 0, key: value})


def planted(rng: random.Random, value: Any, share: float, keys: bool = True) -> Any:
    """The value, with some of its parts made hostile, if so the keys of the outermost dict too."""
    one = functools.partial(planted, rng, share=share)
    cls = type(value)
    if cls is dict:
        value = {one(key) if keys else key: one(part) for key, part in value.items()}
        for key in list(value):
            if keys and rng.random() < share / 8 and type(key) is str:
                collide(value, key)
    elif cls in (list, tuple):
        made = cls(map(one, value))
        value = value if all(map(operator.is_, made, value)) else made
    elif dataclasses.is_dataclass(cls):
        for name in vars(value):
            object.__setattr__(value, name, one(getattr(value, name, None)))
    elif cls is np.ndarray and value.dtype == object and value.flags.writeable:
        value.flat = [one(item) for item in value.flat]
    kind = rng.choice(["child", "child", "child", "proxy", "alien"])
    return hostile(value, kind) if rng.random() < share else value
