"""Draws a graph as a page whose branches fold. It has no script and fetches nothing."""

from html import escape

from typed_shapes_cli.drawing_nodes import COLOURS, FAINT, INK, OTHER, Node, facts, name_of, walk
from typed_shapes_cli.outcomes import printable

# A browser that heeds the policy runs no script and asks no other host, whatever a payload holds.
HEAD = """<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<title>{title}</title>
<style>
body {{ margin: 1rem; font: 15px/1.5 system-ui, sans-serif; color: {ink}; background: #fff; }}
h1 {{ font-size: 1.2rem; margin: 0; overflow-wrap: anywhere; }}
p {{ margin: 0 0 1rem; color: {faint}; }}
ul {{ list-style: none; margin: 0; padding: 0; }}
li {{ min-width: 15rem; }}
li li {{ margin-left: .45rem; padding-left: .75rem; border-left: 1px solid #c3cad6; }}
summary, .leaf {{ padding: .1rem 0 .1rem 1.1rem; text-indent: -1.1rem; overflow-wrap: anywhere; }}
summary {{ cursor: pointer; list-style: none; }}
summary::-webkit-details-marker {{ display: none; }}
summary:hover, .leaf:hover {{ background: #f3f5f8; }}
summary > *, .leaf > *, ::before {{ text-indent: 0; }}
summary::before, .leaf::before {{ content: ""; display: inline-block; width: 1.1rem; }}
summary::before {{ content: "\\25b8"; }}
details[open] > summary::before {{ content: "\\25be"; }}
i {{ font: .8rem system-ui, sans-serif; padding: .1rem .4rem; border-radius: .3rem; }}
i {{ background: {other}; }}
code {{ font-size: .8rem; color: {faint}; margin-left: .6rem; display: inline-block; }}
{colours}
</style>
<h1>{title}</h1>
<p>{size}</p>
<ul>
"""


def page(root: Node, depth: int | None, title: str) -> str:
    """The graph as HTML, with so many levels open, or all of them."""
    parts: list[str] = []
    last = number = deepest = 0
    for level, node, _ in walk(root):
        parts.append("</ul></details>\n" * (last - level))
        last = level
        deepest = max(deepest, level)
        number += 1
        if node.children:
            state = " open" if depth is None or level + 1 < depth else ""
            parts.append(f"<li><details{state}><summary>{_line(node)}</summary><ul>\n")
            last += 1
        else:
            parts.append(f'<li><div class="leaf">{_line(node)}</div>\n')
    parts.append("</ul></details>\n" * last + "</ul>\n")
    colours = "\n".join(f"i.{kind} {{ background: {c}; }}" for kind, c in COLOURS.items())
    size = f"{number} nodes on {deepest + 1} levels"
    head = HEAD.format(
        title=escape(printable(title)),
        ink=INK,
        faint=FAINT,
        other=OTHER,
        colours=colours,
        size=size,
    )
    return head + "".join(parts)


def _line(node: Node) -> str:
    kind = f' class="{node.type}"' if node.type in COLOURS else ""
    parts = [f"<i{kind}>{escape(node.type)}</i>"]
    if name := name_of(node):
        parts.append(f"<b>{escape(name)}</b>")
    return " ".join(parts + [f"<code>{escape(fact)}</code>" for fact in facts(node)])
