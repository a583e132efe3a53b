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

from typed_shapes_cli.outcomes import printable
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
            branch.add(Text(f"... {_count(hidden, 'more node')} below", "dim"))
    if limit and total > limit:
        top.label = Text.assemble(
            _node_label(root), (f"  [{limit} of {total} nodes shown; --limit 0 shows all]", "dim")
        )
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
    label = Text(printable(node.type), "bold cyan")
    if node.node is not None:
        name = printable(node.node) if isinstance(node.node, str) else brief(node.node)
        label.append(f" {name}", "bold default")
    for key, value in node.config.items():
        label.append(f"  {printable(str(key))}=", "not bold dim")
        label.append(brief(value), "not bold green")
    for field, value in (
        ("value", node.value),
        ("id", node.canonical_id),
        ("family", node.family),
    ):
        if value is not None:
            label.append(f"  {field}=", "not bold dim")
            label.append(brief(value), "not bold magenta")
    return label


def window(spec: shapes.WindowSpec, limit: int) -> Tree:
    """The fields of a window and the length that the engine would pick."""
    tree = record(spec, limit)
    tree.add(Text.assemble(("picked: ", "dim"), (brief(spec.picked()), "bold")))
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
        return Text("..".join(bounds) + f" picks {value.picked()}")
    return Text("" if value is None else brief(value))


def kinds(rows: Iterable[tuple[str, str, str]]) -> Table:
    """A table of what payloads there are."""
    table = Table("kind", "what it is", "files", box=box.SIMPLE)
    for row in rows:
        table.add_row(*row)
    return table


def record(value: Any, limit: int) -> Tree:
    """Any other record as a tree of its fields; past `limit` entries the rest is counted."""
    title = _count(len(value), "entry", "entries") if isinstance(value, list) else None
    tree = Tree(Text(title or type(value).__name__, "bold cyan"))
    _add_entries(tree, value, limit or None, 0)
    return tree


def _add_entries(tree: Tree, holder: Any, left: int | None, depth: int) -> int | None:
    """Adds the entries of `holder`, at most `left` of them in all, and says how many remain."""
    entries = list(_entries(holder))
    for index, (name, value) in enumerate(entries):
        if left is not None:
            if left <= 0:
                tree.add(Text(f"... {len(entries) - index} more (--limit 0 shows all)", "dim"))
                return left
            left -= 1
        label = Text(f"{name}: ", "dim")
        if isinstance(value, np.ndarray):
            facts = [f"{fact} {text}" for fact, text in array_facts(value).items()]
            tree.add(label.append("  ".join(facts), "not dim green"))
        elif depth < MAX_DEPTH and _holds_entries(value):
            size = _count(len(list(_entries(value))), "entry", "entries")
            branch = tree.add(label.append(f"{type(value).__name__}, {size}", "not dim"))
            left = _add_entries(branch, value, left, depth + 1)
        else:
            tree.add(label.append(brief(value), "not dim green"))
    return left


def _entries(holder: Any) -> Iterator[tuple[str, Any]]:
    if dataclasses.is_dataclass(holder):
        for field in dataclasses.fields(holder):
            yield field.name, getattr(holder, field.name)
    elif isinstance(holder, dict):
        for key, value in holder.items():
            yield printable(str(key)), value
    else:
        for index, value in enumerate(holder):
            yield f"[{index}]", value


def _holds_entries(value: Any) -> bool:
    if dataclasses.is_dataclass(value):
        return True
    if not isinstance(value, dict | list) or not value:
        return False
    items = value.values() if isinstance(value, dict) else value
    has_array = any(isinstance(item, np.ndarray) for item in items)
    text = brief(value)
    return has_array or len(text) > INLINE_WIDTH or "..." in text


def _count(number: int, noun: str, plural: str | None = None) -> str:
    return f"{number} {noun if number == 1 else plural or noun + 's'}"
