"""Function graphs: the spellings, the refusals, and the agreement of the two paths."""

from __future__ import annotations

import gc
import json
import sys
import threading
from types import MappingProxyType
from typing import Any

import pytest
from quillmere.functions import _typed_shapes as ts
from support import (
    DictChild,
    Registered,
    both_paths,
    canonical_path,
    outcome,
)

Node = ts.FunctionGraphNode

SPELLINGS = [
    ({"type": "rotation", "node": "rank"}, "rotation", "rank"),
    ({"type": "feature", "name": "close"}, "feature", "close"),
    ({"type": "signal", "op": "x"}, "signal", "x"),
    ({"type": "signal", "function_name": "f", "op": "x"}, "signal", "f"),
    ({"type": "signal", "node": None, "name": 0}, "signal", 0),
    ({"op": "feature", "name": "volume", "node": "other"}, "feature", "volume"),
    ({"op": "feature", "node": "other"}, "feature", None),
    ({"type": "expression", "op": "filtration", "name": "n"}, "filtration", "filtration"),
    ({"type": "expression", "op": "zscore"}, "rotation", "zscore"),
    ({"type": "expression", "op": "", "node": "n"}, "expression", "n"),
    ({"type": "expression"}, "expression", None),
    ({"op": "zscore"}, "rotation", "zscore"),
    ({"type": "my_op"}, "rotation", "my_op"),
    ({"type": "my_op", "function_name": "f"}, "rotation", "f"),
    ({"type": ""}, "rotation", ""),
    ({"type": {"feature"}}, "rotation", {"feature"}),
    ({"type": 5, "op": []}, "rotation", 5),
]


@pytest.mark.parametrize(("raw", "kind", "operand"), SPELLINGS)
def test_spellings(raw: dict[str, Any], kind: str, operand: object) -> None:
    for payload in (raw, DictChild(raw), MappingProxyType(raw), Registered(raw)):
        node = ts.coerce_graph(payload)
        assert (node.type, node.node) == (kind, operand)


def test_an_unhashable_kind_is_the_sets_own_error() -> None:
    with pytest.raises(TypeError, match=r"^unhashable type: 'list'$"):
        ts.coerce_graph({"type": []})


def test_children_config_and_the_rest() -> None:
    config = {"w": 5}
    raw = {
        "type": "rotation",
        "children": None,
        "args": [{"op": "x", "canonical_id": "c1", "family": "f", "value": 3}],
        "params": config,
        "config": None,
    }
    node = ts.coerce_graph(raw)
    (child,) = node.children
    assert (child.canonical_id, child.family, child.value) == ("c1", "f", 3)
    assert node.config == config
    assert node.config is not config
    for odd in ([1], "text", MappingProxyType({"a": 1}), 7, 1.5, True, (), Registered({})):
        assert ts.coerce_graph({"type": "x", "config": odd}).config == {}
    assert ts.coerce_graph({"type": "x", "config": DictChild(a=1)}).config == {"a": 1}
    assert type(ts.coerce_graph({"type": "x", "config": DictChild(a=1)}).config) is dict


def test_identity_is_equality() -> None:
    a, b = Node("rotation", "rank"), Node("rotation", "rank")
    assert a != b
    assert len({a, b}) == 2
    assert a.children is not b.children
    assert repr(a) == (
        "FunctionGraphNode(type='rotation', node='rank', children=[], config={}, "
        "canonical_id=None, family=None, value=None)"
    )
    assert (a._node_identities, a._collect_nodes_cache) == (None, None)


def test_the_interpreters_own_texts_for_constructor_errors() -> None:
    for call, text in (
        (lambda: Node(), "__init__() missing 1 required positional argument: 'type'"),
        (lambda: Node("x", bogus=1), "__init__() got an unexpected keyword argument 'bogus'"),
        (lambda: Node("x", type="y"), "__init__() got multiple values for argument 'type'"),
        (lambda: Node(*range(10)), "__init__() takes from 2 to 10 positional arguments but 11 "),
    ):
        with pytest.raises(TypeError) as caught:
            call()
        assert text in str(caught.value)


# --- What others may change ---

RAW = {"type": "rotation", "children": [{"type": "feature", "name": "close"}]}


def test_texts_of_the_old_c_api() -> None:
    make = pytest.importorskip("_testcapi").unicode_legacy_string
    for raw in ({"type": "expression", "op": "feature", "name": "x"}, {"type": "x"}, {"op": "x"}):
        for key in raw:

            def call(raw: dict[str, str] = raw, key: str = key) -> Any:
                with pytest.warns(DeprecationWarning):
                    old = make(raw[key])
                return (lambda: (Node.from_raw({**raw, key: old}), Node(make(raw[key]))),)

            fast, canonical = both_paths(call)
            assert fast == canonical and fast[0][0] == "returns"


def test_rebound_globals_are_followed(monkeypatch: pytest.MonkeyPatch) -> None:
    class OtherError(Exception):
        pass

    with monkeypatch.context() as patch:
        patch.setattr(ts, "_GRAPH_RUNTIME_TYPES", frozenset())
        assert ts.coerce_graph(RAW).children[0].type == "rotation"
    with monkeypatch.context() as patch:
        patch.setattr(ts, "SchemaError", OtherError)
        pytest.raises(OtherError, ts.coerce_graph, [])
        pytest.raises(OtherError, Node, "")
    with monkeypatch.context() as patch:
        patch.setattr(ts, "SchemaError", lambda text: 5)
        with pytest.raises(TypeError, match="exceptions must derive from BaseException"):
            ts.coerce_graph([])
    with monkeypatch.context() as patch:
        patch.setattr(ts, "FunctionGraphNode", type("Child", (Node,), {}))
        with pytest.raises(ts.SchemaError, match=r"children\[0\] must be FunctionGraphNode"):
            Node("x", None, [Node("y")])
    with monkeypatch.context() as patch:
        patch.setattr(ts, "Mapping", list)
        pytest.raises(ts.SchemaError, ts.coerce_graph, RAW)
    with monkeypatch.context() as patch:
        patch.delattr(ts, "Mapping")
        pytest.raises(NameError, ts.coerce_graph, RAW)
    assert ts.coerce_graph(RAW).children[0].type == "feature"


@pytest.mark.parametrize("hook", ["__post_init__", "__init__", "__setattr__", "from_raw"])
def test_patched_hooks_run(monkeypatch: pytest.MonkeyPatch, hook: str) -> None:
    calls: list[str] = []
    original = vars(Node).get(hook) or getattr(object, hook)

    def patched(*args: Any, **kwargs: Any) -> Any:
        calls.append(hook)
        if hook == "from_raw":
            return original.__get__(None, Node)(*args[1:], **kwargs)
        return original(*args, **kwargs)

    new = classmethod(patched) if hook == "from_raw" else patched
    with monkeypatch.context() as patch:
        patch.setattr(Node, hook, new)
        node = ts.coerce_graph(RAW)
        assert node.children[0].node == "close"
        assert len(calls) == (18 if hook == "__setattr__" else 2)
    calls.clear()
    ts.coerce_graph(RAW)
    assert calls == []


def test_a_patched_init_code_is_followed(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(Node.__init__, "__defaults__", ("patched", *Node.__init__.__defaults__[1:]))
    assert Node("x").node == "patched"


def test_subclasses_build_themselves() -> None:
    class Child(Node):
        def __post_init__(self) -> None:
            self.seen = True
            super().__post_init__()

    node = Child.from_raw(RAW)
    assert type(node) is type(node.children[0]) is Child
    assert node.seen
    with pytest.raises(ts.SchemaError):
        Child("")


# --- Depth and size ---


def nested(levels: int) -> Any:
    payload: Any = {"op": "x"}
    for _ in range(levels):
        payload = {"op": "x", "children": [payload]}
    return payload


def test_depth_ends_in_recursion_error() -> None:
    deep = nested(100_000)
    for limit in (sys.getrecursionlimit(), 10**6):
        before = sys.getrecursionlimit()
        sys.setrecursionlimit(limit)
        try:
            with pytest.raises(RecursionError):
                ts.coerce_graph(deep)
            with canonical_path(), pytest.raises(RecursionError):
                ts.coerce_graph(deep)
        finally:
            sys.setrecursionlimit(before)
    loop: dict[str, Any] = {"op": "x"}
    loop["children"] = [loop]
    pytest.raises(RecursionError, ts.coerce_graph, loop)
    while deep.get("children"):  # taken apart by hand: dicts this deep are no matter of ours
        deep = deep.pop("children")[0]


def test_depth_on_a_small_stack() -> None:
    results: list[Any] = []

    def work() -> None:
        sys.setrecursionlimit(10**6)
        deep = nested(20_000)
        results.append(outcome(lambda: ts.coerce_graph(deep))[0][1])
        with canonical_path():
            results.append(outcome(lambda: ts.coerce_graph(deep))[0][1])
        while deep.get("children"):
            deep = deep.pop("children")[0]

    limit, size = sys.getrecursionlimit(), threading.stack_size(256 * 1024)
    try:
        thread = threading.Thread(target=work)
        thread.start()
        thread.join()
    finally:
        threading.stack_size(size)
        sys.setrecursionlimit(limit)
    assert results == ["RecursionError", "RecursionError"]


def test_a_million_nodes_can_be_dropped() -> None:
    raw = json.loads('{"op": "x", "children": [' + ",".join(['{"op": "y"}'] * 1000) + "]}")
    raw = {"op": "x", "children": [raw] * 1000}
    node = ts.coerce_graph(raw)
    assert sum(len(child.children) for child in node.children) == 1_000_000
    assert gc.isenabled()
    del node
