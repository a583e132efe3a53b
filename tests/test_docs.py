"""What users are told: the examples of the documentation, what an editor completes and shows."""

import doctest
import json
import re
import shutil
import subprocess
import sys
from dataclasses import fields
from pathlib import Path

import jedi
import pytest
from quillmere.functions import _typed_shapes as ts

from scripts import json_errors

ROOT = Path(__file__).parent.parent
RULES = ROOT / "docs" / "records" / "index.md"
PAGES = [ROOT / "README.md", ROOT / "PACKAGE.md", *sorted(ROOT.glob("docs/**/*.md"))]
WITH_EXAMPLES = [page for page in PAGES if "\n>>> " in page.read_text()]


@pytest.mark.parametrize("page", WITH_EXAMPLES, ids=lambda page: f"{page.parent.name}/{page.name}")
def test_page(page: Path) -> None:
    if page.name == "why.md":
        [pytest.importorskip(library) for library in ("attrs", "msgspec", "pydantic")]
    # The pages of the records go on where that of their rules ends; all others stand alone.
    before = RULES.read_text() if page.parent == RULES.parent and page != RULES else ""
    text = re.sub("^```.*", "", before + page.read_text(), flags=re.M)
    test = doctest.DocTestParser().get_doctest(text, {}, page.name, str(page), 0)
    failed, attempted = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS).run(test)
    assert failed == 0
    assert attempted == text.count("\n>>> ")


def test_the_table_of_errors_is_what_json_raises() -> None:
    assert f"-->\n{json_errors.table()}<!--" in (RULES.parent / "errors.md").read_text()


def test_the_example_resumes_where_it_stopped() -> None:
    command = [sys.executable, "-W", "error", ROOT / "examples" / "replay.py"]
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    assert json.loads(done.stdout)["equal"] is True


def test_completion_shows_the_fields_of_a_graph(tmp_path: Path) -> None:
    """From the stub, in a package with an `__init__.py`; and from the object, as IPython does."""
    (package := tmp_path / "quillmere" / "functions").mkdir(parents=True)
    for made in (package / "__init__.py", package.parent / "__init__.py"):
        made.touch()
    shutil.copy(ROOT / "functions" / "_typed_shapes.pyi", package)
    jedi.settings.cache_directory = str(ROOT / "build" / "jedi")
    project = jedi.Project(tmp_path, sys_path=[str(tmp_path)])
    code = "from quillmere.functions._typed_shapes import coerce_graph as of\nof({}).children[0]."
    script = jedi.Script(code, project=project)
    written, hover = script.complete(), script.help(1, 50)[0].docstring()
    graph = ts.coerce_graph({"op": "rank", "args": [{"op": "close"}]})
    live = jedi.Interpreter("g.", [{"g": graph}]).complete()
    for found in (written, live):
        assert {field.name for field in fields(graph)} <= {name.name for name in found}
    assert hover.startswith("coerce_graph(raw: Any) -> FunctionGraphNode\n\nParse a whole graph")
