"""What every drawing of a graph says: nodes in order, their texts, a colour for each kind."""

from collections.abc import Iterator

from quillmere.functions import _typed_shapes as shapes

from typed_shapes_cli.outcomes import printable
from typed_shapes_cli.summaries import brief

Node = shapes.FunctionGraphNode
LITERAL, OTHER = "#e6e8ec", "#f4ecd2"
COLOURS = {
    "feature": "#cdebd3",
    "signal": "#fde0ab",
    "aggregation": "#f7c9c6",
    "rotation": "#cfe1f9",
    "reduction": "#ddd0f3",
    "filtration": "#c5ebec",
    **dict.fromkeys(("int", "float", "string", "bool", "list"), LITERAL),
}
INK, FAINT = "#1c2430", "#4a5568"  # dark enough on each of them
WIDEST = 48


def walk(root: Node, depth: int | None = None) -> Iterator[tuple[int, Node, int]]:
    """Every node before its children, with its level and how many nodes below are not drawn."""
    waiting = [(0, root)]
    while waiting:
        level, node = waiting.pop()
        if level + 1 == depth:
            yield level, node, sum(1 for _ in walk(node)) - 1
            continue
        yield level, node, 0
        waiting.extend((level + 1, child) for child in reversed(node.children))


def name_of(node: Node) -> str:
    """The name of the function, the feature or the like; empty where there is none."""
    if isinstance(node.node, str):
        return printable(node.node)
    return "" if node.node is None else brief(node.node)


def facts(node: Node) -> list[str]:
    """The config, entry by entry, and what else the node has."""
    pairs = [*node.config.items(), ("value", node.value)]
    pairs += [("id", node.canonical_id), ("family", node.family)]
    fixed = len(node.config)
    return [
        f"{printable(str(key))} = {brief(value)}"
        for index, (key, value) in enumerate(pairs)
        if index < fixed or value is not None
    ]


def cut(text: str) -> str:
    return text if len(text) <= WIDEST else f"{text[: WIDEST - 3]}..."
