"""How the pages are built; ``make docs`` puts them into build/docs.

The texts of the reference are those of the stub, where they say more than the docstrings of the
module itself; these stand folded below them, as ``help()`` shows them.
"""

from __future__ import annotations

import ast
import dataclasses
import inspect
import re
from collections.abc import Iterator
from importlib.metadata import version as installed_version
from pathlib import Path
from typing import Any

from docutils import nodes

# Imported before autodoc looks for it: autodoc would execute the stub in its place.
from quillmere.functions import _typed_shapes
from sphinx import addnodes
from sphinx.application import Sphinx
from sphinx.util import logging
from sphinx.util.docutils import SphinxDirective

project = "Typed shapes"
version = release = installed_version("quillmere-typed-shapes")

extensions = ["myst_parser", "sphinx.ext.autodoc", "sphinx.ext.autosectionlabel"]
autosectionlabel_prefix_document = True
suppress_warnings = ["autosectionlabel.*"]
nitpicky = True
# Types of other libraries, whose pages are not linked.
nitpick_ignore_regex = [("py:class", r"np\..*|NDArray|DTypeLike|_T|_MISSING|.*View|Iterator")]
myst_heading_anchors = 3
add_module_names = False
toc_object_entries_show_parents = "hide"
highlight_language = "text"
python_maximum_signature_line_length = 88

html_theme = "furo"
html_title = f"{project} {version}"
html_static_path = ["static"]
html_css_files = ["pages.css"]
html_copy_source = False
html_use_index = False
html_domain_indices = False
html_show_copyright = False
html_show_sphinx = False

LOGGER = logging.getLogger(__name__)
HERE = Path(__file__).parent
MODULE = _typed_shapes.__name__
MASK = "NDArray[np.float64 | np.float16 | np.bool_]"
NativeFunction = type(_typed_shapes.coerce_graph)


# --- The stub ---


def definitions(body: list[ast.stmt], owner: str = "") -> Iterator[tuple[str, ast.stmt]]:
    """Classes and functions by qualified name; of overloads the first, which has the text."""
    for node in reversed(body):
        if isinstance(node, ast.ClassDef | ast.FunctionDef):
            yield owner + node.name, node
        if isinstance(node, ast.ClassDef):
            yield from definitions(node.body, f"{node.name}.")


STUB = dict(
    definitions(ast.parse((HERE.parent / "functions" / "_typed_shapes.pyi").read_text()).body)
)


def field_texts(owner: ast.ClassDef) -> Iterator[tuple[str, str]]:
    """The fields of a class, each with the string that follows it."""
    for declaration, text in zip(owner.body, owner.body[1:], strict=False):
        if isinstance(declaration, ast.AnnAssign) and isinstance(text, ast.Expr):
            yield ast.unparse(declaration.target), ast.literal_eval(text.value)


def say_what_the_stub_says(
    _app: Sphinx, what: str, name: str, item: Any, _options: Any, lines: list[str]
) -> None:
    node = STUB.get(name.removeprefix(f"{MODULE}."))
    if not isinstance(node, ast.ClassDef | ast.FunctionDef):
        return
    if not (text := ast.get_docstring(node)):
        LOGGER.warning("the stub says nothing about %s", name)
        return
    own = inspect.cleandoc("\n".join(lines)).splitlines()
    lines[:] = text.splitlines()
    if isinstance(node, ast.ClassDef):
        role = "ivar" if what == "exception" else "param"
        texts = dict(field_texts(node))
        lines += ["", *(f":{role} {field}: {told}" for field, told in texts.items())]
        if untold := {*getattr(item, "__dataclass_fields__", ())} - texts.keys():
            LOGGER.warning("the stub has no text for these fields of %s: %s", name, untold)
    if own:
        lines += ["", ".. admonition:: In ``help()``", "   :collapsible: closed", ""]
        lines += [f"   {line}" for line in own]
    if what in ("class", "exception", "function") and (section := SECTIONS.get(node.name)):
        lines += ["", f"What fits, and examples: :ref:`{section}`."]


# --- Links between the sections of the records and the reference ---


def sections() -> Iterator[tuple[str, str]]:
    """For each name the label of the section that describes it."""
    for page in HERE.glob("records/*.md"):
        for line in page.read_text().splitlines():
            if hasattr(_typed_shapes, title := line.removeprefix("## ")) and title != line:
                yield title, f"records/{page.stem}:{title}"


SECTIONS = {
    "coerce_graph": "records/graph:FunctionGraphNode",
    "coerce_state": "records/state:State",
    "SchemaError": "records/errors:Errors",
    "InvalidFunctionStateError": "records/restore:Refused",
    **{
        name: "records/state:State" for name in STUB if name.startswith("State") and "." not in name
    },
    **dict(sections()),
}


def link_sections_to_reference(app: Sphinx, tree: nodes.document) -> None:
    for section in tree.findall(nodes.section):
        title = section[0].astext()
        if app.env.docname.startswith("records/") and hasattr(_typed_shapes, title):
            reference = addnodes.pending_xref(
                "", nodes.inline(text="In the reference"), refdomain="py", reftype="obj",
                reftarget=f"{MODULE}.{title}", refdoc=app.env.docname, refwarn=True,
            )  # fmt: skip
            section.insert(1, nodes.paragraph("", "", reference, classes=["to-reference"]))


# --- Signatures ---


class Record(SphinxDirective):
    """``.. record:: StageData`` is the class with all of its functions.

    autodoc takes functions of the module's own type for attributes, so it is told of each.
    """

    required_arguments = 1

    def run(self) -> list[nodes.Node]:
        name = self.arguments[0]
        lines = [f".. autoclass:: {name}", ""]
        for member, value in vars(getattr(_typed_shapes, name)).items():
            function = getattr(value, "__func__", value)
            if isinstance(value, property):
                lines.append(f"   .. autoproperty:: {name}.{member}")
            elif isinstance(function, NativeFunction) and member not in (
                "__init__",
                "__post_init__",
            ):
                lines.append(f"   .. automethod:: {name}.{member}")
        return self.parse_text_to_nodes("\n".join(lines))


def readable_signature(
    _app: Sphinx, what: str, name: str, item: Any, _options: Any, signature: str, returns: str
) -> tuple[str | None, str | None]:
    """That of the stub, without what a caller never writes and with what factories make."""
    if dataclasses.is_dataclass(item):
        return "(" + ", ".join(map(parameter, dataclasses.fields(item))) + ")", None
    if what == "property":
        return "", ""  # its docstring's first line is not one; the type is taken from the getter
    node = STUB.get(name.removeprefix(f"{MODULE}."))
    if isinstance(node, ast.FunctionDef) and signature:
        if any(ast.unparse(decorator) == "overload" for decorator in node.decorator_list):
            return re.sub(r"^\((self|cls)\b(, )?", "(", signature), returns.replace("'", "")
        arguments = node.args
        if arguments.args and arguments.args[0].arg in ("self", "cls"):
            arguments.args = arguments.args[1:]
        result = ast.unparse(node.returns) if node.returns else "None"
        return f"({ast.unparse(arguments)})", result.replace("_Mask", MASK)
    return signature, returns


def parameter(field: dataclasses.Field[Any]) -> str:
    declared = f"{field.name}: {field.type}".replace("'", "")
    if field.default_factory is not dataclasses.MISSING:
        return f"{declared} = {field.default_factory()!r}"
    return declared if field.default is dataclasses.MISSING else f"{declared} = {field.default!r}"


def setup(app: Sphinx) -> None:
    app.add_directive("record", Record)
    app.connect("autodoc-process-signature", readable_signature)
    app.connect("autodoc-process-docstring", say_what_the_stub_says)
    app.connect("doctree-read", link_sections_to_reference)
