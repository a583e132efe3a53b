"""The drawings of a graph: what they show, and that the texts of a payload stay texts in them."""

import importlib.util
import shutil
from html.parser import HTMLParser
from pathlib import Path
from xml.etree import ElementTree

import pytest
from quillmere.functions._typed_shapes import coerce_graph
from typed_shapes_cli.app import app
from typed_shapes_cli.drawing import FORMS
from typed_shapes_cli.outcomes import printable
from typer.testing import CliRunner

GRAPHS = Path(__file__).resolve().parent.parent / "examples" / "graphs"
HOSTILE = ['<b onclick="x">&amp;', '"];n9->n8;//\\', "\\N\\G\\", "</style><script>", "\x1b\0\ud800"]
NEEDS_DOT = pytest.mark.skipif(
    not (shutil.which("dot") and importlib.util.find_spec("pyexpat")),
    reason="needs the program dot, and the interpreter's XML parser",
)


class Read(HTMLParser):
    def __init__(self, text: str) -> None:
        super().__init__()
        self.texts: list[str] = []
        self.tags: list[str] = []
        self.handle_data = self.texts.append
        self.handle_starttag = lambda tag, _: self.tags.append(tag)
        self.feed(text)


@pytest.mark.parametrize("form", [".html", pytest.param(".svg", marks=NEEDS_DOT)])
def test_a_text_of_a_payload_is_shown_and_adds_nothing(form: str) -> None:
    def drawn(text: str) -> str:
        node = {"op": "x", "name": text, "params": {text: text}, "args": [{"op": "y"}]}
        return FORMS[form](coerce_graph({"type": "signal", **node, "family": text}), None, text)

    for text in HOSTILE:
        found = Read(drawn(text))
        assert found.tags == Read(drawn("plain")).tags
        assert printable(text) in found.texts
        assert form == ".html" or ElementTree.fromstring(drawn(text)) is not None


@NEEDS_DOT
def test_the_command_draws_levels_and_says_what_it_cannot(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def run(graph: str, output: str, *words: str) -> tuple[int, str]:
        command = ["draw", str(GRAPHS / graph), "-o", str(tmp_path / output), *words]
        result = CliRunner().invoke(app, command, env={"COLUMNS": "200"})
        return result.exit_code, result.output

    for name in ("a.svg", "a.html", "a.gv"):
        code, output = run("momentum.json", name, "--depth", "2")
        assert (code, output) == (0, f"{tmp_path / name}: 20 nodes\n")
    svg, html, _ = ((tmp_path / f"a.{form}").read_text() for form in ("svg", "html", "gv"))
    assert (svg.count('class="node"'), svg.count('class="edge"')) == (3, 2)
    assert "... 14 more below" in svg and "... 3 more below" in svg
    assert (html.count("<details open>"), html.count("<i ")) == (1, 20)

    code, output = run("broken/node_without_kind.json", "b.svg")
    assert code == 1 and "at children[0].children[0]" in output
    assert "must end in one of .svg" in run("momentum.json", "a.png")[1]
    monkeypatch.setenv("PATH", "")
    assert "the package graphviz" in run("momentum.json", "b.svg")[1]
    assert not (tmp_path / "b.svg").exists() and run("momentum.json", "b.html")[0] == 0
