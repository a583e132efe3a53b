"""Shows typed records with rich, none of them at more length than a reader would want."""

import dataclasses
from collections import deque
from collections.abc import Iterable, Iterator
from typing import Any

import numpy as np
from quillmere.functions import _typed_shapes as shapes
from rich import box
from rich.cells import cell_len
from rich.console import Console, ConsoleOptions, RenderResult
from rich.measure import Measurement
from rich.table import Table
from rich.text import Text
from rich.tree import Tree

from typed_shapes_cli.console import PIPED_WIDTH, words
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


class Rows:
    """A table; where a terminal is too narrow for its words, what each row says stands below it."""

    def __init__(self, names: list[str], rows: list[list[Text]], wraps: str, title: str) -> None:
        self.names, self.rows, self.title = names, rows, title
        self.table = Table(box=box.SIMPLE, title=title, title_justify="left")
        for index, name in enumerate(names):
            cells = [row[index].plain for row in rows if index < len(row)]
            whole = [word for cell in cells for word in (cell.split() if name == wraps else [cell])]
            width = max(map(cell_len, [name, *whole]))
            self.table.add_column(name, min_width=width, no_wrap=name != wraps)
        for row in rows:
            self.table.add_row(*row)

    def __rich_console__(self, console: Console, options: ConsoleOptions) -> RenderResult:
        roomy = options.update(width=PIPED_WIDTH)
        if Measurement.get(console, roomy, self.table).minimum <= options.max_width:
            yield self.table
            return
        tree = Tree(words((self.title, "bold cyan")))
        for first, *others in self.rows:
            branch = tree.add(words((first.plain, "bold")))
            for name, cell in zip(self.names[1:], others, strict=False):
                if cell.plain:
                    branch.add(words((f"{name}: ", "dim"), cell.plain))
        yield tree


def parameters(specs: dict[str, shapes.ParamSpec], limit: int) -> Rows:
    """A row for each parameter."""
    names = [field.name for field in dataclasses.fields(shapes.ParamSpec)]
    shown = list(specs.values())[: limit or None]
    rows = [[_cell(getattr(spec, name)) for name in names] for spec in shown]
    if len(shown) < len(specs):
        rows.append([words(f"... {len(specs) - len(shown)} more")])
    return Rows(names, rows, "window", f"ParamSpec, {_count(len(specs), 'parameter')}")


def _cell(value: Any) -> Text:
    if isinstance(value, shapes.WindowSpec):
        bounds = [str(b) if b is not None else "" for b in (value.minimum, value.maximum)]
        return words("..".join(bounds) + f" picks {value.picked()}")
    return words("" if value is None else brief(value))


def kinds(rows: Iterable[tuple[str, str, str]]) -> Rows:
    """What payloads there are."""
    cells = [[words(text) for text in row] for row in rows]
    return Rows(["kind", "what it is", "files"], cells, "what it is", "Kinds of payloads")


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
