"""How the pages are built; ``make docs`` puts them into build/docs."""

from __future__ import annotations

import dataclasses
import re
from importlib.metadata import version as installed_version
from typing import Any

from docutils import nodes

# Imported before autodoc looks for it: autodoc would execute the stub in its place.
from quillmere.functions import _typed_shapes
from sphinx.application import Sphinx
from sphinx.util.docutils import SphinxDirective

project = "Typed shapes"
version = release = installed_version("quillmere-typed-shapes")

extensions = ["myst_parser", "sphinx.ext.autodoc"]
nitpicky = True
nitpick_ignore = [("py:class", "np.ndarray"), ("py:class", "_MISSING")]
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

NativeFunction = type(_typed_shapes.coerce_graph)


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
    _app: Sphinx, what: str, _name: str, item: Any, _options: Any, signature: str, returns: str
) -> tuple[str | None, str | None]:
    """Leaves out what a caller never writes, and shows the defaults that factories make."""
    if dataclasses.is_dataclass(item):
        return "(" + ", ".join(map(parameter, dataclasses.fields(item))) + ")", None
    if what == "property":
        return "", ""  # its docstring's first line is not one; the type is taken from the getter
    if what in ("method", "function") and signature:
        signature = re.sub(r"^\((self|cls)\b(, )?", "(", signature)
    return signature, returns and returns.replace("'", "")


def parameter(field: dataclasses.Field[Any]) -> str:
    declared = f"{field.name}: {field.type}".replace("'", "")
    if field.default_factory is not dataclasses.MISSING:
        return f"{declared} = {field.default_factory()!r}"
    return declared if field.default is dataclasses.MISSING else f"{declared} = {field.default!r}"


def setup(app: Sphinx) -> None:
    app.add_directive("record", Record)
    app.connect("autodoc-process-signature", readable_signature)
