"""Calls with one hostile part in what they are given, at every place where one can sit.

A cell is a call, a place, a kind of hostile part, a slot of it, how often the slot lets pass, and
an action. On both paths result, log of the slots and payload afterwards must be the same; what was
thrown comes out as that very object; the module answers as ever; nothing hostile stays alive.
"""

import contextlib
import functools
import gc
import itertools
import operator
import random
import sys
import weakref
from abc import ABCMeta
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from typing import Any
from unittest import mock

import numpy as np
from quillmere.functions import _typed_shapes as ts
from support import SEED, Registered, canonical_path, outcome, python_calls

from harden.catalogue import TAKEN, Call, every_text

# A ring has no end of places, and some calls change the module or run next to no code of ours; and
# the interpreter loses what the `__str__` of a keyword throws that a dataclass does not take. No
# child is made of what has no text.
LEFT_OUT = """LOOP RING 10**5000 dtype= odd= PAIRS PLAIN rebound attr( pickle inspect repr(
bogus= type="y" UNSHOWN""".split()
TEXTS = [text for text in every_text() if not any(word in text for word in LEFT_OUT)]
KNOWN = [Call(text) for text in TAKEN.strip().splitlines()[1::12] if text in TEXTS]
SLOTS = """__eq__ __ne__ __lt__ __le__ __gt__ __hash__ __str__ __repr__ __bool__ __len__ __iter__
__next__ __getitem__ __setitem__ __contains__ __index__ __float__ __call__ __instancecheck__
__subclasscheck__ __array_ufunc__ __array_function__ get items keys values pop""".split()
EVERY_SLOT = [*SLOTS, "__getattribute__", "__class__", "__del__", "__get__"]
GLOBALS = dict(vars(ts))
RECORDS = [cls for cls in GLOBALS.values() if hasattr(cls, "__dataclass_fields__")]
RELIED_ON = """np math Mapping SchemaError coerce_state _states_value_equal _GRAPH_RUNTIME_TYPES
_MISSING _CHECKPOINT_REQUIRED _param_name _reject_function_state StateScalar""".split()
# Where the language takes an error for an answer, or NumPy while it compares.
HANDLED = {
    "AttributeError": "__class__ __getattribute__",
    "StopIteration": "__next__",
    "TypeError": "__getattribute__ __len__ __iter__ __next__ __getitem__ __repr__",
}
NUMPY_HANDLED = ("_ndarray'", "_ArrayChild'", "are valid indices")  # any error of arrays, indices
Token, Own = type("Token", (), {}), type("Own", (BaseException,), {})
OTHER_THREAD = ThreadPoolExecutor(1)


class Run:
    """One call: the slots that its hostile part met, and what is to happen in one of them."""

    current: Any = None
    tokens: weakref.WeakSet[Any] = weakref.WeakSet()  # one for each hostile part alive

    def __init__(self, site: Any, slot: str = "", delay: int = 0, action: str = "") -> None:
        (text, *self.site), self.slot, self.delay = site, slot, delay
        self.call, self.action = Call(text), ACTIONS.get(action)
        self.log, self.undo = [], contextlib.ExitStack()  # type: tuple[list[Any], Any]
        self.thrown: Any = None
        self.came_out = True

    def plant(self) -> int:
        """Make one place of the call or of its globals hostile; how many places there are."""
        (names, place, kind), count, call = self.site, itertools.count(), self.call
        one = functools.partial(planted, place=place, kind=kind, count=count)
        holder = getattr(call.function, "__self__", None)
        call.arguments = list(map(one, call.arguments))
        call.keywords = {one(key): one(value) for key, value in call.keywords.items()}
        if type(holder) in (type, *RECORDS):
            call.function = getattr(one(holder), call.function.__name__)
        for name in names:
            self.patch(ts, name, one(GLOBALS[name]))
            if next(count) == place and kind == "alien":
                key = collide(vars(ts), name)
                self.undo.callback(lambda key=key: vars(ts).pop(key))
        return next(count)

    def patch(self, holder: Any, name: str, value: Any) -> None:
        self.undo.enter_context(mock.patch.object(holder, name, value, create=True))

    def throw(self, error: BaseException) -> None:
        self.thrown, self.came_out = error, False
        raise error

    def __call__(self) -> Any:
        Run.current = self
        try:
            return self.call()
        except BaseException as error:
            Run.current = None
            self.came_out |= self.is_thrown(error, error.__traceback__)
            raise
        finally:
            Run.current = None

    def is_thrown(self, error: BaseException, traceback: Any) -> bool:
        """Whether this is what was thrown, as it was, or what a generator makes of an end."""
        while traceback.tb_next:
            traceback = traceback.tb_next
        if type(error) is RuntimeError and error.__cause__ is self.thrown:
            return True
        same = error is self.thrown and (error.args, error.__cause__) == (("thrown", 1), None)
        return same and traceback.tb_frame.f_code is Run.throw.__code__

    def was_handled(self, came: str) -> bool:
        if self.slot == "__del__":
            return ("unraisable", True) in self.log
        kind = type(self.thrown).__name__
        elsewhere = ("StateArray",) * (kind == "TypeError")  # arrays are compared otherwise then
        is_handled = self.slot in HANDLED.get(kind, "").split()
        return is_handled or any(map(came.count, NUMPY_HANDLED + elsewhere))


def meet(slot: str, *given: Any) -> None:
    run, texts = Run.current, [text for text in given if type(text) is str]
    if run is None or (texts and texts[0].startswith("__array")):  # NumPy's own look-ups
        return
    run.log.append((slot, *texts))
    if slot == run.slot and run.action:
        run.delay -= 1
        if run.delay < 0:
            action, run.action = run.action, None
            action(run)


# --- Hostile parts ---


class Attribute:
    """A descriptor in the place of a method, or of a field of what is inside."""

    def __init__(self, name: str, method: Any = None) -> None:
        self.name, self.method = name, method

    def __get__(self, instance: Any, owner: type) -> Any:
        meet("__get__", self.name)
        if self.method is None:
            return getattr(inner(instance), self.name)
        return self.method.__get__(instance, owner)


def inner(part: Any) -> Any:
    return object.__getattribute__(part, "inner")


def slot_method(name: str, base: type, kind: str) -> Any:
    def method(self: Any, *given: Any, **named: Any) -> Any:
        meet(name, *given)
        if kind == "alien" and name == "__eq__":
            return self is given[0]
        result = getattr(base, name)(self if kind == "child" else inner(self), *given, **named)
        is_pair = name == "__next__" and type(result) is tuple
        is_walked = is_pair or name in ("__iter__", "items", "keys", "values")
        return hostile(result, "alien") if is_walked else result

    return method


META_SLOTS = ("__getattribute__", "__instancecheck__", "__subclasscheck__")
META_BODY = {name: slot_method(name, ABCMeta, "child") for name in META_SLOTS}
Meta: Any = type("Meta", (ABCMeta,), META_BODY)


@functools.cache
def hostile_class(base: type, kind: str) -> Any:
    """A class with every slot of the base: a child of it, or one around an instance of it that
    claims to be it (proxy) or does not (alien)."""

    def claimed(self: Any) -> type:
        is_array or meet("__class__")
        return type(inner(self) if kind == "proxy" else self)

    child, is_array = kind == "child", issubclass(base, np.ndarray)
    body = {name: slot_method(name, base, kind) for name in SLOTS if getattr(base, name, None)}
    if not is_array:  # NumPy looks them up for itself, and goes on with an error pending
        owner = base if child else object
        body["__getattribute__"] = slot_method("__getattribute__", owner, "child")
    body |= {"__class__": property(claimed), "__del__": lambda self: meet("__del__")}
    if child:
        body |= {name: Attribute(name) for name in getattr(base, "__match_args__", ())}
    else:
        body["__getattr__"] = lambda self, name: getattr(inner(self), name)
    bases = (base,) if child else (Registered,) if (kind, base) == ("alien", dict) else (object,)
    run, Run.current = Run.current, None  # what is read to make a class does not count
    cls = (type if is_array else Meta)(f"{kind}_{base.__name__}", bases, body)
    Run.current = run
    return cls


def hostile(seed: Any, kind: str) -> Any:
    base, token = type(seed), Token()
    Run.tokens.add(token)
    if kind == "child" and isinstance(seed, type):
        hooks = vars(seed).keys() & {"__post_init__", "from_raw", "from_mapping"}
        body = {name: Attribute(name, vars(seed)[name]) for name in sorted(hooks)}
        return Meta(seed.__name__, (seed,), {**body, "token": token})
    cls = hostile_class(base, kind)
    if kind != "child" or base in RECORDS:
        part = object.__new__(cls)
    else:
        part = seed.view(cls) if isinstance(seed, np.ndarray) else cls(seed)
    object.__getattribute__(part, "__dict__").update(inner=seed, token=token)
    return part


def collide(mapping: Any, key: Any) -> Any:
    """Put a hostile key with the hash of this one in front of it, where other keys were."""
    value, part = mapping.pop(key), hostile(key, "alien")
    mapping.update(dict.fromkeys(range(40)))
    [mapping.pop(number) for number in range(40)]
    mapping.update({part: 0, key: value})
    return part


def planted(value: Any, place: int, kind: str, count: Any) -> Any:
    """The value, with the part that has this number made hostile."""
    number, made, beside = next(count), value, []

    def deeper(part: Any, key: Any = None) -> Any:
        beside.extend([key] * (key is not None and next(count) == place and kind == "alien"))
        return planted(part, place, kind, count)

    if type(value) is dict:
        made = {deeper(key): deeper(part, key) for key, part in value.items()}
    elif type(value) is list:
        made = list(map(deeper, value))
    elif type(value) is tuple:
        made = tuple(map(deeper, value))
        made = value if all(map(operator.is_, made, value)) else made  # as the module expects it
    elif type(value) in RECORDS:
        for name in value.__match_args__:  # not vars(), which would make a dict of the fields
            object.__setattr__(value, name, deeper(getattr(value, name), name))
    elif type(value) is np.ndarray and value.dtype == object:
        made.flat = [deeper(item) for item in value.flat]
    for key in beside:
        collide(made if type(value) is dict else vars(value), key)
    return hostile(made, kind) if number == place else made


# --- Actions ---


def change(run: Run, how: str) -> None:
    for each in run.call.arguments[-1:] if how == "clear last" else run.call.inputs():
        each = vars(each) if type(each) in RECORDS else each
        if issubclass(type(each), dict):
            new = dict.fromkeys({"replace": list(each), "grow": range(40)}.get(how, ()))
            dict.update(each, new) if new else dict.clear(each)
        elif issubclass(type(each), list):
            new = {"replace": [None] * len(each), "grow": [*each, *range(40)]}.get(how, [])
            list.__setitem__(each, slice(None), new)


def rebind(run: Run, keep: bool) -> None:
    for name in [name for name in GLOBALS if name[:2] != "__"]:
        run.patch(ts, name, hostile(GLOBALS[name], "proxy"))
        keep or delattr(ts, name)


def patch(run: Run) -> None:
    for cls in RECORDS:
        run.patch(cls, "__post_init__", lambda self: meet("patched", type(self).__name__))


def answers() -> list[Any]:
    return list(map(outcome, KNOWN))


THROWN = [KeyboardInterrupt, SystemExit, GeneratorExit, RecursionError, MemoryError, Own]
THROWN += [KeyError, AttributeError, TypeError, StopIteration]
CHANGES = ("clear", "clear last", "grow", "replace")
ACTIONS: dict[str, Any] = {
    **{cls.__name__: lambda run, cls=cls: run.throw(cls("thrown", 1)) for cls in THROWN},
    **{how: lambda run, how=how: change(run, how) for how in CHANGES},
    "drop": lambda run: (change(run, "clear"), gc.collect()),
    "patch": patch,
    "patch and back": lambda run: (patch(run), run.undo.pop_all().close()),
    "rebind": lambda run: rebind(run, True),
    "unbind": lambda run: rebind(run, False),
    "rebind and back": lambda run: (rebind(run, True), run.undo.pop_all().close()),
    "again": lambda run: run.log.append(repr(outcome(run.call))),
    "another": lambda run: run.log.append(answers() == ANSWERS),
    "collect": lambda run: gc.collect(),
    "thread": lambda run: OTHER_THREAD.submit(change, run, "clear").result(),
}
ANSWERS = answers()


# --- Cells ---


def down(site: Any, *cell: Any) -> Any:
    """What came of a call, the log, whether the action ran, whether what was thrown came out."""
    run = Run(site, *cell)
    with run.undo:
        run.plant()
        came = repr((outcome(run), outcome(run.call.inputs), run.log))
    if run.thrown is not None:
        run.thrown.__traceback__ = None
    return came, run.log, run.action is None, run.came_out or run.was_handled(came)


def both(site: Any, *cell: Any) -> Any:
    """The log, whether the action ran, and in words what is wrong."""
    sides = []
    for path in (contextlib.nullcontext, canonical_path):
        with path():
            sides.append(down(site, *cell))
        if Run.tokens and gc.collect() and Run.tokens:
            return [], False, "something stayed alive"
    (fast, log, met, came_out), (canonical, *_) = sides
    wrong = f"\n  fast      {fast}\n  canonical {canonical}" if fast != canonical else ""
    if not came_out:
        wrong = f"what was thrown got lost: {fast}"
    if vars(ts) != GLOBALS or answers() != ANSWERS or python_calls(ts.WindowSpec):
        wrong = "the module is not what it was, or left its fast path"
    return log, met, wrong


def note_unraisable(info: Any) -> None:
    if Run.current is not None:
        Run.current.log.append(("unraisable", info.exc_value is Run.current.thrown))


def main() -> int:
    cells = 5_000 if "--quick" in sys.argv else 20_000
    sys.unraisablehook = note_unraisable
    gc.disable()
    rng, met = random.Random(SEED), Counter[str]()
    sites, faults = list[Any](), list[Any]()
    for text in TEXTS:
        names = [name for name in GLOBALS if name in text] + rng.sample(RELIED_ON, 3)
        with (run := Run((text, names, -1, ""))).undo:
            places = range(run.plant())
        sites += itertools.product([text], [names], places, ("child", "proxy", "alien"))
    gc.freeze()

    def look(site: Any, *cell: Any) -> list[Any]:
        log, acted, wrong = both(site, *cell)
        met[cell[0]] += acted
        if wrong:
            faults.append(site)
            print(*site, cell, wrong)
        return log

    # Every place with nothing done there, and then the cells on those that ask a slot.
    asking: dict[str, list[Any]] = {}
    for site in sites:
        with contextlib.suppress(TypeError):  # of what cannot be made a child of, or a key
            slots = Counter(entry[0] for entry in look(site, "", 0, ""))
            for slot in EVERY_SLOT:
                asking.setdefault(slot, []).extend([(site, slot, slots[slot])] * (slot in slots))
    never = [slot for slot in EVERY_SLOT if not asking[slot]]
    # By turns any, and one of each slot, so that rare ones have their share.
    anywhere = [site for sites in asking.values() for site in sites]
    rare = itertools.cycle(filter(None, asking.values()))
    for number in range(cells):
        if len(faults) > 20:
            break
        site, slot, times = rng.choice(next(rare) if number % 2 else anywhere)
        look(site, slot, rng.randrange(min(4, times)), rng.choice(list(ACTIONS)))
    print(f"seed {SEED}, met {dict(met)}, never met: {never}")
    print(
        f"figures: {met.total() - met['']:,} of {cells:,} cells met, "
        f"{len(sites):,} places, {len(EVERY_SLOT)} slots, {len(faults)} faults"
    )
    return bool(faults or never)


if __name__ == "__main__":
    sys.exit(main())
