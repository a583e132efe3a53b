"""The harm that hostile parts do, and the generators of calls that have them.

`infested` makes a generator out of another one: some parts of what it gives are replaced by hostile
ones, of which one does harm. What they were asked is compared as what came of the call is.
"""

import dataclasses
import functools
import gc
import random
from abc import ABCMeta
from collections.abc import Callable
from typing import Any

from hostile import Journal, Meta, hostile, note, planted
from support import outcome

CONSTANTS: dict[str, Any] = {"to 5": 5, "to give 5": lambda *given, **named: 5}
THROWN = [KeyboardInterrupt, GeneratorExit, RecursionError, MemoryError, ZeroDivisionError]
THROWN += [KeyError, AttributeError, TypeError, ValueError, StopIteration]


def throw(cls: type[BaseException], journal: Journal) -> None:
    raise cls("thrown")


def change(how: str, journal: Journal) -> None:
    waiting, seen = list(journal.arguments), list[Any]()
    while waiting:
        each = waiting.pop()
        cls = type(each)
        if any(each is other for other in seen):
            continue
        seen.append(each)
        if issubclass(cls, dict):
            waiting += dict.values(each)
            new = dict.fromkeys({"replace": list(dict.keys(each)), "grow": range(40)}.get(how, ()))
            dict.update(each, new) if new else dict.clear(each)
        elif issubclass(cls, list):
            waiting += list.__iter__(each)
            new = {"replace": [None] * list.__len__(each), "grow": [1] * 40}.get(how, [])
            list.__setitem__(each, slice(None), new)
        elif dataclasses.is_dataclass(cls):
            waiting += object.__getattribute__(each, "__dict__").values()
    gc.collect(0)


def rebound(module: Any, name: str, value: Any) -> Any:
    """What stands in for a global of the module and notes that it was asked for."""
    if isinstance(value, type) and type(value) in (type, ABCMeta):
        hooks = vars(value).keys() & {"__post_init__", "from_raw", "from_mapping"}
        body = {hook: Hook(hook, vars(value)[hook]) for hook in sorted(hooks)}
        return Meta(name, (value,), body)
    if callable(value) and getattr(value, "__module__", "") == module.__name__:
        return lambda *given, **named: (note(name, *given), value(*given, **named))[1]
    return value if callable(value) else hostile(value, "proxy")


class Hook:
    """A descriptor in the place of a method."""

    def __init__(self, name: str, method: Any) -> None:
        self.name, self.method = name, method

    def __get__(self, instance: Any, owner: type) -> Any:
        note("__get__", self.name)
        return self.method.__get__(instance, owner)


def rebind(rng: random.Random, how: str) -> Callable[[Journal], None]:
    place, everything = rng.random(), rng.random() < 0.3

    def act(journal: Journal) -> None:
        module = journal.module
        names = sorted(name for name in vars(module) if name[:2] != "__" and name != "Iterable")
        for name in names if everything else [names[int(place * len(names))]]:
            value = CONSTANTS.get(how) or rebound(module, name, getattr(module, name))
            journal.patch(module, name, value)
            if how == "away":
                delattr(module, name)
        if how == "and back":
            journal.undo.pop_all().close()

    return act


def patch(journal: Journal) -> None:
    for cls in list(vars(journal.module).values()):
        if isinstance(cls, type) and hasattr(cls, "__post_init__"):
            journal.patch(cls, "__post_init__", lambda self: note("patched", self))


def again_inside(journal: Journal) -> None:
    journal.steps.append(f"inside {outcome(journal.function, *journal.arguments)[0][:2]}")


def action(rng: random.Random) -> Callable[[Journal], Any]:
    draw = rng.randrange(8)
    if draw < 3:
        return functools.partial(throw, rng.choice(THROWN))
    if draw == 3:
        return functools.partial(change, rng.choice(["clear", "replace", "grow"]))
    if draw < 6:
        return rebind(rng, rng.choice(["over", "over", "to 5", "to give 5", "away", "and back"]))
    return patch if draw == 6 else again_inside


def infested(make: Any, module: Any) -> Any:
    """A generator of the same calls with hostile parts."""

    def make_infested(rng: random.Random) -> Any:
        function, *arguments = make(rng)
        share = rng.choice((0.05, 0.2, 1))
        moment = rng.choice((0, rng.randrange(12), rng.randrange(60)))
        journal = Journal(module, function, moment, action(rng))
        return journal, [], *(planted(rng, argument, share, keys) for argument in arguments)

    # The interpreter unpacks keywords before the module sees them, and hashes them anew afterwards.
    keys = "**raw" not in make.__name__
    make_infested.__name__ = f"hostile {make.__name__}"
    return make_infested
