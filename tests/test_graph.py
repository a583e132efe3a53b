"""Function graphs: what others may change about them, and their size."""

from __future__ import annotations

import gc
from typing import Any
from unittest import mock

import pytest
from quillmere.functions import _typed_shapes as ts
from support import both_paths

Node = ts.FunctionGraphNode
RAW = {"type": "rotation", "children": [{"type": "feature", "name": "close"}]}


def test_texts_of_the_old_c_api() -> None:
    make = pytest.importorskip("_testcapi").unicode_legacy_string
    for raw in ({"type": "expression", "op": "feature", "name": "x"}, {"type": "x"}, {"op": "x"}):
        for key in raw:

            def call() -> Any:
                with pytest.warns(DeprecationWarning):
                    old = make(raw[key])
                return (lambda: (Node.from_raw({**raw, key: old}), Node(make(raw[key]))),)

            fast, canonical = both_paths(call)
            assert fast == canonical and fast[0][0] == "returns"


REBOUND = [  # a global, what it is bound to, a call and what it raises then
    ("SchemaError", OSError, lambda: ts.coerce_graph([]), OSError, "mapping payload"),
    ("SchemaError", OSError, lambda: Node(""), OSError, "non-empty str"),
    ("SchemaError", lambda text: 5, lambda: Node(""), TypeError, "must derive from BaseException"),
    ("FunctionGraphNode", type("Child", (Node,), {}), lambda: Node("x", None, [Node("y")]),
     ts.SchemaError, r"children\[0\] must be FunctionGraphNode"),
    ("Mapping", list, lambda: ts.coerce_graph(RAW), ts.SchemaError, "mapping payload"),
    ("Mapping", None, lambda: ts.coerce_graph(RAW), NameError, "name 'Mapping' is not defined"),
]  # fmt: skip


def test_rebound_globals_are_followed(monkeypatch: pytest.MonkeyPatch) -> None:
    for name, value, call, error, text in REBOUND:
        with monkeypatch.context() as patch:
            patch.setattr(ts, name, value) if value else patch.delattr(ts, name)
            pytest.raises(error, call).match(text)
    with monkeypatch.context() as patch:
        patch.setattr(ts, "_GRAPH_RUNTIME_TYPES", frozenset())
        assert ts.coerce_graph(RAW).children[0].type == "rotation"
    assert ts.coerce_graph(RAW).children[0].type == "feature"


HOOKS = {"__post_init__": 2, "__init__": 2, "__setattr__": 18, "from_raw": 2}


@pytest.mark.parametrize(("hook", "times"), HOOKS.items())
def test_patched_hooks_run(hook: str, times: int) -> None:
    calls: list[str] = []
    original = getattr(Node, hook)

    def patched(*args: Any, **kwargs: Any) -> Any:
        calls.append(hook)
        return original(*args, **kwargs)

    with mock.patch.object(Node, hook, patched):
        assert ts.coerce_graph(RAW).children[0].node == "close"
    assert len(calls) == times
    ts.coerce_graph(RAW)
    assert len(calls) == times


def test_a_patched_init_code_is_followed(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(Node.__init__, "__defaults__", ("patched", *Node.__init__.__defaults__[1:]))
    assert Node("x").node == "patched"


def test_a_million_nodes_can_be_dropped() -> None:
    raw = {"op": "x", "children": [{"op": "x", "children": [{"op": "y"}] * 1000}] * 1000}
    assert sum(len(child.children) for child in ts.coerce_graph(raw).children) == 1_000_000
    assert gc.isenabled()
