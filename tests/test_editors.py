"""What an editor and a prompt can tell of the records."""

import shutil
from dataclasses import fields
from pathlib import Path

import jedi
from quillmere.functions import _typed_shapes as ts

STUB = Path(__file__).parent.parent / "functions" / "_typed_shapes.pyi"


def test_completion_shows_the_fields_of_a_graph(tmp_path: Path) -> None:
    """From the stub, in a package with an `__init__.py`; and from the object, as IPython does."""
    (package := tmp_path / "quillmere" / "functions").mkdir(parents=True)
    for made in (package / "__init__.py", package.parent / "__init__.py"):
        made.touch()
    shutil.copy(STUB, package)
    project = jedi.Project(tmp_path, sys_path=[str(tmp_path)])
    code = "from quillmere.functions._typed_shapes import coerce_graph as of\nof({}).children[0]."
    script = jedi.Script(code, project=project)
    written, hover = script.complete(), script.help(1, 50)[0].docstring()
    graph = ts.coerce_graph({"op": "rank", "args": [{"op": "close"}]})
    live = jedi.Interpreter("g.", [{"g": graph}]).complete()
    for found in (written, live):
        assert {field.name for field in fields(graph)} <= {name.name for name in found}
    assert hover.startswith("coerce_graph(raw: Any) -> FunctionGraphNode\n\nParse a whole graph")
