"""The command `typed-shapes` on every example, and on input that nobody means to hand in."""

import json
import os
import signal
import subprocess
import sys
import tracemalloc
import zipfile
from importlib.metadata import version
from pathlib import Path

import numpy as np
import pytest
from quillmere.functions import _typed_shapes as shapes
from rich.text import Text
from typed_shapes_cli import life
from typed_shapes_cli.app import app
from typed_shapes_cli.console import console
from typed_shapes_cli.difference import first_difference
from typed_shapes_cli.kinds import KINDS
from typed_shapes_cli.locating import in_graph, in_order
from typed_shapes_cli.misfits import format_path, misfit_path
from typed_shapes_cli.summaries import array_facts
from typer.testing import CliRunner

EXAMPLES = Path(__file__).resolve().parent.parent / "examples"
STATES = EXAMPLES / "payloads" / "states"
FITTING = sorted(f for d in ("graphs", "payloads") for f in (EXAMPLES / d).iterdir() if f.is_file())
MISFITS = {
    "graphs/broken/child_is_a_name.json": ("got str", "children[2].children[0].children[0]"),
    "graphs/broken/children_is_an_object.json": ("must be a list; got dict", "args[0].args"),
    "graphs/broken/node_without_kind.json": ("'type' field; got None", "children[0].children[0]"),
    "payloads/broken/aggregation.json": ("must be np.ndarray", "['risk_parity.weights']"),
    "payloads/broken/checkpoint.json": ("has length 24; 2 is required", "nodes"),
    "payloads/broken/era_index.json": ("schema_version must be 2; got 0", "schema_version"),
    "payloads/broken/evidence.jsonl": ("payload required or None; got list", None),
    "payloads/broken/history.npz": ("['volume'] has dtype float32, expected float64", "volume"),
    "payloads/broken/manifest.json": ("['canonical_id_to_filename', 'dag_metadata']", None),
    "payloads/broken/masks.npz": ("invalid float16 state value at index 2", "tradable"),
    "payloads/broken/metaparameters.json": ("not metaparameters per pool", "features"),
    "payloads/broken/params.json": ("minimum must be int or None; got float", "decay.min"),
    "payloads/broken/stage.json": ("producer boundary mapping required; got list", None),
    "payloads/broken/target_instruments.json": ("target_instruments[1] must be an object", "[1]"),
    "payloads/broken/window.json": ("WindowSpec.maximum must be int or None; got str", "max"),
}
CLASSES = {"checkpoint": "ValueError", "target-instruments": "ValueError", "metaparameters": None}
DEEP = '{"type": "bool", "children": [' * 5000 + "]}" * 5000
INPUTS = [  # name, content, arguments before it, exit code, a part of what is said
    ("cut.json", b"{}", ["same", "/no/such/file"], 2, "cannot be read: No such file"),
    ("cut.json", b'{"type":', ["show"], 2, "is not valid JSON"),
    ("junk.npz", b"PK\x03\x04junk", ["show", "--as", "history"], 2, "not a readable .npz"),
    ("some.npz", b"", ["show"], 2, "a payload of kind graph is JSON"),
    ("deep.json", DEEP.encode(), ["show"], 2, "deep.json: too deeply nested: the limit is"),
    ("mixed.jsonl", b'true\n{\n{"min": 1}', ["check", "--as", "window"], 2, "1 fit, 1 misfit, 1"),
    ("null.json", b"null", ["show", "--as", "aggregation"], 1, "gave no aggregation output"),
    ("empty.json", b" \n", ["show"], 2, "empty.json: is empty"),
    ("empty.jsonl", b"", ["show"], 0, "contains no payload"),
    ("long.json", b"[" + b"9" * 5000 + b"]", ["show"], 2, "an integer of more than 4300 digits"),
    ("pickle.json", b"\x80\x05", ["show"], 2, "is not valid UTF-8 (byte 0)"),
    ("pools.json", b'{"a": {}, "b": 1}', ["check", "--as", "metaparameters"], 1, "at b\n"),
    ("some.log", b"1\n\nx\n", ["check", "--lines", "--as", "window"], 2, "some.log:3: is not"),
    (
        "a.json",
        b'{"op": "a", "value": [NaN, 1e999, "\\ud800"]}',
        ["show"],
        0,
        "[nan, inf, '\\ud800']",
    ),
    ("escape.json", b'{"type": "\\u001b[31m"}', ["show"], 0, "rotation \\x1b[31m\n"),
    ("graph.json", b"{}", ["show", "--as", "grpah"], 2, "Did you mean 'graph'?"),
    ("masks.json", b"{}", ["show", "--as", "masks", "--n-alloc", "-5"], 2, "for '--n-alloc'"),
    ("10.json", b'{"type":"a"}', ["show", "--max-bytes", "10"], 2, "holds more than 10 bytes"),
    (
        "a.jsonl",
        b"%13d\n1" % 1,
        ["check", "--as=window", "--max-bytes=12"],
        2,
        "1 fit, 0 misfit, 1",
    ),
]
HEADER = "{'descr': %s, 'fortran_order': False, 'shape': (%s,)}"
MALFORMED = ["{", "{'", "{[]: 1}", "{1: 2, 'a': 3}", "[" * 9000]
MALFORMED += [HEADER % ("'<f8'", length) for length in ("True", "-1", "2", "1" + "0" * 30)]
MALFORMED += [HEADER % (descr, 10**10) for descr in ("[('a',)]", "'<U0'", "'O'", "'<f9'")]
NASTY = "\x1b[31m\x9b\r\u202e\x7f"


def run(*words: object) -> tuple[int, str]:
    result = CliRunner().invoke(app, [*map(str, words)], env={"COLUMNS": "200"})
    assert result.exception is None or isinstance(result.exception, SystemExit)
    return result.exit_code, result.output


def kind_of(file: Path) -> str:
    return "graph" if "graphs" in file.parts else file.stem.replace("_", "-")


@pytest.mark.parametrize("file", FITTING, ids=lambda file: file.name)
def test_every_example_fits_and_is_shown_in_few_lines(file: Path) -> None:
    code, output = run("show", "--as", kind_of(file), "--limit", "60", file)
    assert (code, output.count("\n") < 130) == (0, True)
    assert set(KINDS) <= {*map(kind_of, FITTING)}
    strict = ["--strict"] * (file.suffix != ".npz")
    assert run("check", *strict, "--as", kind_of(file), file)[0] == 0


def test_every_broken_example_is_refused_with_the_text_of_the_library() -> None:
    assert {str(f.relative_to(EXAMPLES)) for f in EXAMPLES.glob("*/broken/*")} == set(MISFITS)
    for name, (text, at) in MISFITS.items():
        kind = kind_of(EXAMPLES / name)
        code, output = run("check", "--as", kind, "--format", "json", EXAMPLES / name)
        last = json.loads(output)["results"][-1]
        assert (code, last["status"], last["at"]) == (1, "misfit", at), name
        raised = CLASSES.get(kind, "SchemaError")
        shown = f"{raised}: {last['error']}" if raised == "ValueError" else last["error"]
        assert text in last["error"] and last["raised"] == raised
        assert shown + "\n" in run("show", "--as", kind, last["file"])[1]
        if name.endswith(".json"):
            payload = json.loads((EXAMPLES / name).read_text())
            assert format_path(misfit_path(kind, payload)) == (at or "")


@pytest.mark.parametrize(("name", "content", "words", "code", "text"), INPUTS)
def test_odd_input_is_named_in_a_line(
    tmp_path: Path, name: str, content: bytes, words: list[str], code: int, text: str
) -> None:
    (file := tmp_path / name).write_bytes(content)
    got, output = run(*words, file)
    assert got == code and text in output and "Traceback" not in output


def test_same_tells_where_states_differ(tmp_path: Path) -> None:
    assert run("same", STATES / "evening.json", STATES / "evening_reordered.json") == (0, "equal\n")
    code, output = run("same", STATES / "evening.json", STATES / "next_morning.json")
    assert code == 1 and output.startswith("different at ewma.weights[1]\n") and "0.25\n" in output
    buffers = (STATES / "ring_buffer.npz", STATES / "ring_buffer_drifted.npz")
    assert "different at close[6][4]\n" in run("same", *buffers)[1]
    np.savez(tmp_path / "pickled.npz", a=np.array([{}], dtype=object))
    assert run("same", tmp_path / "pickled.npz", tmp_path / "pickled.npz")[0] == 2
    found = first_difference({"a": [1, {"b c": None}]}, {"a": (1.0, {"b c": np.arange(3)})})
    assert found and (found.at, found.left) == ("a[1]['b c']", "None")

    a = np.array([2**53, 1])  # as float64, which has no 2**53 + 1
    assert first_difference(a, a + [1, 0]) is None
    assert (found := first_difference(a, a + [1, 1])) and found.at == "[1]"
    for name, value in (("a", 1e308), ("b", -1e308)):  # NumPy warns of an overflow
        np.savez(tmp_path / name, x=np.full(2, value))
    assert "at x[0]\n" in run("same", tmp_path / "a.npz", tmp_path / "b.npz")[1]
    assert "can be read only once" in run("same", "-", "-")[1]


def test_malformed_archives_are_results_and_the_run_goes_on(tmp_path: Path) -> None:
    def archive(name: object, text: str, form: int = zipfile.ZIP_STORED) -> Path:
        start = b"\x93NUMPY\x01\x00" + len(text).to_bytes(2, "little")
        with zipfile.ZipFile(file := tmp_path / f"{name}{NASTY}.npz", "w", form) as made:
            made.writestr("a.npy", start + text.encode() + bytes(8))
        return file

    files = [archive(index, text) for index, text in enumerate(MALFORMED)]
    files.append(archive("lzma", HEADER % ("'<f8'", 1), zipfile.ZIP_LZMA))
    files.append(archive("good", HEADER % ("'<f8'", 1)))
    code, output = run("check", "--as", "masks", "--format", "json", *files)
    states = [result["status"] for result in json.loads(output)["results"]]
    assert (code, states) == (2, ["unreadable"] * (len(files) - 1) + ["fit"])
    assert "more than 20 bytes" in run("show", "--as=masks", "--max-bytes=20", files[-1])[1]


def test_what_a_payload_or_the_command_line_brings_is_printed_as_escapes(tmp_path: Path) -> None:
    (folder := tmp_path / (NASTY + "\udcff")).mkdir()
    node = {"type": NASTY, "name": NASTY, "config": {NASTY: [NASTY]}, "value": {NASTY: 1}}
    payloads = {"graph": node, "params": {NASTY: {"min": NASTY}}, "metaparameters": {NASTY: 1}}
    for kind, payload in (payloads | {"evidence": {NASTY: node}, "empty": ""}).items():
        (folder / f"{kind}.jsonl").write_text(json.dumps(payload) if payload else "")
    for name in ("a", "b"):
        cell = np.array([(NASTY + name, 1)], dtype=[(NASTY, "U12"), ("b", int)])
        np.savez(folder / name, **{NASTY: cell[NASTY], "x" + NASTY: cell})
    arrays = folder / "a.npz", folder / "b.npz"
    commands = [("show", "--as", k, folder / f"{k}.jsonl") for k in (*payloads, "evidence")]
    commands += [("show", "--as", kind, arrays[0]) for kind in ("stage", "aggregation", "history")]
    commands += [("show", folder / "empty.jsonl"), ("same", *arrays), ("same", NASTY, "x")]
    commands += [("show", "--as", NASTY, "x"), ("show", "x", NASTY), (NASTY,), ("--" + NASTY,)]
    for words in commands:
        output = run(*words)[1]
        assert "\\r" in output or "\\x0d" in output, words  # typer writes it so
        assert output.replace("\n", "").isprintable(), words
    with (out := console()).capture() as captured:  # a caller that forgets to make a text printable
        out.print(Text(NASTY))
    assert captured.get() == "\\x1b[31m\\x9b\\u202e\\x7f\n"


def test_work_and_memory_grow_in_step_with_the_payload(monkeypatch: pytest.MonkeyPatch) -> None:
    asked, sums = [], []
    counted = lambda call: lambda *parts: asked.append(len(str(parts))) or call(*parts)  # noqa: E731
    monkeypatch.setattr(shapes, "states_equal", counted(shapes.states_equal))
    for depth in (100, 200):
        a, b = 5, 6
        for _ in range(depth):
            a, b = ({"type": "x", "children": [{"type": "y"}, node]} for node in (a, b))
        found = in_graph(a, counted(shapes.coerce_graph))
        sums.append(sum(asked))
        assert first_difference(a, b).at == format_path(found)
        sums.append(sum(asked) - sums[-1])
        asked.clear()
    assert sums[2] < 3 * sums[0] and sums[3] < 3 * sums[1]
    assert in_order([0] * 200 + ["x"], counted(lambda part: int(part[0]))) == [200]
    assert sum(asked) < 201 * len("(['x'],)") + 1
    tracemalloc.start()
    array_facts(np.empty(10**6, dtype=np.int64))
    peak = tracemalloc.get_traced_memory()[1]
    tracemalloc.stop()
    assert peak < 8.1e6  # the array alone


def test_a_large_input_shows_a_sign_of_life_that_goes_away(monkeypatch: pytest.MonkeyPatch) -> None:
    files = [STATES / "evening.json"] * 2, [EXAMPLES / "payloads" / "stage.npz"] * 2
    for words in (["same", *files[0]], ["same", *files[1]], ["check", "--as=stage", *files[1]]):
        shown = []
        for quiet_for, large in ((9, 9**9), (9, 0), (0, 0)):
            monkeypatch.setattr(life, "QUIET_FOR", quiet_for)
            monkeypatch.setattr(life, "LARGE", large)
            env = {"FORCE_COLOR": "1", "NO_COLOR": "1", "TERM": "xterm", "COLUMNS": "30"}
            result = CliRunner().invoke(app, [*map(str, words)], env=env)
            shown += [result.stderr]
        json_file = words[1] == files[0][0]
        assert not shown[0] and json_file == ("\rparsing evening.json: 0.2 kB" in shown[1])
        assert f"\rreading {words[-1].name}: " in shown[2] and shown[2].endswith("\r\x1b[K\r")
        assert max(map(len, shown[2].split("\x1b[K"))) <= 30


def test_closed_and_full_streams_end_in_a_line() -> None:
    for words, error in (
        ("--as graph - <&-", b"-: cannot be read: the standard input is closed\n"),
        ("--as window --format json - >/dev/full", b"cannot be written: No space left on device\n"),
        ("--as window - >/dev/full 2>/dev/full", b""),
    ):
        command = ["sh", "-c", f"exec '{sys.executable}' -m typed_shapes_cli check {words}"]
        done = subprocess.run(command, input=b"1", capture_output=True)
        assert (done.returncode, done.stderr.count(b"\n")) == (2, error.count(b"\n")), words
        assert done.stderr.endswith(error), words


def test_a_package_that_hides_the_module_is_named(tmp_path: Path) -> None:
    (tmp_path / "quillmere").mkdir()
    (tmp_path / "quillmere" / "__init__.py").touch()
    child = start("kinds", PYTHONPATH=f"{tmp_path}{os.pathsep}{os.environ.get('PYTHONPATH', '')}")
    said = child.communicate()[1]
    assert (child.returncode, said.count("\n")) == (1, 1)
    assert f"the package in {tmp_path / 'quillmere'} hides it" in said


def start(*words: object, **env: str) -> subprocess.Popen[str]:
    base = {k: v for k, v in os.environ.items() if k not in ("COLUMNS", "FORCE_COLOR", "NO_COLOR")}
    command = [sys.executable, "-m", "typed_shapes_cli", *map(str, words)]
    pipes = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
    heed = lambda: signal.signal(signal.SIGINT, signal.SIG_DFL)  # noqa: E731  # as in front
    return subprocess.Popen(command, env=base | env, text=True, preexec_fn=heed, **pipes)


def test_piped_output_is_plain_and_colours_heed_the_environment() -> None:
    def said(**env: str) -> str:
        return start("show", EXAMPLES / "graphs" / "pairs.json", **env).communicate()[0]

    assert "\x1b" not in said() and said().count("\n") == 17
    colours = {"FORCE_COLOR": "1", "TERM": "xterm-256color"}
    assert "\x1b[1;36m" in said(**colours)
    assert "36m" not in said(**colours, NO_COLOR="1")
    assert "\x1b" not in said(FORCE_COLOR="1", TERM="dumb")


@pytest.mark.parametrize("form", ["text", "json"])
def test_results_come_while_the_input_goes_on_and_an_end_is_quiet(form: str) -> None:
    with start("check", "--as", "window", "--lines", "--format", form, "-") as process:
        process.stdin.write("null\n" * 10_000)  # more than the reader takes at once
        process.stdin.flush()
        if form == "text":
            assert process.stderr.readline().startswith("-:1: the payload is null")
            process.send_signal(signal.SIGINT)
            assert (process.wait(), process.stdout.read()) == (130, "")
        else:
            assert '"line": 1,' in process.stdout.readline() + process.stdout.readline()
            process.stdout.close()
            process.stdin.close()
            assert (process.wait(), process.stderr.read()) == (141, "")


def test_version_kinds_and_completion() -> None:
    assert f"typed-shapes {version('quillmere-typed-shapes')} (" in run("--version")[1]
    params = ["show", "--as", "params", str(EXAMPLES / "payloads" / "params.json")]
    for columns in ("40", "80", "200"):  # too narrow for a table, narrow, and wide
        for words, names in ((["kinds"], {*KINDS}), (params, {"'ascending'", "'average'", "240"})):
            output = CliRunner().invoke(app, words, env={"COLUMNS": columns}).output
            assert names <= {*output.split()}
            assert max(map(len, output.splitlines())) <= int(columns)
    shell = {"_TYPED_SHAPES_COMPLETE": "complete_fish", "_TYPER_COMPLETE_FISH_ACTION": "get-args"}
    asked = start(**shell, _TYPER_COMPLETE_ARGS="typed-shapes check --as ma").communicate()[0]
    assert [line.split("\t")[0] for line in asked.splitlines()] == ["manifest", "masks"]
