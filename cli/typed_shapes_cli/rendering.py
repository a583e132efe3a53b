"""Shows typed records with rich, none of them at more length than a reader would want."""

import dataclasses
from collections import deque
from collections.abc import Iterable, Iterator
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as shapes
from rich import box
from rich.table import Table
from rich.text import Text
from rich.tree import Tree

from typed_shapes_cli.console import words
from typed_shapes_cli.summaries import array_facts, brief

INLINE_WIDTH = 72
MAX_DEPTH = 8


def graph(root: shapes.FunctionGraphNode, limit: int) -> Tree:
    """A tree with a line for each node; past `limit` nodes the lowest levels are counted only."""
    sizes = _subtree_sizes(root)
    total = sizes[id(root)]
    left = (limit or total) - 1
    top = Tree(_node_label(root))
    queue = deque([(root, top)])
    while queue:
        node, branch = queue.popleft()
        shown = node.children[:left]
        left -= len(shown)
        queue.extend((child, branch.add(_node_label(child))) for child in shown)
        hidden = sum(sizes[id(child)] for child in node.children[len(shown) :])
        if hidden:
            branch.add(words((f"... {_count(hidden, 'more node')} below", "dim")))
    if limit and total > limit:
        note = f"  [{limit} of {total} nodes shown; --limit 0 shows all]"
        top.label = Text.assemble(_node_label(root), (note, "dim"))
    return top


def _subtree_sizes(root: shapes.FunctionGraphNode) -> dict[int, int]:
    order = [root]
    for node in order:
        order.extend(node.children)
    sizes: dict[int, int] = {}
    for node in reversed(order):
        sizes[id(node)] = 1 + sum(sizes[id(child)] for child in node.children)
    return sizes


def _node_label(node: shapes.FunctionGraphNode) -> Text:
    parts = [(node.type, "bold cyan")]
    if node.node is not None:
        name = node.node if isinstance(node.node, str) else brief(node.node)
        parts.append((f" {name}", "bold default"))
    for key, value in node.config.items():
        parts += [(f"  {key}=", "dim cyan"), (brief(value), "green")]
    for field, value in (
        ("value", node.value),
        ("id", node.canonical_id),
        ("family", node.family),
    ):
        if value is not None:
            parts += [(f"  {field}=", "dim cyan"), (brief(value), "magenta")]
    return words(*parts)


def window(spec: shapes.WindowSpec, limit: int) -> Tree:
    """The fields of a window and the length that the engine would pick."""
    tree = record(spec, limit)
    tree.add(words(("picked: ", "dim"), (brief(spec.picked()), "bold")))
    return tree


def parameters(specs: dict[str, shapes.ParamSpec], limit: int) -> Table:
    """A table with a row for each parameter."""
    names = [field.name for field in dataclasses.fields(shapes.ParamSpec)]
    table = Table(*names, title=f"ParamSpec, {_count(len(specs), 'parameter')}")
    for index, spec in enumerate(specs.values()):
        if limit and index == limit:
            table.add_row(f"... {len(specs) - limit} more")
            break
        table.add_row(*(_cell(getattr(spec, name)) for name in names))
    return table


def _cell(value: Any) -> Text:
    if isinstance(value, shapes.WindowSpec):
        bounds = [str(b) if b is not None else "" for b in (value.minimum, value.maximum)]
        return words("..".join(bounds) + f" picks {value.picked()}")
    return words("" if value is None else brief(value))


def kinds(rows: Iterable[tuple[str, str, str]]) -> Table:
    """A table of what payloads there are."""
    table = Table("kind", "what it is", "files", box=box.SIMPLE)
    for row in rows:
        table.add_row(*row)
    return table


def record(value: Any, limit: int) -> Tree:
    """Any other record as a tree of its fields; past `limit` entries the rest is counted."""
    title = _count(len(value), "entry", "entries") if isinstance(value, list) else None
    tree = Tree(words((title or type(value).__name__, "bold cyan")))
    _add_entries(tree, value, limit or None, 0)
    return tree


def _add_entries(tree: Tree, holder: Any, left: int | None, depth: int) -> int | None:
    """Adds the entries of `holder`, at most `left` of them in all, and says how many remain."""
    entries = list(_entries(holder))
    for index, (name, value) in enumerate(entries):
        if left is not None:
            if left <= 0:
                tree.add(words((f"... {len(entries) - index} more (--limit 0 shows all)", "dim")))
                return left
            left -= 1
        label = (f"{name}: ", "dim")
        if isinstance(value, np.ndarray):
            facts = [f"{fact} {text}" for fact, text in array_facts(value).items()]
            tree.add(words(label, ("  ".join(facts), "green")))
        elif depth < MAX_DEPTH and _holds_entries(value):
            size = _count(len(list(_entries(value))), "entry", "entries")
            branch = tree.add(words(label, f"{type(value).__name__}, {size}"))
            left = _add_entries(branch, value, left, depth + 1)
        else:
            tree.add(words(label, (brief(value), "green")))
    return left


def _entries(holder: Any) -> Iterator[tuple[str, Any]]:
    if dataclasses.is_dataclass(holder):
        for field in dataclasses.fields(holder):
            yield field.name, getattr(holder, field.name)
    elif isinstance(holder, dict):
        for key, value in holder.items():
            yield str(key), value
    else:
        for index, value in enumerate(holder):
            yield f"[{index}]", value


def _holds_entries(value: Any) -> bool:
    if dataclasses.is_dataclass(value):
        return True
    if not isinstance(value, dict | list) or not value:
        return False
    items = value.values() if isinstance(value, dict) else value
    if any(isinstance(item, np.ndarray) for item in items):
        return True
    text = brief(value)
    return len(text) > INLINE_WIDTH or "..." in text


def _count(number: int, noun: str, plural: str | None = None) -> str:
    return f"{number} {noun if number == 1 else plural or noun + 's'}"
