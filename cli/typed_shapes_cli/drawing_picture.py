"""Draws a graph with Graphviz: its text, and the picture that the program dot makes of that."""

from html import escape
from subprocess import CalledProcessError

import graphviz

from typed_shapes_cli.drawing_nodes import (
    COLOURS,
    FAINT,
    INK,
    OTHER,
    Node,
    cut,
    facts,
    name_of,
    walk,
)
from typed_shapes_cli.outcomes import InputError, printable, reason

MAX_ROWS = 8  # of a node; its tooltip has all of them
MAX_NODES = 3000  # for dot, whose time grows faster than the graph


def as_text(root: Node, depth: int | None, title: str) -> str:
    """The graph in the language of Graphviz, from left to right, as its labels are read."""
    picture = graphviz.Digraph(
        comment=printable(title),
        graph_attr={"rankdir": "LR", "ordering": "out", "nodesep": "0.12", "ranksep": "0.6"},
        node_attr={
            "shape": "box",
            "style": "filled,rounded",
            "penwidth": "0",
            "fontname": "Helvetica,Arial,sans-serif",
            "fontsize": "11",
            "fontcolor": INK,
            "margin": "0.1,0.04",
            "height": "0",
        },
        edge_attr={"arrowhead": "none", "color": "#8a94a6", "tailport": "e", "headport": "w"},
    )
    above: list[str] = []  # the names of the nodes on the way from the root
    for number, (level, node, hidden) in enumerate(walk(root, depth)):
        name = f"n{number}"
        picture.node(
            name,
            _label(node, hidden),
            fillcolor=COLOURS.get(node.type, OTHER),
            tooltip=graphviz.escape("  ".join([node.type, name_of(node), *facts(node)])),
        )
        above[level:] = [name]
        if level:
            picture.edge(above[level - 1], name)
    return str(picture.source)


def as_picture(root: Node, depth: int | None, title: str) -> str:
    """The graph as SVG."""
    number = sum(1 for _ in walk(root, depth))
    if number > MAX_NODES:
        raise InputError(
            f"has {number} nodes to draw, and .svg is for at most {MAX_NODES}: "
            "give a --depth, or write .html"
        )
    try:
        return str(graphviz.Source(as_text(root, depth, title)).pipe("svg", encoding="utf-8"))
    except CalledProcessError as error:
        raise InputError(f"cannot be drawn by dot: {reason(error)}") from error


def _label(node: Node, hidden: int) -> str:
    """A table, in the markup that Graphviz has for labels."""
    head = f'<font point-size="9" color="{FAINT}">{_markup(node.type)}</font>'
    if name := name_of(node):
        head += f"  <b>{_markup(cut(name))}</b>"
    rows = facts(node)
    if len(rows) > MAX_ROWS:
        rows[MAX_ROWS:] = [f"... {len(rows) - MAX_ROWS} more"]
    if hidden:
        rows.append(f"... {hidden} more below")
    cells = [head, *(f'<font point-size="10">{_markup(cut(row))}</font>' for row in rows)]
    lines = "".join(f'<tr><td align="left">{cell}</td></tr>' for cell in cells)
    return f'<<table border="0" cellspacing="0" cellpadding="1">{lines}</table>>'


def _markup(text: str) -> str:
    """A text in a label, where \\N would stand for the name of the node."""
    return escape(text).replace("\\", "\\\\")
